// manager.h - A manager process of the test's: it hands each signal to the code under test, or runs a body of
// the test's in its context. And the program around it, when the node has none of its own.
#pragma once
#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/world.h"

#include <functional>
#include <span>

namespace bench {

struct RunBody {
    SIGSELECT sigNo;
    u32 reserved;
    const std::function<void()>* body;
};
constexpr SIGSELECT RUN_BODY = 0x7F000001;

/// Serves for ever. `dispatch` says whether it kept the signal.
template <typename Dispatch>
[[noreturn]] void serve(Dispatch dispatch)
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        bool kept = false;
        if (sig->sigNo == RUN_BODY) (*reinterpret_cast<RunBody*>(sig)->body)();
        else                        kept = dispatch(sig);
        if (!kept) ose::free_buf(&sig);
    }
}
/// A process that throws away what it gets.
inline void serveNothing()
{
    serve([](Signal*) { return false; });
}

template <typename T>
std::span<const std::byte> asBytes(const T& layout, std::size_t size = sizeof(T))
{
    return std::as_bytes(std::span<const T, 1>(&layout, 1)).first(size);
}
/// A signal from nobody in particular, taken at this instant.
template <typename T>
void injectInto(ose::System& system, PROCESS to, const T& layout, PROCESS from = 0)
{
    system.inject(asBytes(layout), to, from);
    system.world().runUntil(system.world().now());
}
/// Runs a body in a serving process, at this instant.
inline void runIn(ose::System& system, PROCESS manager, const std::function<void()>& body)
{
    injectInto(system, manager, RunBody{RUN_BODY, 0, &body});
}

/// For the main process of a bench's program.
[[noreturn]] inline void waitForEver()
{
    constexpr SIGSELECT NEVER[] = {1, 1};
    for (;;) ose::receive(NEVER);
}
/// The programs of benches differ by their main process alone.
inline ose::Program programOf(const char* name, void (*main)())
{
    static constexpr ose::ConfigLine CONFIG[] = {{"OSE_LM_POOL_SIZE", "300000"},
                                                 {"OSE_LM_MAIN_NAME", "main"},
                                                 {"OSE_LM_MAIN_PRIORITY", "30"}};
    return {name, main, CONFIG};
}

}  // namespace bench
