// kvd_gps_reset.cpp - Restarts, resets and changes of protocol of each kind of receiver.
#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send_int.h"
#include "node/platform.h"
#include "node/trace.h"
#include "unit/kvd_gps_state.h"

#include <cstring>

namespace {

constexpr u32 LAST_FILLER = 19;          // twenty fillers, one a second
constexpr u32 FILLER_SIZE = 82;
constexpr char FILLER_HEAD[] = "$PNVX,x,x,x,";
constexpr char FILLER_TAIL[] = "*50\r\n";
constexpr u32 STEP_RESET = 2, STEP_DEBUG = 3;    // behind GPS02_CLEAR_AND_RESET and GPS02_CLEAR

using node::shellPrintf;

bool queueFramed(const char* body, NmeaFrame frame)
{
    char sentence[80];
    const u32 length = KvdLoz6TuGps_frameSentence(sentence, sizeof sentence, body, frame);
    return KvdLoz6TuGps_queueSentence(sentence, length);
}

bool refuse(const char* text)
{
    shellPrintf("%s", text);
    return false;
}

void endReset()
{
    gps::SendState& state = gps::sendState();
    state.resetActive = false;
    state.pnvxCnt = 0;
    state.resetStep = gps::RESET_STEP_IDLE;
}

/// Fills the receiver's input buffer: what lies half read in it is pushed out.
u32 filler(char* out)
{
    std::memset(out, 0, FILLER_SIZE);
    std::memcpy(out, FILLER_HEAD, sizeof FILLER_HEAD - 1);
    constexpr u32 TAIL_SIZE = sizeof FILLER_TAIL - 1;
    std::memcpy(out + FILLER_SIZE - TAIL_SIZE, FILLER_TAIL, TAIL_SIZE);
    return FILLER_SIZE;
}

u32 sentence(char* out, const char* text)
{
    const u32 length = static_cast<u32>(std::strlen(text));
    std::memcpy(out, text, length + 1);
    return length;
}

}  // namespace

namespace gps {

u32 nextResetSentence(char* out)
{
    SendState& state = sendState();
    if (state.pnvxCnt > LAST_FILLER) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Invalid pnvxCnt = %d", static_cast<int>(state.pnvxCnt));
        return 0;
    }
    switch (state.resetStep) {
    case GPS02_CLEAR_AND_RESET:
    case GPS02_CLEAR:
        if (state.pnvxCnt < LAST_FILLER) ++state.pnvxCnt;
        else if (state.resetStep == GPS02_CLEAR_AND_RESET) state.resetStep = STEP_RESET;
        else endReset();
        return filler(out);
    case STEP_RESET:
        ++state.counters.numberOfPTNLSRT;
        if (state.resetDebug) state.resetStep = STEP_DEBUG;
        else endReset();
        state.resetDebug = false;
        return sentence(out, "$PTNLSRT,C,0*20\r\n");
    case STEP_DEBUG:
        ++state.counters.numberOfPNVXGPdbgG;
        endReset();
        return sentence(out, "$PNVX,GPdbg,g*01\r\n");
    default: KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Gps02ResetColi done."); return 0;
    }
}

}  // namespace gps

void KvdLoz6TuGps_startGps02Reset(u32 step, bool debug)
{
    gps::SendState& state = gps::sendState();
    state.resetStep = step;
    state.pnvxCnt = 0;
    state.resetDebug = debug;
    state.resetActive = true;
}

bool KvdLoz6TuGps_GpsFwRestart()
{
    if (KvdLoz6TuGps_isFirmware("Unknown")) return false;
    if (KvdLoz6TuGps_isFirmware("110624")) {
        KvdLoz6TuGps_startGps02Reset(GPS02_CLEAR_AND_RESET, true);
        return true;
    }
    if (!KvdLoz6TuGps_isFirmware("120510")) return KvdLoz6TuGps_sendOneShot("PNVX,GPrst,S,1", true);
    if (!KvdLoz6TuGps_sendOneShot("PNVX,GPdbg,r,i", true)) return false;
    return KvdLoz6TuGps_sendOneShot("PNVX,GPdbg,r,o", true);
}

bool KvdLoz6TuGps_resetHrv()
{
    if (!KvdLoz6TuGps_isFirmware("120510")) return false;
    return KvdLoz6TuGps_sendOneShot("PNVX,GPdbg,r,s", true);
}

bool KvdLoz6TuGps_changeProtocol(u32 protocol)
{
    constexpr const char* NOT_POSSIBLE = "Protocol change is not supported.\n"
                                         "Please check GPS reference and state defined on node";
    if (!KvdLoz6TuGps_historyAboveUnInit()) return refuse(NOT_POSSIBLE);
    const u32 type = KvdLoz6TuGps_gpssType();
    if (type != GPSS_NORVANE_COMBINED && type != GPSS_FURUNO_GPS02)
        return refuse("GPS receiver does not support changing of protocol.\n");
    const bool toNorvane = protocol == GPS_PROTOCOL_NORVANE;
    const char* const name = toNorvane ? "Norvane Combined" : "Furuno";
    if (toNorvane == (type == GPSS_NORVANE_COMBINED)) {
        shellPrintf("GPS protocol is already set to %s protocol.\n", name);
        return true;
    }
    const bool queued = toNorvane ? queueFramed("PNVX,GPper,1", NMEA_CHECKSUM_BLANK)
                                  : queueFramed("PFEC,GPset,Z1", NMEA_PLAIN);
    if (!queued) return refuse(NOT_POSSIBLE);
    shellPrintf("GPS protocol change to %s protocol has been ordered.\n"
                "Actual protocol can be checked with coli command \"gpsstatus\".\n", name);
    return true;
}

bool KvdLoz6TuGps_resetGps01()
{
    constexpr const char* NOT_POSSIBLE =
        "GPS module can't be reset, message to GPS module can't be send.\n"
        "Please check GPS reference defined on node.\n";
    if (!KvdLoz6TuGps_historyAboveUnInit()) return refuse(NOT_POSSIBLE);
    if (!KvdLoz6TuGps_isFirmware("Unknown") || KvdLoz6TuGps_gpssType() != GPSS_FURUNO)
        return refuse("Connected GPS module is not GPS01\n");
    constexpr char BOTH[] = "$PFEC,GPset,Z1\r\n$PFEC,GPclr,1\r\n";
    return KvdLoz6TuGps_queueOrdered(BOTH, sizeof BOTH - 1) || refuse(NOT_POSSIBLE);
}

void KvdLoz6TuGps_queueModeSetup(bool fixedPosition)
{
    queueFramed(fixedPosition ? "PNVX,GPmod,1" : "PNVX,GPmod,2", NMEA_CHECKSUM_BLANK);
}
