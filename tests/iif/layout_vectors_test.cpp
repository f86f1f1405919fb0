// Layouts of the signals against check values: number, offset and width of each field, size. The members of a
// layout are found by the compiler, so that a list of them can't be wrong or short.
#include "sig/tuiif_sig.h"
#include "node/name_service.h"
#include "node/ngpduhif.h"
#include "node/slowpi.h"
#include "node/slowpi_sig.h"
#include "sig/tupktsync_sig.h"
#include "sig/gps_sig.h"
#include "sig/hptsi_sig.h"
#include "sig/idpi_sig.h"
#include "refs/kvd_slowpi.h"
#include "sig/inci_sig.h"
#include "sig/inrsi_sig.h"
#include "tests/ose/program.h"
#include "tests/support/vectors.h"

#include <boost/preprocessor/repetition/enum_params.hpp>
#include <boost/preprocessor/repetition/repeat_from_to.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/stringize.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

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
template <typename T> constexpr Holder<T> NOWHERE{};
/// A pointer into an object, as clang takes it for an argument.
template <typename P> struct At { P member; };
template <typename P> At(P) -> At<P>;
template <auto Member> consteval std::string_view pretty() { return __PRETTY_FUNCTION__; }
/// The name of a member, from "... = At<...>{(& NOWHERE<T>.Holder<T>::value.T::froId)}; ..." or, of clang,
/// "... = {&NOWHERE.value.froId}]".
template <typename T, std::size_t I>
std::string nameOfMember()
{
    std::string_view text = pretty<At{&std::get<I>(tie(NOWHERE<T>.value))}>();
    text = text.substr(0, text.find_first_of(")}", text.find("value.")));
    return std::string(text.substr(text.find_last_of(":.") + 1));
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
    [&]<std::size_t... I>(std::index_sequence<I...>) { (one(nameOfMember<T, I>(), std::get<I>(tied)), ...); }
    (std::make_index_sequence<members<T>()>{});
}

// ---- the layouts ----

struct Layout {
    std::map<std::string, SIGSELECT> numbers;
    std::vector<Field> fields;
    std::size_t size;
};

template <typename T>
Layout layout(const std::map<std::string, SIGSELECT>& numbers)
{
    Layout made{numbers, {}, sizeof(T)};
    if constexpr (sizeof(T) > sizeof(SIGSELECT)) collect<T>(made.fields, "", 0, 0);
    return made;
}

#define NUMBER(r, prefix, name) {BOOST_PP_STRINGIZE(BOOST_PP_CAT(prefix, name)), BOOST_PP_CAT(prefix, name)},
#define L(types, numbers, type, ...) \
    layout<BOOST_PP_CAT(types, type)>( \
        {BOOST_PP_SEQ_FOR_EACH(NUMBER, numbers, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))})
#define T(type, ...) L(KvdTuiif, KVD_TUIIF_, type, __VA_ARGS__)
#define P(type, ...) L(TuPktsync, TUPKTSYNC_, type, __VA_ARGS__)
#define R(type, ...) L(Inrsi, INRSI_, type, __VA_ARGS__)
#define N(type, ...) L(KvdNgpduhif, KVD_NGPDUHIF_, type, __VA_ARGS__)
#define S(type, ...) L(Slowpi, SLOWPI_, type, __VA_ARGS__)
#define D(type, ...) L(Idpi, IDPI_, type, __VA_ARGS__)
#define C(type, ...) L(Inci, PSX_IW_NGSC_INCI_, type, __VA_ARGS__)
#define O(type, ...) L(KvdTuSocpri, KVD_TUSOCPRI_, type, __VA_ARGS__)
const std::vector<Layout>& layouts()
{
    static const std::vector<Layout> ALL = {
        T(InitiateServiceReq, INITIATE_SERVICE_REQ), T(InitiateServiceCfm, INITIATE_SERVICE_CFM),
        T(InitiateServiceSus, INITIATE_SERVICE_SUS, INITIATE_SERVICE_REJ),
        T(SubscribePmReq, SUBSCRIBE_PM_REQ),
        T(SubscribePmCfm, SUBSCRIBE_PM_CFM, UNSUBSCRIBE_PM_REQ, UNSUBSCRIBE_PM_CFM, GET_CURRENT_PM_REQ),
        T(GetCurrentPmCfm, GET_CURRENT_PM_CFM), T(SynchPathSupEthInd, SYNCH_PATH_SUP_IND),
        T(SelectSynchRefInd, SELECT_SYNCH_REF_IND), T(BvqStatusInd, BVQ_STATUS_IND),
        T(BoardFailureRecoveryInd, BOARD_FAILURE_RECOVERY_IND), T(EtFroidInd, ET_FROID_IND),
        T(RefStatusChangeInd, REF_STATUS_CHANGE_IND),
        T(GetRntToSfcDiffReq, GET_RNT_TO_SFC_DIFF_REQ, JUMP_RNT_TO_SFC_DIFF_ZERO_REQ,
          JUMP_RNT_TO_SFC_DIFF_ZERO_CFM), T(GetRntToSfcDiffCfm, GET_RNT_TO_SFC_DIFF_CFM),
        T(GetRntToSfcDiffRej, GET_RNT_TO_SFC_DIFF_REJ, GET_RNT_FOR_SFN_REJ),
        T(GetRntForSfnReq, GET_RNT_FOR_SFN_REQ), T(GetRntForSfnCfm, GET_RNT_FOR_SFN_CFM),
        T(PktRateInd, PKT_RATE_IND), T(GpsStatusInd, GPS_STATUS_IND),
        T(ChangeMasterTuInd, CHANGE_MASTER_TU_IND), T(GpsAttribCfm, GPS_ATTRIB_CFM),
        T(SetTestModeInd, SET_TEST_MODE_IND),
        T(SetDelayInd, SET_DELAY_IND, SET_HPTSI_DELAY_IND, SET_GPSOSL_DELAY_IND),
        T(GpsAttribReq, GPS_ATTRIB_REQ, HPTSI_ATTRIB_REQ, GPSOSL_ATTRIB_REQ),
        T(SetFixedPositionInd, SET_FIXED_POSITION_IND), T(FixedPositionInd, FIXED_POSITION_IND),
        T(SetGpsoutInd, SET_GPSOUT_IND, SET_HPTSIOUT_IND), T(GpsOutTimeDataInd, GPS_OUT_TIME_DATA_IND),
        T(CalibrationStatusInd, CALIBRATION_STATUS_IND),
        T(CreatePktRefRoReq, CREATE_PKT_REF_RO_REQ, SET_PKT_REF_RO_REQ),
        T(CreatePktRefRoCfm, CREATE_PKT_REF_RO_CFM),
        T(DeletePktRefRoReq, DELETE_PKT_REF_RO_REQ, GET_PKT_REF_RO_ATTRIB_REQ),
        T(DeletePktRefRoCfm, DELETE_PKT_REF_RO_CFM, SET_PKT_REF_RO_CFM),
        T(AuditPktRefRoReq, AUDIT_PKT_REF_RO_REQ, PKT_REF_RO_UNAVAILABLE_IND),
        T(AuditPktRefRoCfm, AUDIT_PKT_REF_RO_CFM), T(AuditPktRefRoResultInd, AUDIT_PKT_REF_RO_RESULT_IND),
        T(GetPktRefRoAttribCfm, GET_PKT_REF_RO_ATTRIB_CFM), T(SetSfnInitTimeInd, SET_SFN_INIT_TIME_IND),
        T(TimeAccuracyChangeInd, TIME_ACCURACY_CHANGE_IND), T(HptsiAttribCfm, HPTSI_ATTRIB_CFM),
        T(HptsiStatusInd, HPTSI_STATUS_IND, GPSOSL_STATUS_IND),
        T(OscTemperatureStateInd, OSC_TEMPERATURE_STATE_IND), T(GpsoslAttribCfm, GPSOSL_ATTRIB_CFM),
        T(RemoteRcStateInd, REMOTE_RC_STATE_IND), T(Idl2ModeInd, IDL2_MODE_IND),
        T(SelectionModeChangeInd, SELECTION_MODE_CHANGE_IND), T(QualityLevelInd, QUALITY_LEVEL_IND),
        T(Idl2TimeDataInd, IDL2_TIME_DATA_IND), T(PduMissingInd, PDU_MISSING_IND),
        T(Idl2LinkStatusFwd, IDL2_LINK_STATUS_FWD), T(Idl2SyncDataInd, IDL2_SYNC_DATA_IND),
        T(Idl2SyncReportInd, IDL2_SYNC_REPORT_IND), T(Idl2SelectIdlTypeReq, IDL2_SELECT_IDL_TYPE_REQ),
        T(Idl2TogglePersistentFreqLockReq, IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ),
        T(Idl2SetMasterServerReq, IDL2_SET_MASTER_SERVER_REQ),
        T(Idl2SetMasterServerCfm, IDL2_SET_MASTER_SERVER_CFM), T(SyncinfoReq, SYNCINFO_REQ),
        T(SyncinfoCfm, SYNCINFO_CFM),
        T(RegisterSynchRefInd, REGISTER_SYNCH_REF_IND, DEREGISTER_SYNCH_REF_IND),
        T(SocpriStartRsp, SOCPRI_START_RSP, SOCPRI_BFN_ALIGN_TO_GROUP_RSP),
        T(SocpriSupInd, SOCPRI_SUP_IND),
        T(SocpriScanLinkReq, SOCPRI_SCAN_LINK_REQ, SOCPRI_SELECT_SYNC_LINK_REQ),
        T(SocpriScanLinkRsp, SOCPRI_SCAN_LINK_RSP, SOCPRI_SELECT_SYNC_LINK_RSP, SOCPRI_LINK_SYNC_STATUS_IND),
        T(SocpriLinkStatusFwd, SOCPRI_LINK_STATUS_FWD),
        T(SocpriBfnAlignToGroupReq, SOCPRI_BFN_ALIGN_TO_GROUP_REQ),
        T(SocpriCoarseTimeDataInd, SOCPRI_COARSE_TIME_DATA_IND),
        T(SocpriGoToTimeHoldoverRsp, SOCPRI_GO_TO_TIME_HOLDOVER_RSP),
        T(SocpriAlreadySelectedInd, SOCPRI_ALREADY_SELECTED_IND),
        T(SocpriDeselectSyncLinkInd, SOCPRI_DESELECT_SYNC_LINK_IND),
        T(SocpriSupervisionStatusInd, SOCPRI_SUPERVISION_STATUS_IND),
        T(SocpriSpJumpInd, SOCPRI_SP_JUMP_IND),
        T(SocpriSduFollowOcxoAdjInd, SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND),
        T(SocpriSduFollowSfcAdjInd, SOCPRI_SDU_FOLLOW_SFC_ADJ_IND),
        T(InrsiBfnJumpInfoReqFwd, INRSI_BFN_JUMP_INFO_REQ_FWD),
        T(SocpriSduFollowOcxoRevertInd, SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND),
        T(InrsiLinkStatus2IndFwd, INRSI_LINK_STATUS2_IND_FWD),
        T(InrsiGetFreqDiff2ReqFwd, INRSI_GET_FREQ_DIFF2_REQ_FWD, INRSI_GET_PHASE_DIFF2_REQ_FWD),
        T(InrsiGetFreqDiff2CfmFwd, INRSI_GET_FREQ_DIFF2_CFM_FWD),
        T(InrsiGetFreqDiff2RejFwd, INRSI_GET_FREQ_DIFF2_REJ_FWD, INRSI_GET_PHASE_DIFF2_REJ_FWD),
        T(InrsiGetPhaseDiff2CfmFwd, INRSI_GET_PHASE_DIFF2_CFM_FWD),
        T(SocpriSduLockPortFocusInd, SOCPRI_SDU_LOCK_PORT_FOCUS_IND),
        P(PtpPacketInd, PTP_PACKET_IND), P(ClockRqmtInd, CLOCK_RQMT_IND),
        P(PtpPacketPeerdelayInd, PTP_PACKET_PEERDELAY_IND), P(NtpPacketInd, NTP_PACKET_IND),
        P(RefSelectionInd, REF_SELECTION_IND), P(TuiifUpInd, TUIIF_UP_IND), P(RegInd, REG_IND),
        R(ConnEstablishReq, CONN_ESTABLISH_REQ), R(ConnEstablishCfm, CONN_ESTABLISH_CFM),
        R(ErrorRej, CONN_ESTABLISH_REJ, BFN_JUMP_INFO_REJ),
        R(Port, SUBSCRIBE_LINK_STATUS_REQ, SUBSCRIBE_LINK_STATUS_CFM, UNSUBSCRIBE_LINK_STATUS_REQ,
          UNSUBSCRIBE_LINK_STATUS_CFM), R(PortRej, SUBSCRIBE_LINK_STATUS_REJ),
        R(BfnJumpInfoReq, BFN_JUMP_INFO_REQ), R(Refs, BFN_JUMP_INFO_CFM),
        R(Unit, GET_PHASE_DIFF2_REQ, GET_FREQ_DIFF2_REQ), R(GetPhaseDiff2Cfm, GET_PHASE_DIFF2_CFM),
        R(UnitRej, GET_PHASE_DIFF2_REJ, GET_FREQ_DIFF2_REJ), R(GetFreqDiff2Cfm, GET_FREQ_DIFF2_CFM),
        R(LinkStatus2Ind, LINK_STATUS2_IND),
        N(ConnEstablishReq, CONN_ESTABLISH_REQ), N(ConnEstablishCfm, CONN_ESTABLISH_CFM),
        N(ConnEstablishRej, CONN_ESTABLISH_REJ),
        N(ConnReq, HANDSHAKE_PDU_REQ, SERVER_CONN_RELEASE_REQ, CLIENT_CONN_RELEASE_REQ),
        N(Refs, HANDSHAKE_PDU_CFM, HANDSHAKE_PDU_REJ), N(SendBcmDataInd, SEND_BCM_DATA_IND),
        N(ReceiveBcmDataInd, RECEIVE_BCM_DATA_IND),
        N(ConnReleaseRsp, SERVER_CONN_RELEASE_RSP, CLIENT_CONN_RELEASE_RSP), N(TimeDataInd, TIME_DATA_IND),
        S(InitiateServiceReq, INITIATE_SERVICE_REQ), S(InitiateServiceCfm, INITIATE_SERVICE_CFM),
        S(InitiateServiceRej, INITIATE_SERVICE_SUS, INITIATE_SERVICE_REJ),
        S(SubscribeReq, SUBSCRIBE_REQ, UNSUBSCRIBE_REQ), S(ResultRsp, SUBSCRIBE_RSP, UNSUBSCRIBE_RSP),
        S(Frame, SEND_FRAME_IND, RECEIVE_FRAME_IND),
        D(ConnEstablishReq, CONN_ESTABLISH_REQ),
        D(Refs, CONN_ESTABLISH_CFM, GET_CAPABILITY_REQ, SUBSCRIBE_LINK_STATUS_REQ,
          SUBSCRIBE_LINK_STATUS_CFM), D(ConnEstablishRej, CONN_ESTABLISH_REJ),
        D(GetCapabilityCfm, GET_CAPABILITY_CFM), D(Rej, GET_CAPABILITY_REJ, SUBSCRIBE_LINK_STATUS_REJ),
        D(LinkStatusInd, LINK_STATUS_IND), D(ClkStatusFwd, CLK_STATUS_FWD),
        D(GetDelayReq, GET_DELAY_REQ, GET_DELAY_REJ), D(GetDelayCfm, GET_DELAY_CFM),
        C(ConnEstablishReq, CONN_ESTABLISH_REQ), C(ConnEstablishCfm, CONN_ESTABLISH_CFM),
        C(Rej, CONN_ESTABLISH_REJ, SUBSCRIBE_NGSM_BCM_REJ),
        C(Refs, SUBSCRIBE_NGSM_BCM_REQ, SUBSCRIBE_NGSM_BCM_CFM, CONN_RELEASE_REQ, CONN_RELEASE_CFM),
        C(BroadcastMessageInd, BROADCAST_MESSAGE_IND), C(BroadcastMessage2Ind, BROADCAST_MESSAGE2_IND),
        O(InciEstablishReq, INCI_ESTABLISH_REQ), O(InciEstablishRsp, INCI_ESTABLISH_RSP),
        O(InciReleaseReq, INCI_RELEASE_REQ), O(InciReleaseRsp, INCI_RELEASE_RSP),
        O(InciGetTimeDataRsp, INCI_GET_TIME_DATA_RSP),
        L(, , KvdTuiif6BvqRefStateInd, KVD_TUIIF6_BVQ_REF_STATE_IND),
        L(, , KvdTuiif10TimeDataInd, KVD_TUIIF10_TIME_DATA_IND),
        L(, , KvdTuhptsiCmccFrameRec, KVD_TUHPTSI_CMCC_FRAME_REC),
        L(, , KvdTugpsNmeaMsgRec, KVD_TUGPS_NMEA_MSG_REC, KVD_TUGPSOSL_NMEA_MSG_REC),
        L(, KVD_TUGPS_, Signal, STATUS_MSG_PARSED, STATUS_MSG_SENT, CHIP_MSG_PARSED_IND,
          SERIALPORT_INITIALISED),
        L(, , InrsiPortTmo, INRSI_REQUEST_PHASE_DATA_TMO, KVD_TUSOCPRI_MEAS_RETRIEVE_TMO,
          KVD_TUSOCPRI_SUPERVISION_TMO),
        L(, , InciClientInd, KVD_TUSOCPRI_INCI_ESTABLISH_TMO, PSX_IW_NGSC_INCI_SERVER_UP_IND,
          PSX_IW_NGSC_INCI_SERVER_DOWN_IND), L(, , InciServerInd, NGSC_INCI_CLIENT_DOWN_IND),
        L(, KVD_COMM_, Signal, ONS_HUNT, ONS_DEAD, SERVER_DEAD, SERVER_UP_IND),
        L(, KVD_TUIIF_, Signal, IDL2_SELECT_IDL_TYPE_CFM, IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM,
          FREQ_HOLDOVER_TMO_IND, TO_HOLDOVER_TMO_IND, RNT_HOLDOVER_TMO_IND, SOCPRI_START_REQ, SOCPRI_STOP_REQ,
          SOCPRI_GO_TO_TIME_HOLDOVER_REQ, SOCPRI_SDU_CLEAR_PORT_FOCUS_IND),
        L(, TUPKTSYNC_, Signal, TUIIF_DOWN_IND),
        L(, KVD_TUHPTSI_, Signal, OPERATIONAL_TIMEOUT, VALID_TIME_TIMEOUT, SERIALPORT_INITIALISED,
          SUPR_ALARM_TIMEOUT, NO_VALID_TIME_TIMEOUT, MONITOR_TIMEOUT, RECEIVE_FRAMES_TIMEOUT),
        L(, IDPI_, Signal, SERVER_UP_IND, SERVER_DOWN_IND, REQUEST_DATA_TMO, PROP_PORT_INFO_CFM),
        L(, KVD_SLOWPI_, Signal, HEART_BEAT_IND, PDU_MISSING_IND),
        L(, INRSI_, Signal, SERVER_UP_IND, SERVER_DOWN_IND, REQUEST_FREQ_DATA_TMO),
        L(, KVD_TUSOCPRI_, Signal, HOLDOVER_TMO, INCI_GET_TIME_DATA_REQ, INCI_GET_TIME_DATA_TMO,
          BFN_JUMP_WARNING_TMO),
        L(, SLOWPI_, Signal, SERVER_UP_IND, SERVER_DOWN_IND),
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
    const std::string type = f["type"].get<std::string>();
    EXPECT_EQ(vectors::widthOf(type), width) << name << " is " << type;
    f["source"].read();
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
    for (const auto& [list, names] : v["out"].items()) {
        u32 code = 0;
        for (const vectors::Value name : names)
            EXPECT_EQ(vectors::rowOf(OURS, name.get<std::string>()), code++) << list << " " << name;
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
