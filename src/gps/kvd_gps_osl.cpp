#include "gps/kvd_gps_osl.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_upcalls.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/gps_sig.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_process.h"

#include <cmath>
#include <span>

namespace {

// ms
constexpr OSTIME OPERATIONAL_TIME = 120'000, WAIT_TIME = 60'000;
constexpr OSTIME VALID_TIME = 800;               // below the second between two GPppr
constexpr OSTIME SUPPRESSION_TIME = 30'000;
constexpr double R_LINK = 1e-18;                 // s^2, the far end's output is as good as its clock

/// What the status indication has last said.
enum GpsOslStatus : u32 {
    OSL_UNKNOWN_ERROR = 0, OSL_OK = 1, OSL_NO_MESSAGES = 2, OSL_UNEXPECTED = 3, OSL_NO_TIME = 4,
    OSL_LOSS_OF_SIGNAL = 5,
};
constexpr u8 STATUS_UNKNOWN = 0, STATUS_OK = 1, STATUS_FAULT = 2;

struct State {
    u32 gpsState = GPS_UN_INIT;
    GpsStateHistory history;
    u32 supervision = 0;
    u32 present1pps = 0;
    u32 alarmActive = 0;
    bool forceReport = false;
    u32 gpsOslStatus = OSL_UNKNOWN_ERROR;
    u32 remoteState = 0;                         // nothing heard since the program was loaded
    u32 isLoz6Restarted = 1;                     // until the first start of supervision
    u32 numberOfNmeaMsgs = 0;
    gps::Detection detection;
    KvdTimer operationalTmoRef, waitForOperationalTmoRef, waitForValidMsgTmoRef, validTmoRef, alarmSuprTmoRef;
};
ose::ModuleData<State> s;

// ---- timers -------------------------------------------------------------------------------------

void restart(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo, const char* name)
{
    if (!KvdTimer_restart(timer, time_ms, sigNo))
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_ERROR, "Timer %s failed to start!", name);
}

void startWaitForOperational()
{
    restart(s->waitForOperationalTmoRef, WAIT_TIME, KVD_TUGPSOSL_WAIT_FOR_OPERATIONAL_TIMEOUT,
            "waitForOperationalTmoRef");
}
void startOperational()
{
    restart(s->operationalTmoRef, OPERATIONAL_TIME, KVD_TUGPSOSL_OPERATIONAL_TIMEOUT, "operationalTmoRef");
}
void startValid() { restart(s->validTmoRef, VALID_TIME, KVD_TUGPSOSL_VALID_TIMEOUT, "validTmoRef"); }

void cancelReceptionTimers()
{
    KvdTimer_cancel(s->operationalTmoRef);
    KvdTimer_cancel(s->waitForOperationalTmoRef);
    KvdTimer_cancel(s->waitForValidMsgTmoRef);
    KvdTimer_cancel(s->validTmoRef);
}

// ---- status -------------------------------------------------------------------------------------

void tell(u8 status, const char* text, u32 gpsOslStatus, u32 alarm)
{
    s->alarmActive = alarm;
    s->gpsOslStatus = gpsOslStatus;
    KvdLoz6TuIifAdm_sendGpsOslStatus(status, text);
}

void tellFaultOfState()
{
    switch (s->gpsState) {
    case GPS_WAIT_FOR_ANY_MSG:
        return tell(STATUS_FAULT, "No messages received from the remote DU", OSL_NO_MESSAGES, 1);
    case GPS_WAIT_FOR_VALID_MSG:
        return tell(STATUS_FAULT, "Unexpected messages received from the remote DU", OSL_UNEXPECTED, 1);
    case GPS_WAIT_FOR_OPERATIONAL:
        return tell(STATUS_FAULT, "No usable time received from the remote DU", OSL_NO_TIME, 1);
    default:
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_ERROR, "Unhandled combination(gps%d,ref%u,mode%d",
                  static_cast<int>(s->gpsState), u32{KvdLoz6TuGps_tuGpsRefType()},
                  static_cast<int>(KvdLoz6TuReg_timeMode()));
        return tell(STATUS_FAULT, "Unknown error", OSL_UNKNOWN_ERROR, 1);
    }
}

void report()
{
    if (s->supervision == 0) {
        if (s->alarmActive != 0 && s->present1pps == 1) tell(STATUS_OK, "OK", OSL_OK, 0);
        return;
    }
    if (KvdLoz6TuGps_gpssType() == GPSS_PENDING) return;
    if (s->present1pps == 0)
        tell(STATUS_FAULT, "Loss of signal", OSL_LOSS_OF_SIGNAL, 1);
    else if (s->gpsState == GPS_OPERATIONAL || s->gpsState == GPS_OPERATIONAL_WITH_VALID_TIME)
        tell(STATUS_OK, "OK", OSL_OK, 0);
    else if (!s->alarmSuprTmoRef.runs())
        tellFaultOfState();
    else if (s->forceReport)
        KvdLoz6TuIifAdm_sendGpsOslStatus(STATUS_UNKNOWN, "OK");
}

// ---- states -------------------------------------------------------------------------------------

void enter(u32 gpsState)
{
    s->gpsState = gpsState;
    KvdLoz6TuGps_recordState(s->history, gpsState);
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_3, "state %u", gpsState);
    if (gpsState >= GPS_WAIT_FOR_ANY_MSG && gpsState <= GPS_WAIT_FOR_OPERATIONAL) report();
}

void waitForAny()
{
    cancelReceptionTimers();
    gps::resetReceiverData();
    enter(GPS_WAIT_FOR_ANY_MSG);
}

bool hasTime() { return KvdLoz6TuGps_receiver().timeValid == 1; }

/// What else the far end may say; anything but that isn't one.
void otherSentence(const GpsSentenceType& type)
{
    const bool isExpected = type.kind == GPS_KIND_GPOUT || type.kind == GPS_KIND_GPVER
                            || type.sentenceClass == GPS_CLASS_POSITION
                            || type.sentenceClass == GPS_CLASS_SATELLITES;
    if (isExpected) {
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_3,
                  "Received msgType=%u, sentType=%u which is expected but not Gppr!", u32{type.sentenceClass},
                  u32{type.kind});
        return;
    }
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "Received unexpected message with msgType=%u, sentType=%u!",
              u32{type.sentenceClass}, u32{type.kind});
    waitForAny();
}

void inWaitForValid(const GpsSentenceType& type, bool isWhole)
{
    if (!isWhole) {
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "Not a valid message");
        return;
    }
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "Valid message received in wait for valid message state");
    u32 gpssType = GPSS_NORVANE;
    if (type.kind == GPS_KIND_GPOUT) KvdLoz6TuGps_setGpssType(gpssType);   // nobody else sends it
    else                             gpssType = gps::detectReceiver(s->detection, type.kind);
    // Settled, if on a receiver: what is at the line now may be another one's.
    if (gps::isSettled(gpssType)) s->detection = {};
    if (gpssType != GPSS_NORVANE) return;
    KvdTimer_cancel(s->waitForValidMsgTmoRef);
    enter(GPS_WAIT_FOR_OPERATIONAL);
    startWaitForOperational();
}

void inWaitForOperational()
{
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_3, "Timing message received in wait for operational state");
    KvdTimer_cancel(s->waitForOperationalTmoRef);
    if (!hasTime()) return startWaitForOperational();
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "Valid time received in wait for operational state");
    startOperational();
    enter(GPS_OPERATIONAL);
    report();
}

void inOperational()
{
    if (!hasTime()) return;
    const bool isValid = s->gpsState == GPS_OPERATIONAL_WITH_VALID_TIME;
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_3, "%s",
              isValid ? "Valid time received in operational with valid time state"
                      : "Valid time received in operational state");
    startOperational();
    startValid();
    if (!isValid) enter(GPS_OPERATIONAL_WITH_VALID_TIME);
}

void onSentence(const char* text)
{
    if (s->gpsState == GPS_WAIT_FOR_ANY_MSG) {
        enter(GPS_WAIT_FOR_VALID_MSG);
        restart(s->waitForValidMsgTmoRef, WAIT_TIME, KVD_TUGPSOSL_WAIT_FOR_VALID_MSG,
                "waitForValidMsgTmoRef");
        return;
    }
    GpsSentenceType type;
    const bool isWhole = KvdLoz6TuGps_parseSentence(text, type);
    if (s->gpsState == GPS_WAIT_FOR_VALID_MSG) return inWaitForValid(type, isWhole);
    if (type.kind != GPS_KIND_GPPPR) return otherSentence(type);
    if (!isWhole) return;                        // a damaged one tells nothing of the time
    if (s->gpsState == GPS_WAIT_FOR_OPERATIONAL) inWaitForOperational();
    else                                         inOperational();
}

// ---- start and end ------------------------------------------------------------------------------

void start()
{
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "isLoz6Restarted = %s",
              s->isLoz6Restarted != 0 ? "True" : "False");
    if (s->isLoz6Restarted != 0)
        s->remoteState = RC_UNKNOWN;
    else if (KvdLoz6TuReg_pllIsHoldover())
        KvdLoz6TuReg_pll_clearEmptyHOVector();   // the link's means outlive the lock that follows
    s->isLoz6Restarted = 0;
    if (s->gpsState != GPS_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "driver already initialized");
        return;
    }
    if (KvdLoz6TuGps_openSerial(GPS_LINE_SYNC_LINK) != 0) return;
    enter(GPS_INIT_SERIAL_PORT);
    Signal* done = ose::alloc(sizeof(SIGSELECT), KVD_TUGPSOSL_SERIALPORT_INITIALISED);
    ose::send(&done, KvdLoz6TuMgr_pid());
    restart(s->alarmSuprTmoRef, SUPPRESSION_TIME, KVD_TUGPSOSL_SUPR_ALARM_TIMEOUT, "alarmSuprTmoRef");
    gps::resetReceiverData();
}

// ---- handlers -----------------------------------------------------------------------------------

void onNmeaMsgRec(Signal* sig)
{
    const KvdTugpsNmeaMsgRec* const rec = gps::wholeSentence(sig);
    if (rec == nullptr) return;
    ++s->numberOfNmeaMsgs;
    if (s->gpsState < GPS_WAIT_FOR_ANY_MSG) return;
    if (s->gpsState > GPS_OPERATIONAL_WITH_VALID_TIME) {
        KVD_TRACE(TRACE_TUGPS_OSL, TRACE_ERROR, "Unknown State");
        return;
    }
    onSentence(rec->text);
}

/// A time-out that finds the machine at rest doesn't wake it, wherever it comes from.
bool takeTimeout(KvdTimer& timer) { return KvdTimer_expired(timer) && s->gpsState != GPS_UN_INIT; }

void onValidTimeout()
{
    if (!takeTimeout(s->validTmoRef)) return;
    KvdLoz6TuGps_receiverRecord().gpsCurrentTime = 0.0;
    enter(GPS_OPERATIONAL);
}

void onOperationalTimeout()
{
    if (!takeTimeout(s->operationalTmoRef)) return;
    startWaitForOperational();
    enter(GPS_WAIT_FOR_OPERATIONAL);
}

void onWaitTimeout(KvdTimer& timer)
{
    if (takeTimeout(timer)) waitForAny();
}

void onSetDelay(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSetDelayInd>(sig);
    if (ind != nullptr) gps::setCompensationDelay(ind->delay);
}

void onAttribReq(const Signal* sig)
{
    const auto* req = as<KvdTuiifGpsAttribReq>(sig);
    if (req == nullptr) return;
    KvdLoz6TuIifAdm_sendGpsOslAttribCfm(
        req->froId, static_cast<u16>(std::lround(KvdLoz6TuGps_compensationDelay() * 1e9)),
        static_cast<u8>(s->gpsOslStatus));
}

void setLinkNoise(u32 z_i) { KvdLoz6TuReg_setMeasR(R_LINK, z_i); }

}  // namespace

bool KvdLoz6GpsOsl_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUGPSOSL_OPERATIONAL_TIMEOUT:          onOperationalTimeout();                     return true;
    case KVD_TUGPSOSL_WAIT_FOR_OPERATIONAL_TIMEOUT: onWaitTimeout(s->waitForOperationalTmoRef); return true;
    case KVD_TUGPSOSL_WAIT_FOR_VALID_MSG:           onWaitTimeout(s->waitForValidMsgTmoRef);    return true;
    case KVD_TUGPSOSL_VALID_TIMEOUT:                onValidTimeout();                           return true;
    case KVD_TUGPSOSL_NMEA_MSG_REC:                 onNmeaMsgRec(sig);                          return true;
    case KVD_TUGPSOSL_SERIALPORT_INITIALISED:
        if (s->gpsState == GPS_INIT_SERIAL_PORT) enter(GPS_WAIT_FOR_ANY_MSG);
        return true;
    case KVD_TUGPSOSL_SUPR_ALARM_TIMEOUT:
        if (takeTimeout(s->alarmSuprTmoRef)) report();
        return true;
    case KVD_TUIIF_SET_GPSOSL_DELAY_IND:            onSetDelay(sig);                            return true;
    case KVD_TUIIF_GPSOSL_ATTRIB_REQ:               onAttribReq(sig);                           return true;
    default:                                                                                    return false;
    }
}

void KvdLoz6GpsOsl_supervision(const Signal* sig, u32)
{
    const u32 status = reinterpret_cast<const KvdTuiifSynchPathSupInd*>(sig)->on;
    s->supervision = status;
    if (status != 0) {
        start();
        KvdLoz6TuGps_setTuGpsRefType(GPSOSL_REF);
    } else {
        KvdLoz6GpsOsl_stop();
    }
}

void KvdLoz6GpsOsl_stop()
{
    if (s->gpsState == GPS_UN_INIT) return;
    cancelReceptionTimers();
    KvdTimer_cancel(s->alarmSuprTmoRef);
    gps::resetReceiverData();
    KvdLoz6TuGps_clearNorvane();
    KvdLoz6TuGps_clearSerialCounters(GPS_LINE_SYNC_LINK);
    KvdLoz6TuGps_closeSerial(GPS_LINE_SYNC_LINK);
    enter(GPS_UN_INIT);
}

void KvdLoz6GpsOsl_statusChange(u32 present)
{
    s->present1pps = present;
    report();
    s->forceReport = false;
}

void KvdLoz6GpsOsl_setForceReport() { s->forceReport = true; }

void KvdLoz6GpsOsl_holdoverEnded()
{
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_5, "Start reporting alarms - holodover finished for GpsOutSyncLink!");
    report();
}

/// The link goes on talking; the next main processor orders supervision anew and is then told.
void KvdLoz6GpsOsl_serverGone() { s->supervision = 0; }

void KvdLoz6GpsOsl_closePort() { KvdLoz6TuGps_closeSerial(GPS_LINE_SYNC_LINK); }

void KvdLoz6GpsOsl_filterEnd(u32 row)
{
    if (KvdLoz6TuRef_selectedRef() != GPSOSL_REF || KvdLoz6TuRef_row(row).refStatus != REF_STATUS_OFF) return;
    const u32 pllState = KvdLoz6TuReg_pllState();
    if (pllState <= PLL_Unlocked) {              // nothing to hold over
        KvdLoz6TuReg_endPll();
        return;
    }
    KvdLoz6TuReg_pll_toHoldover();
    if (KvdLoz6TuReg_pllState() != PLL_Freq_Holdover) GPS_UPCALLS.startOslHoldover();
}

u32  KvdLoz6GpsOsl_remoteState() { return s->remoteState; }
void KvdLoz6GpsOsl_storeRemoteState(u32 state) { s->remoteState = state; }
void KvdLoz6GpsOsl_sendRemoteState() { KvdLoz6TuIifAdm_sendRemoteRcState(s->remoteState); }

bool KvdLoz6GpsOsl_givesTime() { return KvdLoz6TuGps_receiver().timeKept == 0; }

u32 KvdLoz6GpsOsl_time(double& time) { return gps::timeOf(s->gpsState, time); }

void KvdLoz6GpsOsl_handleInt()
{
    gps::Observation o;
    if (!gps::observe(KvdLoz6GpsOsl_time, setLinkNoise, o)) return;
    KvdLoz6TuReg_pll_setSourceTime(KvdLoz6TuReg_knowsTime() && KvdLoz6GpsOsl_givesTime());
    if (KvdLoz6TuReg_pllState() != PLL_Uninitialized) return KvdLoz6TuReg_pll_control(o.z);
    KvdLoz6TuReg_measUpdate(o.z_i, o.z, o.t_s, o.phase);
    // A link that is still selected, or again, after its loop has ended: nobody else begins it anew.
    if (KvdLoz6TuReg_isMaster()) KvdLoz6TuReg_pll_init(PLL_Unlocked);
}

void KvdLoz6GpsOsl_printInfo()
{
    using node::shellPrintf;
    const GpsNorvane& said = KvdLoz6TuGps_norvane();
    shellPrintf("\n***** GPS out sync link *****\n");
    shellPrintf("   gpsState              : %s (%u)\n", KvdLoz6TuGps_gpsStateText(s->gpsState), s->gpsState);
    shellPrintf("   supervised, 1PPS      : %u, %u\n", s->supervision, s->present1pps);
    shellPrintf("   gpsOslStatus, alarm   : %u, %u\n", s->gpsOslStatus, s->alarmActive);
    shellPrintf("   remoteRadioClockState : %u\n", s->remoteState);
    shellPrintf("   remoteJumpIndication  : %u\n", said.remoteJumpIndication);
    shellPrintf("   remoteGnssTimeInfo    : %u\n", said.gnssTimePresent);
    shellPrintf("   remoteGnssDataInfo    : %u\n", said.gnssDataPresent);
    shellPrintf("   is Master             : %u\n", said.isMaster);
    shellPrintf("   numberOfNmeaMsgs      : %u\n", s->numberOfNmeaMsgs);
    const GpsSerialCounters& serial = KvdLoz6TuGps_serialCounters(GPS_LINE_SYNC_LINK);
    shellPrintf("   numberOfBytesRec      : %u, too long %u\n", serial.numberOfBytesRec,
                serial.numberOfTooLongMsgs);
    shellPrintf("   State history, newest first:\n");
    for (const GpsStateRecord& record : std::span(s->history.rows).first(s->history.count))
        shellPrintf("   %s  %s\n", record.time, KvdLoz6TuGps_gpsStateText(record.state));
}
