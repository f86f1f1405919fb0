#include "node/pmai.h"

#include "node/pmai_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace {

constexpr const char* PROXY_NAME = "TmvPmai_proxy";
constexpr u32 PROXY_STACK = 4096, PROXY_PRIORITY = 13;
constexpr OSTIME ANSWER_ms = 10'000;

// Client and proxy are two processes: each word has one writer.
struct State {
    // ---- written by the client ----
    PROCESS proxy = 0;           // 0 before the attach
    PROCESS client = 0;          // set before the proxy starts
    u32 sent = 0;                // records handed over, counts on and wraps
    // ---- written by the proxy ----
    u32 done = 0;                // of these: confirmed, dropped or lost
    PROCESS agent = 0;           // 0 while there is none
    AttachRef attachRef = 0;
    bool attached = false;       // the agent has confirmed
    bool isAwaited = false;      // asked, and it said nothing yet
    u32 unconfirmed = 0;         // records on their way to the agent
};
ose::ModuleData<State> s;

void huntAgent()
{
    Signal* up = ose::alloc(sizeof(SIGSELECT), TMV_PMAI_SERVER_UP_IND);
    ose::hunt(TMV_PMAI_SERVER_NAME, 0, nullptr, &up);
}

void askToAttach()
{
    Signal* req = ose::alloc(sizeof(SIGSELECT), TMV_PMAI_ATTACH_REQ);
    ose::send(&req, s->agent);
    s->isAwaited = true;
}

/// Records on their way count as lost.
void giveUpRecords()
{
    s->done += s->unconfirmed;
    s->unconfirmed = 0;
}

void onServerUp(PROCESS agent)
{
    if (s->agent != 0) return;
    s->agent = agent;
    Signal* down = ose::alloc(sizeof(SIGSELECT), TMV_PMAI_SERVER_DOWN_IND);
    s->attachRef = ose::attach(&down, agent);
    askToAttach();
}

void onServerDown()
{
    s->agent = 0;
    s->attachRef = 0;
    s->attached = s->isAwaited = false;
    giveUpRecords();
    huntAgent();
}

void onPush(const TmvPmaiPushInd* ind)
{
    if (ind == nullptr || !s->attached) return;
    auto* push = node::make<TmvPmaiPushInd>(TMV_PMAI_PUSH_IND);
    push->seqNo = ind->seqNo;
    node::sendTo(s->client, push);
}

void onPmData(Signal*& sig)
{
    if (!s->attached) {
        ++s->done;
        return;
    }
    ++s->unconfirmed;
    ose::send(&sig, s->agent);
}

void onPmDataCfm()
{
    if (s->unconfirmed == 0) return;
    --s->unconfirmed;
    ++s->done;
}

void onAttachAnswer(Signal* sig)
{
    if (s->agent != ose::sender(&sig)) return;
    s->isAwaited = false;
    s->attached = sig->sigNo == TMV_PMAI_ATTACH_CFM;
}

/// The next signal. An agent that hears and says nothing isn't dead: it is asked again.
Signal* next()
{
    for (;;) {
        if (!s->isAwaited && s->unconfirmed == 0) return ose::receive(ose::ANY_SIGNAL);
        if (Signal* const sig = ose::receive_w_tmo(ANSWER_ms, ose::ANY_SIGNAL)) return sig;
        giveUpRecords();
        if (s->isAwaited) askToAttach();
    }
}

void proxy()
{
    node::traceAttachProcess();
    huntAgent();
    for (;;) {
        Signal* sig = next();
        switch (sig->sigNo) {
        case TMV_PMAI_SERVER_UP_IND:   onServerUp(ose::sender(&sig));              break;
        case TMV_PMAI_SERVER_DOWN_IND: onServerDown();                             break;
        case TMV_PMAI_ATTACH_CFM:
        case TMV_PMAI_ATTACH_REJ:      onAttachAnswer(sig);                        break;
        case TMV_PMAI_PUSH_IND:        onPush(as<TmvPmaiPushInd>(sig));            break;
        case TMV_PMAI_PM_DATA_IND:     onPmData(sig);                              break;
        case TMV_PMAI_PM_DATA_CFM:     onPmDataCfm();                              break;
        case TMV_PMAI_END_OF_DATA_IND: if (s->attached) ose::send(&sig, s->agent); break;
        default:                                                                   break;
        }
        if (sig != nullptr) ose::free_buf(&sig);
    }
}

}  // namespace

namespace node {

u32 TmvPmai_serviceAttach(PROCESS client)
{
    if (s->proxy != 0) return 1;
    s->client = client;
    s->proxy = ose::create_process(ose::KIND_PRIORITISED, PROXY_NAME, proxy, PROXY_STACK, PROXY_PRIORITY, 0,
                                   0);
    ose::start(s->proxy);
    return 0;
}

TmvPmaiPmData* TmvPmai_newPmData()
{
    if (s->sent - s->done >= PMAI_RECORDS_MAX) return nullptr;
    return make<TmvPmaiPmData>(TMV_PMAI_PM_DATA_IND);
}

u32 TmvPmai_sendPmData(u32 seqNo, TmvPmaiPmData* data)
{
    data->seqNo = seqNo;
    if (s->proxy == 0) {
        Signal* sig = reinterpret_cast<Signal*>(data);
        ose::free_buf(&sig);
        return 1;
    }
    ++s->sent;
    sendTo(s->proxy, data);
    return 0;
}

u32 TmvPmai_endOfData(u32 seqNo, u32 froType)
{
    if (s->proxy == 0) return 1;
    auto* end = make<TmvPmaiEndOfData>(TMV_PMAI_END_OF_DATA_IND);
    end->seqNo = seqNo;
    end->froType = froType;
    sendTo(s->proxy, end);
    return 0;
}

}  // namespace node
