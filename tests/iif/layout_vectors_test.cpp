// Layouts of the signals against check values: number, offset and width of each field, size.
#include "sig/tuiif_sig.h"
#include "tests/support/vectors.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

struct Field { std::size_t offset, width; };
struct Layout {
    SIGSELECT sigNo;
    std::map<std::string, Field> fields;
    std::size_t size;
};

#define F(type, theirs, ours) {theirs, {offsetof(type, ours), sizeof(type{}.ours)}}
#define L(type, number, ...) Layout{number, {__VA_ARGS__}, sizeof(type)}

using Req = KvdTuiifInitiateServiceReq;
using Status = KvdTuiifBvqStatusInd;
using Sync = KvdTuiifGetRntForSfnCfm;
using Hptsi = KvdTuiifHptsiAttribCfm;
using Fwd = KvdTuiifSocpriLinkStatusFwd;
using Fixed = KvdTuiifFixedPositionInd;

const Layout LAYOUTS[] = {
    L(Req, KVD_TUIIF_INITIATE_SERVICE_REQ, F(Req, "signalRevision", signalRevision),
      F(Req, "pvFirstWanted", pvFirstWanted), F(Req, "pvSecondWanted", pvSecondWanted),
      F(Req, "pvThirdWanted", pvThirdWanted), F(Req, "smn", smn), F(Req, "apn", apn),
      F(Req, "piuInstanceId", piuInstanceId), F(Req, "boardType2", boardType2)),
    L(KvdTuiifInitiateServiceSus, KVD_TUIIF_INITIATE_SERVICE_SUS,
      F(KvdTuiifInitiateServiceSus, "signalRevision", signalRevision),
      F(KvdTuiifInitiateServiceSus, "highestAvailablePV", highestAvailablePV)),
    L(KvdTuiifSubscribePmReq, KVD_TUIIF_SUBSCRIBE_PM_REQ,
      F(KvdTuiifSubscribePmReq, "granularity", granularity),
      F(KvdTuiifSubscribePmReq, "froType", froType), F(KvdTuiifSubscribePmReq, "froId", froId)),
    L(KvdTuiifUnsubscribePmReq, KVD_TUIIF_UNSUBSCRIBE_PM_REQ,
      F(KvdTuiifUnsubscribePmReq, "froType", froType),
      F(KvdTuiifUnsubscribePmReq, "froId", froId)),
    L(KvdTuiifGetCurrentPmReq, KVD_TUIIF_GET_CURRENT_PM_REQ,
      F(KvdTuiifGetCurrentPmReq, "froType", froType), F(KvdTuiifGetCurrentPmReq, "froId", froId)),
    L(KvdTuiifSynchPathSupEthInd, KVD_TUIIF_SYNCH_PATH_SUP_IND,
      F(KvdTuiifSynchPathSupEthInd, "syncRefType", path.refType),
      F(KvdTuiifSynchPathSupEthInd, "supEnable", path.on),
      F(KvdTuiifSynchPathSupEthInd, "froId", path.froId),
      F(KvdTuiifSynchPathSupEthInd, "froClassNo", path.froClassNo),
      F(KvdTuiifSynchPathSupEthInd, "macAddress", macAddress)),
    L(Status, KVD_TUIIF_BVQ_STATUS_IND, F(Status, "smn", smn), F(Status, "apn", apn),
      F(Status, "radioClockState", radioClockState), F(Status, "refState", refState),
      F(Status, "activRefLtrStatus", activRefLtrStatus),
      F(Status, "activRefDegrStatus", activRefDegrStatus),
      F(Status, "activRefFroId", activRefFroId),
      F(Status, "activRefFroClassNo", activRefFroClassNo)),
    L(KvdTuiifEtFroidInd, KVD_TUIIF_ET_FROID_IND, F(KvdTuiifEtFroidInd, "smn", smn),
      F(KvdTuiifEtFroidInd, "apn", apn), F(KvdTuiifEtFroidInd, "lineNum", lineNum),
      F(KvdTuiifEtFroidInd, "froId", froId),
      F(KvdTuiifEtFroidInd, "statusControl", statusControl)),
    L(KvdTuiifGetRntToSfcDiffReq, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ,
      F(KvdTuiifGetRntToSfcDiffReq, "clientPid", clientPid)),
    L(KvdTuiifGetRntToSfcDiffRej, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REJ,
      F(KvdTuiifGetRntToSfcDiffRej, "clientPid", clientPid),
      F(KvdTuiifGetRntToSfcDiffRej, "rejectCause", rejectCause)),
    L(KvdTuiifJumpRntToSfcDiffZeroCfm, KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM,
      F(KvdTuiifJumpRntToSfcDiffZeroCfm, "clientPid", clientPid)),
    L(Sync, KVD_TUIIF_GET_RNT_FOR_SFN_CFM, F(Sync, "clientPid", clientPid), F(Sync, "sfn", sfn),
      F(Sync, "year", year), F(Sync, "month", month), F(Sync, "day", day), F(Sync, "hour", hour),
      F(Sync, "minute", minute), F(Sync, "second", second),
      F(Sync, "decimalSecond", decimalSecond)),
    L(KvdTuiifPktRateInd, KVD_TUIIF_PKT_RATE_IND, F(KvdTuiifPktRateInd, "pktRate", pktRate)),
    L(KvdTuiifChangeMasterTuInd, KVD_TUIIF_CHANGE_MASTER_TU_IND,
      F(KvdTuiifChangeMasterTuInd, "timeMode", timeMode),
      F(KvdTuiifChangeMasterTuInd, "masterSlaveMode", masterSlaveMode)),
    L(KvdTuiifSetTestModeInd, KVD_TUIIF_SET_TEST_MODE_IND, F(KvdTuiifSetTestModeInd, "on", on)),
    L(KvdTuiifGpsAttribReq, KVD_TUIIF_GPS_ATTRIB_REQ, F(KvdTuiifGpsAttribReq, "froId", froId)),
    L(Fixed, KVD_TUIIF_FIXED_POSITION_IND, F(Fixed, "froId", froId),
      F(Fixed, "lat.deg", latitude.deg), F(Fixed, "lat.min", latitude.min),
      F(Fixed, "lat.fractMin", latitude.fractMin), F(Fixed, "lat.dir", latitude.dir),
      F(Fixed, "lat.spare", latitude.spare), F(Fixed, "lon.deg", longitude.deg),
      F(Fixed, "lon.min", longitude.min), F(Fixed, "lon.fractMin", longitude.fractMin),
      F(Fixed, "lon.dir", longitude.dir), F(Fixed, "lon.spare", longitude.spare),
      F(Fixed, "altitude0", altitude[0]), F(Fixed, "altitude1", altitude[1])),
    L(KvdTuiifGpsOutTimeDataInd, KVD_TUIIF_GPS_OUT_TIME_DATA_IND,
      F(KvdTuiifGpsOutTimeDataInd, "apn", apn), F(KvdTuiifGpsOutTimeDataInd, "regState", regState),
      F(KvdTuiifGpsOutTimeDataInd, "mfc", mfc), F(KvdTuiifGpsOutTimeDataInd, "sfc", sfc),
      F(KvdTuiifGpsOutTimeDataInd, "inc", inc), F(KvdTuiifGpsOutTimeDataInd, "t_gps", t_gps)),
    L(KvdTuiifCreatePktRefRoCfm, KVD_TUIIF_CREATE_PKT_REF_RO_CFM,
      F(KvdTuiifCreatePktRefRoCfm, "froId", froId),
      F(KvdTuiifCreatePktRefRoCfm, "froClassNo", froClassNo),
      F(KvdTuiifCreatePktRefRoCfm, "apn", apn), F(KvdTuiifCreatePktRefRoCfm, "result", result)),
    L(KvdTuiifDeletePktRefRoCfm, KVD_TUIIF_DELETE_PKT_REF_RO_CFM,
      F(KvdTuiifDeletePktRefRoCfm, "froId", froId),
      F(KvdTuiifDeletePktRefRoCfm, "froClassNo", froClassNo),
      F(KvdTuiifDeletePktRefRoCfm, "apn", apn)),
    L(KvdTuiifAuditPktRefRoReq, KVD_TUIIF_AUDIT_PKT_REF_RO_REQ,
      F(KvdTuiifAuditPktRefRoReq, "apn", apn)),
    L(KvdTuiifGetPktRefRoAttribReq, KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ,
      F(KvdTuiifGetPktRefRoAttribReq, "froId", froId),
      F(KvdTuiifGetPktRefRoAttribReq, "froClassNo", froClassNo)),
    L(KvdTuiifSetSfnInitTimeInd, KVD_TUIIF_SET_SFN_INIT_TIME_IND,
      F(KvdTuiifSetSfnInitTimeInd, "year", sfnInitTime.year),
      F(KvdTuiifSetSfnInitTimeInd, "month", sfnInitTime.month),
      F(KvdTuiifSetSfnInitTimeInd, "day", sfnInitTime.day),
      F(KvdTuiifSetSfnInitTimeInd, "hour", sfnInitTime.hour),
      F(KvdTuiifSetSfnInitTimeInd, "minute", sfnInitTime.minute),
      F(KvdTuiifSetSfnInitTimeInd, "second", sfnInitTime.second)),
    L(KvdTuiifTimeAccuracyChangeInd, KVD_TUIIF_TIME_ACCURACY_CHANGE_IND,
      F(KvdTuiifTimeAccuracyChangeInd, "apn", apn), F(KvdTuiifTimeAccuracyChangeInd, "smn", smn),
      F(KvdTuiifTimeAccuracyChangeInd, "timeAccuracy", timeAccuracy)),
    L(KvdTuiifSetHptsiDelayInd, KVD_TUIIF_SET_HPTSI_DELAY_IND,
      F(KvdTuiifSetHptsiDelayInd, "delay", delay)),
    L(Hptsi, KVD_TUIIF_HPTSI_ATTRIB_CFM, F(Hptsi, "froId", froId),
      F(Hptsi, "hptsiCompensationDelay", hptsiCompensationDelay), F(Hptsi, "leapSec", leapSec),
      F(Hptsi, "ppsState", ppsState), F(Hptsi, "stateOfClockSource", stateOfClockSource),
      F(Hptsi, "monitorAlarm", monitorAlarm), F(Hptsi, "jitterLevel", jitterLevel),
      F(Hptsi, "clockSource", clockSource)),
    L(KvdTuiifOscTemperatureStateInd, KVD_TUIIF_OSC_TEMPERATURE_STATE_IND,
      F(KvdTuiifOscTemperatureStateInd, "signalRevision", signalRevision),
      F(KvdTuiifOscTemperatureStateInd, "oscTempState", oscTempState)),
    L(KvdTuiifGpsoslAttribReq, KVD_TUIIF_GPSOSL_ATTRIB_REQ,
      F(KvdTuiifGpsoslAttribReq, "froId", froId)),
    L(KvdTuiifGpsoslStatusInd, KVD_TUIIF_GPSOSL_STATUS_IND,
      F(KvdTuiifGpsoslStatusInd, "reserved", reserved),
      F(KvdTuiifGpsoslStatusInd, "gpsOslStatus", status), F(KvdTuiifGpsoslStatusInd, "text", text)),
    L(KvdTuiifSelectionModeChangeInd, KVD_TUIIF_SELECTION_MODE_CHANGE_IND,
      F(KvdTuiifSelectionModeChangeInd, "selectionProcessMode", selectionProcessMode)),
    L(KvdTuiifIdl2TimeDataInd, KVD_TUIIF_IDL2_TIME_DATA_IND, F(KvdTuiifIdl2TimeDataInd, "apn", apn),
      F(KvdTuiifIdl2TimeDataInd, "jumpPend", jumpPend),
      F(KvdTuiifIdl2TimeDataInd, "jumpInd", jumpInd),
      F(KvdTuiifIdl2TimeDataInd, "numOfPorts", numOfPorts), F(KvdTuiifIdl2TimeDataInd, "eSFC", eSFC),
      F(KvdTuiifIdl2TimeDataInd, "mfn", mfn), F(KvdTuiifIdl2TimeDataInd, "sfn", sfn),
      F(KvdTuiifIdl2TimeDataInd, "inc", inc)),
    L(KvdTuiifIdl2LinkStatusFwd, KVD_TUIIF_IDL2_LINK_STATUS_FWD,
      F(KvdTuiifIdl2LinkStatusFwd, "apn", apn), F(KvdTuiifIdl2LinkStatusFwd, "portNo", portNo),
      F(KvdTuiifIdl2LinkStatusFwd, "linkAvailable", linkAvailable),
      F(KvdTuiifIdl2LinkStatusFwd, "farEndDuNo", farEndDuNo),
      F(KvdTuiifIdl2LinkStatusFwd, "farEndPortNo", farEndPortNo)),
    L(KvdTuiifIdl2SyncReportInd, KVD_TUIIF_IDL2_SYNC_REPORT_IND,
      F(KvdTuiifIdl2SyncReportInd, "apn", apn),
      F(KvdTuiifIdl2SyncReportInd, "fineTimeSync", fineTimeSync),
      F(KvdTuiifIdl2SyncReportInd, "phaseDiff", phaseDiff)),
    L(Signal, KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM), L(Signal, KVD_COMM_ONS_HUNT),
    L(Signal, KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM), L(Signal, KVD_COMM_SERVER_DEAD),
    L(Signal, KVD_TUIIF_TO_HOLDOVER_TMO_IND), L(Signal, KVD_TUIIF_SOCPRI_START_REQ),
    L(Signal, KVD_TUIIF_SOCPRI_STOP_REQ),
    L(KvdTuiifIdl2SetMasterServerCfm, KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM,
      F(KvdTuiifIdl2SetMasterServerCfm, "isMasterServer", isMasterServer)),
    L(KvdTuiifSyncinfoCfm, KVD_TUIIF_SYNCINFO_CFM,
      F(KvdTuiifSyncinfoCfm, "clientReference", clientRef)),
    L(KvdTuiifRegisterSynchRefInd, KVD_TUIIF_REGISTER_SYNCH_REF_IND,
      F(KvdTuiifRegisterSynchRefInd, "froClassNo", froClassNo),
      F(KvdTuiifRegisterSynchRefInd, "froId", froId)),
    L(KvdTuiifSocpriScanLinkReq, KVD_TUIIF_SOCPRI_SCAN_LINK_REQ,
      F(KvdTuiifSocpriScanLinkReq, "apn", apn), F(KvdTuiifSocpriScanLinkReq, "scanPortNo", portNo)),
    L(KvdTuiifSocpriSelectSyncLinkRsp, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP,
      F(KvdTuiifSocpriSelectSyncLinkRsp, "apn", apn),
      F(KvdTuiifSocpriSelectSyncLinkRsp, "portNo", portNo),
      F(KvdTuiifSocpriSelectSyncLinkRsp, "syncStatus", syncStatus)),
    L(Fwd, KVD_TUIIF_SOCPRI_LINK_STATUS_FWD, F(Fwd, "apn", apn), F(Fwd, "id", id),
      F(Fwd, "portNo", portNo), F(Fwd, "linkStatus", linkStatus),
      F(Fwd, "huntPathPrefix", huntPathPrefix), F(Fwd, "subsumedId", subsumedId),
      F(Fwd, "valid", valid)),
    L(KvdTuiifSocpriBfnAlignToGroupReq, KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ,
      F(KvdTuiifSocpriBfnAlignToGroupReq, "apn", apn),
      F(KvdTuiifSocpriBfnAlignToGroupReq, "portNo", portNo),
      F(KvdTuiifSocpriBfnAlignToGroupReq, "esfc", esfc),
      F(KvdTuiifSocpriBfnAlignToGroupReq, "mfn", mfn)),
    L(KvdTuiifSocpriCoarseTimeDataInd, KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND,
      F(KvdTuiifSocpriCoarseTimeDataInd, "ref_esfc", ref_esfc),
      F(KvdTuiifSocpriCoarseTimeDataInd, "ref_mfn", ref_mfn)),
    L(KvdTuiifSocpriGoToTimeHoldoverRsp, KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP,
      F(KvdTuiifSocpriGoToTimeHoldoverRsp, "status", status)),
    L(KvdTuiifSocpriDeselectSyncLinkInd, KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND,
      F(KvdTuiifSocpriDeselectSyncLinkInd, "byte7", byte7),
      F(KvdTuiifSocpriDeselectSyncLinkInd, "portNo", portNo)),
    L(KvdTuiifSocpriSpJumpInd, KVD_TUIIF_SOCPRI_SP_JUMP_IND,
      F(KvdTuiifSocpriSpJumpInd, "jumpIndication", jumpIndication)),
    L(KvdTuiifSocpriSduFollowSfcAdjInd, KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND,
      F(KvdTuiifSocpriSduFollowSfcAdjInd, "apn", apn),
      F(KvdTuiifSocpriSduFollowSfcAdjInd, "delta0_c", delta0_c),
      F(KvdTuiifSocpriSduFollowSfcAdjInd, "delta0_f", delta0_f)),
    L(KvdTuiifSocpriSduFollowOcxoRevertInd, KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND,
      F(KvdTuiifSocpriSduFollowOcxoRevertInd, "apn", apn),
      F(KvdTuiifSocpriSduFollowOcxoRevertInd, "deltaFreq", deltaFreq)),
    L(KvdTuiifInrsiGetFreqDiff2ReqFwd, KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD,
      F(KvdTuiifInrsiGetFreqDiff2ReqFwd, "apn", apn),
      F(KvdTuiifInrsiGetFreqDiff2ReqFwd, "sharedUnitId", sharedUnitId)),
    L(KvdTuiifInrsiGetFreqDiff2RejFwd, KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD,
      F(KvdTuiifInrsiGetFreqDiff2RejFwd, "apn", apn),
      F(KvdTuiifInrsiGetFreqDiff2RejFwd, "sharedUnitId", sharedUnitId),
      F(KvdTuiifInrsiGetFreqDiff2RejFwd, "errorCode", errorCode)),
    L(KvdTuiifInrsiGetPhaseDiff2CfmFwd, KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD,
      F(KvdTuiifInrsiGetPhaseDiff2CfmFwd, "apn", apn),
      F(KvdTuiifInrsiGetPhaseDiff2CfmFwd, "sharedUnitId", sharedUnitId),
      F(KvdTuiifInrsiGetPhaseDiff2CfmFwd, "trpDiffHigh", trpDiffHigh),
      F(KvdTuiifInrsiGetPhaseDiff2CfmFwd, "trpDiffLow", trpDiffLow),
      F(KvdTuiifInrsiGetPhaseDiff2CfmFwd, "trpDiffValid", trpDiffValid)),
    L(KvdTuiifSocpriSduLockPortFocusInd, KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND,
      F(KvdTuiifSocpriSduLockPortFocusInd, "portNo", portNo)),
};

const Layout* layoutOf(SIGSELECT sigNo)
{
    for (const Layout& layout : LAYOUTS)
        if (layout.sigNo == sigNo) return &layout;
    return nullptr;
}

/// "port3.delayC4T1Low" of the records of KVD_TUIIF_IDL2_TIME_DATA_IND, 24 bytes apart.
Field portField(const std::string& name)
{
    using Port = TuiifIdl2PortData;
    static const std::map<std::string, Field> FIELDS = {
        F(Port, "nearEndportNo", nearEndportNo), F(Port, "farEndportNo", farEndportNo),
        F(Port, "delayC4T1High", delayC4T1High), F(Port, "delayC4T1Low", delayC4T1Low),
        F(Port, "delayT1C1High", delayT1C1High), F(Port, "delayT1C1Low", delayT1C1Low),
        F(Port, "linkMode", linkMode), F(Port, "linkStability", linkStability),
    };
    const auto port = static_cast<std::size_t>(name[4] - '0');
    Field field = FIELDS.at(name.substr(6));
    field.offset += offsetof(KvdTuiifIdl2TimeDataInd, port) + port * sizeof(Port);
    return field;
}

/// Signals of the main processor's interface; those of the node's other services are held by the static
/// assertions beside their structures.
bool isOfTheMainProcessor(SIGSELECT sigNo)
{
    return (sigNo >= 0x9C000 && sigNo <= 0x9C081) || sigNo >> 8 == 0x90E;
}

void expectField(const Layout& layout, const vectors::Value& f)
{
    const std::string name = f["name"].get<std::string>();
    const auto offset = f["offset"].get<std::size_t>(), width = f["width"].get<std::size_t>();
    f.read();
    // The text of an answer has no member: it follows the fixed part.
    if (layout.sigNo == KVD_TUIIF_SYNCINFO_CFM && name == "text") {
        EXPECT_EQ(offset, layout.size);
        return;
    }
    const bool inPort = name.rfind("port", 0) == 0 && name.find('.') != std::string::npos;
    const Field field = inPort ? portField(name) : layout.fields.at(name);
    EXPECT_EQ(field.offset, offset) << name;
    EXPECT_EQ(field.width, width) << name;
}

void layout(const vectors::Value& v)
{
    const SIGSELECT sigNo = v["in"]["number"].get<u32>();
    v["in"].read();
    if (!isOfTheMainProcessor(sigNo) || !v["out"]["fields"].is_array()) {
        v["out"].read();
        return;
    }
    const Layout* found = layoutOf(sigNo);
    ASSERT_NE(found, nullptr) << "no replay of " << v["in"]["name"];
    for (const vectors::Value f : v["out"]["fields"]) expectField(*found, f);
    const vectors::Value size = v["out"]["size"];
    if (size.is_number() && sigNo != KVD_TUIIF_IDL2_TIME_DATA_IND) {
        EXPECT_EQ(found->size, size.get<std::size_t>());
    }
    v["out"].read();
}

TEST(Layouts, AgreeWithTheCheckValues)
{
    vectors::Document document("o05_layout.json");
    vectors::eachKind(document["vectors"], {{"layout", layout}},
                      {"layoutOpen", "nsHunt", "codes"});    // no layout, a string, a list of names
}

}  // namespace
