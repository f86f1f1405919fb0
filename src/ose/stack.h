// stack.h - Private to the kernel: the stacks that processes run on, and the switch between them.
#pragma once
#include "ose/types.h"

#include <cstddef>
#include <memory>

namespace ose {

struct Process;

/// Where a flow of control stands while another one has the host thread.
class Context {
public:
    /// That of who runs the world.
    Context() = default;
    /// Begins with `entry(argument)`, which never returns, on the stack from `low` on.
    Context(std::byte* low, std::size_t size, void (*entry)(void*), void* argument);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Called on the one that runs now: it goes on when somebody switches back to it.
    void switchTo(Context& to);

private:
    /// What the C++ run-time keeps by host thread (Itanium C++ ABI, 2.2.2): exceptions being handled and
    /// in flight belong to the stack that they are on.
    struct Exceptions {
        void* caught = nullptr;
        unsigned uncaught = 0;
    };
    struct Start;
    void arriveFrom(Context& from, void* at, void* fakeStack);

    void* at_ = nullptr;
    Exceptions exceptions_;
    const void* low_ = nullptr;        // for the sanitizers
    std::size_t size_ = 0;
    void* fibre_ = nullptr;
    void (*entry_)(void*) = nullptr;
    void* argument_ = nullptr;
};

/// Memory with a guard below it. Touching that ends the host process with the name of who ran there.
class Stack {
public:
    static constexpr std::size_t SIZE = 1024 * 1024;       // touched pages alone take memory
    static constexpr std::size_t SIZE_MIN = 16 * 1024;     // below that not even a printf fits
    static constexpr std::size_t GUARD = 64 * 1024;        // a single frame doesn't leap over it

    /// nullptr when the host has no room for it.
    static std::unique_ptr<Stack> make(std::size_t size, void (*entry)(void* stack));
    ~Stack();
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    std::size_t size() const { return size_; }
    /// How much of it has ever been used, by whichever process, in whole pages.
    std::size_t used() const;
    bool guards(const void* address) const;
    /// Below all that a call on it may use.
    const void* lowest() const { return memory_; }

    Context context;
    Process* process = nullptr;        // nullptr: idle
    Context* killer = nullptr;         // waits for the unwinding of the process
    bool kills = false;                // waits for the unwinding of another

private:
    Stack(std::byte* memory, std::size_t size, void (*entry)(void*));
    std::byte* const memory_;          // the guard, then the stack
    const std::size_t size_;
};

/// The calling host thread tells whose stack has overflowed.
void watchForOverflow();

}  // namespace ose
