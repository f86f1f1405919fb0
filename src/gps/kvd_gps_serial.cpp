// kvd_gps_serial.cpp - Callbacks of the serial driver and the framing of sentences.
#include "gps/kvd_gps_serial.h"

#include "gps/gps_sig.h"
#include "hw/hali.h"
#include "mgr/kvd_mgr_proc.h"
#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <cstring>

namespace {

constexpr u32 ASSEMBLY_SIZE = 256;
constexpr u32 SENTENCE_MAX = 254;        // characters of a sentence, its CR with them
constexpr u32 SENTENCE_EXTRA = 14;       // a posted buffer's bytes beyond the sentence's length
enum SerialState : u8 { SERIAL_IDLE = 0, SERIAL_IN_SENTENCE = 1 };

// What 0x1001, 0x1002 and 0x1006 mean is the driver's own.
constexpr node::SerialSetting SETTINGS[] = {
    {0x1000, 9600},          // bit/s
    {0x1001, 3000},
    {0x1002, 254},
    {0x1003, 8},             // data bits
    {0x1004, 1},             // stop bits
    {0x1005, 'N'},           // parity
    {0x1006, 10},
    {0xFFFFFFFF, 0},
};

struct State {
    bool open = false;
    u8   serialState = SERIAL_IDLE;
    u32  index = 0;                      // characters in `text`
    char text[ASSEMBLY_SIZE] = {};
    GpsSerialCounters counters;
};
ose::ModuleData<State> s;

SerialBuffer* allocateBuffer(u32 bytes)
{
    return reinterpret_cast<SerialBuffer*>(ose::alloc(sizeof(SIGSELECT) + bytes, 0));
}

void freeBuffer(SerialBuffer* buffer)
{
    Signal* sig = reinterpret_cast<Signal*>(buffer);
    ose::free_buf(&sig);
}

void onError(u32 code)
{
    KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Error from serial port (err = 0x%x)", code);
}

void onData(const SerialBuffer* buffer, u32 count)
{
    KvdLoz6TuGps_serialReceived(buffer != nullptr ? buffer->bytes : nullptr, count);
}

constexpr SerialPortDescriptor PORT{SETTINGS,
                                    {allocateBuffer, freeBuffer, onError, onData, freeBuffer},
                                    2048, 10, UART_VECTOR, "TuGpsInt_proc"};

void postSentence(const State& state)
{
    Signal* sig = ose::alloc(state.index + SENTENCE_EXTRA, KVD_TUGPS_NMEA_MSG_REC);
    auto* rec = reinterpret_cast<KvdTugpsNmeaMsgRec*>(sig);
    rec->length = state.index;
    std::memcpy(reinterpret_cast<char*>(sig) + offsetof(KvdTugpsNmeaMsgRec, text), state.text,
                state.index + 1);
    ose::send(&sig, KvdLoz6TuMgr_pid());
}

void takeByte(State& state, char byte)
{
    if (state.index >= SENTENCE_MAX) {   // between sentences, too: the byte is gone whatever it is
        if (state.serialState == SERIAL_IN_SENTENCE) {
            ++state.counters.numberOfTooLongMsgs;
            KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Too big NMEA message received");
        }
        state.index = 0;
        state.serialState = SERIAL_IDLE;
        return;
    }
    state.text[state.index++] = byte;
    if (state.serialState == SERIAL_IDLE) {
        if (byte != '$') return;
        state.index = 0;
        state.serialState = SERIAL_IN_SENTENCE;
        return;
    }
    if (byte != '\r' && byte != '$') return;
    state.text[state.index] = '\0';
    postSentence(state);
    state.serialState = SERIAL_IDLE;
    state.index = 0;
}

}  // namespace

int KvdLoz6TuGps_openSerial()
{
    if (!s->open) {                      // what was begun before the closing isn't continued
        s->serialState = SERIAL_IDLE;
        s->index = 0;
    }
    const int result = HALI_subscribeSerialPort(PORT);
    if (result != 0) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Unsuccessful call to HALI_subscribeSerialPort");
        return result;
    }
    s->open = true;
    return 0;
}

void KvdLoz6TuGps_closeSerial()
{
    if (!s->open) return;                // the line may be another client's
    s->open = false;
    HALI_closeSerialPort(1);
}

bool KvdLoz6TuGps_serialIsOpen() { return s->open; }

void KvdLoz6TuGps_serialReceived(const u8* bytes, u32 count)
{
    if (bytes == nullptr) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Null pointer passed");
        return;
    }
    State& state = *s;
    state.counters.numberOfBytesRec += count;
    for (u32 i = 0; i < count; ++i) takeByte(state, static_cast<char>(bytes[i]));
}

const GpsSerialCounters& KvdLoz6TuGps_serialCounters() { return s->counters; }
void KvdLoz6TuGps_clearSerialCounters() { s->counters = {}; }
