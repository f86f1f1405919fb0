// process.cpp - Processes from creation to death, and the ids by which they are known.
#include "ose/kernel.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace ose {
namespace {

/// A held buffer is leaked unless its owner waits deeper in its calls than where it got it, or for a time to
/// pass: then it still works on it.
bool leaked(const Process& p, const Buffer& b)
{
    if (b.kept) return false;
    return p.returned || p.frame == nullptr
           || reinterpret_cast<std::uintptr_t>(p.frame) >= reinterpret_cast<std::uintptr_t>(b.frame);
}

/// Hunts anywhere in the world may wait for a process that is there now.
void answerAllHunts(WorldImpl& w, const std::string& name)
{
    for (const std::unique_ptr<System>& system : w.systems) system->impl().answerHunts(name);
}

}  // namespace

// ---- ids ----------------------------------------------------------------------------------------

/// Id: generation in the upper half, place in the table plus 1 in the lower. A place is taken again
/// as late as possible, so an id of old names nothing else for a long time.
u32 System::Impl::newSlot(SlotKind kind, void* item)
{
    u16 index;
    if (freeSlots.size() < 64 && slots.size() < 0xFFFF) {
        index = static_cast<u16>(slots.size());
        slots.push_back({firstGeneration, SlotKind::Free, nullptr});
    } else {
        if (freeSlots.empty()) {
            std::fprintf(stderr, "kernel: more than 65535 processes in system %s\n", name.c_str());
            std::abort();
        }
        index = freeSlots.front();
        freeSlots.pop_front();
    }
    Slot& s = slots[index];
    s.kind = kind;
    s.item = item;
    return static_cast<u32>(s.generation) << 16 | (index + 1u);
}

void System::Impl::freeSlot(u32 id)
{
    Slot& s = slots[(id & 0xFFFF) - 1];
    s.kind = SlotKind::Free;
    s.item = nullptr;
    if (++s.generation == 0) s.generation = 1;
    freeSlots.push_back(static_cast<u16>((id & 0xFFFF) - 1));
}

Process* System::Impl::findProcess(const std::string& processName) const
{
    for (Process* p : processes)
        if (p->name == processName) return p;
    return nullptr;
}

Pool& System::Impl::poolOf(const Process& p) const { return p.block == nullptr ? *nodePool : *p.block->pool; }

// ---- life ---------------------------------------------------------------------------------------

Process& System::Impl::create(BlockImpl* block, u32 kind, std::string processName, u32 priority)
{
    if (priority >= PRIORITIES) {
        w.misuse({"priority " + std::to_string(priority) + " out of range", processName, 0, "", ""});
        priority = PRIORITIES - 1;
    }
    Process* p = new Process;
    p->system = this;
    p->block = block;
    p->name = std::move(processName);
    p->kind = kind;
    p->priority = priority;
    p->wait.kind = kind == KIND_TIMER_INTERRUPT ? EventKind::Period : EventKind::Wait;
    p->wait.owner = p;
    p->pid = newSlot(SlotKind::Process, p);
    processes.push_back(p);
    if (block != nullptr) ++block->processes;
    answerAllHunts(w, p->name);
    return *p;
}

bool System::Impl::startProcess(Process& p)
{
    if (p.state != RunState::Created) {
        w.misuse({"started twice", nameForReport(&p), 0, "", ""});
        return false;
    }
    switch (p.kind) {
    case KIND_INTERRUPT:
        p.state = RunState::Running;
        vectors.push_back(&p);
        return true;
    case KIND_TIMER_INTERRUPT:
        p.state = RunState::Running;
        w.events.push(p.wait, w.later(p.period));
        return true;
    default:
        p.stack = w.takeStack();
        if (p.stack == nullptr) {
            w.misuse({"no room for a stack of " + std::to_string(w.stackSize / 1024) + " KiB beside "
                          + std::to_string(w.stacks.size()),
                      nameForReport(&p), 0, "", ""});
            return false;
        }
        p.stack->process = &p;
        w.makeReady(p);
        w.preempt();
        return true;
    }
}

/// Creates and starts one with a body; 0 when it was refused.
PROCESS System::Impl::launch(BlockImpl* block, const std::string& processName, u32 priority,
                             std::function<void()> body)
{
    Process& p = create(block, KIND_PRIORITISED, processName, priority);
    p.body = std::move(body);
    const PROCESS pid = p.pid;
    if (startProcess(p)) return pid;
    w.kill(p);
    return 0;
}

/// The process can no longer be found and never runs again. What it holds is released as soon as its
/// stack is unwound: at once, or when the one that runs on it comes to a kernel call.
void WorldImpl::kill(Process& p)
{
    SystemImpl& s = *p.system;
    p.dead = true;
    if (p.state == RunState::Ready) ready.remove(p);
    events.remove(p.wait);
    std::erase(s.processes, &p);
    std::erase(s.vectors, &p);
    std::erase(interruptsHeld, &p);
    s.freeSlot(p.pid);
    while (!p.proxies.empty()) p.proxies.back()->system->dropProxy(*p.proxies.back());
    s.tellAttached(p.pid);
    if (p.stack == nullptr) {
        if (&p != interruptNow) dispose(p);
    } else if (p.stack != here.stack && !p.stack->kills) {
        unwindStack(p);
        dispose(p);
    }
}

/// Releases what a dead process holds, and the process itself.
void WorldImpl::dispose(Process& p)
{
    SystemImpl& s = *p.system;
    if (p.timers > 0) s.dropTimers(p);
    s.forgetSupervision(p);
    BlockImpl* const block = p.block;
    const bool report = block != nullptr && !block->ended
                        && (block->unloading || p.returned || p.endedByProgram);
    const std::vector<Pool*> pools = s.pools;
    for (Pool* pool : pools) {
        for (Buffer* b = pool->oldest(); b != nullptr;) {
            Buffer* const newer = b->newer;
            if (b->owner == p.pid) {
                if (report && b->state == BufferState::Held && leaked(p, *b))
                    misuse({"leaked", p.name, b->signal()->sigNo, placeText(b->place), ""});
                pool->put(*b);
            }
            b = newer;
        }
    }
    delete &p;
    if (block != nullptr && --block->processes == 0 && block->unloading) s.finishUnload(*block);
}

/// Kills every process of a program.
void System::Impl::killIn(BlockImpl& b)
{
    ++b.processes;   // keeps the block while its processes go
    for (;;) {
        const auto next = std::find_if(processes.rbegin(), processes.rend(),
                                       [&b](const Process* p) { return p->block == &b; });
        if (next == processes.rend()) break;
        w.kill(**next);
    }
    if (--b.processes == 0 && b.unloading) finishUnload(b);
}

// ---- operations ---------------------------------------------------------------------------------

PROCESS current_process() { return here.current == nullptr ? 0 : here.current->pid; }

const char* process_name(PROCESS pid)
{
    const Slot* s = caller("process_name", Place::current()).system->slot(pid);
    if (s == nullptr) return nullptr;
    if (s->kind == SlotKind::Process) return static_cast<Process*>(s->item)->name.c_str();
    if (s->kind == SlotKind::Proxy) return static_cast<Proxy*>(s->item)->name.c_str();
    return nullptr;
}

PROCESS create_process(u32 kind, const char* name, Entry entry, u32, u32 priority, OSTIME period, u32 vector)
{
    Process& self = caller("create_process", Place::current());
    SystemImpl& s = *self.system;
    const bool known = kind == KIND_PRIORITISED || kind == KIND_INTERRUPT || kind == KIND_TIMER_INTERRUPT;
    if (!known || entry == nullptr || (kind == KIND_TIMER_INTERRUPT && period == 0)) {
        s.w.misuse({std::string("no process can be made so: ") + name, nameForReport(&self), 0, "", ""});
        return 0;
    }
    Process& p = s.create(self.block, kind, name, priority);
    p.entry = entry;
    p.period = static_cast<Time>(period) * MS;
    p.vector = vector;
    const PROCESS pid = p.pid;
    s.w.preempt();   // a hunter may have waited for it
    return pid;
}

void start(PROCESS pid)
{
    Process& self = caller("start", Place::current());
    Process* p = self.system->process(pid);
    if (p == nullptr) {
        self.system->w.misuse({"start of no process", nameForReport(&self), 0, "", ""});
        return;
    }
    self.system->startProcess(*p);
}

void kill_proc(PROCESS pid)
{
    Process& self = caller("kill_proc", Place::current());
    SystemImpl& s = *self.system;
    const Slot* slot = s.slot(pid);
    if (slot == nullptr) return;   // gone already
    self.frame = __builtin_frame_address(0);
    switch (slot->kind) {
    case SlotKind::Process:
        static_cast<Process*>(slot->item)->endedByProgram = true;
        s.w.kill(*static_cast<Process*>(slot->item));
        break;
    case SlotKind::Block:
        s.endProgram(*static_cast<BlockImpl*>(slot->item), 0, "killed by " + nameForReport(&self));
        break;
    default: s.w.misuse({"kill of a process in another system", nameForReport(&self), 0, "", ""}); break;
    }
    if (self.dead && !self.unwinding) unwind(self);
    s.w.preempt();
}

void error(u32 code, const Place& place)
{
    Process& self = caller("error", place);
    char number[16];
    std::snprintf(number, sizeof number, "0x%X", code);
    const std::string text = std::string("error ") + number + " in " + self.name + " at " + placeText(place);
    if (self.unwinding) {
        std::fprintf(stderr, "kernel: %s while it is being killed\n", text.c_str());
        std::abort();
    }
    if (self.block != nullptr) {
        self.system->endProgram(*self.block, code, text);
    } else {
        self.system->w.misuse({text, self.name, 0, placeText(place), ""});
        self.system->w.kill(self);
    }
    unwind(self);
}

}  // namespace ose
