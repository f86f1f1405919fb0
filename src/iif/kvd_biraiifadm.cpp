// Negotiation with the server at the start, and what it says of the link between the units.
#include "iif/kvd_biraiifadm.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "iif/kvd_biraiifadm_int.h"
#include "iif/kvd_iif_upcalls.h"
#include "iif/kvd_mgr_wait.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg_handover.h"
#include "unit/kvd_unit_process.h"

#include <optional>

namespace {

ose::ModuleData<bira::State> s;

// The blocking receives take these alone; all else waits in the queue.
constexpr SIGSELECT SERVER_UP[] = {1, KVD_BIRAIIF_SERVER_UP_IND};
constexpr SIGSELECT SERVICE[] = {
    5, KVD_BIRAIIF_INITIATE_SERVICE_CFM, KVD_BIRAIIF_INITIATE_SERVICE_REJ,
    KVD_BIRAIIF_INITIATE_SERVICE_SUS, KVD_BIRAIIF_SERVER_DOWN_IND, KVD_BIRAIIF_ANSWER_TMO};
constexpr SIGSELECT LINK_TYPE[] = {3, KVD_BIRAIIF_IDL2_LINK_IND, KVD_BIRAIIF_SERVER_DOWN_IND,
                                   KVD_BIRAIIF_ANSWER_TMO};
constexpr KvdAnswerOf ANSWER{TRACE_BIRAIIFADM, BIRA_SERVER_NAME, KVD_BIRAIIF_ANSWER_TMO};
/// The server looks for the link first, and a request may begin that anew.
constexpr OSTIME LINK_TYPE_ms = 60'000;
constexpr OSTIME SUSPENDED_ms = 60'000;

KvdMgrExchange exchangeWithServer()
{
    return {TRACE_BIRAIIFADM, BIRA_SERVER_NAME, KvdLoz6TuMgr_isRunning() ? MGR_EXCHANGE_RUNNING_ms : 0};
}

PROCESS huntServer()
{
    Signal* up = nullptr;
    if (!s->hunting) up = ose::alloc(sizeof(SIGSELECT), KVD_BIRAIIF_SERVER_UP_IND);
    s->hunting = true;
    return ose::hunt(BIRA_SERVER_NAME, 0, nullptr, up != nullptr ? &up : nullptr);
}

/// Nobody else runs the hardware: this program does.
void goOnWithoutServer()
{
    KvdUnit_link().hasHwControl = 1;
    s->biraUnavailable = 1;
    IIF_UPCALLS.startHardware(HW_IDL_MODE_NOT_AVAILABLE, 0);
}

void await(bira::Answer answer)
{
    s->awaits = answer;
    const OSTIME time_ms = answer == bira::Answer::LinkType ? LINK_TYPE_ms : KVD_ANSWER_ms;
    if (answer == bira::Answer::None) KvdTimer_cancel(s->answerTimer);
    else                              KvdAnswer_await(s->answerTimer, ANSWER, time_ms);
}

// ---- link indication ----------------------------------------------------------------------------

void startHardware(u32 hardwareIdlMode)
{
    IIF_UPCALLS.startHardware(hardwareIdlMode, KvdUnit_link().startType == KVD_BIRAIIF_RESTART_COLD ? 1 : 0);
}

void firstOnIdl2(const KvdBiraiifIdl2LinkInd& ind)
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Biraa initialized with IDL2.");
    if (KvdUnit_link().startType == KVD_BIRAIIF_RESTART_WARM && bira::isSlave()) {
        if (ind.clockHoldover != 0) {
            KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "BASIC is in holdover, initialize slave with MSI data");
            KvdLoz6BiraIifAdm_setIdl2InitState(IDL2_WARM_INIT_ONGOING);
            bira::initiateWithSlaveMsi(ind.data);
            bira::tellMasterServer();
            tuHwif_startIntProc();
        } else {
            KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
                      "BASIC is not in holdover, regulation will start from BASIC");
            bira::resetSlaveMsi(IDPI_CLK_STATUS_FREE_RUNNING);
        }
    }
    startHardware(HW_IDL_MODE_2);
}

void firstOnIdl1()
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Biraa initialized with IDL1.");
    if (KvdUnit_link().startType == KVD_BIRAIIF_RESTART_WARM && bira::isSlave())
        bira::resetSlaveMsi(IDPI_CLK_STATUS_FREE_RUNNING);
    startHardware(HW_IDL_MODE_1);
}

void firstIndication(const KvdBiraiifIdl2LinkInd& ind)
{
    if (ind.linkType == KVD_BIRAIIF_IDL_MODE_2)
        firstOnIdl2(ind);
    else
        firstOnIdl1();
    s->biraInitiated = 1;
}

void stopIdpiOnIdl1()
{
    const u32 isAnyLinkCapableForTimeSync = KvdLoz6Idpi_portAvailable();
    if (bira::isSlave() || isAnyLinkCapableForTimeSync == 0)
        KvdLoz6Idpi_stopRequestTimer();
    else
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO,
                  "IdpiRequestDataTmo is not canceled.isMaster=%u, isAnyLinkCapableForTimeSync=%u",
                  s->isMaster, isAnyLinkCapableForTimeSync);
}

}  // namespace

void bira::requestService()
{
    auto* req = node::make<KvdBiraiifInitiateServiceReq>(KVD_BIRAIIF_INITIATE_SERVICE_REQ);
    req->signalRevision = 1;
    req->pvFirstWanted = 1;
    req->pvSecondWanted = 1;
    req->pvThirdWanted = 1;
    req->isMaster = static_cast<u8>(s->isMaster);
    node::sendTo(s->biraServPid, req);
    await(Answer::Service);
}

bool bira::isLinkType(u32 linkType)
{
    if (linkType == KVD_BIRAIIF_IDL_MODE_1 || linkType == KVD_BIRAIIF_IDL_MODE_2) return true;
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "Unknown linkType (%d) received from syncDrv-LOZ4",
              static_cast<i32>(linkType));
    return false;
}

void bira::linkIndication(const KvdBiraiifIdl2LinkInd& ind)
{
    KvdUnit_link().idlMode = ind.linkType;
    s->synchPortNo = ind.synchPortNo;
    if (s->biraInitiated == 0) firstIndication(ind);
    if (s->basicRestartTimer.runs()) {
        KvdTimer_cancel(s->basicRestartTimer);
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Basic restart tmo canceled.");
    }
    if (ind.linkType == KVD_BIRAIIF_IDL_MODE_2 && bira::isSlave() && KvdUnit_link().timeTuningOngoing == 0) {
        KvdLoz6TuReg_idl2Start();
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "IDL2 Detected.");
    }
    if (ind.linkType == KVD_BIRAIIF_IDL_MODE_1) {
        if (bira::isSlave()) bira::becomeIdl1Slave();
        stopIdpiOnIdl1();
    }
    KvdLoz6TuIifAdm_sendIdl2ModeInd();
}

namespace {

// ---- negotiation --------------------------------------------------------------------------------

void onServerDown()
{
    s->attach = 0;
    s->biraServPid = 0;
    s->biraInitiated = 0;
    await(bira::Answer::None);
    KvdTimer_cancel(s->orderTimer);
    KvdTimer_cancel(s->handBackTimer);
    s->idlType.isOwed = false;        // the next one tells the link type itself
    if (KvdUnit_link().idlMode == KVD_BIRAIIF_IDL_MODE_2 && bira::isSlave()
        && KvdUnit_link().timeTuningOngoing == 0)
        bira::startBasicRestartTimer();
    bira::takeBackAsMaster();
    huntServer();                     // it may come back
}

/// The server died before it told the link type: the time-out gives the hardware to this program if
/// the unit ran before, else nobody would.
void lostInNegotiation()
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "%s died in the start", BIRA_SERVER_NAME);
    onServerDown();
    if (!s->basicRestartTimer.runs()) goOnWithoutServer();
}

void onDown()
{
    if (s->awaits != bira::Answer::None) lostInNegotiation();
    else                                 onServerDown();
}

void onInitiateCfm(const KvdBiraiifInitiateServiceCfm* cfm)
{
    if (cfm == nullptr) return;
    s->biraUnavailable = 0;           // one that came late, or refused before, serves now
    KvdUnit_link().startType = cfm->restart == 1 ? KVD_BIRAIIF_RESTART_COLD : KVD_BIRAIIF_RESTART_WARM;
    await(bira::Answer::LinkType);
}

void onRefusal(SIGSELECT sigNo)
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "%s refused, signal=0x%x", BIRA_SERVER_NAME, sigNo);
    await(bira::Answer::None);
    // One that is suspended serves later, and lives on: nothing else would ask it then.
    if (sigNo == KVD_BIRAIIF_INITIATE_SERVICE_SUS) KvdAnswer_await(s->answerTimer, ANSWER, SUSPENDED_ms);
    goOnWithoutServer();
    if (KvdUnit_link().idlMode == KVD_BIRAIIF_IDL_MODE_2 && bira::isSlave()) bira::startBasicRestartTimer();
}

/// An answer to the request, in the wait for it or after that has ended.
void onInitiateAnswer(const Signal* sig)
{
    if (s->awaits != bira::Answer::Service)
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_ERROR, "answer not asked for, dropped, signal=0x%x", sig->sigNo);
    else if (sig->sigNo == KVD_BIRAIIF_INITIATE_SERVICE_CFM)
        onInitiateCfm(as<KvdBiraiifInitiateServiceCfm>(sig));
    else
        onRefusal(sig->sigNo);
}

void onAnswerTimeout()
{
    if (KvdAnswer_isLate(s->answerTimer, ANSWER)) bira::requestService();
}

/// What the server said in the wait. The buffer is free again before it is acted on, which takes its time.
struct Word {
    SIGSELECT sigNo = 0;
    std::optional<KvdBiraiifIdl2LinkInd> link;
};

Word awaitWord(KvdMgrExchange& exchange)
{
    const bool isService = s->awaits == bira::Answer::Service;
    Signal* sig = KvdLoz6TuMgr_await(exchange, isService ? SERVICE : LINK_TYPE,
                                     isService ? "the service" : "the link type");
    Word word;
    if (sig == nullptr) return word;
    word.sigNo = sig->sigNo;
    if (sig->sigNo == KVD_BIRAIIF_IDL2_LINK_IND) {
        if (const auto* ind = as<KvdBiraiifIdl2LinkInd>(sig)) word.link = *ind;
    } else if (sig->sigNo == KVD_BIRAIIF_ANSWER_TMO) {
        onAnswerTimeout();
    } else if (sig->sigNo != KVD_BIRAIIF_SERVER_DOWN_IND) {
        onInitiateAnswer(sig);
    }
    ose::free_buf(&sig);
    return word;
}

/// One of a type that isn't known changes nothing; the start waits for another.
void takeLink(const KvdBiraiifIdl2LinkInd& ind)
{
    if (!bira::isLinkType(ind.linkType)) return;
    await(bira::Answer::None);
    bira::linkIndication(ind);
    bira::sendOrders();
}

/// The program stays here until the link type is known, so that the hardware's start can follow it. A unit
/// that runs has had that start: it goes on after a while, and takes the answers when they come.
void awaitNegotiation()
{
    KvdMgrExchange exchange = exchangeWithServer();
    while (s->awaits != bira::Answer::None) {
        const Word word = awaitWord(exchange);
        if (word.sigNo == 0) break;
        if (word.sigNo == KVD_BIRAIIF_SERVER_DOWN_IND) lostInNegotiation();
        else if (word.link)                            takeLink(*word.link);
    }
    s->waited_ms += exchange.waited_ms;
}

void onServerUp(PROCESS server)
{
    s->hunting = false;
    s->biraServPid = server;
    if (s->attach != 0) ose::detach(&s->attach);
    Signal* down = ose::alloc(sizeof(SIGSELECT), KVD_BIRAIIF_SERVER_DOWN_IND);
    s->attach = ose::attach(&down, server);
    bira::requestService();
    awaitNegotiation();
}

void onLinkInd(const KvdBiraiifIdl2LinkInd* ind)
{
    if (ind != nullptr) takeLink(*ind);
}

}  // namespace

bira::State& bira::state() { return *s; }

bool KvdLoz6BiraIifAdm_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_BIRAIIF_SERVER_UP_IND:      onServerUp(ose::sender(&sig));             return true;
    case KVD_BIRAIIF_SERVER_DOWN_IND:    onDown();                                  return true;
    case KVD_BIRAIIF_INITIATE_SERVICE_CFM:
    case KVD_BIRAIIF_INITIATE_SERVICE_REJ:
    case KVD_BIRAIIF_INITIATE_SERVICE_SUS: onInitiateAnswer(sig);                   return true;
    case KVD_BIRAIIF_IDL2_LINK_IND:      onLinkInd(as<KvdBiraiifIdl2LinkInd>(sig)); return true;
    case KVD_BIRAIIF_FREQ_LOCKED_IND:    bira::onFreqLocked();                      return true;
    case KVD_BIRAIIF_BASIC_RESTART_TMO:  bira::onBasicRestartTimeout();             return true;
    case KVD_BIRAIIF_IDL2_SELECT_IDL_TYPE_CFM: bira::onSelectIdlTypeCfm();          return true;
    case KVD_BIRAIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM:
        bira::onTogglePersistentFreqLockCfm();                                      return true;
    case KVD_BIRAIIF_IDL1_CLK_STATE_TMO: bira::onIdl1ClkStateTimeout();             return true;
    case KVD_BIRAIIF_ANSWER_TMO:         onAnswerTimeout();                         return true;
    case KVD_BIRAIIF_ORDER_TMO:          bira::onOrderTimeout();                    return true;
    case KVD_BIRAIIF_HAND_BACK_TMO:      bira::onHandBackTimeout();                 return true;
    default:                                                                        return false;
    }
}

int KvdLoz6BiraIifAdm_initiate(u32 isMaster)
{
    s->isMaster = isMaster;
    if (s->awaits != bira::Answer::None) return 0;   // a unit that runs has asked already
    KvdUnit_link().hasHwControl = isMaster;
    if (huntServer() == 0) {
        KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "Failed to hunt for process: %s", BIRA_SERVER_NAME);
        KvdUnit_link().hasHwControl = 1;
        s->biraUnavailable = 1;
        return 1;
    }
    s->biraUnavailable = 0;
    KvdMgrExchange exchange = exchangeWithServer();
    Signal* up = KvdLoz6TuMgr_await(exchange, SERVER_UP, "its hunt");
    if (up != nullptr) {              // else it died again: its next word is taken as it comes
        const PROCESS server = ose::sender(&up);
        ose::free_buf(&up);
        onServerUp(server);
    }
    return 0;
}

int KvdLoz6BiraIifAdm_started() { return s->biraInitiated != 0 || s->biraUnavailable > 0 ? 1 : 0; }
u32 KvdLoz6BiraIifAdm_persistentFreqLock() { return s->persistentFreqLock; }

namespace {

const char* initStateText(u32 idl2InitState)
{
    constexpr const char* TEXTS[] = {"IDL2_WARM_INIT_UNKNOWN", "IDL2_WARM_INIT_ONGOING",
                                     "IDL2_WARM_INIT_SUCCEEDED", "IDL2_WARM_INIT_FINISHED"};
    return idl2InitState <= IDL2_WARM_INIT_FINISHED ? TEXTS[idl2InitState] : "<Unknown>";
}

const char* idlModeText(u32 idlMode)
{
    switch (idlMode) {
    case KVD_BIRAIIF_IDL_MODE_1: return "KVD_BIRAIIF_IDL_MODE_1";
    case KVD_BIRAIIF_IDL_MODE_2: return "KVD_BIRAIIF_IDL_MODE_2";
    default:                     return "<Unknown>";
    }
}

const char* startTypeText(u8 startType)
{
    switch (startType) {
    case KVD_BIRAIIF_RESTART_NOT_AVAILABLE: return "KVD_BIRAIIF_RESTART_NOT_AVAILABLE";
    case KVD_BIRAIIF_RESTART_COLD:          return "KVD_BIRAIIF_RESTART_COLD";
    default:                                return "KVD_BIRAIIF_RESTART_WARM";
    }
}

}  // namespace

void KvdLoz6BiraIifAdm_setIdl2InitState(u32 idl2InitState)
{
    KVD_TRACE(TRACE_BIRAIIFADM, TRACE_INFO, "IDL2 MSI init state change: %s -> %s",
              initStateText(KvdUnit_link().idl2InitState), initStateText(idl2InitState));
    KvdUnit_link().idl2InitState = idl2InitState;
}

void KvdLoz6BiraIifAdm_printInfo()
{
    const bira::State& st = *s;
    node::shellPrintf("\n***** BIRA interface related data *****\n");
    node::shellPrintf("   biraServPid          : 0x%08x\n", st.biraServPid);
    node::shellPrintf("   startType            : %s (%u)\n", startTypeText(KvdUnit_link().startType),
                      KvdUnit_link().startType);
    node::shellPrintf("   isMaster             : %u\n", st.isMaster);
    node::shellPrintf("   biraInitiated        : %u\n", st.biraInitiated);
    node::shellPrintf("   biraUnavailable      : %u\n", st.biraUnavailable);
    node::shellPrintf("   hasHwControl         : %u\n", KvdUnit_link().hasHwControl);
    node::shellPrintf("   timeTuningOngoing    : %u\n", KvdUnit_link().timeTuningOngoing);
    node::shellPrintf("   idlMode              : %s (%u)\n", idlModeText(KvdUnit_link().idlMode),
                      KvdUnit_link().idlMode);
    node::shellPrintf("   synchPortNo          : %u\n", st.synchPortNo);
    node::shellPrintf("   persistentFreqLock   : %u\n", st.persistentFreqLock);
    node::shellPrintf("   IDL2 init state      : %s (%u)\n", initStateText(KvdUnit_link().idl2InitState),
                      KvdUnit_link().idl2InitState);
    node::shellPrintf("   basicRestartTimer    : %s\n", st.basicRestartTimer.runs() ? "runs" : "-");
    node::shellPrintf("   IDL1 clock state tmo : %s\n", st.idl1ClkStateTimer.runs() ? "runs" : "-");
    node::shellPrintf("   idpiClkStatus (MSI)  : %u\n", KvdLoz6SlaveWarm_data().idpiClkStatus);
    node::shellPrintf("   waited for the server: %u ms\n", st.waited_ms);
}
