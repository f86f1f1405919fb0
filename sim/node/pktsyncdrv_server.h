// pktsyncdrv_server.h - The node's packet driver, "PktsyncDrvServer": stamps the messages of the syncrefs
// that it was told of, and hands the stamps of those that left.
#pragma once
#include "node/pktsyncdrv_sig.h"
#include "sim/board/board.h"
#include "sim/node/server.h"

#include <array>

namespace sim {

class PktsyncDrvServer : public Server {
public:
    explicit PktsyncDrvServer(Node& node);

    // The script, beside setAnswer and delay_ms.
    u32 selectedPv = 1;
    bool confirms = true;              // or leaves requests unanswered
    double stampDelay_ms = 0.05;       // from a message's leaving to its stamp
    double lostStamps = 0;             // share
    u32 doubledStamps = 0;             // the next so many come twice

    void start() override;
    void die() override;

    /// A message with this metadata has left.
    void sent(const std::array<u8, 8>& metadata, const PacketTime& stamp);
    /// By froId and by the syncref that messages name.
    using Syncrefs = std::map<std::pair<u32, u32>, PktsyncDrvRef>;
    const Syncrefs& syncrefs() const { return syncrefs_; }
    u32 stamps() const { return stamps_; }           // handed up

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    PROCESS client_ = 0;
    Syncrefs syncrefs_;
    u32 stamps_ = 0;
    u64 seen_ = 0;
};

}  // namespace sim
