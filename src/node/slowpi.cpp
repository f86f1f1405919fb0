#include "node/slowpi.h"

#include "node/sig.h"
#include "node/slowpi_sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <cstring>

namespace node {

struct SlowpiContext {
    bool used = false;
    bool hunting = false;       // the server is looked for
    bool confirmed = false;     // the service answers requests
    PROCESS server = 0;         // 0 while none is known
    AttachRef attachRef = 0;
    u32 wantedPv[3] = {};
};

}  // namespace node

namespace {

enum Result : u32 {
    DONE = 0,
    NO_CONTEXT = 1,
    ASKED_ALREADY = 2,
    NOT_CONNECTED = 3,
    NOT_OURS = 4,        // a signal that isn't of the service's connection, or comes uncalled
    BAD_LENGTH = 5,
};

ose::ModuleData<node::SlowpiContext> s;

void forgetServer(node::SlowpiContext& c)
{
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (c.attachRef != 0 && ose::process_name(c.server) != nullptr) ose::detach(&c.attachRef);
    c.attachRef = 0;
    c.server = 0;
    c.confirmed = false;
}

void ask(const node::SlowpiContext& c)
{
    auto* req = node::make<SlowpiInitiateServiceReq>(SLOWPI_INITIATE_SERVICE_REQ);
    req->pvFirstWanted = c.wantedPv[0];
    req->pvSecondWanted = c.wantedPv[1];
    req->pvThirdWanted = c.wantedPv[2];
    node::sendTo(c.server, req);
}

u32 onServerUp(node::SlowpiContext& c, PROCESS server)
{
    if (!c.hunting) return NOT_OURS;
    c.hunting = false;
    c.server = server;
    Signal* down = ose::alloc(sizeof(SIGSELECT), SLOWPI_SERVER_DOWN_IND);
    c.attachRef = ose::attach(&down, server);
    ask(c);
    return DONE;
}

u32 onConfirmed(node::SlowpiContext& c)
{
    if (c.server == 0) return NOT_CONNECTED;
    c.confirmed = true;
    return DONE;
}

/// Of a service that is in use and whose server lives.
u32 canAsk(const node::SlowpiContext* context)
{
    if (context == nullptr) return NO_CONTEXT;
    if (!context->confirmed || ose::process_name(context->server) == nullptr) return NOT_CONNECTED;
    return DONE;
}

u32 subscription(const node::SlowpiContext* context, SIGSELECT sigNo, u8 subtype, u32 oui)
{
    if (const u32 refusal = canAsk(context); refusal != DONE) return refusal;
    auto* req = node::make<SlowpiSubscribeReq>(sigNo);
    req->subtype = subtype;
    req->oui = oui;
    node::sendTo(context->server, req);
    return DONE;
}

}  // namespace

namespace node {

SlowpiContext* Slowpi_initiateMemory()
{
    if (s->used) return nullptr;
    *s = {};
    s->used = true;
    return &*s;
}

void Slowpi_freeMemory(SlowpiContext* context)
{
    if (context == nullptr) return;
    forgetServer(*context);
    *context = {};
}

u32 Slowpi_initiateServiceReq(SlowpiContext* context, u32 firstPv, u32 secondPv, u32 thirdPv)
{
    if (context == nullptr) return NO_CONTEXT;
    if (context->server != 0) return ASKED_ALREADY;
    context->wantedPv[0] = firstPv;
    context->wantedPv[1] = secondPv;
    context->wantedPv[2] = thirdPv;
    if (context->hunting) return DONE;   // goes out when the server comes
    context->hunting = true;
    Signal* up = ose::alloc(sizeof(SIGSELECT), SLOWPI_SERVER_UP_IND);
    ose::hunt(SLOWPI_SERVER_NAME, 0, nullptr, &up);
    return DONE;
}

u32 Slowpi_askAgain(const SlowpiContext* context)
{
    if (context == nullptr || context->server == 0 || context->confirmed) return NOT_CONNECTED;
    ask(*context);
    return DONE;
}

u32 Slowpi_internal(SlowpiContext* context, const Signal* sig)
{
    if (context == nullptr) return NO_CONTEXT;
    switch (sig->sigNo) {
    case SLOWPI_SERVER_UP_IND:        return onServerUp(*context, senderOf(sig));
    case SLOWPI_INITIATE_SERVICE_CFM: return onConfirmed(*context);
    case SLOWPI_SERVER_DOWN_IND:      forgetServer(*context);                return DONE;
    // A server that refuses stays attached: its end, and the next one's start, are the only cause to
    // ask again. One that has confirmed can't refuse any more.
    case SLOWPI_INITIATE_SERVICE_SUS:
    case SLOWPI_INITIATE_SERVICE_REJ: return context->confirmed ? NOT_OURS : DONE;
    default:                          return NOT_OURS;
    }
}

u32 Slowpi_subscribeReq(SlowpiContext* context, u8 subtype, u32 oui)
{
    return subscription(context, SLOWPI_SUBSCRIBE_REQ, subtype, oui);
}

u32 Slowpi_unsubscribeReq(SlowpiContext* context, u8 subtype, u32 oui)
{
    return subscription(context, SLOWPI_UNSUBSCRIBE_REQ, subtype, oui);
}

u32 Slowpi_sendFrameInd(SlowpiContext* context, u32 length, const u8* frame)
{
    if (const u32 refusal = canAsk(context); refusal != DONE) return refusal;
    if (length == 0 || length > SLOWPI_FRAME_MAX) return BAD_LENGTH;
    Signal* sig = ose::alloc(static_cast<u32>(sizeof(SlowpiFrame)) + length, SLOWPI_SEND_FRAME_IND);
    auto* head = reinterpret_cast<SlowpiFrame*>(sig);
    head->length = length;
    std::memcpy(reinterpret_cast<u8*>(sig) + sizeof(SlowpiFrame), frame, length);
    ose::send(&sig, context->server);
    return DONE;
}

}  // namespace node
