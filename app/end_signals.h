// end_signals.h - Ctrl-C, SIGTERM and a terminal that is closed end a run in good order: what it has recorded
// is written. The second one ends the process at once.
#pragma once
#include <thread>

namespace app {

/// While it lives; before other threads are started, which inherit what is blocked here.
class EndSignals {
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

private:
    std::jthread watcher_;
};

/// Number of the signal that came, 0 for none.
int endSignal();

}  // namespace app
