// scheduler.cpp - Who runs next: the baton, the event loop, interrupts, virtual and wall time.
//
// Each prioritised process has a host thread while it lives, but only the thread with the baton
// runs. A process that blocks keeps the baton and works through the events itself until another
// process is ready; when the run is over the baton goes back to the thread that called run.
#include "ose/kernel.h"

#include <algorithm>
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
    explicit ActAs(Process* p) : before_(here.current), dataBefore_(detail::programData)
    {
        actAs(p);
    }
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

// ---- the baton ----------------------------------------------------------------------------------

void WorldImpl::makeReady(Process& p)
{
    p.state = RunState::Ready;
    ready.pushBack(p);
}

Baton& WorldImpl::ownBaton()
{
    return here.worker != nullptr && here.worker->world == this ? here.worker->baton : outside;
}

Worker& WorldImpl::idleWorker()
{
    if (!idle.empty()) {
        Worker* w = idle.back();
        idle.pop_back();
        return *w;
    }
    workers.push_back(std::make_unique<Worker>());
    Worker& w = *workers.back();
    w.world = this;
    w.thread = std::thread([this, &w] { workerMain(w); });
    return w;
}

void WorldImpl::giveTo(Process& p)
{
    if (p.worker == nullptr) {
        p.worker = &idleWorker();
        p.worker->process = &p;
    }
    p.worker->baton.give();
}

/// For a thread that has nothing to run any more.
void WorldImpl::passBaton()
{
    Process* next = abortRun || failure ? nullptr : ready.pop();
    if (next != nullptr) giveTo(*next);
    else outside.give();
}

void WorldImpl::workerMain(Worker& w)
{
    here.worker = &w;
    for (;;) {
        w.baton.take();
        if (w.quit) return;
        Process& p = *w.process;
        if (!p.dead) {
            p.state = RunState::Running;
            actAs(&p);
            try {
                if (p.body) p.body();
                else p.entry();
                p.returned = true;
            } catch (const Unwind&) {
            } catch (...) {
                failure = std::current_exception();
            }
        }
        leave(w, p);
    }
}

/// The process on this thread is over: the thread is free for another one.
void WorldImpl::leave(Worker& w, Process& p)
{
    actAs(nullptr);
    Baton* back = w.returnTo;
    w.returnTo = nullptr;
    w.process = nullptr;
    p.worker = nullptr;
    if (back == nullptr) {
        if (p.dead) dispose(p);
        else kill(p);
    }
    idle.push_back(&w);
    if (back != nullptr) back->give();
    else passBaton();
}

/// Lets everything else go on until `self` is ready and the first to run. Its state says what it
/// waits for.
void WorldImpl::park(Process& self)
{
    Worker& w = *self.worker;
    actAs(nullptr);
    for (;;) {
        if (abortRun || failure) {
            outside.give();
            w.baton.take();
            break;
        }
        if (Process* next = ready.pop()) {
            if (next == &self) break;
            giveTo(*next);
            w.baton.take();
            break;
        }
        if (step() != Step::Ran) {
            outside.give();
            w.baton.take();
            break;
        }
        if (self.dead) break;   // killed by an event that ran on its own thread
    }
    self.state = RunState::Running;
    actAs(&self);
    if (self.dead) unwind(self);
}

/// Strict priority: the caller goes on only when nothing before it is ready.
void WorldImpl::preempt()
{
    Process* self = here.current;
    if (self == nullptr || interruptNow != nullptr || self->unwinding) return;
    if (ready.highest() >= self->priority) return;
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

/// Takes a killed process's thread out of the kernel call that it waits in.
void WorldImpl::unwindThread(Process& p)
{
    Baton& own = ownBaton();
    p.worker->returnTo = &own;
    p.worker->baton.give();
    own.take();
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

void WorldImpl::runAction(Action& action)
{
    const std::function<void()> run = std::move(action.run);
    action.run = nullptr;
    ++action.generation;
    freeActions.push_back(static_cast<u32>(reinterpret_cast<std::uintptr_t>(action.event.owner)));
    const bool before = inAction;
    inAction = true;
    try {
        const ActAs scope(nullptr);
        run();
    } catch (...) {
        failure = std::current_exception();
    }
    inAction = before;
}

void WorldImpl::runEvent(Event& event)
{
    switch (event.kind) {
    case EventKind::Action:
        runAction(actions[reinterpret_cast<std::uintptr_t>(event.owner)]);
        return;
    case EventKind::Timer: {
        Timer& t = *static_cast<Timer*>(event.owner);
        t.owner->system->expire(t);
        return;
    }
    case EventKind::Wait:
        makeReady(*static_cast<Process*>(event.owner));
        return;
    case EventKind::Period: {
        Process& p = *static_cast<Process*>(event.owner);
        events.push(event, now + p.period);
        note(p);
        try {
            runInterrupt(p);
        } catch (...) {
            failure = std::current_exception();
        }
        return;
    }
    }
}

/// One event, or the news that this thread can't go on. Called when no process is ready.
Step WorldImpl::step()
{
    if (abortRun || failure) return Step::Ended;
    if (events.nextDue() > now) {   // everything of this instant is done
        if (stopRequested.load(std::memory_order_relaxed)) return Step::Ended;
        if (done != nullptr) {
            const ActAs scope(nullptr);
            doneAnswer = (*done)();
            if (doneAnswer) return Step::Ended;
        }
        if (hasPosted.load(std::memory_order_acquire)) return Step::Posted;
        const Time due = events.nextDue();
        if (due > horizon || due == FOREVER) {
            if (due == FOREVER && pace == 0.0 && (endWhenIdle || horizon == FOREVER))
                return Step::Ended;
            if (pace > 0.0 && !waitForWallClock(horizon))
                return hasPosted ? Step::Posted : Step::Ended;
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
        stopRequested = false;
        rebasePace();
    }
    while (!abortRun && !failure) {
        if (Process* next = ready.pop()) {
            giveTo(*next);
            outside.take();
            continue;
        }
        const Step what = step();
        if (what == Step::Posted) runPosted();
        else if (what == Step::Ended) break;
    }
    --runDepth;
    aborted = std::exchange(abortRun, false);
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
        if (!postArrived.wait_until(lock, due, woken)) return true;
    }
    const double passed_ns =
        std::chrono::duration<double, std::nano>(Clock::now() - paceWall).count();
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
        try {
            item();
        } catch (...) {
            failure = std::current_exception();
        }
    }
}

}  // namespace ose
