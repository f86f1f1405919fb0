#include "base/tsv_if_support.h"

#include "base/element_of.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr u32 SERVICES_MAX = 32;   // the proxies of this program use about a dozen

struct Service {
    std::string name;
    PROCESS server = 0;            // 0: it isn't there
};
struct State { std::vector<Service> services; };
ose::ModuleData<State> s;

/// nullptr when there is no room for another.
Service* findOrCreate(const char* name)
{
    const auto known = std::ranges::find(s->services, name, &Service::name);
    if (known != s->services.end()) return &*known;
    if (s->services.size() == SERVICES_MAX) return nullptr;
    return &s->services.emplace_back(Service{name});
}

void attachServer(Service& service)
{
    service.server = ose::hunt(service.name.c_str(), 0, nullptr, nullptr);
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
    if (ind == nullptr) return;
    if (Service* const service = elementOf(s->services, ind->entry)) service->server = 0;
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
