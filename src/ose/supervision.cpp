// supervision.cpp - Finding processes and learning of their death, here and in linked systems.
//
// A process of another system is known by a proxy: an id of this system that can be sent to,
// attached and answered, and that dies with its process.
#include "ose/kernel.h"

#include <algorithm>

namespace ose {

/// Id under which this system knows a process of that name, 0 when there is none.
PROCESS System::Impl::lookUp(const std::string& processName)
{
    const auto& never = faults.neverFound;
    if (std::find(never.begin(), never.end(), processName) != never.end()) return 0;
    if (const Process* own = findProcess(processName)) return own->pid;
    for (const LinkTo& l : links) {
        if (processName.size() <= l.name.size() + 1 || processName.compare(0, l.name.size(), l.name) != 0
            || processName[l.name.size()] != '/')
            continue;
        if (Process* remote = l.to->findProcess(processName.substr(l.name.size() + 1)))
            return proxyFor(*remote).pid;
    }
    return 0;
}

void System::Impl::answerHunts(const std::string& processName)
{
    const auto isFor = [&processName](const Hunt& h) { return h.name.ends_with(processName); };
    if (std::ranges::any_of(hunts, isFor)) answerHunts();
}

void System::Impl::answerHunts()
{
    for (std::size_t i = 0; i < hunts.size();) {
        const PROCESS pid = lookUp(hunts[i].name);
        if (pid == 0) {
            ++i;
            continue;
        }
        const Hunt found = hunts[i];
        hunts.erase(hunts.begin() + static_cast<std::ptrdiff_t>(i));
        deliver(*found.hunter, *found.signal, pid);
    }
}

// ---- proxies ------------------------------------------------------------------------------------

Proxy& System::Impl::proxyFor(Process& remote)
{
    for (Proxy* known : remote.proxies)
        if (known->system == this) return *known;
    std::string linkName = remote.system->name;
    for (const LinkTo& l : links) {
        if (l.to != remote.system) continue;
        linkName = l.name;
        break;
    }
    proxies.push_back(std::make_unique<Proxy>());
    Proxy& proxy = *proxies.back();
    proxy.system = this;
    proxy.remote = &remote;
    proxy.name = linkName + "/" + remote.name;
    proxy.pid = newSlot(SlotKind::Proxy, &proxy);
    remote.proxies.push_back(&proxy);
    return proxy;
}

void System::Impl::dropProxy(Proxy& proxy)
{
    const PROCESS pid = proxy.pid;
    std::erase(proxy.remote->proxies, &proxy);
    freeSlot(pid);
    std::erase_if(proxies, [&proxy](const std::unique_ptr<Proxy>& p) { return p.get() == &proxy; });
    tellAttached(pid);
}

void System::Impl::sendAcross(Process& from, Proxy& to, Buffer& b)
{
    Process& remote = *to.remote;
    SystemImpl& there = *remote.system;
    const auto loses = [&](const Faults& f) {
        return f.loseSignal && f.loseSignal(from.name, remote.name, b.signal()->sigNo);
    };
    if (!loses(faults) && !loses(there.faults)) {
        Buffer& copy = there.copyIn(b.bytes(), b.size, b.place);
        Proxy& answerTo = there.proxyFor(from);
        there.deliver(remote, copy, answerTo.pid);
        const bool noWayBack = std::ranges::find(there.cut, this) != there.cut.end();
        if (from.dead || noWayBack) there.dropProxy(answerTo);
    }
    b.pool->put(b);
}

// ---- attach -------------------------------------------------------------------------------------

void System::Impl::tellAttached(PROCESS pid)
{
    for (std::size_t i = 0; i < attachments.size();) {
        if (attachments[i].target != pid) {
            ++i;
            continue;
        }
        const Attachment told = attachments[i];
        attachments.erase(attachments.begin() + static_cast<std::ptrdiff_t>(i));
        tell(told);
    }
}

void System::Impl::tell(const Attachment& a)
{
    deliver(*a.owner, *a.signal, a.target);
    a.signal->attach = a.ref;
}

/// Takes back the prepared signals of a dead process.
void System::Impl::forgetSupervision(Process& p)
{
    std::erase_if(hunts, [&p](const Hunt& h) {
        if (h.hunter == &p) h.signal->pool->put(*h.signal);
        return h.hunter == &p;
    });
    std::erase_if(attachments, [&p](const Attachment& a) {
        if (a.owner == &p) a.signal->pool->put(*a.signal);
        return a.owner == &p;
    });
}

// ---- operations ---------------------------------------------------------------------------------

PROCESS hunt(const char* name, u32, PROCESS* found, Signal** hunt_sig, const Place& place)
{
    Process& self = caller("hunt", place);
    SystemImpl& s = *self.system;
    const PROCESS pid = s.lookUp(name);
    if (found != nullptr && pid != 0) *found = pid;
    if (hunt_sig == nullptr || *hunt_sig == nullptr) return pid;
    Buffer* b = usable(self, hunt_sig, "hunt", place);
    *hunt_sig = nullptr;
    if (b == nullptr) return pid;
    if (pid != 0) {
        s.deliver(self, *b, pid);
    } else {
        s.toKernel(*b);
        s.hunts.push_back({name, &self, b});
    }
    return pid;
}

AttachRef attach(Signal** sig, PROCESS pid, const Place& place)
{
    Process& self = caller("attach", place);
    SystemImpl& s = *self.system;
    Buffer* b = nullptr;
    if (sig == nullptr || *sig == nullptr) {
        b = Buffer::of(alloc(sizeof(Signal), ATTACH_SIGNAL, place));
    } else {
        b = usable(self, sig, "attach", place);
        *sig = nullptr;
        if (b == nullptr) return 0;
    }
    if (++s.lastAttach == 0) s.lastAttach = 1;
    const Attachment attachment{s.lastAttach, &self, pid, b};
    const Slot* slot = s.slot(pid);
    if (slot == nullptr || slot->kind == SlotKind::Block) {
        s.tell(attachment);
    } else {
        s.toKernel(*b);
        s.attachments.push_back(attachment);
    }
    return attachment.ref;
}

void detach(AttachRef* ref)
{
    Process& self = caller("detach", Place::current());
    SystemImpl& s = *self.system;
    const AttachRef wanted = *ref;
    *ref = 0;
    const auto found = std::find_if(s.attachments.begin(), s.attachments.end(),
                                    [wanted](const Attachment& a) { return a.ref == wanted; });
    if (found == s.attachments.end()) {
        if (wanted != 0) dropQueued(self, wanted);
        return;
    }
    if (found->owner != &self) {
        s.w.misuse({"detach of another process's attach", nameForReport(&self),
                    found->signal->signal()->sigNo, "", placeText(found->signal->place)});
        return;
    }
    found->signal->pool->put(*found->signal);
    s.attachments.erase(found);
}

}  // namespace ose
