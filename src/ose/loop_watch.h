// loop_watch.h - A process that computes on and on without the kernel keeps everybody else from running,
// virtual
// time too. The host tells: each thread that runs a world has a timer of the CPU time that it has used.
#pragma once

namespace ose {

/// CPU time in one process after which the host process ends, with the name of that process in one line on
/// standard error: at the second look at the latest. No work of the product's takes a thousandth of it.
constexpr long LOOP_LIMIT_ms = 20'000;

/// Watches the calling thread from now on, until it ends. The first call of a thread sets its limit.
void watchForLoops(long limit_ms = LOOP_LIMIT_ms);

}  // namespace ose
