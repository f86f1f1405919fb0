// kvd_gps_send.cpp - Send queue, its pacing, one-shot commands.
#include "gps/kvd_gps_send.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_capture.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send_int.h"
#include "hw/hali.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"
#include "sig/ref_types.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_process.h"

#include <cstring>

namespace {

constexpr OSTIME PACING_ms = 1000;

ose::ModuleData<gps::SendState> s;
ose::ModuleData<KvdTimer> sendToGpsTimer;       // outlives a stop, as its time-out may

struct KnownCommand { const char* body; u32 GpsSendCounters::* counter; };
constexpr KnownCommand KNOWN_COMMANDS[] = {
    {"PTNLQVR,S",      &GpsSendCounters::numberOfPTNLQVRS},
    {"PTNLQVR,H",      &GpsSendCounters::numberOfPTNLQVRH},
    {"PTNLQBA",        &GpsSendCounters::numberOfPTNLQBA},
    {"PNVX,GPrst,S,1", &GpsSendCounters::numberOfPNVXGPrst},
    {"PTNLSRT,C,0",    &GpsSendCounters::numberOfPTNLSRT},
    {"PNVX,GPdbg,g",   &GpsSendCounters::numberOfPNVXGPdbgG},
    {"PNVX,GPdbg,r,i", &GpsSendCounters::numberOfPNVXGPdbgRI},
    {"PNVX,GPdbg,r,o", &GpsSendCounters::numberOfPNVXGPdbgRO},
    {"PNVX,GPdbg,r,s", &GpsSendCounters::numberOfPNVXGPdbgRS},
};

/// One entry of the capture a sentence, though several leave in one write.
void captureSent(const char* text, u32 length)
{
    while (length > 0) {
        const void* const lineEnd = std::memchr(text, '\n', length);
        const u32 line = lineEnd == nullptr
                             ? length
                             : static_cast<u32>(static_cast<const char*>(lineEnd) - text) + 1;
        KvdLoz6TuGps_capture(text, line, GPS_CAPTURE_SENT);
        text += line;
        length -= line;
    }
}

u32 takeQueue(char* out)
{
    const u32 length = s->queued;
    std::memcpy(out, s->queue, length + 1);
    s->queued = 0;
    s->queue[0] = '\0';
    return length;
}

/// One turn of the pacing: the whole queue, or the reset sequence's next sentence, in one write.
void pace()
{
    KvdLoz6TuGps_startSending();
    if (s->queued == 0 && !s->resetActive) return;
    if (KvdLoz6TuGps_gpssType() == GPSS_FURUNO && s->commandFlag == 0) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "GPS01 Furuno but coli command isn't executed");
        return;
    }
    char text[gps::SEND_QUEUE_SIZE] = {};
    const u32 length = s->resetActive ? gps::nextResetSentence(text) : takeQueue(text);
    if (length == 0) return;
    if (HALI_writeSerialPort(reinterpret_cast<const u8*>(text), length) != 0) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Failed to send \"%s\" to GPS", text);
        return;
    }
    s->counters.numberOfBytesSent += length;
    s->commandFlag = 0;
    captureSent(text, length);
}

}  // namespace

namespace gps {

SendState& sendState() { return *s; }

}  // namespace gps

void KvdLoz6TuGps_startSending()
{
    // A command that overflows the queue doesn't take the timer: its time-outs are the manager's.
    if (ose::current_process() != KvdLoz6TuMgr_pid()) return;
    if (!KvdTimer_start(*sendToGpsTimer, PACING_ms, KVD_TUGPS_SEND_TO_GPS_TIMEOUT))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "sendToGpsTimer failed to start!");
}

void KvdLoz6TuGps_stopSending()
{
    KvdTimer_cancel(*sendToGpsTimer);
    const GpsSendCounters counters = s->counters;
    *s = {};
    s->counters = counters;
}

void KvdLoz6TuGps_onSendTimeout()
{
    if (KvdTimer_expired(*sendToGpsTimer) && KvdLoz6TuGps_gpsState() != GPS_UN_INIT) pace();
}

bool KvdLoz6TuGps_queueSentence(const char* sentence, u32 length)
{
    if (KvdLoz6TuGps_gpssType() == GPSS_FURUNO && s->commandFlag == 0) return false;
    constexpr u32 ROOM = gps::SEND_QUEUE_SIZE - 1;
    if (length > ROOM - s->queued) pace();
    if (length > ROOM - s->queued) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Not enough space left in send to GPS buffer");
        return false;
    }
    std::memcpy(s->queue + s->queued, sentence, length);
    s->queued += length;
    s->queue[s->queued] = '\0';
    s->counters.numberOfBytesQueued += length;
    return true;
}

bool KvdLoz6TuGps_queueOrdered(const char* sentence, u32 length)
{
    const u32 before = s->commandFlag;
    s->commandFlag = 1;
    if (!KvdLoz6TuGps_queueSentence(sentence, length)) {
        s->commandFlag = before;
        return false;
    }
    s->commandFlag = 1;                  // a write that made room has cleared it
    return true;
}

u32 KvdLoz6TuGps_queuedBytes() { return s->queued; }

bool KvdLoz6TuGps_takesOneShots()
{
    return KvdLoz6TuGps_gpssType() != GPSS_NORVANE && KvdLoz6TuGps_tuGpsRefType() == GPS_REF
           && KvdLoz6TuGps_historyAboveUnInit();
}

bool KvdLoz6TuGps_sendOneShot(const char* body, bool withChecksum, bool ordered)
{
    if (!KvdLoz6TuGps_takesOneShots()) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "GpsFwRestart not initiated!");
        return false;
    }
    char sentence[gps::SEND_QUEUE_SIZE];
    const u32 length = KvdLoz6TuGps_frameSentence(sentence, sizeof sentence, body,
                                                  withChecksum ? NMEA_CHECKSUM : NMEA_PLAIN);
    const bool queued = ordered ? KvdLoz6TuGps_queueOrdered(sentence, length)
                                : KvdLoz6TuGps_queueSentence(sentence, length);
    if (!queued) return false;
    for (const KnownCommand& known : KNOWN_COMMANDS)
        if (std::strcmp(body, known.body) == 0) ++(s->counters.*known.counter);
    return true;
}

const GpsSendCounters& KvdLoz6TuGps_sendCounters() { return s->counters; }
void KvdLoz6TuGps_clearSendCounters() { s->counters = {}; }
