// Connection to the measurement server: hunted for, asked, lost and made again; requests to it.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/element_of.h"
#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"
#include "ose/module_data.h"

namespace {

/// Of the program, whichever client is at work.
struct State {
    std::array<bool, std::size(INRSI_SERVER_NAMES)> huntsPending{};
    KvdTimer answerTimer;
};
ose::ModuleData<State> s;

constexpr KvdAnswerOf ANSWER{TRACE_INRSI, "the INRSI server", KVD_TUSOCPRI_ANSWER_TMO};

}  // namespace

namespace inrsi {

void requestMeasurement(Client& c, SIGSELECT sigNo, u32 sharedUnitId)
{
    auto* req = makeRequest<InrsiUnit>(c, sigNo);
    req->sharedUnitId = sharedUnitId;
    node::sendTo(c.factoryPid, req);
}

bool requestBfnJumpInfo(Client& c, u32 enabled)
{
    if (c.availabilityStatus != INRSI_AVAILABLE) return false;
    auto* req = makeRequest<InrsiBfnJumpInfoReq>(c, INRSI_BFN_JUMP_INFO_REQ);
    req->bfnJumpEnabled = enabled == 1 ? 1 : 0;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "INRSI_BFN_JUMP_INFO_REQ sent with data: BfnJumpEnabled= %s",
              enabled == 1 ? "TRUE" : "FALSE");
    node::sendTo(c.servicePid, req);
    return true;
}

namespace {

/// One hunt a name is enough, for ever.
void huntFor(u32 name)
{
    if (!s->huntsPending[name]) {
        auto* up = node::make<InrsiServerUpInd>(INRSI_SERVER_UP_IND);
        up->name = name;
        Signal* sig = reinterpret_cast<Signal*>(up);
        s->huntsPending[name] = true;
        if (ose::hunt(INRSI_SERVER_NAMES[name], 0, nullptr, &sig) != 0) return;
    }
    // Not there yet: the hunt stands until it comes.
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "Failed to hunt for process: %s", INRSI_SERVER_NAMES[name]);
}

/// False when the server is hunted for already, or connected.
bool connEstablish(Client& c)
{
    const bool isFree = c.availabilityStatus == INRSI_UNAVAILABLE;
    if (isFree) {
        c.availabilityStatus = INRSI_INITIATING;
        c.factoryPid = c.servicePid = 0;
        for (u32 name = 0; name < std::size(INRSI_SERVER_NAMES); ++name) huntFor(name);
    }
    return isFree;
}

void forgetServer(Client& c)
{
    cancelAnswer();
    c.asked = {};
    c.factoryPid = c.servicePid = 0;
    c.availabilityStatus = INRSI_UNAVAILABLE;
}

/// The factory is asked for a connection; again, when it has left the first request unanswered.
void askForConnection(Client& c)
{
    auto* req = makeRequest<InrsiConnEstablishReq>(c, INRSI_CONN_ESTABLISH_REQ);
    req->numberOfRevisions = c.numberOfRevisions;
    req->protocolRev[0] = c.protocolRev[0];
    node::sendTo(c.factoryPid, req);
    awaitAnswer();
}

}  // namespace

void awaitAnswer() { KvdAnswer_await(s->answerTimer, ANSWER); }
void cancelAnswer() { KvdTimer_cancel(s->answerTimer); }

void onStartReq(Client& c)
{
    switch (c.availabilityStatus) {
    case INRSI_AVAILABLE:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "Inrsi already available, send KVD_TUIIF_SOCPRI_START_RSP.");
        KvdLoz6TuIifAdm_sendSocpriStartRsp(1);
        break;
    case INRSI_UNAVAILABLE: connEstablish(c); break;
    default:
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "failed to initiate INRSI subscription");
        if (c.factoryPid != 0) askForConnection(c);
        break;
    }
    log(c, INRSI_CL_EV_START_REQ_HANDLED);
}

namespace {

void onServerUp(Client& c, const InrsiServerUpInd* ind, PROCESS factory)
{
    if (ind == nullptr) return;
    if (bool* const pending = elementOf(s->huntsPending, ind->name)) *pending = false;
    if (c.availabilityStatus != INRSI_INITIATING || c.factoryPid != 0) return;   // the other is in use
    c.factoryPid = factory;
    Signal* down = ose::alloc(sizeof(SIGSELECT), INRSI_SERVER_DOWN_IND);
    c.attach = ose::attach(&down, factory);
    askForConnection(c);
    log(c, INRSI_CL_EV_SERVER_UP);
}

/// True when an answer to the connection request is awaited.
bool awaitsAnswer(const Client& c, const char* what)
{
    if (c.availabilityStatus == INRSI_INITIATING && c.factoryPid != 0) return true;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s not asked for, dropped, availabilityStatus=%u", what,
              c.availabilityStatus);
    return false;
}

void onConnEstablishCfm(Client& c, const InrsiConnEstablishCfm* cfm, PROCESS service)
{
    if (cfm == nullptr || !awaitsAnswer(c, "INRSI_CONN_ESTABLISH_CFM")) return;
    c.servicePid = service;
    c.connectionRef = cfm->connectionRef;
    cancelAnswer();
    c.availabilityStatus = INRSI_AVAILABLE;
    KvdLoz6TuIifAdm_sendSocpriStartRsp(1);
    log(c, INRSI_CL_EV_CONN_ESTABLISH_CFM);
}

void onConnEstablishRej(Client& c, const InrsiErrorRej* rej)
{
    if (rej == nullptr || !awaitsAnswer(c, "INRSI_CONN_ESTABLISH_REJ")) return;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "received INRSI_CONN_ESTABLISH_REJ: errorCode=%u", rej->errorCode);
    ose::detach(&c.attach);
    c.attach = NO_ATTACH;
    forgetServer(c);
    KvdLoz6TuIifAdm_sendSocpriStartRsp(0);
    log(c, INRSI_CL_EV_CONN_ESTABLISH_REJ, KEEP);
}

void onServerDown(Client& c, PROCESS factory)
{
    if (factory != c.factoryPid) return;       // of a connection that was given up
    c.attach = NO_ATTACH;
    log(c, INRSI_CL_EV_SERVER_DOWN, KEEP);
    c.role->serverLost();
    forgetServer(c);
    c.procedureRef = c.connectionRef = 0;
    for (const u8 port : PORTS_A_TO_F) {
        stopSupervision(c, port);
        if (c.subscribed[port]) resetPortStatus(c, port);
    }
    c.subscribed = {};
    if (!connEstablish(c)) KVD_TRACE(TRACE_INRSI, TRACE_INFO, "INRSI CONNECTION ESTABLISH failed");
}

void onAnswerTimeout(Client& c)
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    if (c.availabilityStatus == INRSI_AVAILABLE) return askForSubscriptions(c);
    if (c.factoryPid != 0) askForConnection(c);
}

}  // namespace

bool dispatchConnection(Client& c, Signal* sig)
{
    switch (sig->sigNo) {
    case INRSI_SERVER_UP_IND:
        onServerUp(c, as<InrsiServerUpInd>(sig), ose::sender(&sig));                            break;
    case INRSI_SERVER_DOWN_IND:      onServerDown(c, ose::sender(&sig));                        break;
    case INRSI_CONN_ESTABLISH_CFM:
        onConnEstablishCfm(c, as<InrsiConnEstablishCfm>(sig), ose::sender(&sig));               break;
    case INRSI_CONN_ESTABLISH_REJ:   onConnEstablishRej(c, as<InrsiErrorRej>(sig));             break;
    case KVD_TUSOCPRI_ANSWER_TMO:    onAnswerTimeout(c);                                        break;
    default:                                                                                    return false;
    }
    return true;
}

}  // namespace inrsi
