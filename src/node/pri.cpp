#include "node/pri.h"

#include "node/pri_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace {

enum Result : u32 {
    DONE = 0,
    NO_SERVER = 1,
    IN_USE = 2,          // of TarsoPri_internal: confirmed
    NOT_CONNECTED = 3,
};

struct State {
    PROCESS server = 0;         // 0 while the service isn't asked for
    AttachRef attachRef = 0;    // 0 when the server's death was told
};
ose::ModuleData<State> s;

void forgetServer()
{
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (s->attachRef != 0 && ose::process_name(s->server) != nullptr) ose::detach(&s->attachRef);
    s->attachRef = 0;
    s->server = 0;
}

u32 request(SIGSELECT sigNo)
{
    if (s->server == 0) return NOT_CONNECTED;
    Signal* req = ose::alloc(sizeof(SIGSELECT), sigNo);
    ose::send(&req, s->server);
    return DONE;
}

}  // namespace

namespace node {

u32 TarsoPri_initiateService(u32 firstPv, u32 secondPv, u32 thirdPv)
{
    forgetServer();
    PROCESS server = ose::hunt(TARSO_PRI_SERVER_NAME, 0, nullptr, nullptr);
    if (server == 0) return NO_SERVER;

    s->server = server;
    Signal* down = ose::alloc(sizeof(SIGSELECT), TARSO_PRI_SERVER_DOWN_IND);
    s->attachRef = ose::attach(&down, server);
    auto* req = make<TarsoPriInitiateServiceReq>(TARSO_PRI_INITIATE_SERVICE_REQ);
    req->pvFirstWanted = firstPv;
    req->pvSecondWanted = secondPv;
    req->pvThirdWanted = thirdPv;
    sendTo(server, req);
    return DONE;
}

u32 TarsoPri_terminateService() { return request(TARSO_PRI_TERMINATE_SERVICE_REQ); }

u32 TarsoPri_internal(const Signal* sig)
{
    switch (sig->sigNo) {
    case TARSO_PRI_INITIATE_SERVICE_CFM: return s->server != 0 ? IN_USE : NOT_CONNECTED;
    case TARSO_PRI_SERVER_DOWN_IND:
        s->attachRef = 0;
        s->server = 0;
        return DONE;
    case TARSO_PRI_TERMINATE_SERVICE_CFM: forgetServer(); return DONE;
    default: return DONE;
    }
}

u32 TarsoPiu_getOwnIdentity() { return request(TARSO_PIU_OWN_IDENTITY_REQ); }
u32 TarsoPiu3_getOwnHWAddr()  { return request(TARSO_PIU3_OWN_HW_ADDR_REQ); }

}  // namespace node
