#include "sim/node/sync_group.h"

#include "sig/tuiif_sig.h"

#include <tuple>

namespace sim {

namespace {

constexpr u16 OWN_REFERENCE = 1;           // the node's own clock as a candidate
constexpr u16 NO_REFERENCE = 0;

bool isLocked(u8 clockState)
{
    return clockState == KVD_TUIIF_FREQUENCY_LOCKED || clockState == KVD_TUIIF_TIME_OFFSET_LOCKED
           || clockState == KVD_TUIIF_RNT_TIME_LOCKED;
}

bool isBetter(const SyncProvider& a, const SyncProvider& b)
{
    return std::tie(a.priority, a.hops, a.neighbour) < std::tie(b.priority, b.hops, b.neighbour);
}

}  // namespace

void SyncGroup::onOwnTime(const KvdNgpduhifTimeDataInd& data, ose::Time now) { own_ = Own{data, now}; }

void SyncGroup::onNeighbour(const KvdNgpduhifReceiveBcmDataInd& data, ose::Time now)
{
    heard_[data.connectionRef] = {data, now};
}

void SyncGroup::forgetConnection(u32 connectionRef) { heard_.erase(connectionRef); }

std::optional<SyncProvider> SyncGroup::ownOffer(ose::Time now, ose::Time lasts) const
{
    if (!own_ || now - own_->at > lasts || !isLocked(own_->data.clockState)) return std::nullopt;
    const KvdNgpduhifTimeDataInd& d = own_->data;
    return SyncProvider{nodeIdentifier_, priority_, OWN_REFERENCE, d.clockState,    0,
                        0,               d.eSfc,    d.mfn,         d.sfn,           d.cbfnJumpInd,
                        d.dataRTOSeconds, d.dataRTONanoseconds};
}

std::optional<SyncProvider> SyncGroup::provider(ose::Time now, ose::Time lasts) const
{
    std::optional<SyncProvider> best = ownOffer(now, lasts);
    for (const auto& [connection, heard] : heard_) {
        const KvdNgpduhifReceiveBcmDataInd& d = heard.data;
        if (now - heard.at > lasts || d.nodeGroupSyncRefSelected == NO_REFERENCE) continue;
        const SyncProvider offer{d.ngsmNodeIdentifier,
                                 d.syncProviderNodePriority,
                                 d.nodeGroupSyncRefSelected,
                                 d.syncProviderSyncState,
                                 d.syncProviderTimeAccuracy,
                                 static_cast<u16>(d.hopCounter + 1),
                                 d.esfc,
                                 d.mfn,
                                 0,
                                 d.syncProviderBfnJumpIndication,
                                 d.dataRTOSeconds,
                                 d.dataRTONanoseconds};
        if (offer.hops > SYNC_GROUP_HOPS_MAX) continue;
        if (!best || isBetter(offer, *best)) best = offer;
    }
    return best;
}

KvdNgpduhifSendBcmDataInd SyncGroup::broadcast(ose::Time now, ose::Time lasts) const
{
    KvdNgpduhifSendBcmDataInd ind{};
    ind.sigNo = KVD_NGPDUHIF_SEND_BCM_DATA_IND;
    ind.syncNodePriority = priority_;
    ind.syncRefCandidate = ownOffer(now, lasts) ? OWN_REFERENCE : NO_REFERENCE;
    ind.syncProviderSelectedReference = NO_REFERENCE;
    ind.dataValid = 1;
    const std::optional<SyncProvider> p = provider(now, lasts);
    if (!p) return ind;
    ind.lockedTo = static_cast<u16>(p->neighbour);
    ind.syncProviderNodePriority = p->priority;
    ind.syncProviderSelectedReference = p->reference;
    ind.syncProviderSyncState = p->state;
    ind.translateSyncState = p->hops == 0 ? 1 : 0;
    ind.syncProviderTimeAccuracy = p->accuracy;
    ind.hopCounter = p->hops;
    ind.esfc = p->esfc;
    ind.mfn = p->mfn;
    ind.sfn = p->sfn;
    ind.syncProviderCbfnJumpIndication = p->jump;
    ind.realTimeOffsetSeconds = p->offsetSeconds;
    ind.realTimeOffsetNanoSeconds = p->offsetNanoseconds;
    return ind;
}

}  // namespace sim
