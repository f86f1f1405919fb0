// The output's state machine: what the regulator, the loop or the master's time data say of the time.
#include "gps/kvd_gps_out.h"

#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_upcalls.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_ref_table.h"

#include <cstdlib>

namespace {

using namespace gpsout;

ose::ModuleData<State> s;

constexpr OSTIME GRACE = 5'000;   // ms

bool isOffsetKnown() { return KvdLoz6TuReg_regState() == TRUETIME; }

/// A slave of a node that follows the sync link itself gives nothing back to it.
bool mayBeOn() { return s->master.selectedRef != GPSOSL_REF || KvdLoz6TuReg_isMaster(); }

void enableInterrupt() { tuHwIf_enableIsr(TU_GPS_OUT_INT); }
void disableInterrupt() { tuHwIf_disableIsr(TU_GPS_OUT_INT); }
void switchOutput(bool on) { HALI_enableTuOut(on ? 1 : 0, 0); }

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
    if (!isTimeUsable()) {
        restart(s->graceTimer, GRACE, KVD_TUGPS_OUT_GRACE_TIMEOUT, "Grace");
        return OUT_INIT_SERIAL_PORT;
    }
    enableInterrupt();
    restartGpgga();
    if (!KvdLoz6TuReg_isMaster() || !isOffsetKnown()) return OUT_NOTHING_LOCKED;
    switchOutput(true);
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
    const bool isAlignedAndGood = s->pp1sAligned != 0 && classTest(s->master.regState, s->master.rcState);
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
    if (!speaks() || KvdLoz6TuReg_isMaster()) return;
    followMaster(selectionChanged);
}

/// The words of another protocol that were under way aren't said.
void setProtocol(u8 protocol)
{
    if (protocol == s->protocol) return;
    cancelSentences();
    s->protocol = protocol;
    if (speaks()) restartGpgga();
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

bool gpsout::speaks() { return s->gpsOutState > OUT_INIT_SERIAL_PORT; }

bool gpsout::hasValidLoop() { return KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Locked; }

bool gpsout::isTimeUsable()
{
    return KvdLoz6TuReg_isMaster() ? KvdLoz6TuReg_isLocked()
                                   : classTest(s->master.regState, s->master.rcState);
}

bool gpsout::classTest(u8 regState, u8 rcState)
{
    return regState == FREQLOCKED || regState == TIMELOCKED || regState == TRUETIME
           || rcState == KVD_TUIIF_FREQUENCY_LOCKED || rcState == KVD_TUIIF_FREQUENCY_HOLDOVER;
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

bool KvdLoz6GpsOut_dispatch(Signal* sig)
{
    if (takePulseSignal(sig)) return true;
    switch (sig->sigNo) {
    case KVD_TUGPS_OUT_GRACE_TIMEOUT:
        if (KvdTimer_expired(s->graceTimer)) changeState(EV_LOST);
        return true;
    case KVD_TUIIF10_TIME_DATA_IND:
        onTimeData(as<KvdTuiif10TimeDataInd>(sig));
        return false;                                // the regulator looks at it, too
    default: return false;
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
    if (speaks()) tuHwIf_printGpsOutTime(s->boardDelay_ns);
}

void KvdLoz6GpsOut_timeStepped()
{
    if (speaks()) adjustCounter();
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
    shellPrintf("   send queue, driver busy: %u bytes, %u\n", s->sendQueue.size(), s->driverBusy);
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
