#include "refs/kvd_ipsynctsiadm.h"

#include "base/kvd_answer.h"
#include "base/text_of.h"
#include "base/trace_groups.h"
#include "node/ipsynctsi.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "refs/kvd_refs_upcalls.h"
#include "reg/kvd_reg_packet_entry.h"
#include "sig/ref_sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <iterator>

namespace {

constexpr u32 PROTOCOL_VERSION = 1;
constexpr u32 TRIES = 3;
constexpr OSTIME RETRY_ms = 500;
constexpr KvdAnswerOf ANSWER{TRACE_TUIPSYNCTSIADM, "IPSYNCTSI", KVD_TUIPSYNCTSIADM_ANSWER_TMO};

struct State {
    u32 tuipsynctsiadmState = STATE_UNAVAILABLE;
    u32 selectedSynchRefInd = FRO_NONE;
    u32 numberOfIgnoredNtpPackets = 0;
    u32 numberOfNtpPackets = 0;
    node::IpsynctsiProxy* proxy = nullptr;
    KvdTimer answerTimer;
};
ose::ModuleData<State> s;

// ---- service ------------------------------------------------------------------------------------

void freeProxy()
{
    if (s->proxy != nullptr) node::Ipsynctsi_freeProxy(s->proxy);
    s->proxy = nullptr;
}

/// One try: 0 when the service is asked for, else what `operation` returned.
u32 tryToInitiate(const char*& operation)
{
    operation = "createProxy";
    u32 result = node::Ipsynctsi_createProxy(s->proxy);
    if (result != node::IPSYNCTSI_DONE) return result;
    operation = "initiateService";
    return node::Ipsynctsi_initiateService(s->proxy, PROTOCOL_VERSION, 0, 0);
}

void tellProxy(const Signal* sig, const char* operation)
{
    const u32 result = node::Ipsynctsi_internal(s->proxy, sig);
    if (result != node::IPSYNCTSI_DONE)
        KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_ERROR, "Uenxpected result of %s, returned %u", operation,
                  result);
}

void onServerUp(const Signal* sig)
{
    s->tuipsynctsiadmState = STATE_INITIATING;
    KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_INFO, "tuIpSyncTsiAdmState: STATE_INITIATING");
    tellProxy(sig, "serverUp");
    KvdAnswer_await(s->answerTimer, ANSWER);
}

void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    node::Ipsynctsi_askAgain(s->proxy);
    KvdAnswer_await(s->answerTimer, ANSWER);
}

void onInitiateCfm(const Signal* sig, const IpsynctsiInitiateServiceCfm* cfm)
{
    if (cfm == nullptr) return;
    tellProxy(sig, "initiateServiceCfm");
    if (s->tuipsynctsiadmState != STATE_INITIATING) {
        KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_ERROR, "IPSYNCTSI_INITIATE_SERVICE_CFM when state = %u",
                  s->tuipsynctsiadmState);
        return;
    }
    KvdTimer_cancel(s->answerTimer);
    s->tuipsynctsiadmState = STATE_AVAILABLE;
    KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_INFO, "IPSYNCTSI_INITIATE_SERVICE_CFM received. selectedPV=%u",
              cfm->selectedPv);
}

void onInitiateSus(const Signal* sig, const IpsynctsiInitiateServiceSus* sus)
{
    if (sus == nullptr) return;
    tellProxy(sig, "initiateServiceSus");
    KvdTimer_cancel(s->answerTimer);
    s->tuipsynctsiadmState = STATE_SUSPENDED;
    KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_INFO,
              "tuIpSyncTsiAdmState: STATE_SUSPENDED, highest available PV=%u", sus->highestAvailablePv);
}

void onInitiateRej(const Signal* sig, const IpsynctsiInitiateServiceRej* rej)
{
    if (rej == nullptr) return;
    tellProxy(sig, "initiateServiceRej");
    KvdTimer_cancel(s->answerTimer);
    s->tuipsynctsiadmState = STATE_REJECTED;
    KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_ERROR,
              "tuIpSyncTsiAdmState: STATE_REJECTED, highest available PV=%u", rej->highestAvailablePv);
}

void onServerDown(const Signal* sig)
{
    node::Ipsynctsi_internal(s->proxy, sig);
    KvdTimer_cancel(s->answerTimer);
    s->tuipsynctsiadmState = STATE_UNAVAILABLE;
    freeProxy();
    KvdLoz6TuIpSyncTsiAdm_initiate();
}

// ---- selection and packets ----------------------------------------------------------------------

void onSelectSynchRef(const KvdTuiifSelectSynchRefInd* ind)
{
    if (ind == nullptr) return;
    s->selectedSynchRefInd = ind->refType == NTP_REF ? ind->froId : FRO_NONE;
    s->numberOfNtpPackets = 0;
}

// Packets come up to ten times a second: those that are left out are traced at a module level.
void onNtpPacket(const Signal* sig, const IpsynctsiNtpPacketInd* ind)
{
    if (ind == nullptr) return;
    node::Ipsynctsi_internal(s->proxy, sig);
    if (s->tuipsynctsiadmState != STATE_AVAILABLE) {
        KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_3, "IPSYNCTSI_NTP_PACKET_IND when state = %u",
                  s->tuipsynctsiadmState);
        return;
    }
    if (ind->froId != s->selectedSynchRefInd) {
        KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_3,
                  "ntpPacketInd ignored. Expected ipSyncRefFroId=%u, received %u", s->selectedSynchRefInd,
                  ind->froId);
        ++s->numberOfIgnoredNtpPackets;
        return;
    }
    const u64 (&data)[3] = ind->serverData;
    KvdLoz6TuReg_ntpMsg({{data[0], data[1], data[2]}, ind->T1, ind->T2, ind->T3, ind->T4});
    REFS_UPCALLS.delaySample(ind->T1, ind->T2, ind->T3, ind->T4);
    ++s->numberOfNtpPackets;
}

const char* stateText(u32 state)
{
    constexpr const char* TEXTS[] = {"STATE_UNAVAILABLE", "STATE_INITIATING", "STATE_AVAILABLE",
                                     "STATE_SUSPENDED", "STATE_REJECTED"};
    return textOf(TEXTS, state);
}

}  // namespace

void KvdLoz6TuIpSyncTsiAdm_initiate()
{
    for (u32 tries = 1; tries <= TRIES; ++tries) {
        const char* operation = "";
        const u32 result = tryToInitiate(operation);
        if (result == node::IPSYNCTSI_DONE) return;
        freeProxy();
        if (tries == TRIES)
            KVD_TRACE(TRACE_TUIPSYNCTSIADM, TRACE_ERROR, "Unable to complete %s, returned %u", operation,
                      result);
        ose::delay(RETRY_ms);
    }
}

bool KvdLoz6TuIpSyncTsiAdm_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case IPSYNCTSI_SERVER_UP_IND: onServerUp(sig); return true;
    case IPSYNCTSI_INITIATE_SERVICE_CFM:
        onInitiateCfm(sig, as<IpsynctsiInitiateServiceCfm>(sig));
        return true;
    case IPSYNCTSI_INITIATE_SERVICE_SUS:
        onInitiateSus(sig, as<IpsynctsiInitiateServiceSus>(sig));
        return true;
    case IPSYNCTSI_INITIATE_SERVICE_REJ:
        onInitiateRej(sig, as<IpsynctsiInitiateServiceRej>(sig));
        return true;
    case IPSYNCTSI_SERVER_DOWN_IND: onServerDown(sig); return true;
    case IPSYNCTSI_NTP_PACKET_IND: onNtpPacket(sig, as<IpsynctsiNtpPacketInd>(sig)); return true;
    case KVD_TUIPSYNCTSIADM_ANSWER_TMO: onAnswerTimeout(); return true;
    case KVD_TUIIF_SELECT_SYNCH_REF_IND: onSelectSynchRef(as<KvdTuiifSelectSynchRefInd>(sig)); return true;
    default: return false;
    }
}

u32 KvdLoz6TuIpSyncTsiAdm_state() { return s->tuipsynctsiadmState; }
u32 KvdLoz6TuIpSyncTsiAdm_selectedSynchRef() { return s->selectedSynchRefInd; }
IpSyncTsiCounts KvdLoz6TuIpSyncTsiAdm_counts()
{
    return {s->numberOfNtpPackets, s->numberOfIgnoredNtpPackets};
}

void KvdLoz6TuIpSyncTsiAdm_printInfo()
{
    node::shellPrintf("\n***** KVD LOZ6 tuipsynctsiadm related data *****\n");
    node::shellPrintf("   state                 : %u (%s)\n", s->tuipsynctsiadmState,
                      stateText(s->tuipsynctsiadmState));
    if (s->selectedSynchRefInd == FRO_NONE)
        node::shellPrintf("   selected NTP reference: none\n");
    else
        node::shellPrintf("   selected NTP reference: froId=%u\n", s->selectedSynchRefInd);
    node::shellPrintf("   NTP packets           : %u since the selection\n", s->numberOfNtpPackets);
    node::shellPrintf("   NTP packets ignored   : %u\n", s->numberOfIgnoredNtpPackets);
}
