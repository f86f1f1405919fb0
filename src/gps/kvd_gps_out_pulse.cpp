// Each pulse: the counter's alignment, the second that began, and the words that say which.
#include "base/frame_counter.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps_out_int.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "sig/hwif_sig.h"

#include <algorithm>

namespace {

using namespace gpsout;

// ms
constexpr OSTIME GPOUT_AFTER = 150, GPPPR_AFTER = 400;   // the pulse: GPout comes first
constexpr OSTIME GPGGA_PERIOD = 60'000;
constexpr OSTIME CMCC_TIME_AFTER = 1, CMCC_STATE_AFTER = 200;

// ---- the pulse ----------------------------------------------------------------------------------

/// GPS time by the regulator, s. False when its counter can't be read.
bool regulatorGpsTime(double& gpsTime)
{
    double period = 0, t_f = 0;
    if (HALI_readTime(period, t_f) != 0) return false;
    const TimePair last = KvdLoz6TuReg_getLastTime();
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    const double t_c = hasTurned(t_f, last.f, period) ? last.c + period : last.c;
    gpsTime = t_c + t_f - delta0.c - delta0.f + KvdLoz6TuReg_sfcGpsOffset();
    return true;
}

/// The first interrupt after a lock arms, the next adjusts: the counter then has been read once.
void alignOutput(bool isUsable)
{
    if (!(state().gpsTimeLocked != 0 && state().gpsOutState == OUT_TIMEOFFSET_LOCKED)
        && !(isUsable && state().gpsOutState == OUT_NOTHING_LOCKED)) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "Adjust of GPS OUT is not allowed in this state %s (%u,%u)",
                  stateText(state().gpsOutState), state().gpsTimeLocked, isUsable ? 1u : 0u);
        return;
    }
    if (state().adjustArmed == 0) {
        state().adjustArmed = 1;
        return;
    }
    adjustCounter();
    state().pp1sAligned = 1;
    changeState(state().gpsOutState == OUT_TIMEOFFSET_LOCKED ? EV_ALIGNED : EV_FREQUENCY);
}

/// False when the pulse's time isn't known.
bool takeTime(bool isCounterRead, double counterTime)
{
    double gpsTime = counterTime;
    if (state().gpsOutState == OUT_TIME_LOCKED) {
        if (!regulatorGpsTime(gpsTime)) return false;
        if (state().protocol == PROTOCOL_NORVANE) {
            gpsTime += 1.0;                      // the sentence speaks of the next second
            tuHwIf_resetGpsOutMsiMem();
        }
    } else if (!isCounterRead) {
        return false;
    }
    setTime(gpsTime);
    return true;
}

void startSentences()
{
    if (state().protocol == PROTOCOL_NORVANE) {
        restart(state().gppprTimer, GPPPR_AFTER, KVD_TUGPS_OUT_GPPPR_TIMEOUT, "GPppr");
        return;
    }
    restart(state().cmccTimeTimer, CMCC_TIME_AFTER, KVD_TUGPS_OUT_CMCC_TOD_TIME_TIMEOUT, "CMCC TOD");
    restart(state().cmccStateTimer, CMCC_STATE_AFTER, KVD_TUGPS_OUT_CMCC_TOD_STATE_TIMEOUT, "CMCC TOD state");
}

void onPulse()
{
    if (!speaks()) return;
    if (state().protocol == PROTOCOL_NORVANE)
        restart(state().gpoutTimer, GPOUT_AFTER, KVD_TUGPS_OUT_GPOUT_TIMEOUT, "GPout");
    const bool isUsable = isTimeUsable() && (KvdLoz6TuReg_isMaster() || hasValidLoop());
    if (state().dropped != 0 && (state().pp1sAligned != 0 || !isUsable)) return;
    double period = 0, counterTime = 0;
    const bool isCounterRead = tuHwIf_readGpsOutTime(period, counterTime) == 0;
    if (!isCounterRead) KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "Unable to read register for GPS OUT");
    if (state().pp1sAligned == 0) alignOutput(isUsable);
    if (takeTime(isCounterRead, counterTime))
        startSentences();
    else
        KvdTimer_cancel(state().gpoutTimer);  // a second without a word
}

/// The line is opened again in every case: it carries the references' interrupts, too.
void onInterrupt()
{
    ++state().counters.numberOfHwInterrupts;
    onPulse();
    tuHwIf_enableExtInt();
}

// ---- what goes out ------------------------------------------------------------------------------

void say(std::string_view sentence, u32& count)
{
    if (sentence.empty()) return;
    ++count;
    write(sentence);
}

void onGpppr()
{
    say(gppprSentence(state().gpsTimeTOW, state().gpsTimeWeek, state().gpsOutState),
        state().counters.numberOfPNVXGPpprMsgs);
}

void onGpout()
{
    const bool jump = KvdLoz6TuReg_isMaster() ? KvdLoz6TuReg_jumpState() != JUMP_NOT_NEEDED
                                 : state().master.jumpIndication > 0;
    say(gpoutSentence(KvdLoz6TuIifAdm_radioClockState(), jump,
                      gnssTimePresent(state().master.selectedRef, KvdLoz6TuReg_isMaster(),
                                      KvdLoz6TuIifAdm_selectedRef()),
                      !KvdLoz6TuReg_isMaster()),
        state().counters.numberOfPNVXGPoutMsgs);
}

void onGpgga()
{
    restartGpgga();
    say(gpggaSentence(), state().counters.numberOfPNVXGPGGAMsgs);
}

void onCmccTime()
{
    ++state().counters.numberOfCmccTodTimeMsgs;
    writeFrame(cmccTimeFrame(state().gpsTimeTOW, state().gpsTimeWeek, KvdLoz6TuIifAdm_radioClockState()));
}

void onCmccState()
{
    ++state().counters.numberOfCmccTodStateMsg;
    writeFrame(cmccStateFrame());
}

void onTimeout(KvdTimer& timer, void (*handler)())
{
    if (KvdTimer_expired(timer)) handler();
}

}  // namespace

void gpsout::restart(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo, const char* name)
{
    if (!KvdTimer_restart(timer, time_ms, sigNo))
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "%s timer failed to start!", name);
}

void gpsout::restartGpgga()
{
    if (state().protocol != PROTOCOL_NORVANE) return;
    restart(state().gpggaTimer, GPGGA_PERIOD, KVD_TUGPS_OUT_PERIODIC_GPGGA_TIMEOUT, "GPGGA");
}

void gpsout::cancelSentences()
{
    for (KvdTimer* timer : {&state().gppprTimer, &state().gpggaTimer, &state().cmccTimeTimer,
                            &state().cmccStateTimer, &state().gpoutTimer})
        KvdTimer_cancel(*timer);
    state().sendQueue.clear();
}

void gpsout::adjustCounter()
{
    if (tuHwIf_adjustGpsOutTime(state().boardDelay_ns) != 0)
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Failed to adjust GPS OUT counter");
}

void gpsout::setTime(double gpsTime)
{
    constexpr u32 WEEK_s = 604800;
    const double weeks = std::max(0.0, gpsTime) / WEEK_s;   // a time that is none is the first week
    u32 week = static_cast<u32>(weeks);
    u32 tow = static_cast<u32>((weeks - week) * WEEK_s + 0.5);
    if (tow == WEEK_s) {
        tow = 0;
        ++week;
    }
    state().gpsTimeWeek = week;
    state().gpsTimeTOW = tow;
    state().gpsTime = u64{week} * WEEK_s + tow;
}

bool gpsout::takePulseSignal(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUGPS_OUT_INTERRUPT:              onInterrupt();                                  return true;
    case KVD_TUGPS_OUT_GPPPR_TIMEOUT:          onTimeout(state().gppprTimer, onGpppr);         return true;
    case KVD_TUGPS_OUT_PERIODIC_GPGGA_TIMEOUT: onTimeout(state().gpggaTimer, onGpgga);         return true;
    case KVD_TUGPS_OUT_CMCC_TOD_TIME_TIMEOUT:  onTimeout(state().cmccTimeTimer, onCmccTime);   return true;
    case KVD_TUGPS_OUT_CMCC_TOD_STATE_TIMEOUT: onTimeout(state().cmccStateTimer, onCmccState); return true;
    case KVD_TUGPS_OUT_SIM_INTERRUPT_TIMEOUT:  onSimInterrupt();                               return true;
    case KVD_TUGPS_OUT_GPOUT_TIMEOUT:          onTimeout(state().gpoutTimer, onGpout);         return true;
    default:                                                                                   return false;
    }
}
