// status_client.h - `tu status` and `tu wait`: at the other end of a run's status socket.
#pragma once
#include <optional>
#include <string>

namespace app {

struct StatusQuery {
    std::string socket;
    std::string unit;        // "" for all, or for the first
    bool json = false;
    bool watch = false;      // on until the run ends
};
/// Prints. Throws StatusError for a socket that nobody serves or that says something else.
int printStatus(const StatusQuery& query);

struct WaitQuery {
    std::string socket;
    std::string unit;
    std::string state;                     // a clock state's name
    std::optional<double>
        within_ns;   // three deviations of the unit's own estimate of time, its offset with them
    std::optional<double> timeout_s;       // of wall-clock time
};
/// 0 when it came to that, 1 when the time is over or the run ended before. Throws StatusError.
int waitForState(const WaitQuery& query);

/// "1 us", "250ns", "2 ms", "1s" in ns; nothing for anything else.
std::optional<double> parseTime_ns(const std::string& text);

}  // namespace app
