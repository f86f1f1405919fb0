#include "mp/kvd_iifadm_send.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm_state.h"
#include "unit/kvd_unit_link.h"

#include <cstdio>
#include <cstring>

namespace {

using tuiif::apn;
using tuiif::isReady;
using tuiif::sendToPeer;
using tuiif::smn;

/// A new, zeroed signal, filled and sent: no byte of it is left to chance, padding neither.
template <typename T, typename Fill>
void sendNew(SIGSELECT sigNo, Fill fill)
{
    if (!isReady()) return;
    T* sig = node::make<T>(sigNo);
    fill(*sig);
    sendToPeer(sig);
}

/// The same for a signal whose first field is the unit's apn.
template <typename T, typename Fill>
void sendOwn(SIGSELECT sigNo, Fill fill)
{
    sendNew<T>(sigNo, [&](T& sig) {
        sig.apn = apn();
        fill(sig);
    });
}

}  // namespace

void KvdLoz6TuIifAdm_send(Signal** sig)
{
    if (isReady())
        ose::send(sig, KvdLoz6TuIifAdm_peer());
    else
        ose::free_buf(sig);
}

void KvdLoz6TuIifAdm_forwardPktsync(Signal** sig)
{
    if (isReady()) KVD_TRACE(TRACE_TUIIFADM, TRACE_3, "TUPKTSYNC signal sent to FRO");
    KvdLoz6TuIifAdm_send(sig);
}

// ---- status ----

void KvdLoz6TuIifAdm_sendOscTemperatureState(u8 oscTempState)
{
    sendNew<KvdTuiifOscTemperatureStateInd>(KVD_TUIIF_OSC_TEMPERATURE_STATE_IND, [&](auto& sig) {
        sig.signalRevision = 1;
        sig.oscTempState = oscTempState;
    });
}

void KvdLoz6TuIifAdm_sendQualityLevelInd(u32 froId, u32 froClassNo, u32 clockQuality, u32 tcuDetected)
{
    sendNew<KvdTuiifQualityLevelInd>(KVD_TUIIF_QUALITY_LEVEL_IND, [&](auto& sig) {
        sig.froId = froId;
        sig.froClassNo = froClassNo;
        sig.clockQuality = clockQuality;
        sig.tcuDetected = tcuDetected;
    });
}

void KvdLoz6TuIifAdm_sendPduMissingInd(u32 froId, u32 froClassNo, u32 pduMissing)
{
    sendNew<KvdTuiifPduMissingInd>(KVD_TUIIF_PDU_MISSING_IND, [&](auto& sig) {
        sig.froId = froId;
        sig.froClassNo = froClassNo;
        sig.pduMissing = pduMissing;
    });
}

// ---- ports, inter-unit links ----

void KvdLoz6TuIifAdm_sendEtFroidInd(u32 lineNum, u32 froId, u32 statusControl)
{
    sendNew<KvdTuiifEtFroidInd>(KVD_TUIIF_ET_FROID_IND, [&](auto& sig) {
        sig.smn = smn();
        sig.apn = apn();
        sig.lineNum = lineNum;
        sig.froId = froId;
        sig.statusControl = statusControl;
    });
}

void KvdLoz6TuIifAdm_sendRefStatusChangeInd(u32 froId, u16 admState, u16 operState, u32 syncState)
{
    sendNew<KvdTuiifRefStatusChangeInd>(KVD_TUIIF_REF_STATUS_CHANGE_IND, [&](auto& sig) {
        sig.froId = froId;
        sig.admState = admState;
        sig.operState = operState;
        sig.syncState = syncState;
    });
}

void KvdLoz6TuIifAdm_sendIdl2ModeInd()
{
    const u8 idl2Used = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2 ? 1 : 0;
    sendNew<KvdTuiifIdl2ModeInd>(KVD_TUIIF_IDL2_MODE_IND, [&](auto& sig) {
        sig.smn = smn();
        sig.apn = apn();
        sig.idl2Used = idl2Used;
    });
}

void KvdLoz6TuIifAdm_sendIdl2LinkStatusFwd(u32 portNo, u32 linkAvailable, u8 farEndDuNo, u8 farEndPortNo)
{
    sendOwn<KvdTuiifIdl2LinkStatusFwd>(KVD_TUIIF_IDL2_LINK_STATUS_FWD, [&](auto& sig) {
        sig.portNo = portNo;
        sig.linkAvailable = linkAvailable;
        sig.farEndDuNo = farEndDuNo;
        sig.farEndPortNo = farEndPortNo;
    });
}

void KvdLoz6TuIifAdm_sendIdl2SyncReportInd(u32 fineTimeSync, double phaseDiff)
{
    sendOwn<KvdTuiifIdl2SyncReportInd>(KVD_TUIIF_IDL2_SYNC_REPORT_IND, [&](auto& sig) {
        sig.fineTimeSync = fineTimeSync;
        sig.phaseDiff = phaseDiff;
    });
}

void KvdLoz6TuIifAdm_sendIdl2SetMasterServerReq(u32 masterServer)
{
    sendNew<KvdTuiifIdl2SetMasterServerReq>(KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ, [&](auto& sig) {
        sig.masterServer = masterServer;
        sig.apn = apn();
    });
}

// ---- answers ----

void KvdLoz6TuIifAdm_sendGpsOslAttribCfm(u32 froId, u16 gpsOslCompensationDelay, u8 gpsOslState)
{
    sendNew<KvdTuiifGpsoslAttribCfm>(KVD_TUIIF_GPSOSL_ATTRIB_CFM, [&](auto& sig) {
        sig.froId = froId;
        sig.gpsOslCompensationDelay = gpsOslCompensationDelay;
        sig.gpsOslState = gpsOslState;
    });
}

void KvdLoz6TuIifAdm_sendSubscribePmCfm(u32 froType, u32 froId)
{
    sendNew<KvdTuiifSubscribePmCfm>(KVD_TUIIF_SUBSCRIBE_PM_CFM, [&](auto& sig) {
        sig.froType = froType;
        sig.froId = froId;
    });
}

void KvdLoz6TuIifAdm_sendUnsubscribePmCfm(u32 froType, u32 froId)
{
    sendNew<KvdTuiifUnsubscribePmCfm>(KVD_TUIIF_UNSUBSCRIBE_PM_CFM, [&](auto& sig) {
        sig.froType = froType;
        sig.froId = froId;
    });
}

void KvdLoz6TuIifAdm_sendCurrentPmCfm(u32 froType, u32 froId, u32 suspectFlag, const i32* values, u32 count)
{
    if (!isReady()) return;
    const u32 size = count * static_cast<u32>(sizeof(i32)) + PM_ATTR_OVERHEAD;
    Signal* sig = ose::alloc(size, KVD_TUIIF_GET_CURRENT_PM_CFM);
    auto* cfm = reinterpret_cast<KvdTuiifGetCurrentPmCfm*>(sig);
    cfm->froType = froType;
    cfm->froId = froId;
    cfm->suspectFlag = suspectFlag;
    cfm->noOfPmAttr = count;
    if (count != 0)
        std::memcpy(reinterpret_cast<char*>(sig) + PM_ATTR_LIST_OFFSET, values, count * sizeof(i32));
    KvdLoz6TuIifAdm_send(&sig);
}

// ---- SoCPRI ----

void KvdLoz6TuIifAdm_sendSocpriStartRsp(u32 status)
{
    sendOwn<KvdTuiifSocpriStartRsp>(KVD_TUIIF_SOCPRI_START_RSP, [&](auto& sig) { sig.status = status; });
}

void KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(u8 portNo, u32 syncStatus)
{
    sendOwn<KvdTuiifSocpriScanLinkRsp>(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP, [&](auto& sig) {
        sig.portNo = portNo;
        sig.syncStatus = syncStatus;
    });
}

void KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(u8 portNo, u32 syncStatus)
{
    sendOwn<KvdTuiifSocpriSelectSyncLinkRsp>(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP, [&](auto& sig) {
        sig.portNo = portNo;
        sig.syncStatus = syncStatus;
    });
}

void KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(u8 portNo, u32 syncStatus)
{
    sendOwn<KvdTuiifSocpriLinkSyncStatusInd>(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND, [&](auto& sig) {
        sig.portNo = portNo;
        sig.syncStatus = syncStatus;
    });
}

void KvdLoz6TuIifAdm_sendSocpriLinkStatusFwd(u32 id, u8 portNo, u8 linkStatus, const char* huntPathPrefix,
                                             u32 subsumedId, u32 valid)
{
    sendOwn<KvdTuiifSocpriLinkStatusFwd>(KVD_TUIIF_SOCPRI_LINK_STATUS_FWD, [&](auto& sig) {
        sig.id = id;
        sig.portNo = portNo;
        sig.linkStatus = linkStatus;
        std::snprintf(sig.huntPathPrefix, sizeof sig.huntPathPrefix, "%s", huntPathPrefix);
        sig.subsumedId = subsumedId;
        sig.valid = valid;
    });
}

void KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(u32 status)
{
    sendOwn<KvdTuiifSocpriBfnAlignToGroupRsp>(KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP,
                                              [&](auto& sig) { sig.status = status; });
}

void KvdLoz6TuIifAdm_sendSocpriGoToTimeHoldoverRsp(u32 status)
{
    sendNew<KvdTuiifSocpriGoToTimeHoldoverRsp>(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP,
                                               [&](auto& sig) { sig.status = status; });
}

void KvdLoz6TuIifAdm_sendSocpriAlreadySelectedInd(u8 selectedCpriPort, u8 requestedCpriPort)
{
    sendOwn<KvdTuiifSocpriAlreadySelectedInd>(KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND, [&](auto& sig) {
        sig.selectedCpriPort = selectedCpriPort;
        sig.requestedCpriPort = requestedCpriPort;
    });
}

void KvdLoz6TuIifAdm_sendSocpriSupervisionStatusInd(u8 portNo, u8 syncStatus)
{
    sendOwn<KvdTuiifSocpriSupervisionStatusInd>(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND, [&](auto& sig) {
        sig.portNo = portNo;
        sig.syncStatus = syncStatus;
    });
}

void KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoAdjInd(i16 freqDiff)
{
    sendOwn<KvdTuiifSocpriSduFollowOcxoAdjInd>(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND,
                                               [&](auto& sig) { sig.freqDiff = freqDiff; });
}

void KvdLoz6TuIifAdm_sendSocpriSduFollowSfcAdjInd(double delta0_c, double delta0_f)
{
    sendOwn<KvdTuiifSocpriSduFollowSfcAdjInd>(KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND, [&](auto& sig) {
        sig.delta0_c = delta0_c;
        sig.delta0_f = delta0_f;
    });
}

void KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoRevertInd(double deltaFreq)
{
    sendOwn<KvdTuiifSocpriSduFollowOcxoRevertInd>(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND,
                                                  [&](auto& sig) { sig.deltaFreq = deltaFreq; });
}

void KvdLoz6TuIifAdm_sendInrsiBfnJumpInfoReqFwd(u32 bfnJumpsEnabled)
{
    sendOwn<KvdTuiifInrsiBfnJumpInfoReqFwd>(KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD,
                                            [&](auto& sig) { sig.bfnJumpsEnabled = bfnJumpsEnabled; });
}

void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2ReqFwd(u32 sharedUnitId)
{
    sendOwn<KvdTuiifInrsiGetFreqDiff2ReqFwd>(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD,
                                             [&](auto& sig) { sig.sharedUnitId = sharedUnitId; });
}

void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2CfmFwd(u32 sharedUnitId, i16 freqDiff, u8 freqDiffValid)
{
    sendOwn<KvdTuiifInrsiGetFreqDiff2CfmFwd>(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD, [&](auto& sig) {
        sig.sharedUnitId = sharedUnitId;
        sig.freqDiff = freqDiff;
        sig.freqDiffValid = freqDiffValid;
    });
}

void KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2RejFwd(u32 sharedUnitId, u8 errorCode)
{
    sendOwn<KvdTuiifInrsiGetFreqDiff2RejFwd>(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD, [&](auto& sig) {
        sig.sharedUnitId = sharedUnitId;
        sig.errorCode = errorCode;
    });
}

void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2ReqFwd(u32 sharedUnitId)
{
    sendOwn<KvdTuiifInrsiGetPhaseDiff2ReqFwd>(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD,
                                              [&](auto& sig) { sig.sharedUnitId = sharedUnitId; });
}

void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2CfmFwd(u32 sharedUnitId, u32 trpDiffHigh, u32 trpDiffLow,
                                                  u8 trpDiffValid)
{
    sendOwn<KvdTuiifInrsiGetPhaseDiff2CfmFwd>(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD, [&](auto& sig) {
        sig.sharedUnitId = sharedUnitId;
        sig.trpDiffHigh = trpDiffHigh;
        sig.trpDiffLow = trpDiffLow;
        sig.trpDiffValid = trpDiffValid;
    });
}

void KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2RejFwd(u32 sharedUnitId, u8 errorCode)
{
    sendOwn<KvdTuiifInrsiGetPhaseDiff2RejFwd>(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD, [&](auto& sig) {
        sig.sharedUnitId = sharedUnitId;
        sig.errorCode = errorCode;
    });
}
