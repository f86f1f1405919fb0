// error_log.h - The node's error log (ELGI).
#pragma once
#include "sim/node/server.h"

#include <functional>
#include <vector>

namespace sim {

struct ErrorLogEntry {
    ose::Time at = 0;
    std::string code;                  // three characters
    std::string text;
    u32 severity = 0;
};

class ErrorLog : public Server {
public:
    explicit ErrorLog(Node& node);

    u8 status = 0;                     // in the answers: 0 written

    /// The service's plain call, from a process of the program. 0 taken; the answer follows by
    /// signal.
    int write(const char* code, u32 severity, u32 count, const char* text, u32 last);

    const std::vector<ErrorLogEntry>& entries() const { return entries_; }
    std::size_t count(const std::string& code) const;
    void onEntry(std::function<void(const ErrorLogEntry&)> observer) { observer_ = std::move(observer); }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    std::vector<ErrorLogEntry> entries_;
    std::function<void(const ErrorLogEntry&)> observer_;
};

}  // namespace sim
