// queues.h - A process's queue of signals from outside, for who watches a system.
#pragma once
#include "ose/world.h"

namespace ose {

/// Signals wait in the queue of `pid`, which leaves them there while it wants others or none.
bool leavesSignals(System& system, PROCESS pid);

}  // namespace ose
