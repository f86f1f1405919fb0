// Layouts of the signals against check values: number, offset and width of each field, size. The members of a
// layout are found by the compiler, so that a list of them can't be wrong or short.
#include "sig/tuiif_sig.h"
#include "node/name_service.h"
#include "node/ngpduhif.h"
#include "node/slowpi.h"
#include "node/slowpi_sig.h"
#include "sig/tupktsync_sig.h"
#include "sig/hptsi_sig.h"
#include "sig/idpi_sig.h"
#include "refs/kvd_slowpi.h"
#include "sig/inci_sig.h"
#include "sig/inrsi_sig.h"
#include "tests/ose/program.h"
#include "tests/support/vectors.h"

#include <boost/preprocessor/repetition/enum_params.hpp>
#include <boost/preprocessor/repetition/repeat_from_to.hpp>

#include <optional>
#include <string>
#include <tuple>

namespace {

// ---- the members of a plain structure ----

struct Anything { template <typename T> operator T() const; };
template <typename T, std::size_t... I>
consteval bool takes(std::index_sequence<I...>) { return requires { T{{(void(I), Anything{})}...}; }; }
/// How many members T has, 60 at most.
template <typename T, std::size_t N = std::min<std::size_t>(sizeof(T), 60)>
consteval std::size_t members()
{
    if constexpr (N == 0 || takes<T>(std::make_index_sequence<N>{})) return N;
    else return members<T, N - 1>();
}

#define TIE(z, n, _) \
    else if constexpr (members<T>() == n) { \
        auto& [BOOST_PP_ENUM_PARAMS(n, m)] = record; \
        return std::tie(BOOST_PP_ENUM_PARAMS(n, m)); \
    }
template <typename T>
constexpr auto tie(T& record)
{
    if constexpr (members<T>() == 0) return std::tuple<>();
    BOOST_PP_REPEAT_FROM_TO(1, 61, TIE, _)
}

template <typename T> struct Holder { T value; };
template <typename T> extern const Holder<T> NOWHERE;
template <auto Member> consteval std::string_view pretty() { return __PRETTY_FUNCTION__; }
/// The name of a member, from "... = (& NOWHERE<T>.Holder<T>::value.T::froId); ..."
template <typename T, std::size_t I>
std::string nameOfMember()
{
    std::string_view text = pretty<&std::get<I>(tie(NOWHERE<T>.value))>();
    text = text.substr(0, text.find(')', text.find("::value.")));
    return std::string(text.substr(text.rfind(':') + 1));
}

struct Field {
    std::string name;                // "froId", "path.froId"
    std::size_t offset, width;
    std::size_t stride;              // of an array's elements; 0: none
};

template <typename T>
void collect(std::vector<Field>& all, const std::string& prefix, std::size_t base, std::size_t stride)
{
    static T record;
    const auto tied = tie(record);
    const auto one = [&]<typename M>(const std::string& name, M& member) {
        const std::size_t offset = base + static_cast<std::size_t>(reinterpret_cast<const char*>(&member)
                                                                    - reinterpret_cast<const char*>(&record));
        using Element = std::remove_extent_t<M>;
        constexpr bool inner = std::is_class_v<Element> && !requires { std::tuple_size<Element>::value; };
        const std::size_t step = std::is_array_v<M> ? sizeof(Element) : stride;
        if constexpr (inner) collect<Element>(all, prefix + name + ".", offset, step);
        else all.push_back({prefix + name, offset, sizeof(M), step});
    };
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (one(nameOfMember<T, I>(), std::get<I>(tied)), ...);
    }(std::make_index_sequence<members<T>()>{});
}

// ---- the layouts ----

struct Layout {
    std::map<std::string, SIGSELECT> numbers;
    std::vector<Field> fields;
    std::size_t size;
};

/// `names` as "A, B", of as many numbers.
template <typename T>
Layout layout(const std::string& names, std::initializer_list<SIGSELECT> numbers)
{
    Layout made{{}, {}, sizeof(T)};
    std::istringstream words(names);
    for (const SIGSELECT number : numbers) {
        std::string word;
        words >> word;
        made.numbers[word.substr(0, word.find(','))] = number;
    }
    if constexpr (sizeof(T) > sizeof(SIGSELECT)) collect<T>(made.fields, "", 0, 0);
    return made;
}

#define L(type, ...) layout<type>(#__VA_ARGS__, {__VA_ARGS__})
const std::vector<Layout>& layouts()
{
    static const std::vector<Layout> ALL = {
        L(KvdTuiifInitiateServiceReq, KVD_TUIIF_INITIATE_SERVICE_REQ),
        L(KvdTuiifInitiateServiceCfm, KVD_TUIIF_INITIATE_SERVICE_CFM),
        L(KvdTuiifInitiateServiceSus, KVD_TUIIF_INITIATE_SERVICE_SUS, KVD_TUIIF_INITIATE_SERVICE_REJ),
        L(KvdTuiifSubscribePmReq, KVD_TUIIF_SUBSCRIBE_PM_REQ),
        L(KvdTuiifSubscribePmCfm, KVD_TUIIF_SUBSCRIBE_PM_CFM, KVD_TUIIF_UNSUBSCRIBE_PM_REQ,
          KVD_TUIIF_UNSUBSCRIBE_PM_CFM, KVD_TUIIF_GET_CURRENT_PM_REQ),
        L(KvdTuiifGetCurrentPmCfm, KVD_TUIIF_GET_CURRENT_PM_CFM),
        L(KvdTuiifSynchPathSupEthInd, KVD_TUIIF_SYNCH_PATH_SUP_IND),
        L(KvdTuiifSelectSynchRefInd, KVD_TUIIF_SELECT_SYNCH_REF_IND),
        L(KvdTuiifBvqStatusInd, KVD_TUIIF_BVQ_STATUS_IND),
        L(KvdTuiifBoardFailureRecoveryInd, KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND),
        L(KvdTuiifEtFroidInd, KVD_TUIIF_ET_FROID_IND),
        L(KvdTuiifRefStatusChangeInd, KVD_TUIIF_REF_STATUS_CHANGE_IND),
        L(KvdTuiifGetRntToSfcDiffReq, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ,
          KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ, KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM),
        L(KvdTuiifGetRntToSfcDiffCfm, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_CFM),
        L(KvdTuiifGetRntToSfcDiffRej, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REJ, KVD_TUIIF_GET_RNT_FOR_SFN_REJ),
        L(KvdTuiifGetRntForSfnReq, KVD_TUIIF_GET_RNT_FOR_SFN_REQ),
        L(KvdTuiifGetRntForSfnCfm, KVD_TUIIF_GET_RNT_FOR_SFN_CFM),
        L(KvdTuiifPktRateInd, KVD_TUIIF_PKT_RATE_IND), L(KvdTuiifGpsStatusInd, KVD_TUIIF_GPS_STATUS_IND),
        L(KvdTuiifChangeMasterTuInd, KVD_TUIIF_CHANGE_MASTER_TU_IND),
        L(KvdTuiifGpsAttribCfm, KVD_TUIIF_GPS_ATTRIB_CFM),
        L(KvdTuiifSetTestModeInd, KVD_TUIIF_SET_TEST_MODE_IND),
        L(KvdTuiifSetDelayInd, KVD_TUIIF_SET_DELAY_IND, KVD_TUIIF_SET_HPTSI_DELAY_IND,
          KVD_TUIIF_SET_GPSOSL_DELAY_IND),
        L(KvdTuiifGpsAttribReq, KVD_TUIIF_GPS_ATTRIB_REQ, KVD_TUIIF_HPTSI_ATTRIB_REQ,
          KVD_TUIIF_GPSOSL_ATTRIB_REQ),
        L(KvdTuiifSetFixedPositionInd, KVD_TUIIF_SET_FIXED_POSITION_IND),
        L(KvdTuiifFixedPositionInd, KVD_TUIIF_FIXED_POSITION_IND),
        L(KvdTuiifSetGpsoutInd, KVD_TUIIF_SET_GPSOUT_IND, KVD_TUIIF_SET_HPTSIOUT_IND),
        L(KvdTuiifGpsOutTimeDataInd, KVD_TUIIF_GPS_OUT_TIME_DATA_IND),
        L(KvdTuiifCalibrationStatusInd, KVD_TUIIF_CALIBRATION_STATUS_IND),
        L(KvdTuiifCreatePktRefRoReq, KVD_TUIIF_CREATE_PKT_REF_RO_REQ, KVD_TUIIF_SET_PKT_REF_RO_REQ),
        L(KvdTuiifCreatePktRefRoCfm, KVD_TUIIF_CREATE_PKT_REF_RO_CFM),
        L(KvdTuiifDeletePktRefRoReq, KVD_TUIIF_DELETE_PKT_REF_RO_REQ, KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ),
        L(KvdTuiifDeletePktRefRoCfm, KVD_TUIIF_DELETE_PKT_REF_RO_CFM, KVD_TUIIF_SET_PKT_REF_RO_CFM),
        L(KvdTuiifAuditPktRefRoReq, KVD_TUIIF_AUDIT_PKT_REF_RO_REQ, KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND),
        L(KvdTuiifAuditPktRefRoCfm, KVD_TUIIF_AUDIT_PKT_REF_RO_CFM),
        L(KvdTuiifAuditPktRefRoResultInd, KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND),
        L(KvdTuiifGetPktRefRoAttribCfm, KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_CFM),
        L(KvdTuiifSetSfnInitTimeInd, KVD_TUIIF_SET_SFN_INIT_TIME_IND),
        L(KvdTuiif6BvqRefStateInd, KVD_TUIIF6_BVQ_REF_STATE_IND),
        L(KvdTuiifTimeAccuracyChangeInd, KVD_TUIIF_TIME_ACCURACY_CHANGE_IND),
        L(KvdTuiifHptsiAttribCfm, KVD_TUIIF_HPTSI_ATTRIB_CFM),
        L(KvdTuiifHptsiStatusInd, KVD_TUIIF_HPTSI_STATUS_IND, KVD_TUIIF_GPSOSL_STATUS_IND),
        L(KvdTuiifOscTemperatureStateInd, KVD_TUIIF_OSC_TEMPERATURE_STATE_IND),
        L(KvdTuiifGpsoslAttribCfm, KVD_TUIIF_GPSOSL_ATTRIB_CFM),
        L(KvdTuiifRemoteRcStateInd, KVD_TUIIF_REMOTE_RC_STATE_IND),
        L(KvdTuiif10TimeDataInd, KVD_TUIIF10_TIME_DATA_IND), L(KvdTuiifIdl2ModeInd, KVD_TUIIF_IDL2_MODE_IND),
        L(KvdTuiifSelectionModeChangeInd, KVD_TUIIF_SELECTION_MODE_CHANGE_IND),
        L(KvdTuiifQualityLevelInd, KVD_TUIIF_QUALITY_LEVEL_IND),
        L(KvdTuiifIdl2TimeDataInd, KVD_TUIIF_IDL2_TIME_DATA_IND),
        L(KvdTuiifPduMissingInd, KVD_TUIIF_PDU_MISSING_IND),
        L(KvdTuiifIdl2LinkStatusFwd, KVD_TUIIF_IDL2_LINK_STATUS_FWD),
        L(KvdTuiifIdl2SyncDataInd, KVD_TUIIF_IDL2_SYNC_DATA_IND),
        L(KvdTuiifIdl2SyncReportInd, KVD_TUIIF_IDL2_SYNC_REPORT_IND),
        L(KvdTuiifIdl2SelectIdlTypeReq, KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ),
        L(KvdTuiifIdl2TogglePersistentFreqLockReq, KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ),
        L(KvdTuiifIdl2SetMasterServerReq, KVD_TUIIF_IDL2_SET_MASTER_SERVER_REQ),
        L(KvdTuiifIdl2SetMasterServerCfm, KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM),
        L(KvdTuiifSyncinfoReq, KVD_TUIIF_SYNCINFO_REQ), L(KvdTuiifSyncinfoCfm, KVD_TUIIF_SYNCINFO_CFM),
        L(KvdTuiifRegisterSynchRefInd, KVD_TUIIF_REGISTER_SYNCH_REF_IND, KVD_TUIIF_DEREGISTER_SYNCH_REF_IND),
        L(KvdTuiifSocpriStartRsp, KVD_TUIIF_SOCPRI_START_RSP, KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP),
        L(KvdTuiifSocpriSupInd, KVD_TUIIF_SOCPRI_SUP_IND),
        L(KvdTuiifSocpriScanLinkReq, KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ),
        L(KvdTuiifSocpriScanLinkRsp, KVD_TUIIF_SOCPRI_SCAN_LINK_RSP, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP,
          KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND),
        L(KvdTuiifSocpriLinkStatusFwd, KVD_TUIIF_SOCPRI_LINK_STATUS_FWD),
        L(KvdTuiifSocpriBfnAlignToGroupReq, KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ),
        L(KvdTuiifSocpriCoarseTimeDataInd, KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND),
        L(KvdTuiifSocpriGoToTimeHoldoverRsp, KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP),
        L(KvdTuiifSocpriAlreadySelectedInd, KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND),
        L(KvdTuiifSocpriDeselectSyncLinkInd, KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND),
        L(KvdTuiifSocpriSupervisionStatusInd, KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND),
        L(KvdTuiifSocpriSpJumpInd, KVD_TUIIF_SOCPRI_SP_JUMP_IND),
        L(KvdTuiifSocpriSduFollowOcxoAdjInd, KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND),
        L(KvdTuiifSocpriSduFollowSfcAdjInd, KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND),
        L(KvdTuiifInrsiBfnJumpInfoReqFwd, KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD),
        L(KvdTuiifSocpriSduFollowOcxoRevertInd, KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND),
        L(KvdTuiifInrsiLinkStatus2IndFwd, KVD_TUIIF_INRSI_LINK_STATUS2_IND_FWD),
        L(KvdTuiifInrsiGetFreqDiff2ReqFwd, KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD,
          KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD),
        L(KvdTuiifInrsiGetFreqDiff2CfmFwd, KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD),
        L(KvdTuiifInrsiGetFreqDiff2RejFwd, KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD,
          KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD),
        L(KvdTuiifInrsiGetPhaseDiff2CfmFwd, KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD),
        L(KvdTuiifSocpriSduLockPortFocusInd, KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND),
        L(TuPktsyncPtpPacketInd, TUPKTSYNC_PTP_PACKET_IND),
        L(TuPktsyncClockRqmtInd, TUPKTSYNC_CLOCK_RQMT_IND),
        L(TuPktsyncPtpPacketPeerdelayInd, TUPKTSYNC_PTP_PACKET_PEERDELAY_IND),
        L(TuPktsyncNtpPacketInd, TUPKTSYNC_NTP_PACKET_IND),
        L(TuPktsyncRefSelectionInd, TUPKTSYNC_REF_SELECTION_IND),
        L(TuPktsyncTuiifUpInd, TUPKTSYNC_TUIIF_UP_IND), L(TuPktsyncRegInd, TUPKTSYNC_REG_IND),
        L(KvdTuhptsiCmccFrameRec, KVD_TUHPTSI_CMCC_FRAME_REC),
        L(InrsiPortTmo, INRSI_REQUEST_PHASE_DATA_TMO, KVD_TUSOCPRI_MEAS_RETRIEVE_TMO,
          KVD_TUSOCPRI_SUPERVISION_TMO),
        L(KvdTuSocpriInciEstablishReq, KVD_TUSOCPRI_INCI_ESTABLISH_REQ),
        L(KvdTuSocpriInciEstablishRsp, KVD_TUSOCPRI_INCI_ESTABLISH_RSP),
        L(KvdTuSocpriInciReleaseReq, KVD_TUSOCPRI_INCI_RELEASE_REQ),
        L(KvdTuSocpriInciReleaseRsp, KVD_TUSOCPRI_INCI_RELEASE_RSP),
        L(InciClientInd, KVD_TUSOCPRI_INCI_ESTABLISH_TMO, PSX_IW_NGSC_INCI_SERVER_UP_IND,
          PSX_IW_NGSC_INCI_SERVER_DOWN_IND),
        L(KvdTuSocpriInciGetTimeDataRsp, KVD_TUSOCPRI_INCI_GET_TIME_DATA_RSP),
        L(KvdNgpduhifConnEstablishReq, KVD_NGPDUHIF_CONN_ESTABLISH_REQ),
        L(KvdNgpduhifConnEstablishCfm, KVD_NGPDUHIF_CONN_ESTABLISH_CFM),
        L(KvdNgpduhifConnEstablishRej, KVD_NGPDUHIF_CONN_ESTABLISH_REJ),
        L(KvdNgpduhifConnReq, KVD_NGPDUHIF_HANDSHAKE_PDU_REQ, KVD_NGPDUHIF_SERVER_CONN_RELEASE_REQ,
          KVD_NGPDUHIF_CLIENT_CONN_RELEASE_REQ),
        L(KvdNgpduhifRefs, KVD_NGPDUHIF_HANDSHAKE_PDU_CFM, KVD_NGPDUHIF_HANDSHAKE_PDU_REJ),
        L(KvdNgpduhifSendBcmDataInd, KVD_NGPDUHIF_SEND_BCM_DATA_IND),
        L(KvdNgpduhifReceiveBcmDataInd, KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND),
        L(KvdNgpduhifConnReleaseRsp, KVD_NGPDUHIF_SERVER_CONN_RELEASE_RSP,
          KVD_NGPDUHIF_CLIENT_CONN_RELEASE_RSP),
        L(KvdNgpduhifTimeDataInd, KVD_NGPDUHIF_TIME_DATA_IND), L(InciServerInd, NGSC_INCI_CLIENT_DOWN_IND),
        L(SlowpiInitiateServiceReq, SLOWPI_INITIATE_SERVICE_REQ),
        L(SlowpiInitiateServiceCfm, SLOWPI_INITIATE_SERVICE_CFM),
        L(SlowpiInitiateServiceRej, SLOWPI_INITIATE_SERVICE_SUS, SLOWPI_INITIATE_SERVICE_REJ),
        L(SlowpiSubscribeReq, SLOWPI_SUBSCRIBE_REQ, SLOWPI_UNSUBSCRIBE_REQ),
        L(SlowpiResultRsp, SLOWPI_SUBSCRIBE_RSP, SLOWPI_UNSUBSCRIBE_RSP),
        L(SlowpiFrame, SLOWPI_SEND_FRAME_IND, SLOWPI_RECEIVE_FRAME_IND),
        L(IdpiConnEstablishReq, IDPI_CONN_ESTABLISH_REQ),
        L(IdpiRefs, IDPI_CONN_ESTABLISH_CFM, IDPI_GET_CAPABILITY_REQ, IDPI_SUBSCRIBE_LINK_STATUS_REQ,
          IDPI_SUBSCRIBE_LINK_STATUS_CFM),
        L(IdpiConnEstablishRej, IDPI_CONN_ESTABLISH_REJ), L(IdpiGetCapabilityCfm, IDPI_GET_CAPABILITY_CFM),
        L(IdpiRej, IDPI_GET_CAPABILITY_REJ, IDPI_SUBSCRIBE_LINK_STATUS_REJ),
        L(IdpiLinkStatusInd, IDPI_LINK_STATUS_IND), L(IdpiClkStatusFwd, IDPI_CLK_STATUS_FWD),
        L(IdpiGetDelayReq, IDPI_GET_DELAY_REQ, IDPI_GET_DELAY_REJ), L(IdpiGetDelayCfm, IDPI_GET_DELAY_CFM),
        L(InrsiConnEstablishReq, INRSI_CONN_ESTABLISH_REQ),
        L(InrsiConnEstablishCfm, INRSI_CONN_ESTABLISH_CFM),
        L(InrsiErrorRej, INRSI_CONN_ESTABLISH_REJ, INRSI_BFN_JUMP_INFO_REJ),
        L(InrsiPort, INRSI_SUBSCRIBE_LINK_STATUS_REQ, INRSI_SUBSCRIBE_LINK_STATUS_CFM,
          INRSI_UNSUBSCRIBE_LINK_STATUS_REQ, INRSI_UNSUBSCRIBE_LINK_STATUS_CFM),
        L(InrsiPortRej, INRSI_SUBSCRIBE_LINK_STATUS_REJ), L(InrsiBfnJumpInfoReq, INRSI_BFN_JUMP_INFO_REQ),
        L(InrsiRefs, INRSI_BFN_JUMP_INFO_CFM),
        L(InrsiUnit, INRSI_GET_PHASE_DIFF2_REQ, INRSI_GET_FREQ_DIFF2_REQ),
        L(InrsiGetPhaseDiff2Cfm, INRSI_GET_PHASE_DIFF2_CFM),
        L(InrsiUnitRej, INRSI_GET_PHASE_DIFF2_REJ, INRSI_GET_FREQ_DIFF2_REJ),
        L(InrsiGetFreqDiff2Cfm, INRSI_GET_FREQ_DIFF2_CFM), L(InrsiLinkStatus2Ind, INRSI_LINK_STATUS2_IND),
        L(InciConnEstablishReq, PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ),
        L(InciConnEstablishCfm, PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM),
        L(InciRej, PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ),
        L(InciRefs, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ, PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM,
          PSX_IW_NGSC_INCI_CONN_RELEASE_REQ, PSX_IW_NGSC_INCI_CONN_RELEASE_CFM),
        L(InciBroadcastMessageInd, PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND),
        L(InciBroadcastMessage2Ind, PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND),
        L(Signal, KVD_COMM_ONS_HUNT, KVD_COMM_ONS_DEAD, KVD_COMM_SERVER_DEAD, KVD_COMM_SERVER_UP_IND,
          KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM, KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM,
          KVD_TUIIF_FREQ_HOLDOVER_TMO_IND, KVD_TUIIF_TO_HOLDOVER_TMO_IND, KVD_TUIIF_RNT_HOLDOVER_TMO_IND,
          KVD_TUIIF_SOCPRI_START_REQ, KVD_TUIIF_SOCPRI_STOP_REQ, KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ,
          KVD_TUIIF_SOCPRI_SDU_CLEAR_PORT_FOCUS_IND, TUPKTSYNC_TUIIF_DOWN_IND,
          KVD_TUHPTSI_OPERATIONAL_TIMEOUT, KVD_TUHPTSI_VALID_TIME_TIMEOUT, KVD_TUHPTSI_SERIALPORT_INITIALISED,
          KVD_TUHPTSI_SUPR_ALARM_TIMEOUT, KVD_TUHPTSI_NO_VALID_TIME_TIMEOUT, KVD_TUHPTSI_MONITOR_TIMEOUT,
          KVD_TUHPTSI_RECEIVE_FRAMES_TIMEOUT, IDPI_SERVER_UP_IND, IDPI_SERVER_DOWN_IND, IDPI_REQUEST_DATA_TMO,
          KVD_SLOWPI_HEART_BEAT_IND, KVD_SLOWPI_PDU_MISSING_IND, INRSI_SERVER_UP_IND, INRSI_SERVER_DOWN_IND,
          INRSI_REQUEST_FREQ_DATA_TMO, KVD_TUSOCPRI_HOLDOVER_TMO, KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ,
          KVD_TUSOCPRI_INCI_GET_TIME_DATA_TMO, KVD_TUSOCPRI_BFN_JUMP_WARNING_TMO, SLOWPI_SERVER_UP_IND,
          SLOWPI_SERVER_DOWN_IND, IDPI_PROP_PORT_INFO_CFM),
    };
    return ALL;
}

/// By the signal's name, else by its number, as long as that isn't another signal's.
const Layout* layoutOf(const std::string& name, SIGSELECT number)
{
    const Layout* found = nullptr;
    for (const Layout& l : layouts()) {
        if (const auto named = l.numbers.find(name); named != l.numbers.end()) {
            EXPECT_EQ(named->second, number) << name;
            return &l;
        }
        for (const auto& [own, n] : l.numbers)
            if (n == number) found = &l;
    }
    return found;
}

/// The member of a name of the file: "froId", "path.froId", "protocolRev0", "port3.linkMode".
std::optional<Field> member(const Layout& l, const std::string& name)
{
    for (const Field& f : l.fields)
        if (f.name == name || f.name.ends_with("." + name)) return f;
    const std::size_t dot = std::min(name.find('.'), name.size());
    const std::size_t digits = name.find_last_not_of("0123456789", dot - 1) + 1;
    if (digits == dot) return {};
    const std::string rest = name.substr(dot);
    for (Field f : l.fields) {
        if (f.name != name.substr(0, digits) + rest || f.stride == 0) continue;
        f.offset += std::stoul(name.substr(digits, dot - digits)) * f.stride;
        if (rest.empty()) f.width = f.stride;
        return f;
    }
    return {};
}

/// A field that is called otherwise here is held by its place alone: a member of its own, an element of an
/// array, or of what follows the members.
bool hasPlace(const Layout& l, std::size_t offset, std::size_t width)
{
    if (offset >= l.size) return true;
    if (const Field& last = l.fields.back(); last.stride != 0 && offset >= last.offset) return true;
    for (const Field& f : l.fields)
        if ((f.offset == offset && f.width == width)
            || (f.stride != 0 && offset >= f.offset && offset + width <= f.offset + f.width)) return true;
    return false;
}

void expectField(const Layout& l, const vectors::Value& f, const vectors::Value& vector)
{
    const std::string name = f["name"].get<std::string>();
    const auto offset = f["offset"].get<std::size_t>(), width = f["width"].get<std::size_t>();
    for (const char* word : {"type", "source"}) f[word].read();
    const std::optional<Field> m = member(l, name);
    if (!m) {
        EXPECT_TRUE(hasPlace(l, offset, width)) << name << " at " << offset << ", " << width << " wide";
        return;
    }
    if (m->offset == offset && m->width == width) return;
    if (vector.contains("alternatives"))
        for (const vectors::Value other : vector["alternatives"])
            if (other.value(name, offset) == m->offset && other.value("width", width) == m->width) return;
    ADD_FAILURE() << name << " is at " << m->offset << ", " << m->width << " wide; wanted " << offset << ", "
                  << width;
}

/// The size of a signal; the buffer's of one of six ports.
void expectSize(const Layout& l, const vectors::Value& out)
{
    if (out.contains("body")) {          // behind the number and a reserved word
        EXPECT_EQ(l.size - 8, out["body"].get<std::size_t>());
    }
    if (out.contains("end")) out["end"].read();
    if (!out.contains("size") || out["size"].is_null()) return;
    const bool sixPorts = l.numbers.contains("KVD_TUIIF_IDL2_TIME_DATA_IND");
    const std::size_t more = sixPorts ? 5 * IDL2_TIME_DATA_PORT_GROWTH : 0;
    EXPECT_EQ(l.size + more, out["size"].get<std::size_t>());
}

void expectLayout(const vectors::Value& v)
{
    const vectors::Value in = v["in"], out = v["out"];
    const std::string name = in["name"].get<std::string>();
    if (in.contains("direction")) in["direction"].read();
    const Layout* found = layoutOf(name, in["number"].get<SIGSELECT>());
    if (found == nullptr) throw std::runtime_error("no layout of \"" + name + "\"");
    if (!out["fields"].is_null())
        for (const vectors::Value f : out["fields"]) expectField(*found, f, v);
    expectSize(*found, out);
}

class Layouts : public tests::Kernel {
protected:
    /// The hunt of a name at the name server, byte by byte; its numbers are big-endian in the file.
    void expectHunt(const vectors::Value& v)
    {
        const vectors::Value in = v["in"], out = v["out"];
        const std::string service = in["name"].get<std::string>();
        std::vector<u8> sent;
        launch("hunter", 20, [&] {
            node::NameService_ask(ose::current_process(), service.c_str());
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            sent.assign(reinterpret_cast<u8*>(sig), reinterpret_cast<u8*>(sig) + ose::sigsize(&sig));
            ose::free_buf(&sig);
        });
        world.runFor(1);
        const auto name = out["name_at"].get<std::size_t>(), back = out["giveBack_at"].get<std::size_t>();
        ASSERT_EQ(sent.size(), out["size"].get<std::size_t>());
        const auto number = [&](std::size_t at) {
            u32 value;
            std::memcpy(&value, sent.data() + at, sizeof value);
            std::reverse(sent.data() + at, sent.data() + at + sizeof value);
            return value;
        };
        EXPECT_EQ(number(0), in["number"].get<SIGSELECT>());
        EXPECT_EQ(number(back), in["giveBack"].get<SIGSELECT>());
        EXPECT_EQ(number(4), 0u);
        EXPECT_EQ(number(8), service.size());
        EXPECT_EQ(name, NS_HUNT_NAME_OFFSET);
        const std::vector<u8> wanted = vectors::bytes(out["hex"]);
        for (const vectors::Value pad : out["pad"])
            std::fill_n(sent.begin() + pad[0].get<int>(), pad[1].get<int>(), u8{0});
        EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), sent.begin())) << vectors::json(sent);
    }
};

/// Lists of enumerators, which count from 0.
void expectCodes(const vectors::Value& v)
{
#define CODE(name) {#name, name}
    static const std::map<std::string, u32> OURS = {
        CODE(PORT_STATUS_UNKNOWN), CODE(OK_FREQ_LOCKED), CODE(OK_TIME_LOCKED), CODE(CPRI_LINK_NOT_AVAILABLE),
        CODE(FREQ_MEAS_PROBLEM), CODE(FREQ_MEAS_MISSING), CODE(PHASE_MEAS_PROBLEM), CODE(PHASE_MEAS_MISSING),
    };
    v["in"].read();
    for (const auto& [list, names] : v["out"].items()) {
        u32 code = 0;
        for (const vectors::Value name : names)
            EXPECT_EQ(OURS.at(name.get<std::string>()), code++) << list << " " << name;
    }
}

TEST_F(Layouts, AgreeWithTheCheckValues)
{
    vectors::Document document("o05_layout.json");
    vectors::eachKind(document["vectors"], {
        {"layout", expectLayout}, {"layoutOpen", expectLayout}, {"codes", expectCodes},
        {"nsHunt", [this](const vectors::Value& v) { expectHunt(v); }},
    });
}

}  // namespace
