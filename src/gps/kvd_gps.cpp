#include "gps/kvd_gps.h"

#include "base/trace_groups.h"
#include "fifo/kvd_fifo_gps.h"
#include "fifo/kvd_fifo_proc.h"
#include "fifo/kvd_fifo_skyview.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_hrv_supervision.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_trimble.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using gps::state;

ose::ModuleData<gps::State> s;

// ---- attributes ---------------------------------------------------------------------------------

u16 compensationDelay_ns() { return static_cast<u16>(std::lround(state().gpsCompensationDelay * 1e9)); }

void sendAttributes(u32 froId)
{
    auto* cfm = node::make<KvdTuiifGpsAttribCfm>(KVD_TUIIF_GPS_ATTRIB_CFM);
    cfm->froId = froId;
    cfm->gpsCompensationDelay = compensationDelay_ns();
    cfm->satellitesInView = KvdLoz6TuGps_noOfSatellitesInView();
    const auto& best = KvdLoz6TuGps_bestSatellites();
    static_assert(TUIIF_SATELLITES == GPS_BEST_SATELLITES);
    std::transform(best.begin(), best.end(), cfm->satellite, [](const GpsSatellite& sat) {
        return TuiifSatellite{sat.SVno, sat.elevation, sat.azimuth, sat.SNR, sat.spare};
    });
    const GpsPosition& position = KvdLoz6TuGps_shownPosition();
    cfm->latitude = gps::coordinateOf(position.latitude);
    cfm->longitude = gps::coordinateOf(position.longitude);
    std::memcpy(cfm->altitude, &position.altitude, sizeof cfm->altitude);
    const GpsDop& dop = KvdLoz6TuGps_dop();
    std::memcpy(cfm->hdop, &dop.HDOP, sizeof cfm->hdop);
    std::memcpy(cfm->vdop, &dop.VDOP, sizeof cfm->vdop);
    cfm->observationMode = KvdLoz6TuGps_receiver().observationMode;
    Signal* sig = reinterpret_cast<Signal*>(cfm);
    KvdLoz6TuIifAdm_send(&sig);
}

// ---- start and end of supervision ---------------------------------------------------------------

void start()
{
    if (KvdLoz6TuGps_gpsState() != GPS_UN_INIT) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "driver already initialized");
        return;
    }
    if (KvdLoz6TuGps_openSerial() != 0) return;
    gps::enter(GPS_INIT_SERIAL_PORT);
    Signal* done = ose::alloc(sizeof(SIGSELECT), KVD_TUGPS_SERIALPORT_INITIALISED);
    ose::send(&done, KvdLoz6TuMgr_pid());
    gps::startAlarmSuppression();
    KvdLoz6TuGps_startSending();
}

void clearCounters()
{
    state().numberOfNmeaMsgs = 0;
    KvdLoz6TuGps_clearSerialCounters();
    KvdLoz6TuGps_clearSendCounters();
    KvdLoz6TuGps_clearNmeaCounters();
    KvdLoz6TuGps_clearNorvaneCounters();
    KvdLoz6TuGps_clearFurunoCounters();
    KvdLoz6TuGps_clearTrimbleCounters();
}

// ---- handlers -----------------------------------------------------------------------------------

void onSetDelay(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSetDelayInd>(sig);
    if (ind != nullptr) gps::setCompensationDelay(ind->delay);
}

void onAttribReq(const Signal* sig)
{
    const auto* req = as<KvdTuiifGpsAttribReq>(sig);
    if (req != nullptr) sendAttributes(req->froId);
}

void onSetFixedPosition(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSetFixedPositionInd>(sig);
    if (ind != nullptr) gps::setFixedPosition(ind->wanted);
}

void onSelectionModeChange(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSelectionModeChangeInd>(sig);
    if (ind != nullptr) KvdLoz6TuGps_selectionMode(ind->selectionProcessMode);
}

}  // namespace

gps::State& gps::state() { return *s; }

void KvdLoz6TuGps_initiate() { s->tuGpsRefType = NO_REF; }

bool KvdLoz6TuGps_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUGPS_OPERATIONAL_TIMEOUT:          gps::onOperationalTimeout();             return true;
    case KVD_TUGPS_WAIT_FOR_OPERATIONAL_TIMEOUT: gps::onWaitForOperationalTimeout();      return true;
    case KVD_TUGPS_WAIT_FOR_VALID_MSG:           gps::onWaitForValidTimeout();            return true;
    case KVD_TUGPS_VALID_TIMEOUT:                gps::onValidTimeout();                   return true;
    case KVD_TUGPS_NMEA_MSG_REC:                 gps::gpsNmeaMsgRecv(sig);                return true;
    case KVD_TUGPS_SERIALPORT_INITIALISED:       gps::onSerialPortInitialised();          return true;
    case KVD_TUGPS_SUPR_ALARM_TIMEOUT:           gps::onSuprAlarmTimeout();               return true;
    case KVD_TUGPS_SELF_TEST_TIMEOUT:            gps::onSelfTestTimeout();                return true;
    case KVD_TUGPS_SEND_TO_GPS_TIMEOUT:          KvdLoz6TuGps_onSendTimeout();            return true;
    case KVD_TUGPS_SUPPR_ADDINFO_TIMEOUT:        gps::onAdditionalInfoTimeout();          return true;
    case KVD_TUGPS_RESET_GPS_SATELLITES:         KvdLoz6TuGps_onResetGpsSatellites();     return true;
    case KVD_TUGPS_RESET_GLONASS_SATELLITES:     KvdLoz6TuGps_onResetGlonassSatellites(); return true;
    case KVD_TUGPS_STATUS_MSG_SENT:              s->waiter = ose::sender(&sig);           return true;
    // The answers of module and antenna are for the one who asked.
    case KVD_TUGPS_STATUS_MSG_PARSED:
    case KVD_TUGPS_CHIP_MSG_PARSED_IND:                                                   return true;
    case KVD_TUIIF_SET_DELAY_IND:                onSetDelay(sig);                         return true;
    case KVD_TUIIF_GPS_ATTRIB_REQ:               onAttribReq(sig);                        return true;
    case KVD_TUIIF_SET_FIXED_POSITION_IND:       onSetFixedPosition(sig);                 return true;
    case KVD_TUIIF_SELECTION_MODE_CHANGE_IND:    onSelectionModeChange(sig);              return true;
    default:
        if (KvdLoz6TuGps_recoveryDispatch(sig)) return true;
        return KvdLoz6TuGps_hrvDispatch(sig);
    }
}

void KvdLoz6TuGps_supervision(const Signal* sig, u32)
{
    const u32 status = reinterpret_cast<const KvdTuiifSynchPathSupInd*>(sig)->on;
    if (status != 0) {
        start();
        s->tuGpsRefType = GPS_REF;
        KvdLoz6TuGps_onHRVSupervisionEvent(HRV_SUPERVISION_EVENT_1PPS_NOK);
    } else {
        KvdLoz6TuGps_stop();
    }
    s->supervision = status;
}

void KvdLoz6TuGps_stop()
{
    if (KvdLoz6TuGps_gpsState() == GPS_UN_INIT) return;
    gps::cancelAllTimers();
    KvdLoz6TuGps_closeSerial();
    gps::enter(GPS_UN_INIT);
    gps::resetReceiverData();
    KvdLoz6TuGps_onHRVSupervisionEvent(HRV_SUPERVISION_EVENT_INIT_SM);
    clearCounters();
    KvdLoz6TuGps_clearRecoveryHistory();
    KvdLoz6TuGps_clearHrvHistory();
    KvdLoz6FifoSkyView_stop();
    KvdLoz6FifoGps_clear();
    s->alarmActive = 0;
    s->selfTestAlarmShown = 0;
}

void KvdLoz6TuGps_supervisionStarted() { gps::sendQualityLevel(); }

void KvdLoz6TuGps_statusChange(u32 present)
{
    s->present1pps = present;
    gps::report();
    s->forceReport = false;
    KvdLoz6TuGps_onHRVSupervisionEvent(present != 0 ? HRV_SUPERVISION_EVENT_1PPS_OK
                                                    : HRV_SUPERVISION_EVENT_1PPS_NOK);
    if (present == 0) KvdLoz6Fifo_dump();
}

void KvdLoz6TuGps_setForceReport() { s->forceReport = true; }

void KvdLoz6TuGps_testMode(u32) { gps::report(); }

void KvdLoz6TuGps_selectionMode(u8 selectionProcessMode)
{
    const bool changes = selectionProcessMode != s->selectionProcessMode;
    s->selectionProcessMode = selectionProcessMode;
    if (changes && selectionProcessMode == 1) gps::sendQualityLevel();
}

/// The receiver goes on talking; the next main processor orders supervision anew and is then told.
void KvdLoz6TuGps_serverGone()
{
    s->supervision = 0;
    gps::forgetFixedPosition();
}

void KvdLoz6TuGps_closePort() { KvdLoz6TuGps_closeSerial(); }

u8   KvdLoz6TuGps_tuGpsRefType() { return s->tuGpsRefType; }
void KvdLoz6TuGps_setTuGpsRefType(u8 refType) { s->tuGpsRefType = refType; }
u32  KvdLoz6TuGps_gpssType() { return KvdLoz6TuGps_receiver().gpssType; }
u32  KvdLoz6TuGps_gpssTypeBackup() { return KvdLoz6TuGps_receiver().gpssType_backup; }
bool KvdLoz6TuGps_isOperational()
{
    const u32 gpsState = KvdLoz6TuGps_gpsState();
    return gpsState == GPS_OPERATIONAL || gpsState == GPS_OPERATIONAL_WITH_VALID_TIME;
}
PROCESS KvdLoz6TuGps_waiter() { return s->waiter; }
void    KvdLoz6TuGps_clearWaiter() { s->waiter = 0; }
