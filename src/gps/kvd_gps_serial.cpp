// kvd_gps_serial.cpp - Callbacks of the serial driver and the framing of sentences.
#include "gps/kvd_gps_serial.h"

#include "base/trace_groups.h"
#include "hw/kvd_serial_line.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"
#include "unit/kvd_unit_process.h"

#include <array>
#include <cstring>
#include <span>

namespace {

constexpr u32 ASSEMBLY_SIZE = 256;
constexpr u32 SENTENCE_MAX = 254;        // characters of a sentence, its CR with them
constexpr u32 SENTENCE_EXTRA = 14;       // a posted buffer's bytes beyond the sentence's length
enum SerialState : u8 { SERIAL_IDLE = 0, SERIAL_IN_SENTENCE = 1 };

constexpr auto SETTINGS = serialSettings(SENTENCE_MAX, 10);

struct LineRow {
    const char* process;                 // client process of the driver
    SIGSELECT sentence;                  // number of a sentence's signal, 0: none is framed
    TraceGroup traceGroup;
};
constexpr LineRow LINES[GPS_LINES] = {
    {"TuGpsInt_proc",    KVD_TUGPS_NMEA_MSG_REC,    TRACE_TUGPS},
    {"TuGpsOslInt_proc", KVD_TUGPSOSL_NMEA_MSG_REC, TRACE_TUGPS_OSL},
    {"TuGpsOutInt_proc", 0,                         TRACE_TUGPS_OUT},
};

struct LineState {
    bool open = false;
    u8   serialState = SERIAL_IDLE;
    u32  index = 0;                      // characters in `text`
    char text[ASSEMBLY_SIZE] = {};
    GpsSerialCounters counters;
};
struct State {
    std::array<LineState, GPS_LINES> line;
};
ose::ModuleData<State> s;

template <GpsLine LINE>
void onError(u32 code)
{
    KVD_TRACE(LINES[LINE].traceGroup, TRACE_ERROR, "Error from serial port (err = 0x%x)", code);
}

template <GpsLine LINE>
void onData(const SerialBuffer* buffer, u32 count)
{
    KvdLoz6TuGps_serialReceived(buffer != nullptr ? buffer->bytes : nullptr, count, LINE);
}

template <GpsLine LINE>
constexpr SerialPortDescriptor portOf()
{
    return serialPort(SETTINGS, onError<LINE>, onData<LINE>, LINES[LINE].process);
}
constexpr SerialPortDescriptor PORTS[GPS_LINES] = {portOf<GPS_LINE_RECEIVER>(), portOf<GPS_LINE_SYNC_LINK>(),
                                                   portOf<GPS_LINE_OUTPUT>()};

void postSentence(const LineState& state, SIGSELECT sigNo)
{
    Signal* sig = ose::alloc(state.index + SENTENCE_EXTRA, sigNo);
    auto* rec = reinterpret_cast<KvdTugpsNmeaMsgRec*>(sig);
    rec->length = state.index;
    std::memcpy(reinterpret_cast<char*>(sig) + offsetof(KvdTugpsNmeaMsgRec, text), state.text,
                state.index + 1);
    ose::send(&sig, KvdLoz6TuMgr_pid());
}

void takeByte(LineState& state, const LineRow& row, char byte)
{
    if (state.index >= SENTENCE_MAX) {   // between sentences, too: the byte is gone whatever it is
        if (state.serialState == SERIAL_IN_SENTENCE) {
            ++state.counters.numberOfTooLongMsgs;
            KVD_TRACE(row.traceGroup, TRACE_INFO, "Too big NMEA message received");
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
    postSentence(state, row.sentence);
    state.serialState = SERIAL_IDLE;
    state.index = 0;
}

}  // namespace

int KvdLoz6TuGps_openSerial(GpsLine line)
{
    LineState& state = s->line[line];
    if (!state.open) {                   // what was begun before the closing isn't continued
        state.serialState = SERIAL_IDLE;
        state.index = 0;
    }
    const int result = HALI_subscribeSerialPort(PORTS[line]);
    if (result != 0) {
        KVD_TRACE(LINES[line].traceGroup, TRACE_ERROR, "Unsuccessful call to HALI_subscribeSerialPort");
        return result;
    }
    state.open = true;
    return 0;
}

void KvdLoz6TuGps_closeSerial(GpsLine line)
{
    if (!s->line[line].open) return;     // the line may be another client's
    s->line[line].open = false;
    HALI_closeSerialPort(1);
}

bool KvdLoz6TuGps_serialIsOpen(GpsLine line) { return s->line[line].open; }

void KvdLoz6TuGps_serialReceived(const u8* bytes, u32 count, GpsLine line)
{
    const LineRow& row = LINES[line];
    if (bytes == nullptr) {
        KVD_TRACE(row.traceGroup, TRACE_ERROR, "Null pointer passed");
        return;
    }
    LineState& state = s->line[line];
    state.counters.numberOfBytesRec += count;
    if (row.sentence == 0) return;
    for (const u8 byte : std::span(bytes, count)) takeByte(state, row, static_cast<char>(byte));
}

const GpsSerialCounters& KvdLoz6TuGps_serialCounters(GpsLine line) { return s->line[line].counters; }
void KvdLoz6TuGps_clearSerialCounters(GpsLine line) { s->line[line].counters = {}; }
