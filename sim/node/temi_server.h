// temi_server.h - The node's test service: tells the restart type, drives the start-up tests, takes
// failure reports.
#pragma once
#include "sim/node/server.h"

#include <vector>

namespace sim {

struct TestResult {
    ose::Time at = 0;
    u32 testNumber = 0;
    u32 result = 0;                    // 0 passed, 2 failed
    bool last = false;
    bool atRuntime = false;            // a report outside of the start-up sequence
    std::string name;
    std::string message;
};

class TemiServer : public Server {
public:
    explicit TemiServer(Node& node);

    u32 restartType = 0;               // told at the next start-up sequence

    /// The program was loaded anew: its next connection begins with the start-up sequence.
    void programStarted(u32 type);
    const std::vector<TestResult>& results() const { return results_; }
    std::size_t failures() const;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void sendDoTest(PROCESS to);

    bool startUp_ = false;             // the sequence is due or running
    std::string client_;
    std::vector<TestResult> results_;
};

}  // namespace sim
