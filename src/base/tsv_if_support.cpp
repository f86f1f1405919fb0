#include "base/tsv_if_support.h"

#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr u32 SERVICES_MAX = 32;   // the proxies of this program use about a dozen

struct Service {
    char name[sizeof(TsvIfLookup::service)] = {};
    PROCESS server = 0;            // 0: it isn't there
};
struct State {
    std::array<Service, SERVICES_MAX> services;
    u32 count = 0;
};
ose::ModuleData<State> s;

/// nullptr when there is no room for another.
Service* findOrCreate(const char* name)
{
    const auto end = s->services.begin() + s->count;
    const auto known = std::find_if(s->services.begin(), end, [name](const Service& service) {
        return std::strcmp(service.name, name) == 0;
    });
    if (known != end) return &*known;
    if (s->count == SERVICES_MAX) return nullptr;
    Service& service = s->services[s->count++];
    std::memcpy(service.name, name, std::strlen(name));
    return &service;
}

void attachServer(Service& service)
{
    service.server = ose::hunt(service.name, 0, nullptr, nullptr);
    if (service.server == 0) return;
    TsvIfServerDead* dead = node::make<TsvIfServerDead>(TSV_IF_SERVER_DEAD);
    dead->entry = static_cast<u32>(&service - s->services.data());
    Signal* sig = reinterpret_cast<Signal*>(dead);
    ose::attach(&sig, service.server);
}

void onLookup(Signal** sig)
{
    if (as<TsvIfLookup>(*sig) == nullptr) {
        ose::free_buf(sig);
        return;
    }
    TsvIfLookup* lookup = reinterpret_cast<TsvIfLookup*>(*sig);
    lookup->service[sizeof lookup->service - 1] = '\0';
    Service* const service = findOrCreate(lookup->service);
    if (service != nullptr && service->server == 0) attachServer(*service);
    lookup->serverPid = service != nullptr ? service->server : 0;
    lookup->attached = lookup->serverPid != 0 ? 1 : 0;
    ose::send(sig, ose::sender(sig));
}

void onServerDead(const TsvIfServerDead* ind)
{
    if (ind != nullptr && ind->entry < s->count) s->services[ind->entry].server = 0;
}

}  // namespace

void TsvIfSupport_proc()
{
    node::traceAttachProcess();
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        if (sig->sigNo == TSV_IF_LOOKUP_REQ) {
            onLookup(&sig);
            continue;
        }
        if (sig->sigNo == TSV_IF_SERVER_DEAD) onServerDead(as<TsvIfServerDead>(sig));
        ose::free_buf(&sig);
    }
}
