// msi_server.h - The node's persistent memory (MSI): named regions that outlive the program and a
// reset of the board, and are gone after a power loss.
#pragma once
#include "node/msi_sig.h"
#include "sim/node/server.h"

#include <set>
#include <span>

namespace sim {

struct MsiRegion {
    std::string name;
    u32 address = 0;
    u32 clientRef = 0;
    PROCESS client = 0;                      // who allocated it last, and is told of its writes
    std::vector<u8> bytes;
};

class MsiServer : public Server {
public:
    explicit MsiServer(Node& node);

    // ---- script, beside Server's answers. Reject and Suspend refuse negotiation, allocation and
    // ---- writes; Silent takes them and tells nothing; delay_ms makes all answers late.
    u32 highestPv = 5;
    u32 rejectReason = 17;
    u32 suspendReason = 18;
    std::set<std::string> refusedRegions;    // by name: their allocation is rejected
    u32 room = 4096;                         // bytes for all regions together
    /// Turns the bits of `mask` in one byte of a region; false when there is no such byte.
    bool flip(const std::string& region, u32 byte, u8 mask = 1);
    void losePower() { regions_.clear(); }

    /// nullptr when it was never allocated since the power came.
    const MsiRegion* region(const std::string& name) const;
    /// Content from outside; the region comes into being when it isn't there.
    void put(const std::string& region, std::span<const u8> bytes);

    // ---- the service's plain calls, from a process of the program -------------------------------
    int state() const;
    int read(u32 address, u8* bytes, std::size_t count);
    int write(u32 address, const u8* bytes, std::size_t count);

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void negotiate(const TarsoMsiInitiateServiceReq& req, PROCESS from);
    void allocate(const node::MsiRequest& request, PROCESS from);
    MsiRegion& regionFor(const std::string& name);
    /// The region that holds these bytes, and where; nullptr when none does.
    MsiRegion* find(u32 address, std::size_t count, std::size_t& offset);
    u32 refusal() const;                     // reason by which everything is refused now, else 0

    std::vector<MsiRegion> regions_;
};

}  // namespace sim
