// kernel.h - Private to the kernel: what stands behind the handles of ose.h and world.h.
//
// Everything of a world is touched only by the host thread that runs it, so nothing here is locked
// but the list of posted work.
#pragma once
#include "ose/event_queue.h"
#include "ose/module_data.h"
#include "ose/pool.h"
#include "ose/stack.h"
#include "ose/world.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>

namespace ose {

using SystemImpl = System::Impl;
using BlockImpl = Block::Impl;

constexpr u32 PRIORITIES = 32;
constexpr u32 TIMERS_MAX = 256;             // a system
constexpr SIGSELECT ATTACH_SIGNAL = 252;    // comes back from an attach without a signal of its own
constexpr u32 TICK_US = 1000;
constexpr Time FOREVER = INT64_MAX;

/// Unwinds the stack of a process that is gone; leaves a kernel call, caught where the process
/// began.
struct Unwind {};

struct Process;

/// A process of another system as this system sees it.
struct Proxy {
    PROCESS pid = 0;
    SystemImpl* system = nullptr;   // where the proxy lives
    Process* remote = nullptr;
    std::string name;               // "link/process"
};

enum class RunState : u8 { Created, Ready, Running, Receiving, Delaying };

struct Process {
    PROCESS pid = 0;
    SystemImpl* system = nullptr;
    BlockImpl* block = nullptr;         // nullptr: the node's own
    std::string name;
    u32 kind = KIND_PRIORITISED;
    u32 priority = 0;
    Time period = 0;
    u32 vector = 0;
    Entry entry = nullptr;
    std::function<void()> body;         // instead of entry for spawned processes and calls
    RunState state = RunState::Created;
    bool dead = false;                  // no longer to be found; its stack may have to be unwound yet
    bool returned = false;              // came back from its entry
    bool endedByProgram = false;        // by kill_proc
    bool unwinding = false;
    const SIGSELECT* selection = nullptr;
    Buffer* first = nullptr;            // signals queued
    Buffer* last = nullptr;
    Event wait;                         // time-out, delay or next period
    Process* nextReady = nullptr;
    Process* prevReady = nullptr;
    Stack* stack = nullptr;             // from its start on, when prioritised
    u32 timers = 0;                     // that run
    const void* frame = nullptr;        // stack depth of the kernel call that it waits in
    std::vector<Proxy*> proxies;        // its stand-ins in other systems

    bool interrupt() const { return kind != KIND_PRIORITISED; }
    std::byte* data() const;
};

/// First in, first out for each priority.
class ReadyList {
public:
    u32 highest() const { return mask_ == 0 ? PRIORITIES : static_cast<u32>(__builtin_ctz(mask_)); }
    void pushBack(Process& p);
    void pushFront(Process& p);
    void remove(Process& p);
    Process* pop();

private:
    u32 mask_ = 0;
    std::array<Process*, PRIORITIES> first_{};
    std::array<Process*, PRIORITIES> last_{};
};

/// What the calling host thread does for a world at this moment.
struct Here {
    Stack* stack = nullptr;           // that it is on, nullptr for the thread's own
    Process* current = nullptr;       // running (interrupt) process, nullptr in world events
    System* scope = nullptr;          // system of a DataScope
    u64 switches = 0;                 // from one stack to another, for the watch of loops
};
extern constinit thread_local Here here;

/// Work that World::at was given.
struct Action {
    Event event;
    u32 generation = 1;
    Work run;
};

enum class Step : u8 {
    Ran,      // one event
    Posted,   // the host has handed in work, which runs on the thread that called run
    Ended,    // this run is over
};

struct WorldImpl {
    WorldImpl(World& w, u64 s) : world(w), seed(s) {}
    ~WorldImpl();

    World& world;
    u64 seed;
    Time now = 0;
    EventQueue events;
    ReadyList ready;
    std::deque<Action> actions;
    std::vector<u32> freeActions;
    std::vector<std::unique_ptr<System>> systems;
    std::function<void(const Misuse&)> misuseHandler;

    // stacks
    const Here* home = nullptr;       // the host thread that runs it
    Context outside;                  // who called run
    std::vector<std::unique_ptr<Stack>> stacks;
    std::vector<Stack*> idle;
    std::size_t stackSize = Stack::SIZE;
    StackUse largestUse;

    // the present run
    Time horizon = 0;
    const std::function<bool()>* done = nullptr;
    bool doneAnswer = false;
    u32 runDepth = 0;
    bool inAction = false;
    bool abortRun = false;            // no progress
    bool cutShort = false;            // how the last run ended: by stop or for want of progress
    bool endWhenIdle = false;         // with no event pending, not at the horizon
    std::atomic<bool> stopRequested{false};
    std::exception_ptr failure;       // escaped from an action or a process

    // interrupts
    Process* interruptNow = nullptr;
    std::vector<Process*> interruptsHeld;

    // progress
    u32 spinLimit = 1'000'000;
    u32 spins = 0;
    std::array<PROCESS, 8> ranLast{};
    std::array<SystemImpl*, 8> ranLastSystem{};
    u32 ranNext = 0;

    // pace and posted work
    double pace = 0.0;
    Time paceVirtual = 0;
    std::chrono::steady_clock::time_point paceWall;
    std::chrono::steady_clock::time_point ranLastAt;   // end of the last run
    std::mutex postMutex;
    std::condition_variable postArrived;
    std::vector<std::function<void()>> posted;
    std::atomic<bool> hasPosted{false};

    // scheduler.cpp
    bool run(Time until, const std::function<bool()>* doneFunction);
    Step step();
    void runEvent(Event& event);
    void runAction(Action& action);
    void runPosted();
    void rebasePace();
    void keepPace();
    bool waitForWallClock(Time until);
    Stack* takeStack();
    void noteUse(const Stack& s, const Process& p);
    void stayHome();
    void switchTo(Context& to);
    Context& next();
    static void onStack(void* idleStack);
    Context& leave(Stack& s, Process& p);
    void park(Process& self);
    void makeReady(Process& p);
    void preempt();
    void runInterrupt(Process& p);
    void unwindStack(Process& p);
    void note(const Process& p);
    void countSpin();
    void countCall(Process& self);
    template <typename Call>
    void guarded(Call&& work);
    void spinReport();

    // world.cpp
    EventId at(Time when, Work&& action);
    int cancel(EventId& id);
    void misuse(Misuse m);
    /// That long from now; never, when the world doesn't last so long.
    Time later(Time span) const { return span > FOREVER - now ? FOREVER : now + span; }
    Time later(OSTIME span) const { return later(static_cast<Time>(span) * MS); }

    // process.cpp
    void kill(Process& p);
    void dispose(Process& p);
};

enum class SlotKind : u8 { Free, Process, Proxy, Block };

struct Slot {
    u16 generation = 1;
    SlotKind kind = SlotKind::Free;
    void* item = nullptr;
};

struct Timer {
    Event event;
    u16 generation = 1;
    Process* owner = nullptr;   // nullptr: free
    Buffer* signal = nullptr;
};

struct Hunt {
    std::string name;
    Process* hunter;
    Buffer* signal;
};

struct Attachment {
    AttachRef ref;
    Process* owner;
    PROCESS target;
    Buffer* signal;
};

struct LinkTo {
    std::string name;
    SystemImpl* to;
};

struct System::Impl {
    Impl(World& w, System& s, std::string n, u32 i);

    World& world;
    System& system;
    std::string name;
    u16 firstGeneration;
    WorldImpl& w;

    std::vector<Slot> slots;
    std::deque<u16> freeSlots;
    std::vector<Process*> processes;                 // in order of creation
    std::vector<std::unique_ptr<Proxy>> proxies;
    std::vector<std::unique_ptr<Block>> blocks;
    std::vector<Process*> vectors;                   // started interrupt processes
    std::array<Timer, TIMERS_MAX> timers;
    std::vector<u16> freeTimers;
    std::vector<Hunt> hunts;
    std::vector<Attachment> attachments;
    AttachRef lastAttach = 0;
    std::vector<LinkTo> links;
    std::vector<const SystemImpl*> cut;              // the last path there has been taken away
    std::vector<Pool*> pools;                        // of the node and of programs, ended ones too
    Pool* nodePool = nullptr;                        // unlimited
    Faults faults;
    std::function<void(std::span<const std::byte> signal)> onSend;
    std::function<void(Wait what, SIGSELECT sigNo, OSTIME time)> onWait;
    void tellWait(const Process& self, Wait what, SIGSELECT sigNo, OSTIME time) const;
    std::function<void(Block&, u32, const std::string&)> programEnd;
    void* platform = nullptr;

    ~Impl();

    // process.cpp
    u32 newSlot(SlotKind kind, void* item);
    void freeSlot(u32 id);
    const Slot* slot(u32 id) const
    {
        const u32 index = id & 0xFFFF;
        if (index == 0 || index > slots.size()) return nullptr;
        const Slot& s = slots[index - 1];
        return s.generation == id >> 16 && s.kind != SlotKind::Free ? &s : nullptr;
    }
    Process* process(PROCESS pid) const
    {
        const Slot* s = slot(pid);
        return s != nullptr && s->kind == SlotKind::Process ? static_cast<Process*>(s->item) : nullptr;
    }
    Process& create(BlockImpl* block, u32 kind, std::string processName, u32 priority);
    bool startProcess(Process& p);                   // false: refused, and reported
    PROCESS launch(BlockImpl* block, const std::string& processName, u32 priority,
                   std::function<void()> body);
    void killIn(BlockImpl& b);
    Process* findProcess(const std::string& processName) const;
    Pool& poolOf(const Process& p) const;

    // supervision.cpp
    PROCESS lookUp(const std::string& processName);
    void answerHunts();                              // those that can be answered by now
    void answerHunts(const std::string& processName);   // that may be for a process of that name
    Proxy& proxyFor(Process& remote);
    void tellAttached(PROCESS pid);
    void tell(const Attachment& a);
    void dropProxy(Proxy& proxy);
    void sendAcross(Process& from, Proxy& to, Buffer& b);
    void forgetSupervision(Process& p);

    // signals.cpp
    void deliver(Process& to, Buffer& b, PROCESS from);
    void toKernel(Buffer& b);
    Buffer& copyIn(const void* bytes, u32 size, const Place& place);

    // timers.cpp
    void expire(Timer& t);
    void dropTimers(Process& p);

    // block.cpp
    void endProgram(BlockImpl& b, u32 code, const std::string& text);
    void finishUnload(BlockImpl& b);
};

struct Block::Impl {
    BLOCK id = 0;
    std::string name;
    Block* block = nullptr;
    SystemImpl* system = nullptr;
    std::unique_ptr<Pool, PoolLeaver> pool;
    std::byte* data = nullptr;
    std::size_t dataSize = 0;
    std::map<std::string, std::string> environment;
    u32 processes = 0;
    bool ended = false;       // by itself
    bool unloading = false;

    ~Impl();
};

inline std::byte* Process::data() const { return block == nullptr ? nullptr : block->data; }

/// The calling process. Outside of any: prints what was tried and aborts, nobody is there to blame.
Process& caller(const char* operation, const Place& place);
/// Name of a process for reports.
std::string nameForReport(const Process* p);
std::string placeText(const Place& place);
/// Leaves the kernel call of a process that is gone.
[[noreturn]] void unwind(Process& p);

/// Takes the news of the death that an attach supervised out of its owner's queue.
void dropQueued(Process& self, AttachRef ref);

/// The buffer behind *sig when the calling process may use it, else nullptr, reported.
Buffer* usable(Process& self, Signal* const* sig, const char* operation, const Place& place);

}  // namespace ose
