#include "sim/node/error_log.h"

#include "node/elgi.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {
constexpr int NO_SERVER = 1;
constexpr int BUSY = 4;
constexpr int REJECTED = 5;
}  // namespace

ErrorLog::ErrorLog(Node& node) : Server(node, "TarsoElgiServer", 10) {}

int ErrorLog::write(const char* code, u32 severity, u32, const char* text, u32)
{
    if (!alive()) return NO_SERVER;
    if (answer() == Answer::Busy) return BUSY;
    if (answer() == Answer::Reject || answer() == Answer::Suspend) return REJECTED;

    entries_.push_back({node_.world().now(), code, text, severity});
    if (observer_) observer_(entries_.back());
    if (answer() == Answer::Silent) return 0;
    const PROCESS writer = ose::current_process();
    node_.after(delay_ms * ose::MS, [this, writer] {
        const TarsoElgiWrite2Rsp rsp{TARSO_ELGI_WRITE2_RSP, status};
        node_.system().inject(std::as_bytes(std::span(&rsp, 1)), writer, pid());
    });
    return 0;
}

std::size_t ErrorLog::count(const std::string& code) const
{
    return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(),
                                                  [&](const ErrorLogEntry& e) { return e.code == code; }));
}

void ErrorLog::onSignal(Signal*, PROCESS) {}   // the service is reached by plain calls

}  // namespace sim
