// sync_group.h - A simple sync group logic: which unit of a group of linked ones provides the time, as one of
// them sees it.
//
// A unit whose own clock is locked offers itself. What a neighbour tells of the provider counts as an offer
// one hop farther. The best offer is the one of the lowest priority value, then of the fewest hops, then of
// the lowest neighbour's identifier.
#pragma once
#include "node/ngpduhif.h"
#include "ose/world.h"

#include <map>
#include <optional>

namespace sim {

struct SyncGroupConfig {
    bool present = false;
    u32 nodeIdentifier = 0;            // 0: the unit's apn
    u16 priority = 128;                // the lower the better
    i64 period_ms = 1000;              // of the broadcasts
};

/// Offers with more hops than this aren't taken: what two units tell each other of a provider that is gone
/// ends here.
constexpr u16 SYNC_GROUP_HOPS_MAX = 15;
/// Periods without a broadcast after which a neighbour's word counts no more.
constexpr i64 SYNC_GROUP_LOST_PERIODS = 3;

/// The node's present provider.
struct SyncProvider {
    u32 neighbour = 0;                 // identifier of the node that told of it; the own one: itself
    u16 priority = 0;
    u16 reference = 0;
    u16 state = 0;                     // a clock state of ours when it is the node itself
    u32 accuracy = 0;
    u16 hops = 0;
    u32 esfc = 0;
    u16 mfn = 0, sfn = 0;
    u16 jump = 0;
    u32 offsetSeconds = 0, offsetNanoseconds = 0;
};

class SyncGroup {
public:
    SyncGroup(u32 nodeIdentifier, u16 priority) : nodeIdentifier_(nodeIdentifier), priority_(priority) {}

    u32 nodeIdentifier() const { return nodeIdentifier_; }
    void setPriority(u16 priority) { priority_ = priority; }

    void onOwnTime(const KvdNgpduhifTimeDataInd& data, ose::Time now);
    void onNeighbour(const KvdNgpduhifReceiveBcmDataInd& data, ose::Time now);
    void forgetConnection(u32 connectionRef);
    /// Nothing when no offer younger than `lasts` stands.
    std::optional<SyncProvider> provider(ose::Time now, ose::Time lasts) const;
    /// What the group is told of this node and its provider. References are the caller's.
    KvdNgpduhifSendBcmDataInd broadcast(ose::Time now, ose::Time lasts) const;

private:
    struct Heard {
        KvdNgpduhifReceiveBcmDataInd data;
        ose::Time at;
    };
    struct Own {
        KvdNgpduhifTimeDataInd data;
        ose::Time at;
    };
    std::optional<SyncProvider> ownOffer(ose::Time now, ose::Time lasts) const;

    u32 nodeIdentifier_;
    u16 priority_;
    std::optional<Own> own_;
    std::map<u32, Heard> heard_;       // by the connection that it came in on
};

}  // namespace sim
