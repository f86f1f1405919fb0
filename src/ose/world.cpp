// world.cpp - The faces of World and System that tests, the simulated node and the program use.
#include "ose/kernel.h"
#include "ose/queues.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ose {
namespace {

constexpr Time CALL_LIMIT = 86'400 * SEC;   // a called body that takes a day isn't coming back

/// Ends a use of the kernel that no process can be blamed for.
[[noreturn]] void refuse(const char* what)
{
    std::fprintf(stderr, "kernel: %s\n", what);
    std::abort();
}

void onlyOutside(const WorldImpl& w, const char* what)
{
    if (here.current != nullptr || w.inAction) refuse(what);
}

}  // namespace

// ---- reports ------------------------------------------------------------------------------------

std::string placeText(const Place& place)
{
    const char* name = place.file_name();
    if (const char* slash = std::strrchr(name, '/')) name = slash + 1;
    return std::string(name) + ":" + std::to_string(place.line());
}

std::string nameForReport(const Process* p)
{
    if (p == nullptr) return "the node";
    return p->name;
}

std::string Misuse::text() const
{
    std::string text = "kernel misuse: " + what + ", process=" + process;
    if (sigNo != 0) {
        char number[16];
        std::snprintf(number, sizeof number, "0x%X", sigNo);
        text += std::string(", signal=") + number;
    }
    if (!place.empty()) text += ", at " + place;
    if (!origin.empty()) text += ", allocated " + origin;
    return text;
}

void WorldImpl::misuse(Misuse m)
{
    if (misuseHandler) {
        misuseHandler(m);
        return;
    }
    std::fprintf(stderr, "%s, t=%lld ms\n", m.text().c_str(), static_cast<long long>(now / MS));
    std::abort();
}

Process& caller(const char* operation, const Place& place)
{
    if (here.current == nullptr) [[unlikely]] {
        std::fprintf(stderr, "kernel: %s outside of any process, at %s\n", operation,
                     placeText(place).c_str());
        std::abort();
    }
    return *here.current;
}

// ---- world --------------------------------------------------------------------------------------

World::World(u64 seed) : impl_(std::make_unique<WorldImpl>(*this, seed)) {}
World::~World() = default;

WorldImpl::~WorldImpl()
{
    for (const std::unique_ptr<System>& system : systems) {
        SystemImpl& s = system->impl();
        while (!s.blocks.empty()) system->unload(*s.blocks.back());
        while (!s.processes.empty()) kill(*s.processes.back());
    }
}

u64  World::seed() const { return impl_->seed; }
Time World::now() const { return impl_->now; }
Time World::nextDue() const { return impl_->events.nextDue(); }

EventId WorldImpl::at(Time when, Work&& action)
{
    u32 index;
    if (freeActions.empty()) {
        index = static_cast<u32>(actions.size());
        Action& fresh = actions.emplace_back();
        fresh.event.kind = EventKind::Action;
        fresh.event.owner = reinterpret_cast<void*>(static_cast<std::uintptr_t>(index));
    } else {
        index = freeActions.back();
        freeActions.pop_back();
    }
    Action& a = actions[index];
    a.run = std::move(action);
    events.push(a.event, std::max(when, now));
    return (static_cast<EventId>(a.generation) << 32) | (index + 1);
}

int WorldImpl::cancel(EventId& id)
{
    const u32 index = static_cast<u32>(id) - 1;
    const u32 generation = static_cast<u32>(id >> 32);
    id = 0;
    if (index >= actions.size()) return 0;
    Action& a = actions[index];
    if (a.generation != generation || !a.event.queued()) return 0;
    events.remove(a.event);
    a.run.clear();
    ++a.generation;
    freeActions.push_back(index);
    return 1;
}

EventId World::at(Time when, Work&& action) { return impl_->at(when, std::move(action)); }
EventId World::after(Time delay, Work&& action) { return impl_->at(impl_->later(delay), std::move(action)); }
int World::cancel(EventId& event) { return impl_->cancel(event); }

void World::runUntil(Time when)
{
    onlyOutside(*impl_, "World::run from inside of the world");
    impl_->run(when, nullptr);
}

void World::runFor(Time span) { runUntil(impl_->later(span)); }

bool World::runUntilTrue(const std::function<bool()>& done, Time limit)
{
    onlyOutside(*impl_, "World::run from inside of the world");
    if (done()) return true;
    return impl_->run(impl_->later(limit), &done) || done();
}

void World::stop()
{
    const std::scoped_lock lock(impl_->postMutex);
    impl_->stopRequested = true;
    impl_->postArrived.notify_all();
}

void World::setPace(double speed)
{
    impl_->pace = speed > 0.0 ? speed : 0.0;
    impl_->rebasePace();
}

void World::post(std::function<void()> action)
{
    const std::scoped_lock lock(impl_->postMutex);
    impl_->posted.push_back(std::move(action));
    impl_->hasPosted.store(true, std::memory_order_release);
    impl_->postArrived.notify_all();
}

System& World::createSystem(const std::string& name)
{
    impl_->systems.push_back(std::unique_ptr<System>(new System(*this, name)));
    return *impl_->systems.back();
}

void World::link(System& from, const std::string& name, System& to)
{
    SystemImpl& f = from.impl();
    std::erase(f.cut, &to.impl());
    for (const LinkTo& l : f.links) {
        if (l.name != name) continue;
        if (l.to == &to.impl()) return;
        unlink(from, name);
        break;
    }
    f.links.push_back({name, &to.impl()});
    f.answerHunts();
}

void World::unlink(System& from, const std::string& name)
{
    SystemImpl& f = from.impl();
    const auto gone = std::find_if(f.links.begin(), f.links.end(),
                                   [&name](const LinkTo& l) { return l.name == name; });
    if (gone == f.links.end()) return;
    const SystemImpl* const to = gone->to;
    f.links.erase(gone);
    for (const LinkTo& l : f.links)
        if (l.to == to) return;                  // there is another path
    f.cut.push_back(to);
    std::vector<Proxy*> lost;
    for (const auto& proxy : f.proxies)
        if (proxy->remote->system == to) lost.push_back(proxy.get());
    for (Proxy* const proxy : lost) f.dropProxy(*proxy);
}

void World::onMisuse(std::function<void(const Misuse&)> handler)
{
    impl_->misuseHandler = std::move(handler);
}

void World::setSpinLimit(u32 events) { impl_->spinLimit = events; }

void World::setStackSize(std::size_t bytes)
{
    if (bytes < Stack::SIZE_MIN) refuse("World::setStackSize of less than 16 KiB");
    impl_->stackSize = bytes;
    for (const Stack* const s : impl_->idle)
        std::erase_if(impl_->stacks, [s](const auto& owned) { return owned.get() == s; });
    impl_->idle.clear();
}

StackUse World::stackUse() const
{
    for (const auto& s : impl_->stacks)
        if (s->process != nullptr) impl_->noteUse(*s, *s->process);
    StackUse use = impl_->largestUse;
    use.stacks = static_cast<u32>(impl_->stacks.size());
    use.size = impl_->stackSize;
    return use;
}

std::string StackUse::text() const
{
    return std::to_string(stacks) + " stacks of " + std::to_string(size / 1024) + " KiB, at most "
           + std::to_string(largest / 1024) + " KiB used, by " + process;
}

// ---- system -------------------------------------------------------------------------------------

System::Impl::Impl(World& owner, System& s, std::string n, u32 index)
    : world(owner), system(s), name(std::move(n)),
      firstGeneration(static_cast<u16>(index * 16 + 1)), w(owner.impl())
{
    for (u32 i = 0; i < TIMERS_MAX; ++i) {
        timers[i].event.kind = EventKind::Timer;
        timers[i].event.owner = &timers[i];
        freeTimers.push_back(static_cast<u16>(TIMERS_MAX - 1 - i));
    }
    nodePool = new Pool(0, {31, 63, 127, 255, 1023, 4095, 16383, SIGNAL_SIZE_MAX});
    nodePool->registry = &pools;
    pools.push_back(nodePool);
}

System::Impl::~Impl()
{
    while (!pools.empty()) delete pools.back();
}

System::System(World& world, const std::string& name)
    : impl_(std::make_unique<Impl>(world, *this, name, static_cast<u32>(world.impl().systems.size())))
{
}
System::~System() = default;

const std::string& System::name() const { return impl_->name; }
World& System::world() { return impl_->world; }

void System::onProgramEnd(std::function<void(Block&, u32, const std::string&)> handler)
{
    impl_->programEnd = std::move(handler);
}

PROCESS System::spawn(const std::string& name, u32 priority, std::function<void()> body)
{
    return impl_->launch(nullptr, name, priority, std::move(body));
}

PROCESS System::launch(Block& block, const std::string& name, u32 priority, std::function<void()> body)
{
    BlockImpl& b = block.impl();
    return b.ended || b.unloading ? 0 : impl_->launch(&b, name, priority, std::move(body));
}

void System::kill(PROCESS pid)
{
    if (Process* p = impl_->process(pid)) impl_->w.kill(*p);
    if (here.current == nullptr) return;
    if (here.current->dead && !here.current->unwinding) unwind(*here.current);
    impl_->w.preempt();
}

PROCESS System::find(const std::string& name) const
{
    const Process* p = impl_->findProcess(name);
    return p == nullptr ? 0 : p->pid;
}

bool System::alive(PROCESS pid) const
{
    const Slot* s = impl_->slot(pid);
    return s != nullptr && s->kind != SlotKind::Block;
}

bool leavesSignals(System& system, PROCESS pid)
{
    const Slot* s = system.impl().slot(pid);
    if (s == nullptr || s->kind != SlotKind::Process) return false;
    return static_cast<const Process*>(s->item)->first != nullptr;
}

std::string System::nameOf(PROCESS pid) const
{
    const Slot* s = impl_->slot(pid);
    if (s == nullptr) return "";
    if (s->kind == SlotKind::Process) return static_cast<Process*>(s->item)->name;
    if (s->kind == SlotKind::Proxy) return static_cast<Proxy*>(s->item)->name;
    return "";
}

void System::inject(std::span<const std::byte> bytes, PROCESS to, PROCESS from)
{
    if (bytes.size() < sizeof(SIGSELECT) || bytes.size() > SIGNAL_SIZE_MAX)
        refuse("System::inject of less than 4 or more than 65535 bytes");
    const Slot* target = impl_->slot(to);
    if (target == nullptr || target->kind == SlotKind::Block) return;
    Buffer& b = impl_->copyIn(bytes.data(), static_cast<u32>(bytes.size()), Place::current());
    if (target->kind == SlotKind::Process) {
        impl_->deliver(*static_cast<Process*>(target->item), b, from);
    } else if (Process* known = impl_->process(from)) {
        impl_->sendAcross(*known, *static_cast<Proxy*>(target->item), b);
    } else {
        b.pool->put(b);   // nobody whom the other system could answer
    }
    impl_->w.preempt();
}

int System::raise(u32 vector)
{
    for (Process* p : impl_->vectors) {
        if (p->vector != vector) continue;
        impl_->w.note(*p);
        impl_->w.runInterrupt(*p);
        return 1;
    }
    return 0;
}

void System::call(Block& block, const std::function<void()>& body, u32 priority, const std::string& name)
{
    WorldImpl& w = impl_->w;
    onlyOutside(w, "System::call from inside of the world");
    const PROCESS pid = launch(block, name, priority, body);
    if (pid == 0) refuse("System::call of a program that has ended, or without room for a stack");
    const std::function<bool()> done = [this, pid] { return impl_->process(pid) == nullptr; };
    const bool before = std::exchange(w.endWhenIdle, true);
    bool ended = false;
    try {
        ended = w.run(w.later(CALL_LIMIT), &done) || done();
    } catch (...) {
        w.endWhenIdle = before;
        if (Process* p = impl_->process(pid)) w.kill(*p);
        throw;
    }
    w.endWhenIdle = before;
    if (ended) return;
    if (!w.cutShort) w.misuse({"call waits for ever", name, 0, "", ""});
    if (Process* p = impl_->process(pid)) w.kill(*p);
}

Faults& System::faults() { return impl_->faults; }

void System::onSend(std::function<void(std::span<const std::byte> signal)> observer)
{
    impl_->onSend = std::move(observer);
}

void System::onWait(std::function<void(Wait what, SIGSELECT sigNo, OSTIME time)> observer)
{
    impl_->onWait = std::move(observer);
}
void System::setPlatform(void* platform) { impl_->platform = platform; }
void* System::platform() const { return impl_->platform; }

System* currentSystem()
{
    if (here.current != nullptr) return &here.current->system->system;
    return here.scope;
}

}  // namespace ose
