// hali.h - Hardware operations of the logic: the thin layer over the hardware interface.
// Owner   stateless; forwards to kvd_hwif.
// Units   seconds, volts, selectors of ref_types.h.
// Errors  0 is success, any other value failure, unless an operation says otherwise.
#pragma once
#include "node/platform.h"
#include "ose/types.h"

#include <cstddef>
#include <span>

/// Finds the board type, then the FPGA base addresses; without them every hardware read fails.
int  HALI_init();
int  HALI_readTime(double& period, double& time);
/// True when performed, false when not needed or failed.
bool HALI_adjustTime(double ext_t, double t);
int  HALI_subscribeRefTime(u32 selector);
int  HALI_unSubscribeRefTime(u32 selector);
/// Toggle status word: bits 0 to 4 lines, 5 1PPS, 6 external reference, 7 raw activity, 8 to 10
/// Ethernet.
u32  HALI_readToggleStatus();

struct OcxoParams {
    double nominalFrequency;      // Hz
    double drift;
    char calibrationDate[11];     // "%Y-%m-%d", empty on board type 1
    double a0, a1, a2, a3;        // ppb against volts
    double tempMin, tempMax;      // volts
};
/// From the EEPROM, read once in the program's life; so is the serial number.
int  HALI_getOcxoParams(OcxoParams& params);
/// 0 good, 1 no register, 2 out of range, 3 no data.
int  HALI_getOcxoTemp(double& volts);
int  HALI_readOcxoSerial(char serial[18], u8& version, u8& manufacturer);

/// The GPS output's counter: on above 0. The frequency is traced, no board has another than its own.
int  HALI_enableTuOut(int enable, int frequency);
/// No board can: 1, traced.
int  HALI_muteTuOut(int mute);

/// Interrupt line of the board's one UART.
constexpr u32 UART_VECTOR = 44;

/// A signal buffer of signal number 0 as the serial driver fills it.
struct SerialBuffer {
    SIGSELECT sigNo;
    u8 bytes[1];
};
static_assert(offsetof(SerialBuffer, bytes) == 4);

/// What the serial driver asks of its client, all needed. They run in the client's interrupt
/// process, or in the caller of simSerialInterrupt; `error` in the caller of close.
struct SerialCallbacks {
    SerialBuffer* (*allocate)(u32 bytes);          // a receive buffer with that room, nullptr: none
    void (*free)(SerialBuffer* buffer);            // of a buffer in which nothing came
    void (*error)(u32 code);
    /// Received bytes; nullptr and 0 when something came and there was no buffer for it.
    void (*deliver)(const SerialBuffer* buffer, u32 count);
    void (*freeDelivered)(SerialBuffer* buffer);
};

/// Serial port of a client: configuration pairs up to key 0xFFFFFFFF, callbacks, interrupt process.
struct SerialPortDescriptor {
    std::span<const node::SerialSetting> settings;   // ended by key 0xFFFFFFFF
    SerialCallbacks callbacks;
    u32 stack;
    u32 priority;
    u32 vector;
    const char* processName;                 // of the interrupt process to create
};
int  HALI_subscribeSerialPort(const SerialPortDescriptor& descriptor);
int  HALI_closeSerialPort(u32 killProcess);
/// Sends; the bytes stay the caller's.
int  HALI_writeSerialPort(const u8* bytes, u32 count);
void HALI_simSerialInterrupt();

int  HALI_getPowerOnTime(u32& time);
/// "tuhwif related data" section.
void HALI_printInfo();
