// world.h - The kernel from outside: virtual time, systems, loaded programs, faults.
//
// A World owns virtual time and the event queue; a System is one CPU with its own process names; a
// Block is one loaded program in a system. All of a world runs on one host thread, one process at a
// time, so a run depends on its inputs alone; worlds on different threads share nothing. Code takes no
// virtual time; time moves when everything blocks.
#pragma once
#include "ose/ose.h"
#include "ose/work.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace ose {

using Time = i64;   // ps of virtual time since the world began; 106 days at most
constexpr Time PS = 1, NS = 1'000, US = 1'000'000, MS = 1'000'000'000, SEC = 1'000'000'000'000;

using EventId = u64;   // a pending event, 0 is none

/// One line of a load module's configuration.
struct ConfigLine { const char* key; const char* value; };

/// A load module: its main thread's entry and its configuration (pool size, signal sizes, main
/// name, main priority).
struct Program {
    const char* name;
    Entry main;
    std::span<const ConfigLine> config;
};

/// A misuse of the kernel, told to World's handler.
struct Misuse {
    std::string what;      // "freed twice", "not the owner", "leaked", ...
    std::string process;   // who did it
    SIGSELECT sigNo = 0;
    std::string place;     // file:line of the call, or of the allocation for a leak
    std::string origin;    // who allocated the buffer and where, when that is known
    std::string text() const;
};

/// How much of their stacks the prioritised processes of a world have used.
struct StackUse {
    u32 stacks = 0;
    std::size_t size = 0;       // of each, bytes
    std::size_t largest = 0;    // bytes, in whole pages
    std::string process;        // whose that was
    std::string text() const;
};

class System;
class Block;
struct WorldImpl;

class World {
public:
    explicit World(u64 seed = 1);
    ~World();                      // unloads everything; leaks are reported
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    u64  seed() const;
    Time now() const;
    /// When the next event is due, INT64_MAX for never: for who ties the world to a time of his own.
    Time nextDue() const;

    /// Runs `action` at `when` (not before now), outside of any process. Equal due times run in
    /// order of request. Actions may use the world and the systems, not the process operations of
    /// ose.h.
    EventId at(Time when, Work&& action);
    EventId after(Time delay, Work&& action);
    /// Takes a pending event back and clears it. Returns 1 when it had not run.
    int cancel(EventId& event);

    /// Runs until `when`; events due at `when` itself run too.
    void runUntil(Time when);
    void runFor(Time span);
    /// Runs until `done` answers true (asked at once and after each instant) or the time span
    /// `limit` has passed from now. Returns what done() answered last.
    bool runUntilTrue(const std::function<bool()>& done, Time limit);
    /// Ends the present run after the current instant; between runs, the next one after its first.
    void stop();

    /// Ties virtual to wall-clock time: 1.0 is real time, 0 is as fast as it goes (default).
    void setPace(double speed);
    /// Hands in work of the host (console, serial line) from any host thread; it runs as an event.
    void post(std::function<void()> action);

    System& createSystem(const std::string& name);
    /// In `from`, a hunt for "name/process" finds `process` in `to`.
    void link(System& from, const std::string& name, System& to);
    /// That path is gone: nothing goes from `from` over it any more, and whoever there is attached to a
    /// process behind it is told of its death. The other way is a link of its own.
    void unlink(System& from, const std::string& name);

    /// Called for each misuse. The default prints and aborts.
    void onMisuse(std::function<void(const Misuse&)> handler);
    /// More events than this at one instant stop the run with a report of who is spinning (default
    /// 1'000'000).
    void setSpinLimit(u32 events);

    /// Stack of each process started from now on, at least 16 KiB (default 1 MiB). It holds what the host's
    /// libraries need too, many times of what create_process is told.
    void setStackSize(std::size_t bytes);
    StackUse stackUse() const;

    WorldImpl& impl() { return *impl_; }

private:
    std::unique_ptr<WorldImpl> impl_;
};

/// Faults that a test or scenario injects into one system.
struct Faults {
    u32 refuseTimers = 0;                                     // so many requests answer 0
    std::vector<std::string> neverFound;                      // names that no hunt finds
    /// True: the signal is lost on its way between systems (process names at both ends; number).
    /// Asked of the sending system and of the receiving one.
    std::function<bool(const std::string& from, const std::string& to, SIGSELECT sigNo)> loseSignal;
};

/// What a process asks of the clock.
enum class Wait : u8 { TimerBegins, TimerBeginsAgain, TimerIsCancelled, Delay, Receive };

class System {
public:
    ~System();
    const std::string& name() const;
    World& world();

    /// Loads a program: builds its module data, creates and starts its main thread.
    Block& load(const Program& program);
    /// Kills all its processes, reports leaked buffers, destroys its module data and the block. A
    /// buffer is leaked when a process holds it and receives no deeper in its calls than where it got
    /// it.
    void unload(Block& block);
    /// Called, as a world event, when a program has ended by itself: error(code), or a kill of its
    /// block (code 0). Its processes are gone, the block and its module data stay until unload. The
    /// default prints.
    void onProgramEnd(std::function<void(Block& block, u32 code, const std::string& text)> handler);

    /// A process of the node's own, outside of any program; ready to run at once. Its buffers come
    /// from the node's unlimited pool. It ends when `body` returns. 0 when there is no room for its stack.
    PROCESS spawn(const std::string& name, u32 priority, std::function<void()> body);
    void kill(PROCESS pid);

    PROCESS find(const std::string& name) const;   // 0 when there is none
    bool alive(PROCESS pid) const;
    std::string nameOf(PROCESS pid) const;         // "" when it is gone

    /// A signal from outside of any process: `from` becomes its sender. The buffer is copied from
    /// `bytes` (its number in the first word). `to` may be in a linked system when `from` is alive.
    void inject(std::span<const std::byte> bytes, PROCESS to, PROCESS from);

    /// Runs the interrupt process on `vector` to completion; 0 when there is none.
    int raise(u32 vector);

    /// Runs `body` as a short-lived process of `block`'s program and waits for its end (virtual
    /// time may pass, at most a day). For tests and for the shell: between runs and in posted work,
    /// not in World::at's actions, which may stand on the stack of a process that has to answer.
    void call(Block& block, const std::function<void()>& body, u32 priority = 15,
              const std::string& name = "call");

    /// The same without waiting: works in World::at's actions too. Returns its id, 0 when the
    /// program has ended or there is no room for a stack.
    PROCESS launch(Block& block, const std::string& name, u32 priority, std::function<void()> body);

    Faults& faults();

    /// Called with each signal that a program's process sends to one outside of its program: a service of the
    /// node, the main processor, another system. It may look at it alone.
    void onSend(std::function<void(std::span<const std::byte> signal)> observer);

    /// Called as a program's process asks for a time to pass, or ends a timer before. `sigNo` is that of a
    /// timer's signal, `time` the ms that were asked for; 0 where there is none.
    void onWait(std::function<void(Wait what, SIGSELECT sigNo, OSTIME time)> observer);

    /// What the board support hangs on this system: node/platform.h finds it here.
    void setPlatform(void* platform);
    void* platform() const;

    struct Impl;
    Impl& impl() { return *impl_; }

private:
    friend class World;
    friend struct WorldImpl;
    System(World& world, const std::string& name);
    std::unique_ptr<Impl> impl_;
};

class Block {
public:
    ~Block();
    BLOCK id() const;
    const std::string& name() const;
    System& system();
    u32 poolUsed() const;        // bytes of the program's signal pool in use
    u32 poolPeak() const;
    std::size_t dataSize() const;   // bytes of module data

    struct Impl;
    Impl& impl() { return *impl_; }

private:
    friend class System;
    friend struct WorldImpl;
    Block();
    std::unique_ptr<Impl> impl_;
};

/// Lets the calling thread look at a program's module data from outside of any process (tests,
/// benchmarks): accessors work inside the scope, kernel operations don't.
class DataScope {
public:
    explicit DataScope(Block& block);
    ~DataScope();
    DataScope(const DataScope&) = delete;
    DataScope& operator=(const DataScope&) = delete;

private:
    std::byte* before_;
    System* systemBefore_;
};

/// The system of the calling process or of the DataScope that the caller is in; nullptr outside of
/// any.
System* currentSystem();

}  // namespace ose
