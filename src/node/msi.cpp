#include "node/msi.h"

#include "node/msi_sig.h"
#include "node/platform.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <array>
#include <cstring>

namespace node {
namespace {

constexpr OSTIME ANSWER_TIME_ms = 10'000;
constexpr u32 HELD_MAX = 8;

struct Held {
    char name[MSI_NAME_SIZE];
    u32 address;
};

struct State {
    PROCESS server = 0;                  // 0 before the first contact
    AttachRef deathRef = 0;              // these two run while a negotiation waits for its answer
    TimerRef answerTimer = 0;
    std::array<Held, HELD_MAX> held{};   // regions that this program has got
    u32 heldCount = 0;
};
ose::ModuleData<State> s;

u32 serviceState() { return static_cast<u32>(platform().msiState()); }

Signal* makeRejection(u32 reason)
{
    auto* rej = make<TarsoMsiRej>(TARSO_MSI_INITIATE_SERVICE_REJ);
    rej->reason = reason;
    return reinterpret_cast<Signal*>(rej);
}

void superviseNegotiation()
{
    Signal* dead = makeRejection(MSI_REASON_SERVER_GONE);
    s->deathRef = ose::attach(&dead, s->server);
    Signal* late = makeRejection(MSI_REASON_NO_ANSWER);
    s->answerTimer = ose::request_tmo_sig(ANSWER_TIME_ms, &late);
    if (s->answerTimer == 0) ose::free_buf(&late);
}

void endSupervision()
{
    if (s->answerTimer != 0) {
        Signal* late = ose::cancel_tmo_sig(&s->answerTimer);
        if (late != nullptr) ose::free_buf(&late);
    }
    // A server that is gone has told so already.
    if (s->deathRef != 0 && ose::process_name(s->server) != nullptr) ose::detach(&s->deathRef);
    s->deathRef = 0;
}

u32 requestRegion(const MsiRequest& request, u32& address)
{
    address = 0;
    if (const u32 state = serviceState(); state != MSI_DONE) return state;
    const PROCESS server = ose::hunt(TARSO_MSI_SERVER_NAME, 0, nullptr, nullptr);
    if (server == 0) return MSI_NO_SERVER;
    auto* req = make<TarsoMsiMemAllocReq>(TARSO_MSI_MEM_ALLOC_REQ);
    req->request = request;
    sendTo(server, req);
    return MSI_DONE;
}

}  // namespace

u32 TarsoMsi_contact()
{
    s->server = ose::hunt(TARSO_MSI_SERVER_NAME, 0, nullptr, nullptr);
    return s->server != 0 ? MSI_DONE : MSI_NO_SERVER;
}

u32 TarsoMsi_initiateService(u32 firstPv, u32 secondPv, u32 thirdPv, Signal*& answer)
{
    answer = nullptr;
    endSupervision();
    if (s->server == 0) return MSI_NO_SERVER;
    if (const u32 state = serviceState(); state != MSI_DONE) return state;

    auto* req = make<TarsoMsiInitiateServiceReq>(TARSO_MSI_INITIATE_SERVICE_REQ);
    req->pvFirstWanted = firstPv;
    req->pvSecondWanted = secondPv;
    req->pvThirdWanted = thirdPv;
    sendTo(s->server, req);
    constexpr SIGSELECT ANSWERS[] = {2, TARSO_MSI_INITIATE_SERVICE_CFM, TARSO_MSI_INITIATE_SERVICE_REJ};
    answer = ose::receive_w_tmo(0, ANSWERS);
    if (answer != nullptr) return MSI_IN_USE;
    superviseNegotiation();
    return MSI_DONE;
}

u32 TarsoMsi_internal(const Signal* sig)
{
    switch (sig->sigNo) {
    case TARSO_MSI_INITIATE_SERVICE_CFM: endSupervision(); return s->server != 0 ? MSI_IN_USE : MSI_NO_SERVER;
    case TARSO_MSI_INITIATE_SERVICE_REJ: {
        const auto* rej = as<TarsoMsiRej>(sig);
        if (rej != nullptr && rej->reason == MSI_REASON_SERVER_GONE) s->deathRef = 0;
        if (rej != nullptr && rej->reason == MSI_REASON_NO_ANSWER) s->answerTimer = 0;
        endSupervision();
        return MSI_DONE;
    }
    case TARSO_MSI_MEM_ALLOC_CFM: {
        const auto* cfm = as<TarsoMsiMemAllocCfm>(sig);
        if (cfm == nullptr) return MSI_REFUSED;
        for (u32 i = 0; i < s->heldCount; ++i)
            if (std::strncmp(s->held[i].name, cfm->name, MSI_NAME_SIZE) == 0) return MSI_DONE;
        if (s->heldCount == HELD_MAX) return MSI_DONE;
        Held& h = s->held[s->heldCount++];
        std::memcpy(h.name, cfm->name, MSI_NAME_SIZE);
        h.address = cfm->address;
        return MSI_DONE;
    }
    default: return MSI_DONE;
    }
}

u32 TarsoMsi_memAlloc(const MsiRequest& request, u32& address)
{
    for (u32 i = 0; i < s->heldCount; ++i) {
        if (std::strncmp(s->held[i].name, request.name, MSI_NAME_SIZE) != 0) continue;
        address = s->held[i].address;
        return MSI_DONE;
    }
    return requestRegion(request, address);
}

u32 TarsoMsi_memAllocClear(const MsiRequest& request, u32& address)
{
    return requestRegion(request, address);
}

u32 TarsoMsi_memRead(u32 address, u8* to, u32 size)
{
    return static_cast<u32>(platform().msiRead(address, to, size));
}

u32 TarsoMsi_memSafeWrite(u32 address, const u8* from, u32 size)
{
    return static_cast<u32>(platform().msiWrite(address, from, size));
}

}  // namespace node
