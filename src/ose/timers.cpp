// timers.cpp - Time-outs as signals, delays, ticks.
//
// A system has a fixed table of timers. A timer holds its signal from the request on, so that a
// time-out never fails for want of memory.
#include "ose/kernel.h"

namespace ose {
namespace {

/// Reference: generation in the upper half, place in the table plus 1 in the lower.
TimerRef refOf(const SystemImpl& s, const Timer& t)
{
    return static_cast<u32>(t.generation) << 16 | static_cast<u32>(&t - s.timers.data() + 1);
}

/// The timer while it runs, else nullptr. Another process's timer is misuse.
Timer* running(Process& self, TimerRef ref, const char* operation)
{
    SystemImpl& s = *self.system;
    const u32 index = (ref & 0xFFFF) - 1;
    if (ref == 0 || index >= TIMERS_MAX) return nullptr;
    Timer& t = s.timers[index];
    if (t.owner == nullptr || t.generation != ref >> 16) return nullptr;
    if (t.owner != &self) {
        s.w.misuse({std::string("timer of another process in ") + operation, nameForReport(&self),
                    t.signal->signal()->sigNo, "", placeText(t.signal->place)});
        return nullptr;
    }
    return &t;
}

void release(SystemImpl& s, Timer& t)
{
    --t.owner->timers;
    t.owner = nullptr;
    t.signal = nullptr;
    if (++t.generation == 0) t.generation = 1;
    s.freeTimers.push_back(static_cast<u16>(&t - s.timers.data()));
}

/// An interrupt process runs to its end: no time-out would ever be taken.
bool refused(Process& self, const char* operation, const Place& place)
{
    SystemImpl& s = *self.system;
    if (self.interrupt()) {
        s.w.misuse({std::string("timer in an interrupt process in ") + operation, nameForReport(&self), 0,
                    placeText(place), ""});
        return true;
    }
    if (s.faults.refuseTimers > 0) {
        --s.faults.refuseTimers;
        return true;
    }
    return s.freeTimers.empty();
}

TimerRef begin(Process& self, OSTIME time, Buffer& b)
{
    SystemImpl& s = *self.system;
    Timer& t = s.timers[s.freeTimers.back()];
    s.freeTimers.pop_back();
    t.owner = &self;
    ++self.timers;
    t.signal = &b;
    s.tellWait(self, Wait::TimerBegins, b.signal()->sigNo, time);
    s.toKernel(b);
    s.w.events.push(t.event, s.w.later(time));
    return refOf(s, t);
}

}  // namespace

void System::Impl::expire(Timer& t)
{
    Process& owner = *t.owner;
    Buffer& b = *t.signal;
    release(*this, t);
    deliver(owner, b, owner.pid);
}

void System::Impl::tellWait(const Process& self, Wait what, SIGSELECT sigNo, OSTIME time) const
{
    if (onWait && self.block != nullptr) [[unlikely]] onWait(what, sigNo, time);
}

void System::Impl::dropTimers(Process& p)
{
    for (Timer& t : timers) {
        if (t.owner != &p) continue;
        w.events.remove(t.event);
        t.signal->pool->put(*t.signal);
        release(*this, t);
    }
}

TimerRef request_tmo(OSTIME time, SIGSELECT sigNo, const Place& place)
{
    Process& self = caller("request_tmo", place);
    if (refused(self, "request_tmo", place)) return 0;
    Signal* sig = alloc(sizeof(Signal), sigNo, place);
    return begin(self, time, *Buffer::of(sig));
}

TimerRef request_tmo_sig(OSTIME time, Signal** sig, const Place& place)
{
    Process& self = caller("request_tmo_sig", place);
    Buffer* b = usable(self, sig, "request_tmo_sig", place);
    if (b == nullptr || refused(self, "request_tmo_sig", place)) return 0;
    *sig = nullptr;
    return begin(self, time, *b);
}

void cancel_tmo(TimerRef* ref)
{
    Signal* sig = cancel_tmo_sig(ref);
    if (sig != nullptr) Buffer::of(sig)->pool->put(*Buffer::of(sig));
}

Signal* cancel_tmo_sig(TimerRef* ref, const Place& place)
{
    Process& self = caller("cancel_tmo", place);
    Timer* t = running(self, *ref, "cancel_tmo");
    *ref = 0;
    if (t == nullptr) return nullptr;
    Buffer& b = *t->signal;
    self.system->tellWait(self, Wait::TimerIsCancelled, b.signal()->sigNo, 0);
    self.system->w.events.remove(t->event);
    release(*self.system, *t);
    b.state = BufferState::Held;
    b.owner = self.pid;
    b.frame = __builtin_frame_address(0);
    return b.signal();
}

void reset_tmo(TimerRef* ref, OSTIME time)
{
    Process& self = caller("reset_tmo", Place::current());
    Timer* t = running(self, *ref, "reset_tmo");
    if (t == nullptr) return;
    self.system->tellWait(self, Wait::TimerBeginsAgain, t->signal->signal()->sigNo, time);
    WorldImpl& w = self.system->w;
    w.events.remove(t->event);
    w.events.push(t->event, w.later(time));
}

void delay(OSTIME time)
{
    Process& self = caller("delay", Place::current());
    WorldImpl& w = self.system->w;
    if (self.unwinding) return;
    if (self.interrupt()) {
        w.misuse({"waits in an interrupt process", nameForReport(&self), 0, "", ""});
        return;
    }
    self.system->tellWait(self, Wait::Delay, 0, time);
    self.state = RunState::Delaying;
    // Counts as deeper than any call: its caller is still busy with all that it has received, also by a
    // helper that needed more of the stack than this.
    self.frame = self.stack->lowest();
    w.note(self);
    w.events.push(self.wait, w.later(time));
    w.park(self);
}

u32 get_ticks()
{
    System* system = currentSystem();
    const Time now = system != nullptr ? system->impl().w.now
                                       : caller("get_ticks", Place::current()).system->w.now;
    if (here.current != nullptr) system->impl().w.countCall(*here.current);   // it may wait for it to pass
    return static_cast<u32>(static_cast<u64>(now / (TICK_US * US)));
}

u32 system_tick() { return TICK_US; }

}  // namespace ose
