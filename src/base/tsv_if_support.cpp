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
constexpr u32 NONE = SERVICES_MAX;

struct Service {
    char name[sizeof(TsvIfLookup::service)] = {};
    PROCESS server = 0;
    bool attached = false;
    u32 next = NONE;
};
struct State {
    std::array<Service, SERVICES_MAX> services;
    u32 count = 0;
    u32 head = NONE;   // the newest entry
};
ose::ModuleData<State> s;

u32 findOrCreate(const char* name)
{
    for (u32 i = s->head; i != NONE; i = s->services[i].next)
        if (std::strcmp(s->services[i].name, name) == 0) return i;
    if (s->count == SERVICES_MAX) return NONE;
    const u32 entry = s->count++;
    Service& service = s->services[entry];
    std::memcpy(service.name, name, std::min(std::strlen(name), sizeof service.name - 1));
    service.next = s->head;
    s->head = entry;
    return entry;
}

void attachServer(u32 entry)
{
    Service& service = s->services[entry];
    service.server = ose::hunt(service.name, 0, nullptr, nullptr);
    if (service.server == 0) return;
    TsvIfServerDead* dead = node::make<TsvIfServerDead>(TSV_IF_SERVER_DEAD);
    dead->entry = entry;
    Signal* sig = reinterpret_cast<Signal*>(dead);
    service.attached = true;
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
    const u32 entry = findOrCreate(lookup->service);
    if (entry != NONE && !s->services[entry].attached) attachServer(entry);
    lookup->attached = entry != NONE && s->services[entry].attached ? 1 : 0;
    lookup->serverPid = lookup->attached == 1 ? s->services[entry].server : 0;
    ose::send(sig, ose::sender(sig));
}

void onServerDead(const TsvIfServerDead* ind)
{
    if (ind == nullptr || ind->entry >= s->count) return;
    s->services[ind->entry].attached = false;
    s->services[ind->entry].server = 0;
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
