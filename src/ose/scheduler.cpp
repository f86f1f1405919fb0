// scheduler.cpp - Who runs next: stacks, the event loop, interrupts, virtual and wall time.
//
// Each prioritised process has a stack of its own while it lives. One that blocks switches to the
// next that is ready, or back to the loop of who called run, which works through the events.
#include "ose/kernel.h"
#include "ose/loop_watch.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace ose {

constinit thread_local Here here{};

namespace {

/// Sets the process that kernel calls on this thread act for.
void actAs(Process* p)
{
    here.current = p;
    detail::programData = p == nullptr ? nullptr : p->data();
}

/// The same for a scope, in which user code may throw.
class ActAs {
public:
    explicit ActAs(Process* p) : before_(here.current), dataBefore_(detail::programData) { actAs(p); }
    ~ActAs()
    {
        here.current = before_;
        detail::programData = dataBefore_;
    }
    ActAs(const ActAs&) = delete;
    ActAs& operator=(const ActAs&) = delete;

private:
    Process* before_;
    std::byte* dataBefore_;
};

}  // namespace

// ---- ready list ---------------------------------------------------------------------------------

void ReadyList::pushBack(Process& p)
{
    Process*& last = last_[p.priority];
    p.nextReady = nullptr;
    p.prevReady = last;
    (last != nullptr ? last->nextReady : first_[p.priority]) = &p;
    last = &p;
    mask_ |= 1u << p.priority;
}

void ReadyList::pushFront(Process& p)
{
    Process*& first = first_[p.priority];
    p.prevReady = nullptr;
    p.nextReady = first;
    (first != nullptr ? first->prevReady : last_[p.priority]) = &p;
    first = &p;
    mask_ |= 1u << p.priority;
}

void ReadyList::remove(Process& p)
{
    (p.prevReady != nullptr ? p.prevReady->nextReady : first_[p.priority]) = p.nextReady;
    (p.nextReady != nullptr ? p.nextReady->prevReady : last_[p.priority]) = p.prevReady;
    p.nextReady = p.prevReady = nullptr;
    if (first_[p.priority] == nullptr) mask_ &= ~(1u << p.priority);
}

Process* ReadyList::pop()
{
    if (mask_ == 0) return nullptr;
    Process* p = first_[highest()];
    remove(*p);
    return p;
}

// ---- stacks -------------------------------------------------------------------------------------

void WorldImpl::makeReady(Process& p)
{
    p.state = RunState::Ready;
    ready.pushBack(p);
}

/// A stack without a process; nullptr when the host has no room for one.
Stack* WorldImpl::takeStack()
{
    if (idle.empty()) {
        std::unique_ptr<Stack> fresh = Stack::make(stackSize, onStack);
        if (fresh == nullptr) return nullptr;
        stacks.push_back(std::move(fresh));
        return stacks.back().get();
    }
    Stack* const s = idle.back();
    idle.pop_back();
    return s;
}

/// Notes that `p` has come to use more of a stack than any before it.
void WorldImpl::noteUse(const Stack& s, const Process& p)
{
    const std::size_t used = s.used();
    if (used <= largestUse.largest) return;
    largestUse.largest = used;
    largestUse.process = p.name;
}

/// Stacks stand on one host thread, and so does what the compiler has read of it.
void WorldImpl::stayHome()
{
    if (home == nullptr) {
        home = &here;
        watchForOverflow();
        watchForLoops();
    } else if (home != &here) {
        std::fprintf(stderr, "kernel: a world belongs to the host thread that has run it first\n");
        std::abort();
    }
}

void WorldImpl::switchTo(Context& to)
{
    Stack* const self = here.stack;
    ++here.switches;
    (self != nullptr ? self->context : outside).switchTo(to);
    here.stack = self;
}

/// Who goes on when the present one can't.
Context& WorldImpl::next()
{
    Process* const p = abortRun || failure ? nullptr : ready.pop();
    return p != nullptr ? p->stack->context : outside;
}

/// Runs one process after the other, whichever is given to this stack.
void WorldImpl::onStack(void* stack)
{
    Stack& s = *static_cast<Stack*>(stack);
    for (;;) {
        here.stack = &s;
        Process& p = *s.process;
        WorldImpl& w = p.system->w;
        if (!p.dead) {
            p.state = RunState::Running;
            actAs(&p);
            try {
                if (p.body) p.body();
                else p.entry();
                p.returned = true;
            } catch (const Unwind&) {
            } catch (...) {
                w.failure = std::current_exception();
            }
        }
        w.switchTo(w.leave(s, p));
    }
}

/// The process on this stack is over: the stack is free for another one.
Context& WorldImpl::leave(Stack& s, Process& p)
{
    actAs(nullptr);
    noteUse(s, p);
    Context* const killer = std::exchange(s.killer, nullptr);
    p.stack = nullptr;
    if (killer == nullptr) {
        if (p.dead) dispose(p);
        else kill(p);
    }
    s.process = nullptr;
    idle.push_back(&s);
    return killer != nullptr ? *killer : next();
}

/// Lets everything else go on until `self` is ready and the first to run. Its state says what it
/// waits for.
void WorldImpl::park(Process& self)
{
    actAs(nullptr);
    Context& to = next();
    if (&to != &self.stack->context) switchTo(to);
    self.state = RunState::Running;
    actAs(&self);
    if (self.dead) unwind(self);
}

/// Strict priority: the caller goes on only when nothing before it is ready, and not in a run that ends
/// for want of progress.
void WorldImpl::preempt()
{
    Process* self = here.current;
    if (self == nullptr || interruptNow != nullptr || self->unwinding) return;
    if (ready.highest() >= self->priority && !abortRun) return;
    self->frame = __builtin_frame_address(0);
    self->state = RunState::Ready;
    ready.pushFront(*self);
    park(*self);
}

void unwind(Process& p)
{
    p.unwinding = true;
    throw Unwind{};
}

/// Takes a killed process out of the kernel call that it waits in.
void WorldImpl::unwindStack(Process& p)
{
    stayHome();
    Stack* const own = here.stack;
    p.stack->killer = own != nullptr ? &own->context : &outside;
    if (own != nullptr) own->kills = true;
    {
        const ActAs scope(nullptr);
        switchTo(p.stack->context);
    }
    if (own != nullptr) own->kills = false;
}

// ---- interrupts ---------------------------------------------------------------------------------

/// One interrupt process at a time; those raised meanwhile follow in order.
void WorldImpl::runInterrupt(Process& p)
{
    if (interruptNow != nullptr) {
        interruptsHeld.push_back(&p);
        return;
    }
    Process* const interrupted = here.current;
    interruptsHeld.push_back(&p);
    while (!interruptsHeld.empty()) {
        countSpin();
        if (abortRun) break;                     // they follow the next one that is raised
        Process& next = *interruptsHeld.front();
        interruptsHeld.erase(interruptsHeld.begin());
        interruptNow = &next;
        const ActAs scope(&next);
        try {
            next.entry();
        } catch (const Unwind&) {
        } catch (...) {
            interruptNow = nullptr;
            throw;
        }
        interruptNow = nullptr;
        if (next.dead) dispose(next);
    }
    if (interrupted == nullptr) return;
    if (interrupted->dead && !interrupted->unwinding) unwind(*interrupted);
    preempt();
}

// ---- events -------------------------------------------------------------------------------------

/// Work of the host, on the stack of who called run: what it throws leaves the run.
template <typename Call>
void WorldImpl::guarded(Call&& work)
{
    try {
        work();
    } catch (...) {
        failure = std::current_exception();
    }
}

void WorldImpl::runAction(Action& action)
{
    ++action.generation;
    const bool before = std::exchange(inAction, true);
    guarded(action.run);
    inAction = before;
    action.run.clear();
    freeActions.push_back(static_cast<u32>(reinterpret_cast<std::uintptr_t>(action.event.owner)));
}

void WorldImpl::runEvent(Event& event)
{
    switch (event.kind) {
    case EventKind::Action: runAction(actions[reinterpret_cast<std::uintptr_t>(event.owner)]); return;
    case EventKind::Timer: {
        Timer& t = *static_cast<Timer*>(event.owner);
        t.owner->system->expire(t);
        return;
    }
    case EventKind::Wait: makeReady(*static_cast<Process*>(event.owner)); return;
    case EventKind::Period: {
        Process& p = *static_cast<Process*>(event.owner);
        events.push(event, later(p.period));
        note(p);
        guarded([this, &p] { runInterrupt(p); });
        return;
    }
    }
}

/// One event, or the news that the run can't go on. Called when no process is ready.
Step WorldImpl::step()
{
    if (abortRun || failure) return Step::Ended;
    if (events.nextDue() > now) {   // everything of this instant is done
        if (stopRequested.load(std::memory_order_relaxed)) return Step::Ended;
        if (done != nullptr) {
            guarded([this] { doneAnswer = (*done)(); });
            if (doneAnswer || failure) return Step::Ended;
        }
        if (hasPosted.load(std::memory_order_acquire)) return Step::Posted;
        const Time due = events.nextDue();
        if (due > horizon || due == FOREVER) {
            if (due == FOREVER && pace == 0.0 && (endWhenIdle || horizon == FOREVER)) return Step::Ended;
            if (pace > 0.0 && !waitForWallClock(horizon)) return hasPosted ? Step::Posted : Step::Ended;
            now = horizon;
            spins = 0;
            return Step::Ended;
        }
        if (pace > 0.0 && !waitForWallClock(due)) return hasPosted ? Step::Posted : Step::Ended;
        now = due;
        spins = 0;
    }
    countSpin();
    if (abortRun) return Step::Ended;
    runEvent(events.pop());
    return Step::Ran;
}

/// True when `doneFunction` ended it.
bool WorldImpl::run(Time until, const std::function<bool()>* doneFunction)
{
    const Time horizonBefore = horizon;
    const std::function<bool()>* const doneBefore = done;
    const bool answerBefore = doneAnswer;
    horizon = std::max(until, now);
    done = doneFunction;
    doneAnswer = false;
    spins = 0;
    if (runDepth++ == 0) {
        stayHome();
        keepPace();
    }
    while (!abortRun && !failure) {
        if (Process* const p = ready.pop()) {
            switchTo(p->stack->context);
            continue;
        }
        const Step what = step();
        if (what == Step::Posted) runPosted();
        else if (what == Step::Ended) break;
    }
    cutShort = std::exchange(abortRun, false) || stopRequested;
    if (--runDepth == 0) {
        stopRequested = false;
        ranLastAt = std::chrono::steady_clock::now();
    }
    horizon = horizonBefore;
    done = doneBefore;
    const bool answer = std::exchange(doneAnswer, answerBefore);
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
    return answer;
}

// ---- progress -----------------------------------------------------------------------------------

/// Remembers for a report of no progress that `p` ran.
void WorldImpl::note(const Process& p)
{
    ranLast[ranNext] = p.pid;
    ranLastSystem[ranNext] = p.system;
    ranNext = (ranNext + 1) % static_cast<u32>(ranLast.size());
}

/// Counts an event or a received signal at this instant.
void WorldImpl::countSpin()
{
    if (++spins > spinLimit) spinReport();
}

/// Counts a call that may be all that a process does; a run without progress ends before it goes on.
void WorldImpl::countCall(Process& self)
{
    note(self);
    countSpin();
    if (!abortRun || self.unwinding) return;
    if (self.interrupt()) throw Unwind{};
    preempt();
}

void WorldImpl::spinReport()
{
    spins = 0;
    abortRun = true;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < ranLast.size(); ++i) {
        if (ranLastSystem[i] == nullptr) continue;
        const Process* p = ranLastSystem[i]->process(ranLast[i]);
        if (p == nullptr) continue;
        const std::string name = nameForReport(p);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    Misuse m;
    m.what = "no progress";
    for (const std::string& name : names) m.process += (m.process.empty() ? "" : ", ") + name;
    if (names.empty()) m.process = "world events";
    m.place = "t=" + std::to_string(now / MS) + " ms";
    misuse(std::move(m));
}

// ---- wall-clock time ----------------------------------------------------------------------------

void WorldImpl::rebasePace()
{
    paceVirtual = now;
    paceWall = std::chrono::steady_clock::now();
}

/// A run goes on with the pace of the one before, so that what a busy host made late is caught up. Who lets
/// the world stand for longer begins anew.
void WorldImpl::keepPace()
{
    constexpr auto STANDS = std::chrono::milliseconds(500);
    if (std::chrono::steady_clock::now() - ranLastAt > STANDS) rebasePace();
}

/// Waits for the wall-clock time of `until`. False, with the time moved to what it is by then, when
/// the host has something to say first.
bool WorldImpl::waitForWallClock(Time until)
{
    using Clock = std::chrono::steady_clock;
    const auto woken = [this] { return !posted.empty() || stopRequested; };
    std::unique_lock lock(postMutex);
    if (until == FOREVER) {
        postArrived.wait(lock, woken);
    } else {
        const double wall_ns = static_cast<double>(until - paceVirtual) / 1e3 / pace;
        const auto due = paceWall + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double, std::nano>(wall_ns));
        // What is late isn't waited for: on a busy host the call alone costs more than an event.
        const bool isLate = Clock::now() >= due && !woken();
        if (isLate || !postArrived.wait_until(lock, due, woken)) return true;
    }
    const double passed_ns = std::chrono::duration<double, std::nano>(Clock::now() - paceWall).count();
    const Time wallNow = paceVirtual + static_cast<Time>(passed_ns * 1e3 * pace);
    const Time reached = std::clamp(wallNow, now, until);
    if (reached > now) spins = 0;
    now = reached;
    return false;
}

void WorldImpl::runPosted()
{
    std::vector<std::function<void()>> work;
    {
        const std::scoped_lock lock(postMutex);
        work.swap(posted);
        hasPosted.store(false, std::memory_order_release);
    }
    for (const std::function<void()>& item : work) {
        countSpin();
        guarded(item);
    }
}

}  // namespace ose
