#include "base/trace_groups.h"
#include "mp/kvd_iifadm_state.h"
#include "mp/kvd_mp_upcalls.h"
#include "node/trace.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

using tuiif::isReady;
using tuiif::state;

constexpr u32 ACCURACY_STEP_ns = 100;

template <std::size_t SIZE>
void copyText(char (&to)[SIZE], const char* from)
{
    std::snprintf(to, SIZE, "%s", from);
}

// ---- texts ----

/// Takes a new status; false when it says what the record says already, or nobody listens.
bool takeStatus(tuiif::StatusRecord& record, u8 status, const char* text)
{
    tuiif::StatusRecord wanted;
    wanted.status = status;
    copyText(wanted.text, text);
    const bool isKnown = record.status == wanted.status && std::strcmp(record.text, wanted.text) == 0;
    if (isKnown || !isReady()) return false;
    record = wanted;
    return true;
}

/// A receiver's status must not run ahead of the clock that it steers.
void letClockCatchUp(bool isOperational)
{
    const u8 clock = state().savedBvqStatusData.lastRegulatorState;
    if (isOperational && state().latestSentBvqStatusInd.radioClockState != clock) tuiif::showLastRegState();
}

void sendStatusWithText(SIGSELECT sigNo, const tuiif::StatusRecord& record)
{
    auto* ind = node::make<KvdTuiifHptsiStatusInd>(sigNo);
    ind->status = record.status;
    copyText(ind->text, record.text);
    tuiif::sendToPeer(ind);
}

// ---- calibration ----

struct Calibration {
    u8 status;
    const char* date;
};

Calibration presentCalibration()
{
    if (tuiif::isMaster() && MP_UPCALLS.loopHolds()) return {KVD_TUIIF_CALIBRATED, ""};
    switch (state().savedBvqStatusData.radioClockState) {
    case KVD_TUIIF_FREQUENCY_LOCKED:
    case KVD_TUIIF_TIME_OFFSET_LOCKED:
    case KVD_TUIIF_RNT_TIME_LOCKED:
    case KVD_TUIIF_SLAVE_FREQUENCY_LOCKED:
    case KVD_TUIIF_SLAVE_FRAME_LOCKED: return {KVD_TUIIF_CALIBRATED, ""};
    case KVD_TUIIF_FREQUENCY_HOLDOVER:
    case KVD_TUIIF_TIME_OFFSET_HOLDOVER:
    case KVD_TUIIF_RNT_TIME_HOLDOVER:
        if (state().soonToExpire == 1) return {KVD_TUIIF_SOON_TO_EXPIRE, MP_UPCALLS.calibrationExpiry()};
        return {KVD_TUIIF_CALIBRATED, ""};
    case KVD_TUIIF_FREQUENCY_DRIFTING:
    case KVD_TUIIF_SLAVE_FREE_RUNNING: return {KVD_TUIIF_UNCALIBRATED, ""};
    default: return {state().calibrationStatus, state().calibrationExpirationDate};
    }
}

// ---- time accuracy ----

void sendTimeAccuracy(u32 timeAccuracy_ns)
{
    if (!isReady()) return;
    state().latestSentTimeAccChangeInd = timeAccuracy_ns;
    auto* ind = node::make<KvdTuiifTimeAccuracyChangeInd>(KVD_TUIIF_TIME_ACCURACY_CHANGE_IND);
    ind->apn = tuiif::apn();
    ind->smn = tuiif::smn();
    ind->timeAccuracy = timeAccuracy_ns;
    tuiif::sendToPeer(ind);
}

// ---- states of packet references ----

constexpr u32 PKT_STATUS_FAULT    = 0x0F49;   // the reference can't be used
constexpr u32 PKT_STATUS_WARNING  = 0x70B6;   // it can, less well
constexpr u32 PKT_STATUS_MASK     = 0x7FFF;
constexpr u32 PKT_REF_STATE_FAULT   = 8192;
constexpr u32 PKT_REF_STATE_WARNING = 4096;
constexpr u32 PKT_REF_STATE_OK      = 16384;

}  // namespace

namespace tuiif {

void resetStatus()
{
    State& s = state();
    s.latestSentBvqStatusInd = {};
    s.savedBvqStatusData.tuiifRefState = 0;
    s.savedBvqStatusData.activRefFroId = FRO_NONE;
    s.savedBvqStatusData.activRefFroClassNo = FRO_NONE;
    s.gps = {0, "   "};
    s.hptsi = {0, "NOT OK"};
    s.gpsOsl = {0, "   "};
    s.calibrationStatus = KVD_TUIIF_UNCALIBRATED;
}

void updateCalibrationStatus()
{
    const Calibration now = presentCalibration();
    if (!isReady() || now.status == state().calibrationStatus) return;
    state().calibrationStatus = now.status;
    copyText(state().calibrationExpirationDate, now.date);
    auto* ind = node::make<KvdTuiifCalibrationStatusInd>(KVD_TUIIF_CALIBRATION_STATUS_IND);
    ind->signalRevision = 1;
    ind->calibrationStatus = now.status;
    copyText(ind->calibrationExpirationDate, state().calibrationExpirationDate);
    sendToPeer(ind);
}

}  // namespace tuiif

void KvdLoz6TuIifAdm_setSoonToExpire(u32 soonToExpire)
{
    state().soonToExpire = soonToExpire;
    tuiif::updateCalibrationStatus();
}

void KvdLoz6TuIifAdm_clearStatusTexts()
{
    for (tuiif::StatusRecord* const record : {&state().gps, &state().hptsi, &state().gpsOsl})
        record->text[0] = '\0';
}

void KvdLoz6TuIifAdm_sendGpsStatus(u8 gpsStatus, const char* text)
{
    if (!takeStatus(state().gps, gpsStatus, text)) return;
    letClockCatchUp(MP_UPCALLS.isGpsOperational());
    MP_UPCALLS.gpsStatusTold(gpsStatus);
    auto* ind = node::make<KvdTuiifGpsStatusInd>(KVD_TUIIF_GPS_STATUS_IND);
    ind->gpsStatus = gpsStatus;
    copyText(ind->text, state().gps.text);
    tuiif::sendToPeer(ind);
}

void KvdLoz6TuIifAdm_sendHptsiStatus(u8 hptsiStatus, const char* text)
{
    if (!takeStatus(state().hptsi, hptsiStatus, text)) return;
    letClockCatchUp(MP_UPCALLS.isHptsiOperational());
    sendStatusWithText(KVD_TUIIF_HPTSI_STATUS_IND, state().hptsi);
}

void KvdLoz6TuIifAdm_sendGpsOslStatus(u8 gpsOslStatus, const char* text)
{
    if (takeStatus(state().gpsOsl, gpsOslStatus, text))
        sendStatusWithText(KVD_TUIIF_GPSOSL_STATUS_IND, state().gpsOsl);
}

void KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(u32 timeAccuracy_ns)
{
    if (state().manualAccuracy != 0 && ose::current_process() == KvdLoz6TuMgr_pid()) return;
    const u32 latest = state().latestSentTimeAccChangeInd;
    const u32 change = std::max(timeAccuracy_ns, latest) - std::min(timeAccuracy_ns, latest);
    if (change >= ACCURACY_STEP_ns) sendTimeAccuracy(timeAccuracy_ns);
}
void KvdLoz6TuIifAdm_sendTimeAccuracyNow(u32 timeAccuracy_ns) { sendTimeAccuracy(timeAccuracy_ns); }
void KvdLoz6TuIifAdm_setManualAccuracy(u32 on) { state().manualAccuracy = on; }
u32  KvdLoz6TuIifAdm_manualAccuracy() { return state().manualAccuracy; }

void KvdLoz6TuIifAdm_sendRefState(u8 refType, u32 froId, u32 froClassNo, u32 refState,
                                  u32 additionalRefStateInfo)
{
    switch (refType) {
    case PACKET_TIME_REF:
    case PACKET_FREQ_REF:
    case ETHA_REF:
    case ETHB_REF:
    case ETHC_REF: break;
    default: KVD_TRACE(TRACE_TUIIFADM, TRACE_ERROR, "Reference not supported"); return;
    }
    if (!isReady()) return;
    auto* ind = node::make<KvdTuiif6BvqRefStateInd>(KVD_TUIIF6_BVQ_REF_STATE_IND);
    ind->signalRevision = 1;
    ind->smn = tuiif::smn();
    ind->apn = tuiif::apn();
    ind->froId = froId;
    ind->froClassNo = froClassNo;
    ind->refState = refState;
    ind->additionalRefStateInfo = additionalRefStateInfo;
    tuiif::sendToPeer(ind);
}

void KvdLoz6TuIifAdm_updateTuPktRefStatus(u32 froId, u32 froClassNo, u32 refStatus, u32 useActive)
{
    if (useActive != 0) {
        froId = state().savedBvqStatusData.activRefFroId;
        froClassNo = state().savedBvqStatusData.activRefFroClassNo;
    }
    u32 refState = PKT_REF_STATE_OK;
    if ((refStatus & PKT_STATUS_FAULT) != 0) {
        refState = PKT_REF_STATE_FAULT;
    } else if ((refStatus & PKT_STATUS_WARNING) != 0) {
        refState = PKT_REF_STATE_WARNING;
    } else if (refStatus != 0) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "Received updateTuPktRefStatus - but ignored: froId=%u, froClassNo=%u, "
                  "refStatus=0x%08x",
                  froId, froClassNo, refStatus);
        return;
    }
    KvdLoz6TuIifAdm_sendRefState(PACKET_TIME_REF, froId, froClassNo, refState, refStatus & PKT_STATUS_MASK);
}

void KvdLoz6TuIifAdm_sendRemoteRcState(u32 remoteState)
{
    tuiif::SavedBvqStatusData& saved = state().savedBvqStatusData;
    if (!isReady() || saved.selectedRef == SOCPRI_REF) return;
    if (remoteState != REMOTE_RC_UNKNOWN) {
        const bool follows = saved.selectedRef == GPSOSL_REF
                             || (saved.selectedRef == NO_REF && saved.prevSelectedRef == GPSOSL_REF);
        if (!follows || remoteState == saved.remoteRCState) return;
    }
    saved.remoteRCState = remoteState;
    auto* ind = node::make<KvdTuiifRemoteRcStateInd>(KVD_TUIIF_REMOTE_RC_STATE_IND);
    ind->remoteRCState = remoteState;
    tuiif::sendToPeer(ind);
}
