#include "node/temi.h"

#include "node/sig.h"
#include "node/temi_sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <cstdio>

namespace {

enum Result : u32 {
    DONE = 0,
    NO_SERVER = 1,
    IN_USE = 2,          // of TarsoTemi_internal: confirmed
    NOT_CONNECTED = 3,
};

struct State {
    PROCESS server = 0;         // 0 while the service isn't asked for
    AttachRef attachRef = 0;    // 0 when its death was told
};
ose::ModuleData<State> s;

template <std::size_t SIZE>
void setText(char (&to)[SIZE], const char* from)
{
    std::snprintf(to, SIZE, "%s", from);
}

u32 sendResult(SIGSELECT sigNo, u32 last, u32 testNumber, const char* testName, u32 result,
               const char* message)
{
    if (s->server == 0) return NOT_CONNECTED;
    auto* sig = node::make<TarsoTemiTestResult>(sigNo);
    sig->last = last;
    sig->testNumber = testNumber;
    sig->result = result;
    setText(sig->testName, testName);
    setText(sig->message, message);
    node::sendTo(s->server, sig);
    return DONE;
}

}  // namespace

namespace node {

u32 TarsoTemi_initiateService(const char* clientName, u32 protocolVersion)
{
    TarsoTemi_forget();
    s->server = ose::hunt(TARSO_TEMI_SERVER_NAME, 0, nullptr, nullptr);
    if (s->server == 0) return NO_SERVER;
    Signal* down = ose::alloc(sizeof(SIGSELECT), TARSO_TEMI_SERVER_DOWN_IND);
    s->attachRef = ose::attach(&down, s->server);
    auto* req = make<TarsoTemiInitiateServiceReq>(TARSO_TEMI_INITIATE_SERVICE_REQ);
    req->protocolVersion = protocolVersion;
    setText(req->clientName, clientName);
    sendTo(s->server, req);
    return DONE;
}

void TarsoTemi_forget()
{
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (s->attachRef != 0 && ose::process_name(s->server) != nullptr) ose::detach(&s->attachRef);
    s->attachRef = 0;
    s->server = 0;
}

u32 TarsoTemi_internal(const Signal* sig)
{
    switch (sig->sigNo) {
    case TARSO_TEMI_SERVER_DOWN_IND:
        if (senderOf(sig) != s->server) return NOT_CONNECTED;
        s->attachRef = 0;
        s->server = 0;
        return DONE;
    case TARSO_TEMI_INITIATE_SERVICE_CFM: return s->server != 0 ? IN_USE : NOT_CONNECTED;
    case TARSO_TEMI_INITIATE_SERVICE_REJ:
    case TARSO_TEMI_TERMINATE_SERVICE_CFM: TarsoTemi_forget(); return DONE;
    default: return DONE;
    }
}

u32 TarsoTemi_doTestResponse(u32 last, u32 testNumber, const char* testName, u32 result, const char* message)
{
    return sendResult(TARSO_TEMI_DO_TEST_RSP, last, testNumber, testName, result, message);
}

u32 TarsoTemi_testResultInd(u32 testNumber, const char* testName, u32 result, const char* message)
{
    return sendResult(TARSO_TEMI_TEST_RESULT_IND, 0, testNumber, testName, result, message);
}

u32 TarsoTemi_terminateService()
{
    if (s->server == 0) return NOT_CONNECTED;
    Signal* req = ose::alloc(sizeof(SIGSELECT), TARSO_TEMI_TERMINATE_SERVICE_REQ);
    ose::send(&req, s->server);
    return DONE;
}

}  // namespace node
