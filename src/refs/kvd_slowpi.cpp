#include "refs/kvd_slowpi.h"

#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "refs/kvd_slowpi_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <algorithm>

namespace {

using namespace slowpi;

ose::ModuleData<State> s;

constexpr u32 SLOWPI_PV = 1;

constexpr Needs NEEDS = {
    node::Slowpi_initiateMemory, node::Slowpi_freeMemory,     node::Slowpi_initiateServiceReq,
    node::Slowpi_internal,       node::Slowpi_subscribeReq,   node::Slowpi_unsubscribeReq,
    node::Slowpi_sendFrameInd,   node::Slowpi_askAgain,
};
constexpr KvdAnswerOf ANSWER{TRACE_SLOWPI, "SLOWPI", KVD_SLOWPI_ANSWER_IND};
const Needs& needs() { return s->needs != nullptr ? *s->needs : NEEDS; }

// ---- timers -------------------------------------------------------------------------------------

void fill(BufferTimer& t)
{
    t.sig = ose::alloc(sizeof(SIGSELECT), t.sigNo);
    t.buffer = t.sig;
    ose::keep(t.sig);
}

void create(BufferTimer& t, SIGSELECT sigNo, OSTIME duration_ms)
{
    t.sigNo = sigNo;
    t.duration_ms = duration_ms;
    fill(t);
}

void stop(BufferTimer& t)
{
    if (Signal* const back = KvdTimer_cancelSig(t.timer)) t.sig = back;
}

void start(BufferTimer& t)
{
    stop(t);
    if (t.sig == nullptr) fill(t);
    Signal* const sig = t.sig;
    t.sig = nullptr;
    if (!KvdTimer_startSig(t.timer, t.duration_ms, sig))
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "timer 0x%X failed to start", t.sigNo);
}

/// Takes the buffer back. False when the expiry is none to act on.
bool expired(BufferTimer& t, Signal* sig)
{
    if (sig == t.buffer) {
        t.sig = sig;
        return KvdTimer_expired(t.timer);
    }
    if (t.timer.stale > 0) KvdTimer_expired(t.timer);   // another has been armed since
    else KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "time-out 0x%X of no timer, dropped", sig->sigNo);
    return false;
}

// ---- state --------------------------------------------------------------------------------------

void enter(u32 slowpiState)
{
    if (slowpiState == s->slowpiState) return;
    KVD_TRACE(TRACE_SLOWPI, TRACE_10, "SLOWPI state: %s -> %s", stateText(s->slowpiState),
              stateText(slowpiState));
    s->slowpiState = slowpiState;
}

bool isSubscribed() { return s->slowpiState >= IF_SUBSCRIBED; }
bool usesQuality() { return s->slowpiState >= IF_QL_SEND; }

// ---- towards the main processor -----------------------------------------------------------------

void takeLevel(u8 ssm)
{
    s->previousSSM = s->SSM;
    s->SSM = ssm;
}

void tellLevel(u32 clockQuality)
{
    KvdLoz6TuIifAdm_sendQualityLevelInd(s->froId, ETHERNET_FRO_CLASS, clockQuality, s->tcuDetected);
}

/// A level that was in force is none any more.
void withdrawLevel()
{
    if (s->SSM == SSM_NONE) return;
    takeLevel(SSM_NONE);
    s->tcuDetected = 0;
    tellLevel(SSM_NONE);
}

void clearAlarm()
{
    if (s->pduMissingAlarmRaised == 0) return;
    s->pduMissingAlarmRaised = 0;
    KvdLoz6TuIifAdm_sendPduMissingInd(s->froId, ETHERNET_FRO_CLASS, 0);
}

// ---- towards the service ------------------------------------------------------------------------

void internal(const Signal* sig)
{
    const u32 result = needs().internal(s->proxy, sig);
    if (result != 0) KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Slowpi_internal() failed with result= %u", result);
}

void send()
{
    s->frame[ESMC_SSM_AT] = SSM_DO_NOT_USE;   // a node's clock is no reference to its neighbours
    const u32 result = needs().sendFrameInd(s->proxy, ESMC_FRAME_SIZE, s->frame.data());
    if (result != 0) KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Slowpi_sendFrameInd() failed: result= %u", result);
    start(s->heartBeat);
}

void subscribeDecision()
{
    u32 result = 0;
    if (s->supervisionState != 1) {
        if (!isSubscribed()) return;
        stop(s->pduMissing);
        clearAlarm();
        stop(s->heartBeat);
        result = needs().unsubscribeReq(s->proxy, ESMC_SUBTYPE, ESMC_OUI);
    } else if (s->slowpiState == IF_UP) {
        result = needs().subscribeReq(s->proxy, ESMC_SUBTYPE, ESMC_OUI);
    } else {
        return;
    }
    KvdAnswer_await(s->answerTimer, ANSWER);
    if (result != 0) KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Unable to subscribe/unsubscribe from SLOWPI");
}

void onInitiateAnswer(const Signal* sig)
{
    internal(sig);
    if (s->slowpiState != IF_INITIATING) return;
    KvdTimer_cancel(s->answerTimer);
    if (sig->sigNo != SLOWPI_INITIATE_SERVICE_CFM) return enter(IF_DOWN);
    enter(IF_UP);
    subscribeDecision();
}

void onServerUp(const Signal* sig)
{
    internal(sig);
    if (s->slowpiState == IF_INITIATING) KvdAnswer_await(s->answerTimer, ANSWER);
}

/// Also what the service couldn't be asked for.
void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    if (s->slowpiState != IF_INITIATING) return subscribeDecision();
    needs().askAgain(s->proxy);
    KvdAnswer_await(s->answerTimer, ANSWER);
}

void onServerDown(const Signal* sig)
{
    internal(sig);
    KvdTimer_cancel(s->answerTimer);
    stop(s->heartBeat);
    KVD_TRACE(TRACE_SLOWPI, TRACE_1, "Initiate SLOWPI service with Pv= %d", static_cast<i32>(SLOWPI_PV));
    enter(IF_DOWN);
    const u32 result = needs().initiateServiceReq(s->proxy, SLOWPI_PV, SLOWPI_PV, SLOWPI_PV);
    if (result != 0) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Slowpi_initiateServiceReq() failed with result= %u", result);
        return;
    }
    enter(IF_INITIATING);
}

void onSubscribeRsp(const SlowpiResultRsp* rsp)
{
    if (rsp == nullptr) return;
    KvdTimer_cancel(s->answerTimer);
    if (rsp->result != 0) {
        stop(s->pduMissing);
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Negative result in subscription rsp (res = %u)", rsp->result);
        return;
    }
    enter(IF_SUBSCRIBED);
    subscribeDecision();   // supervision may have ended while the request was under way
    s->frame[ESMC_VERSION_AT] = ESMC_EVENT_PDU;
    if (isSubscribed()) send();
    s->frame[ESMC_VERSION_AT] = ESMC_INFORMATION_PDU;
    if (s->selectionProcessMode != 1 || s->supervisionState != 1) return;
    enter(IF_QL_SEND);
    start(s->pduMissing);
}

void onUnsubscribeRsp(const SlowpiResultRsp* rsp)
{
    if (rsp == nullptr) return;
    KvdTimer_cancel(s->answerTimer);
    if (rsp->result != 0) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Negative result in unsubscription rsp (res = %u)", rsp->result);
        return;
    }
    if (usesQuality()) withdrawLevel();
    enter(IF_UP);
    subscribeDecision();
}

// ---- frames -------------------------------------------------------------------------------------

/// Says why a frame isn't taken.
void traceRefusal(const EsmcReading& r, u32 frame_len)
{
    switch (r.verdict) {
    case EsmcVerdict::Taken: break;
    case EsmcVerdict::OtherEtherType:
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "EthernetType= %04x", r.etherType);
        [[fallthrough]];
    case EsmcVerdict::NoFrame:
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "Unrecognized frame received; frame_len %u bytes, code=%hhu, ",
                  frame_len, r.code);
        break;
    case EsmcVerdict::OtherProtocol:
        if ((r.code & NOT_ESMC_SUBTYPE) != 0)
            KVD_TRACE(TRACE_SLOWPI, TRACE_9, "SlowProtocolSubtype= %02hhx", r.slowProtocolSubtype);
        if (r.oui != ESMC_OUI) KVD_TRACE(TRACE_SLOWPI, TRACE_9, "EsmcOui= %04hhx", static_cast<u8>(r.oui));
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "Unrecognized SLOWPI received; frame_len %u bytes, code=%u, ",
                  frame_len, r.code);
        break;
    case EsmcVerdict::TooShort:
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "ESMC received with too short frame %u bytes.", frame_len);
        break;
    case EsmcVerdict::BadSubtype: KVD_TRACE(TRACE_SLOWPI, TRACE_9, "Bad subtype  = 0x%x, ", r.subtype); break;
    case EsmcVerdict::BadTlvType:
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "Bad qlTlvType  = 0x%x, ", r.qlTlvType);
        break;
    case EsmcVerdict::BadTlvLength:
        KVD_TRACE(TRACE_SLOWPI, TRACE_9, "Bad tlvLength  = 0x%x, ", r.tlvLength);
        break;
    }
}

void takePdu(const EsmcReading& pdu)
{
    s->tcuDetected = pdu.tcuDetected ? 1 : 0;
    if (pdu.isEvent) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_6, "Event message received with SSM code 0x%x", pdu.ssm);
        ++s->nmbOfEventMessages;
    } else {
        if (s->slowpiState == IF_QL_RECEIVED) return;   // a change comes as an event PDU
        KVD_TRACE(TRACE_SLOWPI, TRACE_8, "First INFO message received with SSM code 0x%x", pdu.ssm);
    }
    enter(IF_QL_RECEIVED);
    takeLevel(pdu.ssm);
    tellLevel(pdu.ssm);
}

void takeFrame(std::span<const u8> frame)
{
    if (!usesQuality()) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_8,
                  "Do not use ESMC frame, selectionMode = %s, supervisionState = %s, slowpiState = %s",
                  enabledText(s->selectionProcessMode), enabledText(s->supervisionState),
                  stateText(s->slowpiState));
        return;
    }
    ++s->nmbOfFrames;
    const EsmcReading reading = readEsmc(frame);
    if (reading.verdict == EsmcVerdict::Taken) return takePdu(reading);
    traceRefusal(reading, static_cast<u32>(frame.size()));
    ++s->nmbOfRejectedFrames;
}

/// No longer than the signal, whatever its length field says.
std::span<const u8> frameOf(const SlowpiFrame& ind)
{
    const std::span<const u8> held = node::tail<u8>(&ind);
    return held.first(std::min<std::size_t>(ind.length, held.size()));
}

void onReceiveFrame(const SlowpiFrame* ind)
{
    if (ind == nullptr) return;
    takeFrame(frameOf(*ind));
    // Whatever it holds, it is a sign of life.
    clearAlarm();
    if (usesQuality()) start(s->pduMissing);
}

// ---- time-outs ----------------------------------------------------------------------------------

void onHeartBeat(Signal* sig)
{
    if (expired(s->heartBeat, sig) && isSubscribed()) send();
}

void onPduMissing(Signal* sig)
{
    if (!expired(s->pduMissing, sig)) return;
    if (s->slowpiState == IF_UP || s->slowpiState == IF_SUBSCRIBED) return;
    if (s->pduMissingAlarmRaised != 0) return;
    s->tcuDetected = 0;
    s->pduMissingAlarmRaised = 1;
    KvdLoz6TuIifAdm_sendPduMissingInd(s->froId, ETHERNET_FRO_CLASS, 1);
    tellLevel(SSM_NONE);
    takeLevel(SSM_DO_NOT_USE);
    if (s->slowpiState == IF_QL_RECEIVED) enter(IF_QL_SEND);
}

// ---- the main processor's orders ----------------------------------------------------------------

void takeAddress(const u8 (&macAddress)[6])
{
    u8* const stored = s->frame.data() + ESMC_SOURCE_AT;
    if (std::all_of(std::begin(macAddress), std::end(macAddress), [](u8 octet) { return octet == 0; }))
        KVD_TRACE(TRACE_SLOWPI, TRACE_4, "Received default MAC address");
    if (!std::equal(std::begin(macAddress), std::end(macAddress), stored))
        KVD_TRACE(TRACE_SLOWPI, TRACE_4, "MAC address changed: %X:%X:%X:%X:%X:%X", macAddress[0],
                  macAddress[1], macAddress[2], macAddress[3], macAddress[4], macAddress[5]);
    std::copy(std::begin(macAddress), std::end(macAddress), stored);
}

void onPathSupervision(const Signal* sig)
{
    const auto* path = as<KvdTuiifSynchPathSupInd>(sig);
    if (path == nullptr || path->refType < ETHA_REF || path->refType > ETHC_REF) return;
    const auto* ind = as<KvdTuiifSynchPathSupEthInd>(sig);
    if (ind == nullptr) return;
    takeAddress(ind->macAddress);
    s->supervisionState = ind->path.on;
    s->froId = ind->path.froId;
    subscribeDecision();
}

void onSelectionModeChange(const KvdTuiifSelectionModeChangeInd* ind)
{
    if (ind != nullptr) KvdLoz6TuSlowpi_selectionMode(ind->selectionProcessMode);
}

}  // namespace

namespace slowpi {

State& state() { return *s; }
void setNeeds(const Needs* replacement) { s->needs = replacement; }

const char* stateText(u32 slowpiState)
{
    constexpr const char* TEXTS[] = {"IF_DOWN",       "IF_INITIATING", "IF_UP",
                                     "IF_SUBSCRIBED", "IF_QL_SEND",    "IF_QL_RECEIVED"};
    if (slowpiState <= IF_QL_RECEIVED) return TEXTS[slowpiState];
    KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Check: Unknown state %d", static_cast<i32>(slowpiState));
    return "UNKNOWN STATE";
}

const char* enabledText(u32 value) { return value == 1 ? "Enabled" : "Disabled"; }

}  // namespace slowpi

u32 KvdLoz6TuSlowpi_owns(const Signal* sig)
{
    return sig == s->heartBeat.buffer || sig == s->pduMissing.buffer ? 1 : 0;
}

bool KvdLoz6TuSlowpi_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case SLOWPI_SERVER_UP_IND:        onServerUp(sig);                            return true;
    case KVD_SLOWPI_ANSWER_IND:       onAnswerTimeout();                          return true;
    case SLOWPI_SERVER_DOWN_IND:      onServerDown(sig);                          return true;
    case SLOWPI_INITIATE_SERVICE_CFM:
    case SLOWPI_INITIATE_SERVICE_SUS:
    case SLOWPI_INITIATE_SERVICE_REJ: onInitiateAnswer(sig);                      return true;
    case SLOWPI_SUBSCRIBE_RSP:        onSubscribeRsp(as<SlowpiResultRsp>(sig));   return true;
    case SLOWPI_UNSUBSCRIBE_RSP:      onUnsubscribeRsp(as<SlowpiResultRsp>(sig)); return true;
    case SLOWPI_RECEIVE_FRAME_IND:    onReceiveFrame(as<SlowpiFrame>(sig));       return true;
    case KVD_SLOWPI_HEART_BEAT_IND:   onHeartBeat(sig);                           return true;
    case KVD_SLOWPI_PDU_MISSING_IND:  onPduMissing(sig);                          return true;
    case KVD_TUIIF_SYNCH_PATH_SUP_IND: onPathSupervision(sig);                    return true;
    case KVD_TUIIF_SELECTION_MODE_CHANGE_IND:
        onSelectionModeChange(as<KvdTuiifSelectionModeChangeInd>(sig));           return true;
    default:                                                                      return false;
    }
}

void KvdLoz6TuSlowpi_initiate()
{
    s->proxy = needs().initiateMemory();
    if (s->proxy == nullptr) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, " Not able to initiate proxy slowpi memory.");
        return;
    }
    KVD_TRACE(TRACE_SLOWPI, TRACE_1, "Initiate slowpi service with Pv = %d", static_cast<i32>(SLOWPI_PV));
    const u32 result = needs().initiateServiceReq(s->proxy, SLOWPI_PV, SLOWPI_PV, SLOWPI_PV);
    if (result != 0) {
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Slowpi_initiateServiceReq() failed: result= %u", result);
        needs().freeMemory(s->proxy);
        s->proxy = nullptr;
        return;
    }
    enter(IF_INITIATING);
    create(s->heartBeat, KVD_SLOWPI_HEART_BEAT_IND, HEART_BEAT_TIME);
    create(s->pduMissing, KVD_SLOWPI_PDU_MISSING_IND, PDU_MISSING_TIME);
    s->frame = ownFrame();
}

void KvdLoz6TuSlowpi_unsubscribe()
{
    s->supervisionState = 0;
    if (!isSubscribed()) return;
    stop(s->heartBeat);
    KvdAnswer_await(s->answerTimer, ANSWER);
    if (needs().unsubscribeReq(s->proxy, ESMC_SUBTYPE, ESMC_OUI) != 0)
        KVD_TRACE(TRACE_SLOWPI, TRACE_ERROR, "Unable to unsubscribe from SLOWPI");
}

void KvdLoz6TuSlowpi_selectionMode(u8 selectionProcessMode)
{
    KVD_TRACE(TRACE_SLOWPI, TRACE_1, "new QlMode %s, supervisionState %s", enabledText(selectionProcessMode),
              enabledText(s->supervisionState));
    s->selectionProcessMode = selectionProcessMode;
    if (selectionProcessMode == 1 && s->supervisionState == 1 && s->slowpiState == IF_SUBSCRIBED) {
        enter(IF_QL_SEND);
        start(s->pduMissing);
    }
    if (selectionProcessMode == 0 && usesQuality()) {
        enter(IF_SUBSCRIBED);
        withdrawLevel();
        stop(s->pduMissing);
        clearAlarm();
    }
}
