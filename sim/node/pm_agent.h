// pm_agent.h - The node's PM agent: pushes at each period's end, keeps what it is reported.
#pragma once
#include "node/pmai.h"
#include "sim/node/server.h"

#include <functional>
#include <vector>

namespace sim {

/// One report of one set of counters.
struct PmRecord {
    ose::Time at = 0;
    u32 seqNo = 0;
    u32 froType = 0, froId = 0;
    u32 suspectFlag = 0;
    std::vector<i32> values;
    bool ended = false;                // the unit has said that no more of it comes
};

class PmAgent : public Server {
public:
    explicit PmAgent(Node& node);

    // The script, with setAnswer and delay_ms of Server: Reject and Suspend refuse the attach,
    // Silent takes everything and says nothing.
    bool pushes = true;                // at each 300 s of the calendar; false ends it until the next
                                       // attach, push() works all the same
    bool confirms = true;              // that a record is taken

    void die() override;
    /// A period ends now; nothing while no client is attached.
    void push(u32 seqNo);

    bool attached() const { return client_ != 0; }
    /// All since the node began, oldest first.
    const std::vector<PmRecord>& records() const { return records_; }
    void onRecord(std::function<void(const PmRecord&)> observer) { onRecord_ = std::move(observer); }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onPmData(const TmvPmaiPmData& data, PROCESS from);
    void schedulePush();

    PROCESS client_ = 0;
    u32 attach_ = 0;                   // number of the present attach, for the pushes that it began
    std::vector<PmRecord> records_;
    std::function<void(const PmRecord&)> onRecord_;
};

}  // namespace sim
