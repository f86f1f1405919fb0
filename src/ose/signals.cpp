// signals.cpp - Buffers with one owner, queues, and waiting for a signal.
#include "ose/kernel.h"

#include <cstring>

namespace ose {
namespace {

void reportBuffer(Process& self, const char* what, Buffer& b, const Place& place)
{
    Misuse m;
    m.what = what;
    m.process = nameForReport(&self);
    m.place = placeText(place);
    if (b.state != BufferState::Free) m.sigNo = b.signal()->sigNo;
    m.origin = placeText(b.place);
    if (b.owner != self.pid && b.state == BufferState::Held)
        m.origin += ", owned by " + self.system->system.nameOf(b.owner);
    self.system->w.misuse(std::move(m));
}

bool selects(const SIGSELECT* selection, SIGSELECT sigNo)
{
    if (selection == nullptr || selection[0] == 0) return true;
    for (SIGSELECT i = 1; i <= selection[0]; ++i)
        if (selection[i] == sigNo) return true;
    return false;
}

void unqueue(Process& self, Buffer& b, Buffer* before)
{
    (before != nullptr ? before->next : self.first) = b.next;
    if (self.last == &b) self.last = before;
    b.next = nullptr;
}

/// Takes the first selected signal out of the queue; nullptr when there is none.
Buffer* takeQueued(Process& self, const SIGSELECT* selection)
{
    Buffer* before = nullptr;
    for (Buffer* b = self.first; b != nullptr; before = b, b = b->next) {
        if (!selects(selection, b->signal()->sigNo)) continue;
        unqueue(self, *b, before);
        b->state = BufferState::Held;
        b->attach = 0;
        return b;
    }
    return nullptr;
}

Signal* receiveWithin(const SIGSELECT* selection, bool limited, OSTIME tmo, const void* frame)
{
    Process& self = caller("receive", Place::current());
    WorldImpl& w = self.system->w;
    Buffer* b = takeQueued(self, selection);
    if (b == nullptr) {
        if (self.unwinding) return nullptr;
        if (limited && tmo == 0) {
            w.countCall(self);
            return nullptr;
        }
        if (self.interrupt()) {
            w.misuse({"waits in an interrupt process", nameForReport(&self), 0, "", ""});
            return nullptr;
        }
        self.selection = selection;
        self.state = RunState::Receiving;
        self.frame = frame;
        if (limited) self.system->tellWait(self, Wait::Receive, 0, tmo);
        if (limited) w.events.push(self.wait, w.later(tmo));
        w.park(self);
        if (limited) w.events.remove(self.wait);
        b = takeQueued(self, selection);
        if (b == nullptr) return nullptr;
    }
    b->frame = frame;
    w.countCall(self);
    return b->signal();
}

}  // namespace

Buffer* usable(Process& self, Signal* const* sig, const char* operation, const Place& place)
{
    const auto refuse = [&](const std::string& what) {
        self.system->w.misuse({what + " in " + operation, nameForReport(&self), 0, placeText(place), ""});
        return nullptr;
    };
    if (sig == nullptr || *sig == nullptr) [[unlikely]] return refuse("no buffer");
    if (reinterpret_cast<std::uintptr_t>(*sig) % alignof(Buffer) != 0) [[unlikely]]
        return refuse("not a signal buffer");
    Buffer& b = *Buffer::of(*sig);
    if (!b.genuine()) [[unlikely]] return refuse("not a signal buffer");
    if (b.state == BufferState::Free) [[unlikely]] {
        const bool freeing = std::strcmp(operation, "free_buf") == 0;
        reportBuffer(self, freeing ? "freed twice" : "used after free", b, place);
        return nullptr;
    }
    if (b.state != BufferState::Held || b.owner != self.pid) [[unlikely]] {
        reportBuffer(self, "not the owner", b, place);
        return nullptr;
    }
    if (!b.endIntact()) [[unlikely]] {
        reportBuffer(self, "written past its end", b, place);
        return nullptr;
    }
    return &b;
}

// ---- queues -------------------------------------------------------------------------------------

/// Into the queue of a live process.
void System::Impl::deliver(Process& to, Buffer& b, PROCESS from)
{
    b.sender = from;
    b.owner = to.pid;
    b.state = BufferState::Queued;
    b.next = nullptr;
    (to.last != nullptr ? to.last->next : to.first) = &b;
    to.last = &b;
    if (to.state == RunState::Receiving && !to.dead && selects(to.selection, b.signal()->sigNo))
        w.makeReady(to);
}

/// The queued news of a death, when it is that of the given attach, is no news any more.
void dropQueued(Process& self, AttachRef ref)
{
    Buffer* before = nullptr;
    for (Buffer* b = self.first; b != nullptr; before = b, b = b->next) {
        if (b->attach != ref) continue;
        unqueue(self, *b, before);
        b->pool->put(*b);
        return;
    }
}

/// A prepared signal leaves its owner's hands.
void System::Impl::toKernel(Buffer& b)
{
    b.owner = 0;
    b.state = BufferState::Kernel;
}

/// A signal that comes from outside of the system's own processes.
Buffer& System::Impl::copyIn(const void* bytes, u32 size, const Place& place)
{
    Buffer& b = *nodePool->get(size, place);
    std::memcpy(b.bytes(), bytes, size);
    return b;
}

// ---- operations ---------------------------------------------------------------------------------

Signal* alloc(u32 size, SIGSELECT sigNo, const Place& place)
{
    Process& self = caller("alloc", place);
    Pool& pool = self.system->poolOf(self);
    Buffer* b = size < sizeof(SIGSELECT) ? nullptr : pool.get(size, place);
    if (b == nullptr) [[unlikely]] {
        const bool outOfRange = size < sizeof(SIGSELECT) || size > pool.largest();
        if (outOfRange)
            self.system->w.misuse({"signal size " + std::to_string(size) + " out of range",
                                   nameForReport(&self), sigNo, placeText(place), ""});
        error(outOfRange ? ERROR_SIGNAL_SIZE : ERROR_NO_MEMORY, place);
    }
    b->owner = b->sender = self.pid;
    b->frame = __builtin_frame_address(0);
    b->signal()->sigNo = sigNo;
    return b->signal();
}

namespace {

bool isOf(const Slot* slot, const BlockImpl& block)
{
    return slot != nullptr && slot->kind == SlotKind::Process
           && static_cast<const Process*>(slot->item)->block == &block;
}

}  // namespace

void send(Signal** sig, PROCESS to, const Place& place)
{
    Process& self = caller("send", place);
    Buffer* b = usable(self, sig, "send", place);
    if (sig != nullptr) *sig = nullptr;
    if (b == nullptr) return;
    SystemImpl& s = *self.system;
    const Slot* slot = s.slot(to);
    if (s.onSend && self.block != nullptr && !isOf(slot, *self.block)) [[unlikely]]
        s.onSend({b->bytes(), b->size});
    if (slot != nullptr && slot->kind == SlotKind::Process) {
        s.deliver(*static_cast<Process*>(slot->item), *b, self.pid);
        s.w.preempt();
    } else if (slot != nullptr && slot->kind == SlotKind::Proxy) {
        s.sendAcross(self, *static_cast<Proxy*>(slot->item), *b);
        s.w.preempt();
    } else {
        b->pool->put(*b);
    }
}

Signal* receive(const SIGSELECT* selection)
{
    return receiveWithin(selection, false, 0, __builtin_frame_address(0));
}

Signal* receive_w_tmo(OSTIME tmo, const SIGSELECT* selection)
{
    return receiveWithin(selection, true, tmo, __builtin_frame_address(0));
}

void free_buf(Signal** sig, const Place& place)
{
    Process& self = caller("free_buf", place);
    Buffer* b = usable(self, sig, "free_buf", place);
    if (sig != nullptr) *sig = nullptr;
    if (b != nullptr) b->pool->put(*b);
}

PROCESS sender(Signal* const* sig)
{
    const Place place = Place::current();
    const Buffer* b = usable(caller("sender", place), sig, "sender", place);
    return b == nullptr ? 0 : b->sender;
}

u32 sigsize(Signal* const* sig)
{
    const Place place = Place::current();
    const Buffer* b = usable(caller("sigsize", place), sig, "sigsize", place);
    return b == nullptr ? 0 : b->size;
}

void restore(Signal* sig, const Place& place)
{
    Process& self = caller("restore", place);
    Buffer* b = sig == nullptr ? nullptr : Buffer::of(sig);
    if (b == nullptr || !b->genuine()) {
        self.system->w.misuse(
            {"not a signal buffer in restore", nameForReport(&self), 0, placeText(place), ""});
        return;
    }
    if (b->state == BufferState::Held && b->owner == self.pid) return;
    const Process* owner = self.system->process(b->owner);
    if (b->state != BufferState::Held || owner == nullptr || !owner->interrupt()
        || owner->block != self.block) {
        reportBuffer(self, b->state == BufferState::Free ? "used after free" : "not the owner", *b, place);
        return;
    }
    b->owner = self.pid;
    b->frame = __builtin_frame_address(0);
}

void keep(Signal* sig, const Place& place)
{
    Buffer* const b = usable(caller("keep", place), &sig, "keep", place);
    if (b != nullptr) b->kept = true;
}

}  // namespace ose
