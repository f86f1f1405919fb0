// hali.cpp - Forwards to the hardware interface, and holds the board's one serial port.
#include "hw/hali.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_regs.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <optional>
#include <span>

namespace {

constexpr u32 SETTINGS_END = 0xFFFFFFFF;
constexpr u32 RECEIVE_ROOM = 256;           // bytes taken from the driver at a time
constexpr int SERIAL_ALREADY_STARTED = 4;
constexpr int SERIAL_NO_DEVICE = 8;

struct OcxoSerial { char text[18]; u8 version, manufacturer; };
struct State {
    bool open = false;
    const char* device = "";
    SerialPortDescriptor port{};
    PROCESS process = 0; // serial interrupt process, stays when only the port is closed
    // What the oscillator's EEPROM said, once it was read well: it stays the same for the program's life.
    std::optional<OcxoParams> params;
    std::optional<OcxoSerial> serial;
};
ose::ModuleData<State> s;

/// One turn of the driver: hands over what has come in.
void serviceSerialPort()
{
    while (s->open) {
        const SerialCallbacks& client = s->port.callbacks;
        SerialBuffer* const buffer = client.allocate(RECEIVE_ROOM);
        if (buffer == nullptr) {   // what came waits for the next turn
            client.deliver(nullptr, 0);
            return;
        }
        const auto count = static_cast<u32>(
            node::platform().serialRead(s->device, buffer->bytes, RECEIVE_ROOM));
        if (count == 0) {
            client.free(buffer);
            return;
        }
        client.deliver(buffer, count);
        client.freeDelivered(buffer);
        if (count < RECEIVE_ROOM) return;
    }
}

/// Those before the one that ends them.
std::span<const node::SerialSetting> settingsOf(const SerialPortDescriptor& descriptor)
{
    const auto end = std::ranges::find(descriptor.settings, SETTINGS_END, &node::SerialSetting::key);
    return {descriptor.settings.begin(), end};
}

void killSerialProcess()
{
    if (s->process == 0) return;
    ose::kill_proc(s->process);
    s->process = 0;
}

}  // namespace

int HALI_init()
{
    if (tuHwIf_initBaseAddresses() != 0) {
        KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Unable to obtain FPGA memory base address");
        return 1;
    }
    return 0;
}

// ---- time, references -------------------------------------------------------------------------

int HALI_readTime(double& period, double& time) { return tuHwIf_readTime(period, time); }
bool HALI_adjustTime(double ext_t, double t) { return tuHwIf_adjustTime(ext_t, t); }
int HALI_subscribeRefTime(u32 selector) { return tuHwIf_selectSynchRef(selector); }
int HALI_unSubscribeRefTime(u32) { return false; }
u32 HALI_readToggleStatus() { return tuHwIf_readToggleStatus(); }

int HALI_getPowerOnTime(u32& time)
{
    time = 0;
    return false;
}

// ---- oscillator -------------------------------------------------------------------------------

int HALI_getOcxoParams(OcxoParams& params)
{
    if (s->params) {
        params = *s->params;
        return 0;
    }
    params = {};
    if (tuHwIf_lookupRegister(REG_NOM_FREQ_HIGH) >> 32 != 0) { // then nothing of the block is there
        KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Unable to obtain FPGA memory address.");
        return 1;
    }
    params.nominalFrequency = tuHwIf_readOcxoCoeff(0);
    std::tm date{};
    if (getBoardType() == BVQ3 && tuHwIf_readOcxoCalibDate(date) == 0)
        std::strftime(params.calibrationDate, sizeof params.calibrationDate, "%Y-%m-%d", &date);
    params.a0 = tuHwIf_readOcxoCoeff(1);
    params.a1 = tuHwIf_readOcxoCoeff(2);
    params.a2 = tuHwIf_readOcxoCoeff(3);
    params.a3 = tuHwIf_readOcxoCoeff(4);
    params.tempMin = tuHwIf_readOcxoCoeff(7);
    params.tempMax = tuHwIf_readOcxoCoeff(8);
    if (params.nominalFrequency > 0) s->params = params;
    return 0;
}

int HALI_getOcxoTemp(double& volts) { return tuHwIf_readOcxoTemp(volts); }

int HALI_readOcxoSerial(char serial[18], u8& version, u8& manufacturer)
{
    if (!s->serial) {
        OcxoSerial read{};
        const int result = tuHwIf_readOcxoSerial(read.text, read.version, read.manufacturer);
        if (result != 0) return result;
        s->serial = read;
    }
    std::memcpy(serial, s->serial->text, sizeof s->serial->text);
    version = s->serial->version;
    manufacturer = s->serial->manufacturer;
    return 0;
}

// ---- output -----------------------------------------------------------------------------------

int HALI_enableTuOut(int enable, int frequency)
{
    KVD_TRACE(TRACE_HALI, TRACE_INFO, "EnableTuOut enable=%d, freq =%d (Not tested)", enable, frequency);
    tuHwIf_enableGpsOut(enable > 0);
    return 0;
}

int HALI_muteTuOut(int)
{
    KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Not supporting muteTuOut");
    return 1;
}

// ---- serial port ------------------------------------------------------------------------------

int HALI_subscribeSerialPort(const SerialPortDescriptor& descriptor)
{
    u32 board = BOARD_UNKNOWN;
    const char* const device = tuHwIf_getSerialPort(board);
    if (s->open) {
        KVD_TRACE(TRACE_HALI, TRACE_ERROR, "UART device %s already started", device);
        return SERIAL_ALREADY_STARTED;
    }
    const auto settings = settingsOf(descriptor);
    const int result = node::platform().serialOpen(device, descriptor.vector, settings.data(),
                                                   settings.size());
    if (result != 0) return result;
    killSerialProcess();
    s->device = device;
    s->port = descriptor;
    s->process = ose::create_process(ose::KIND_INTERRUPT, descriptor.processName, serviceSerialPort,
                                     descriptor.stack, descriptor.priority, 0, descriptor.vector);
    ose::start(s->process);
    s->open = true;
    return 0;
}

int HALI_closeSerialPort(u32 killProcess)
{
    if (s->open) {
        s->open = false;
        const int result = node::platform().serialClose(s->device);
        if (result != 0) s->port.callbacks.error(static_cast<u32>(result));
    }
    if (killProcess == 1) killSerialProcess();
    return 0;
}

int HALI_writeSerialPort(const u8* bytes, u32 count)
{
    const int result = s->open ? node::platform().serialWrite(s->device, bytes, count) : SERIAL_NO_DEVICE;
    if (result != 0) KVD_TRACE(TRACE_HALI, TRACE_ERROR, "Failed writing to serialport (result=%d)", result);
    return result;
}

void HALI_simSerialInterrupt() { serviceSerialPort(); }

void HALI_printInfo() { tuHwIf_printInfo(); }
