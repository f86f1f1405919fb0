// Supervision, status and attributes towards the main processor, the operator's view.
#include "refs/kvd_hptsi.h"

#include "base/text_of.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "refs/kvd_hptsi_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_process.h"

#include <cmath>
#include <cstddef>

namespace {

using namespace hptsi;

ose::ModuleData<State> s;

constexpr u8  STATUS_OK = 1, STATUS_FAULT = 2;

constexpr const char* STATE_TEXTS[] = {"ILLEGAL_STATE",   "UN_INIT",     "INIT_SERIAL_PORT",
                                       "WAIT_FOR_FRAMES", "OPERATIONAL", "OPERATIONAL_WITH_VALID_TIME"};
constexpr const char* CLK_SOURCES[] = {"Beidou", "GPS", "PTP", "Other"};
constexpr const char* PP1S_STATES[] = {"Normal", "Time Sync (atomic)", "Unavilable", "Time Sync (crystal)",
                                       "Transmission bearer"};
struct AlarmRow { u16 bit; const char* text; };
constexpr AlarmRow ALARMS[] = {
    {1, "Antenna Open"},           {2, "Antenna shorted"},        {4, "Not tracking satellites"},
    {32, "No position stored"},    {64, "Leap Second Pending"},   {128, "Test Mode Enabled"},
    {256, "Unreliable position"},  {1024, "Almanac not complete"},
};

// ---- status -------------------------------------------------------------------------------------

void tell(u8 status, const char* text) { KvdLoz6TuIifAdm_sendHptsiStatus(status, text); }

void tellByState()
{
    switch (s->hptsiState) {
    case WAIT_FOR_FRAMES: return tell(STATUS_FAULT, "No time state nor time info messages received");
    case OPERATIONAL:
        if (s->noValid != 0) return tell(STATUS_FAULT, "No usable time received");
        if (s->monitor != 0) return tell(STATUS_FAULT, "Monitor alarm");
        return tell(STATUS_OK, "OK");
    default:
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Unhandled combination(hptsi state=%d,ref=%u, toggle=%u",
                  static_cast<int>(s->hptsiState), u32{KvdLoz6TuRef_selectedRef()}, s->toggle);
        return tell(STATUS_FAULT, "Unknown error");
    }
}

// ---- start and end of supervision ---------------------------------------------------------------

constexpr int START_FAILED = 6;

/// 0 when the line is in use, now or already.
int start()
{
    if (s->hptsiState == ILLEGAL_STATE || s->hptsiState > OPERATIONAL_WITH_VALID_TIME) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Unknown State");
        return START_FAILED;
    }
    if (s->hptsiState != UN_INIT) return 0;          // a new main processor finds it running
    if (KvdLoz6TuHptsi_openSerial() != 0) return START_FAILED;
    changeState(INIT_SERIAL_PORT);
    Signal* done = ose::alloc(sizeof(SIGSELECT), KVD_TUHPTSI_SERIALPORT_INITIALISED);
    ose::send(&done, KvdLoz6TuMgr_pid());
    startTimer(T_ALARM_SUPRESSION);
    return 0;
}

void endSupervision(u32 row)
{
    KvdLoz6TuHptsi_stop();
    KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState() & ~KvdLoz6TuRef_stateMask(row));
}

// ---- handlers -----------------------------------------------------------------------------------

void onFrameRec(Signal* sig)
{
    const auto* rec = as<KvdTuhptsiCmccFrameRec>(sig);
    if (rec == nullptr) return;
    if (!KvdLoz6TuHptsi_isFrameLength(rec->length)) return onWrongLength(rec->length);
    const u32 room = ose::sigsize(&sig) - static_cast<u32>(offsetof(KvdTuhptsiCmccFrameRec, bytes));
    if (rec->length > room) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "frame longer than its signal, length=%u of %u", rec->length,
                  room);
        return;
    }
    const u8* const bytes = reinterpret_cast<const u8*>(sig) + offsetof(KvdTuhptsiCmccFrameRec, bytes);
    onFrame({bytes, rec->length});
}

void onSerialPortInitialised()
{
    if (s->hptsiState == INIT_SERIAL_PORT) changeState(WAIT_FOR_FRAMES);
}

void onSetDelay(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSetHptsiDelayInd>(sig);
    if (ind != nullptr) setCompensationDelay(ind->delay);
}

void onAttribReq(const Signal* sig)
{
    const auto* req = as<KvdTuiifHptsiAttribReq>(sig);
    if (req == nullptr) return;
    auto* cfm = node::make<KvdTuiifHptsiAttribCfm>(KVD_TUIIF_HPTSI_ATTRIB_CFM);
    cfm->froId = req->froId;
    cfm->hptsiCompensationDelay = static_cast<u16>(std::lround(s->hptsiCompensationDelay * 1e9));
    cfm->leapSec = s->timeInfo.leapSec;
    cfm->ppsState = s->timeInfo.pp1sState;
    cfm->stateOfClockSource = s->timeState.state;
    cfm->monitorAlarm = s->timeState.alarm;
    cfm->jitterLevel = s->timeInfo.tacc;
    cfm->clockSource = s->timeState.clkSource;
    Signal* answer = reinterpret_cast<Signal*>(cfm);
    KvdLoz6TuIifAdm_send(&answer);
}

void onSelectionModeChange(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSelectionModeChangeInd>(sig);
    if (ind != nullptr) KvdLoz6TuHptsi_selectionMode(ind->selectionProcessMode);
}

// ---- printout -----------------------------------------------------------------------------------

void printAlarms(u16 alarm)
{
    node::shellPrintf("   alarm                  : 0x%04x", u32{alarm});
    for (const AlarmRow& row : ALARMS)
        if ((alarm & row.bit) != 0) node::shellPrintf(", %s", row.text);
    node::shellPrintf("\n");
}

void printOverride()
{
    if (s->overrideEnabled != 0) node::shellPrintf("   clkSource override     : %u\n", u32{s->overrideValue});
}

}  // namespace

hptsi::State& hptsi::state() { return *s; }
const char* hptsi::stateText(u32 hptsiState) { return textOf(STATE_TEXTS, hptsiState); }

void hptsi::reportStatus()
{
    if (s->supervised == 0) return;
    if (s->toggle == 0) return tell(STATUS_FAULT, "Loss of signal");
    if (s->hptsiState == OPERATIONAL_WITH_VALID_TIME) return tell(STATUS_OK, "OK");
    if (!runs(T_ALARM_SUPRESSION)) return tellByState();
    if (s->forceStatus) tell(STATUS_OK, "OK");
}

void hptsi::sendQualityLevel()
{
    KvdLoz6TuIifAdm_sendQualityLevelInd(HPTSI_FRO_ID, HPTSI_FRO_CLASS, s->qualityType, 0);
}

bool KvdLoz6TuHptsi_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUHPTSI_OPERATIONAL_TIMEOUT:     onTimeout(T_OPERATIONAL);      return true;
    case KVD_TUHPTSI_VALID_TIME_TIMEOUT:      onTimeout(T_VALID);            return true;
    case KVD_TUHPTSI_SERIALPORT_INITIALISED:  onSerialPortInitialised();     return true;
    case KVD_TUHPTSI_SUPR_ALARM_TIMEOUT:      onTimeout(T_ALARM_SUPRESSION); return true;
    case KVD_TUHPTSI_CMCC_FRAME_REC:          onFrameRec(sig);               return true;
    case KVD_TUHPTSI_NO_VALID_TIME_TIMEOUT:   onTimeout(T_NO_VALID);         return true;
    case KVD_TUHPTSI_MONITOR_TIMEOUT:         onTimeout(T_MONITOR);          return true;
    case KVD_TUHPTSI_RECEIVE_FRAMES_TIMEOUT:  onTimeout(T_RECEIVE_FRAMES);   return true;
    case KVD_TUIIF_SET_HPTSI_DELAY_IND:       onSetDelay(sig);               return true;
    case KVD_TUIIF_HPTSI_ATTRIB_REQ:          onAttribReq(sig);              return true;
    case KVD_TUIIF_SELECTION_MODE_CHANGE_IND: onSelectionModeChange(sig);    return true;
    default:                                                                 return false;
    }
}

void KvdLoz6TuHptsi_supervision(const Signal* sig, u32 row)
{
    s->supervised = reinterpret_cast<const KvdTuiifSynchPathSupInd*>(sig)->on;
    if (s->supervised == 0) return endSupervision(row);
    if (start() == 0) sendQualityLevel();
}

void KvdLoz6TuHptsi_stop()
{
    cancelAllTimers();
    KvdLoz6TuHptsi_closeSerial();
    if (s->hptsiState != UN_INIT) changeState(UN_INIT);
}

void KvdLoz6TuHptsi_statusChange(u32 present)
{
    s->toggle = present;
    reportStatus();
    s->forceStatus = false;
}

void KvdLoz6TuHptsi_setForceReport() { s->forceStatus = true; }

void KvdLoz6TuHptsi_selectionMode(u8 selectionProcessMode)
{
    KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "SelectionProcessMode changed from %u to %u",
              u32{s->selectionProcessMode}, u32{selectionProcessMode});
    s->selectionProcessMode = selectionProcessMode;
    if (selectionProcessMode == 1) sendQualityLevel();
}

/// The line and the machine go on; the next main processor orders supervision anew and is then told.
void KvdLoz6TuHptsi_serverGone() { s->supervised = 0; }

void KvdLoz6TuHptsi_closePort() { KvdLoz6TuHptsi_closeSerial(); }

bool KvdLoz6TuHptsi_isOperational()
{
    return s->hptsiState == OPERATIONAL || s->hptsiState == OPERATIONAL_WITH_VALID_TIME;
}

void KvdLoz6TuHptsi_overrideClockSource(bool on, u8 clkSource)
{
    s->overrideEnabled = on ? 1 : 0;
    s->overrideValue = clkSource;
}

void KvdLoz6TuHptsi_printInfo()
{
    using node::shellPrintf;
    shellPrintf("\n***** HPTSI *****\n");
    shellPrintf("   hptsiState             : %s (%u)\n", stateText(s->hptsiState), s->hptsiState);
    shellPrintf("   supervised, 1PPS       : %u, %u\n", s->supervised, s->toggle);
    shellPrintf("   hptsiCurrentTime       : %.0f s\n", s->hptsiCurrentTime);
    shellPrintf("   tow, week, leapSec     : %u, %u, %d\n", s->timeInfo.tow, u32{s->timeInfo.week},
                int{s->timeInfo.leapSec});
    shellPrintf("   pp1sState              : %s (%u)\n", textOf(PP1S_STATES, s->timeInfo.pp1sState),
                u32{s->timeInfo.pp1sState});
    shellPrintf("   tacc                   : %u\n", u32{s->timeInfo.tacc});
    shellPrintf("   clkSource              : %s (%u)\n", textOf(CLK_SOURCES, s->timeState.clkSource),
                u32{s->timeState.clkSource});
    shellPrintf("   state                  : %u\n", u32{s->timeState.state});
    printAlarms(s->timeState.alarm);
    shellPrintf("   info, state valid      : %u, %u\n", s->timeInfoValid, s->timeStateValid);
    shellPrintf("   no valid, monitor flag : %u, %u\n", s->noValid, s->monitor);
    shellPrintf("   quality type           : %u\n", u32{s->qualityType});
    printOverride();
    shellPrintf("   hptsiCompensationDelay : %.0f ns\n", s->hptsiCompensationDelay * 1e9);
    shellPrintf("   preTimeOffset_c        : %u\n", s->gate.preTimeOffset_c);
    shellPrintf("   numberOfBytesRec       : %u\n", KvdLoz6TuHptsi_numberOfBytesRec());
    shellPrintf("   numberOfTimeInfoMsg    : %u\n", s->numberOfTimeInfoMsg);
    shellPrintf("   numberOfTimeStateMsg   : %u\n", s->numberOfTimeStateMsg);
}
