// The output's state machine: what the regulator, the loop or the master's time data say of the time,
// and what goes out at each pulse.
#include "gps/kvd_gps_out.h"

#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_upcalls.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/hwif_sig.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_ref_table.h"

#include <cmath>
#include <cstdlib>

namespace {

using namespace gpsout;

ose::ModuleData<State> s;

// ms
constexpr OSTIME GPOUT_AFTER = 150, GPPPR_AFTER = 400;   // the pulse: GPout comes first
constexpr OSTIME GPGGA_PERIOD = 60'000;
constexpr OSTIME CMCC_TIME_AFTER = 1, CMCC_STATE_AFTER = 200;
constexpr OSTIME GRACE = 5'000;
constexpr u32 OUTPUT_INTERRUPT = TU_GPS_OUT_INT;

bool hasValidLoop() { return KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Locked; }

/// On a master the regulator's lock; on a slave what the master said of itself.
bool isTimeUsable()
{
    return KvdLoz6TuReg_isMaster() ? KvdLoz6TuReg_isLocked()
                                   : classTest(s->master.regState, s->master.rcState);
}
bool isOffsetKnown() { return KvdLoz6TuReg_regState() == TRUETIME; }

/// A slave of a node that follows the sync link itself gives nothing back to it.
bool mayBeOn() { return s->master.selectedRef != GPSOSL_REF || KvdLoz6TuReg_isMaster(); }

void enableInterrupt() { tuHwIf_enableIsr(OUTPUT_INTERRUPT); }
void disableInterrupt() { tuHwIf_disableIsr(OUTPUT_INTERRUPT); }
void switchOutput(bool on) { HALI_enableTuOut(on ? 1 : 0, 0); }

// ---- timers -------------------------------------------------------------------------------------

void restart(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo, const char* name)
{
    if (!KvdTimer_restart(timer, time_ms, sigNo))
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "%s timer failed to start!", name);
}

void restartGpgga()
{
    if (s->protocol != PROTOCOL_NORVANE) return;
    restart(s->gpggaTimer, GPGGA_PERIOD, KVD_TUGPS_OUT_PERIODIC_GPGGA_TIMEOUT, "GPGGA");
}

/// What the protocol would have said yet.
void cancelSentences()
{
    for (KvdTimer* timer :
         {&s->gppprTimer, &s->gpggaTimer, &s->cmccTimeTimer, &s->cmccStateTimer, &s->gpoutTimer})
        KvdTimer_cancel(*timer);
    s->sendQueue.clear();
}

// ---- events -------------------------------------------------------------------------------------

void clearFlags()
{
    s->gpsTimeLocked = 0;
    s->pp1sAligned = 0;
    s->adjustArmed = 0;
}

void enableOutput()
{
    if (!mayBeOn()) return;
    enableInterrupt();
    switchOutput(true);
}

u32 stop()
{
    clearFlags();
    s->counters.numberOfHwInterrupts = 0;
    cancelSentences();
    KvdTimer_cancel(s->simIntTmoRef);
    KvdTimer_cancel(s->graceTimer);
    s->driverBusy = 0;
    switchOutput(false);
    disableInterrupt();
    return OUT_UN_INIT;
}

u32 begin()
{
    clearFlags();
    if (!isTimeUsable()) {
        restart(s->graceTimer, GRACE, KVD_TUGPS_OUT_GRACE_TIMEOUT, "Grace");
        return OUT_INIT_SERIAL_PORT;
    }
    enableInterrupt();
    restartGpgga();
    if (!KvdLoz6TuReg_isMaster() || !isOffsetKnown()) return OUT_NOTHING_LOCKED;
    if (mayBeOn()) switchOutput(true);
    s->dropped = 0;
    s->gpsTimeLocked = 1;
    return OUT_TIMEOFFSET_LOCKED;
}

u32 lose()
{
    clearFlags();
    if (s->gpsOutState >= OUT_FREQ_LOCKED) {
        s->dropped = 1;
        switchOutput(false);
    }
    enableInterrupt();
    return OUT_NOTHING_LOCKED;
}

u32 lockFrequency()
{
    clearFlags();
    s->pp1sAligned = 1;
    enableOutput();
    s->dropped = 0;
    restartGpgga();
    KvdTimer_cancel(s->graceTimer);
    return OUT_FREQ_LOCKED;
}

u32 lockTime()
{
    clearFlags();
    if (KvdLoz6TuReg_isMaster()) s->gpsTimeLocked = 1;
    enableOutput();
    s->dropped = 0;
    KvdTimer_cancel(s->graceTimer);
    return OUT_TIMEOFFSET_LOCKED;
}

u32 align()
{
    s->pp1sAligned = 1;
    return OUT_TIME_LOCKED;
}

constexpr u32 from(std::initializer_list<u32> states)
{
    u32 mask = 0;
    for (const u32 state : states) mask |= 1u << state;
    return mask;
}
struct EventRow { u32 allowedFrom; u32 (*act)(); };
constexpr EventRow EVENTS[] = {
    {0, nullptr},
    {from({1, 2, 3, 4, 5, 6}), stop},
    {from({1}), begin},
    {from({2, 4, 5, 6}), lose},
    {from({2, 3, 5, 6}), lockFrequency},
    {from({2, 3, 4, 6}), lockTime},
    {from({5}), align},
};

// ---- what changes the state ---------------------------------------------------------------------

void onTimeWithOffset()
{
    changeState(EV_TIME);
    s->gpsTimeLocked = 1;
}

/// A slave's output follows what the master told of itself.
void followMaster(bool selectionChanged)
{
    if (selectionChanged) {
        if (!mayBeOn()) {
            switchOutput(false);
            disableInterrupt();
        } else if (s->dropped != 0 || s->gpsOutState > OUT_NOTHING_LOCKED) {
            enableInterrupt();
        }
    }
    if (!hasValidLoop()) return changeState(EV_LOST);
    const bool isAlignedAndGood =
        s->pp1sAligned != 0 && classTest(s->master.regState, s->master.rcState);
    if (s->gpsOutState <= OUT_FREQ_LOCKED) {
        if (s->master.regState == TRUETIME)          onTimeWithOffset();
        else if (isAlignedAndGood)                   changeState(EV_FREQUENCY);
        else if (s->gpsOutState == OUT_FREQ_LOCKED)  changeState(EV_LOST);
        return;
    }
    if (s->master.regState == TRUETIME) return;
    changeState(isAlignedAndGood ? EV_FREQUENCY : EV_LOST);
}

void onTimeData(const KvdTuiif10TimeDataInd* ind)
{
    if (ind == nullptr) return;
    const TuiifTimeData& d = ind->data;
    const bool selectionChanged = d.selectedRef != s->master.selectedRef;
    s->master = {d.regState, d.rcState, d.selectedRef, d.gpsState, d.jumpIndication, d.t_c, 1};
    if (s->gpsOutState <= OUT_INIT_SERIAL_PORT || KvdLoz6TuReg_isMaster()) return;
    followMaster(selectionChanged);
}

// ---- the pulse ----------------------------------------------------------------------------------

/// GPS time by the regulator, s. False when its counter can't be read.
bool regulatorGpsTime(double& gpsTime)
{
    double period = 0, t_f = 0;
    if (HALI_readTime(period, t_f) != 0) return false;
    const TimePair last = KvdLoz6TuReg_getLastTime();
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    const double t_c = t_f - last.f < -period / 2 ? last.c + period : last.c;
    gpsTime = t_c + t_f - delta0.c - delta0.f + KvdLoz6TuReg_sfcGpsOffset();
    return true;
}

/// To the whole second at the connector; the next pulse shows what became of a failure.
void adjustCounter()
{
    if (tuHwIf_adjustGpsOutTime(s->boardDelay_ns) != 0)
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Failed to adjust GPS OUT counter");
}

/// The first interrupt after a lock arms, the next adjusts: the counter then has been read once.
void alignOutput(bool isUsable)
{
    if (!(s->gpsTimeLocked != 0 && s->gpsOutState == OUT_TIMEOFFSET_LOCKED) &&
        !(isUsable && s->gpsOutState == OUT_NOTHING_LOCKED)) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR,
                  "Adjust of GPS OUT is not allowed in this state %s (%u,%u)", stateText(s->gpsOutState),
                  s->gpsTimeLocked, isUsable ? 1u : 0u);
        return;
    }
    if (s->adjustArmed == 0) {
        s->adjustArmed = 1;
        return;
    }
    adjustCounter();
    s->pp1sAligned = 1;
    changeState(s->gpsOutState == OUT_TIMEOFFSET_LOCKED ? EV_ALIGNED : EV_FREQUENCY);
}

/// False when the pulse's time isn't known.
bool takeTime(bool isCounterRead, double counterTime)
{
    double gpsTime = counterTime;
    if (s->gpsOutState == OUT_TIME_LOCKED) {
        if (!regulatorGpsTime(gpsTime)) return false;
        if (s->protocol == PROTOCOL_NORVANE) {
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
    if (s->protocol == PROTOCOL_NORVANE) {
        restart(s->gppprTimer, GPPPR_AFTER, KVD_TUGPS_OUT_GPPPR_TIMEOUT, "GPppr");
        return;
    }
    restart(s->cmccTimeTimer, CMCC_TIME_AFTER, KVD_TUGPS_OUT_CMCC_TOD_TIME_TIMEOUT, "CMCC TOD");
    restart(s->cmccStateTimer, CMCC_STATE_AFTER, KVD_TUGPS_OUT_CMCC_TOD_STATE_TIMEOUT,
            "CMCC TOD state");
}

void onPulse()
{
    if (s->gpsOutState <= OUT_INIT_SERIAL_PORT) return;
    if (s->protocol == PROTOCOL_NORVANE)
        restart(s->gpoutTimer, GPOUT_AFTER, KVD_TUGPS_OUT_GPOUT_TIMEOUT, "GPout");
    const bool isUsable = isTimeUsable() && (KvdLoz6TuReg_isMaster() || hasValidLoop());
    if (s->dropped != 0 && (s->pp1sAligned != 0 || !isUsable)) return;
    double period = 0, counterTime = 0;
    const bool isCounterRead = tuHwIf_readGpsOutTime(period, counterTime) == 0;
    if (!isCounterRead) KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "Unable to read register for GPS OUT");
    if (s->pp1sAligned == 0) alignOutput(isUsable);
    if (takeTime(isCounterRead, counterTime)) startSentences();
    else                                      KvdTimer_cancel(s->gpoutTimer);   // a second without a word
}

/// The line is opened again in every case: it carries the references' interrupts, too.
void onInterrupt()
{
    ++s->counters.numberOfHwInterrupts;
    onPulse();
    tuHwIf_enableExtInt();
}

// ---- what goes out ------------------------------------------------------------------------------

void say(const std::string& sentence, u32& count)
{
    if (sentence.empty()) return;
    ++count;
    write(sentence);
}

void onGpppr()
{
    say(gppprSentence(s->gpsTimeTOW, s->gpsTimeWeek, s->gpsOutState),
        s->counters.numberOfPNVXGPpprMsgs);
}

void onGpout()
{
    const bool jump = KvdLoz6TuReg_isMaster() ? KvdLoz6TuReg_jumpState() != JUMP_NOT_NEEDED
                                 : s->master.jumpIndication > 0;
    say(gpoutSentence(KvdLoz6TuIifAdm_radioClockState(), jump,
                      gnssTimePresent(s->master.selectedRef, KvdLoz6TuReg_isMaster(),
                                      KvdLoz6TuIifAdm_selectedRef()),
                      !KvdLoz6TuReg_isMaster()),
        s->counters.numberOfPNVXGPoutMsgs);
}

void onGpgga()
{
    restartGpgga();
    say(gpggaSentence(), s->counters.numberOfPNVXGPGGAMsgs);
}

void onCmccTime()
{
    ++s->counters.numberOfCmccTodTimeMsgs;
    writeFrame(cmccTimeFrame(s->gpsTimeTOW, s->gpsTimeWeek, KvdLoz6TuIifAdm_radioClockState()));
}

void onCmccState()
{
    ++s->counters.numberOfCmccTodStateMsg;
    writeFrame(cmccStateFrame());
}

void onGrace() { changeState(EV_LOST); }

void onTimeout(KvdTimer& timer, void (*handler)())
{
    if (KvdTimer_expired(timer)) handler();
}

/// The words of another protocol that were under way aren't said.
void setProtocol(u8 protocol)
{
    if (protocol == s->protocol) return;
    cancelSentences();
    s->protocol = protocol;
    if (s->gpsOutState > OUT_INIT_SERIAL_PORT) restartGpgga();
}

u16 readBoardDelay()
{
    constexpr u16 DEFAULT_ns = 40;
    char text[16] = "";
    char* end = nullptr;
    if (node::platform().boardParameter("pp1s_board_delay_to_connector", text, sizeof text) != 0)
        return DEFAULT_ns;
    const unsigned long delay_ns = std::strtoul(text, &end, 0);
    return end != text ? static_cast<u16>(delay_ns) : DEFAULT_ns;
}

}  // namespace

// ---- shared -------------------------------------------------------------------------------------

gpsout::State& gpsout::state() { return *s; }

void gpsout::setTime(double gpsTime)
{
    constexpr u32 WEEK_s = 604800;
    const double weeks = gpsTime > 0 ? gpsTime / WEEK_s : 0;
    u32 week = static_cast<u32>(weeks);
    u32 tow = static_cast<u32>((weeks - week) * WEEK_s + 0.5);
    if (tow == WEEK_s) {
        tow = 0;
        ++week;
    }
    s->gpsTimeWeek = week;
    s->gpsTimeTOW = tow;
    s->gpsTime = u64{week} * WEEK_s + tow;
}

bool gpsout::classTest(u8 regState, u8 rcState)
{
    return regState == FREQLOCKED || regState == TIMELOCKED || regState == TRUETIME ||
           rcState == KVD_TUIIF_FREQUENCY_LOCKED || rcState == KVD_TUIIF_FREQUENCY_HOLDOVER;
}

const char* gpsout::stateText(u32 gpsOutState)
{
    switch (gpsOutState) {
    case OUT_UN_INIT:           return "UN_INIT";
    case OUT_INIT_SERIAL_PORT:  return "INIT_SERIAL_PORT";
    case OUT_FREQ_LOCKED:       return "FREQ LOCKED";
    case OUT_TIMEOFFSET_LOCKED: return "TIMEOFFSET LOCKED";
    case OUT_TIME_LOCKED:       return "TIME LOCKED";
    default:                    return "<Unknown>";
    }
}

void gpsout::changeState(u32 event)
{
    if (event == 0 || event >= std::size(EVENTS)) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "State violation");
        return;
    }
    const u32 before = s->gpsOutState;
    if ((EVENTS[event].allowedFrom >> before & 1) == 0) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_3, "State change ignored (%u -> %u)", before, event);
        return;
    }
    s->gpsOutState = EVENTS[event].act();
    if (s->gpsOutState != before)
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "GPS OUT STATE (%u -> %u)", before, s->gpsOutState);
}

// ---- public -------------------------------------------------------------------------------------

int KvdLoz6GpsOut_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUGPS_OUT_INTERRUPT:             onInterrupt();                                return 1;
    case KVD_TUGPS_OUT_GPPPR_TIMEOUT:         onTimeout(s->gppprTimer, onGpppr);            return 1;
    case KVD_TUGPS_OUT_PERIODIC_GPGGA_TIMEOUT: onTimeout(s->gpggaTimer, onGpgga);           return 1;
    case KVD_TUGPS_OUT_CMCC_TOD_TIME_TIMEOUT: onTimeout(s->cmccTimeTimer, onCmccTime);      return 1;
    case KVD_TUGPS_OUT_CMCC_TOD_STATE_TIMEOUT: onTimeout(s->cmccStateTimer, onCmccState);   return 1;
    case KVD_TUGPS_OUT_SIM_INTERRUPT_TIMEOUT: onSimInterrupt();                             return 1;
    case KVD_TUGPS_OUT_GRACE_TIMEOUT:         onTimeout(s->graceTimer, onGrace);            return 1;
    case KVD_TUGPS_OUT_GPOUT_TIMEOUT:         onTimeout(s->gpoutTimer, onGpout);            return 1;
    case KVD_TUIIF10_TIME_DATA_IND:
        onTimeData(as<KvdTuiif10TimeDataInd>(sig));
        return 0;                                // the regulator looks at it, too
    default:                                                                                return 0;
    }
}

void KvdLoz6GpsOut_start(u8 mode)
{
    constexpr u8 EMULATES_RECEIVER = 1;
    setProtocol(mode == EMULATES_RECEIVER ? PROTOCOL_NORVANE : PROTOCOL_CMCC_TOD);
    KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "TuOutEmuMode=%u", mode);
    s->boardDelay_ns = readBoardDelay();
    if (s->gpsOutDriver == DRIVER_RUNNING) return;
    if (s->gpsOutState != OUT_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Unknown State for driver");
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "currentState=%u", s->gpsOutState);
        return;
    }
    GPS_UPCALLS.freeSerialLine();
    if (KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT) != 0) {
        s->gpsOutDriver = DRIVER_FAILED;
        return;
    }
    changeState(EV_START);
    s->gpsOutDriver = DRIVER_RUNNING;
}

void KvdLoz6GpsOut_stop()
{
    tuHwIf_enableIsr(TU_INT_REF_CLK_INT);
    KvdLoz6TuGps_closeSerial(GPS_LINE_OUTPUT);
    changeState(EV_STOP);
    s->gpsOutDriver = DRIVER_NONE;
}

bool KvdLoz6GpsOut_isRunning() { return s->gpsOutDriver == DRIVER_RUNNING; }

/// The edge of another unit's output is measured against the time that it sends.
void KvdLoz6GpsOut_handleInt() { KvdLoz6TuGps_handleInt(); }

void KvdLoz6GpsOut_regStateChanged()
{
    const u8 regState = KvdLoz6TuReg_regState();
    if (!KvdLoz6TuReg_isMaster()) {
        KVD_TRACE(TRACE_TUGPS_OUT, TRACE_INFO, "Regulator changes state to %s (%u)",
                  KvdLoz6TuReg_regStateText(regState), regState);
        return;
    }
    if (s->gpsOutState == OUT_UN_INIT) return;
    s->master.regState = regState;
    if (regState == TRUETIME)        onTimeWithOffset();
    else if (regState == TIMELOCKED) changeState(EV_FREQUENCY);
    else if (s->gpsOutState != OUT_FREQ_LOCKED || !isTimeUsable()) changeState(EV_LOST);
}

void KvdLoz6GpsOut_pllStateChanged(u32 pllState)
{
    if (s->gpsOutState == OUT_UN_INIT) return;
    if (pllState != PLL_IS_TIME_LOCKED) return changeState(EV_LOST);
    if (s->master.regState == TRUETIME) return onTimeWithOffset();
    const bool good = s->pp1sAligned != 0 && classTest(s->master.regState, s->master.rcState);
    changeState(good ? EV_FREQUENCY : EV_LOST);
}

void KvdLoz6GpsOut_prepareTimeStep()
{
    if (s->gpsOutState > OUT_INIT_SERIAL_PORT) tuHwIf_printGpsOutTime(s->boardDelay_ns);
}

void KvdLoz6GpsOut_timeStepped()
{
    if (s->gpsOutState > OUT_INIT_SERIAL_PORT) adjustCounter();
}

u32 KvdLoz6GpsOut_time(double& time)
{
    time = s->master.t_c;
    return s->master.received;
}

void KvdLoz6GpsOut_printInfo()
{
    using node::shellPrintf;
    const Counters& c = s->counters;
    shellPrintf("\n***** GPS output *****\n");
    shellPrintf("   gpsOutState            : %s (%u)\n", stateText(s->gpsOutState), s->gpsOutState);
    shellPrintf("   gpsOutDriver           : %u\n", s->gpsOutDriver);
    shellPrintf("   gpsOut Protocol        : %s (%u)\n",
                s->protocol == PROTOCOL_NORVANE ? "Norvane" : "CMCC TOD", s->protocol);
    shellPrintf("   gpsTime Week, TOW      : %u, %u\n", s->gpsTimeWeek, s->gpsTimeTOW);
    shellPrintf("   gpsTime Locked         : %u\n", s->gpsTimeLocked);
    shellPrintf("   PP1S Aligned           : %u\n", s->pp1sAligned);
    shellPrintf("   board delay            : %u ns\n", s->boardDelay_ns);
    shellPrintf("   send queue, driver busy: %u bytes, %u\n", static_cast<u32>(s->sendQueue.size()),
                s->driverBusy);
    shellPrintf("   numberOfBytesRecevied  : %u\n",
                KvdLoz6TuGps_serialCounters(GPS_LINE_OUTPUT).numberOfBytesRec);
    shellPrintf("   numberOfBytesSent      : %u\n", c.numberOfBytesSent);
    shellPrintf("   numberOfNmeaMsgs       : %u\n", c.numberOfNmeaMsgs);
    shellPrintf("   numberOfPNVXGPpprMsgs  : %u\n", c.numberOfPNVXGPpprMsgs);
    shellPrintf("   numberOfPNVXGPGGAMsgs  : %u\n", c.numberOfPNVXGPGGAMsgs);
    shellPrintf("   numberOfPNVXGPoutMsgs  : %u\n", c.numberOfPNVXGPoutMsgs);
    shellPrintf("   numberOfCmccMsgs       : %u\n", c.numberOfCmccMsgs);
    shellPrintf("   numberOfCmccTodTimeMsgs: %u\n", c.numberOfCmccTodTimeMsgs);
    shellPrintf("   numberOfCmccTodStateMsg: %u\n", c.numberOfCmccTodStateMsg);
    shellPrintf("   numberOfHwInterrupts   : %u\n", c.numberOfHwInterrupts);
}
