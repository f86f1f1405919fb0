#include "socpri/kvd_socpri_inci_bcm.h"

#include <iterator>

namespace {

constexpr u32 MFN_MASK = 31;

/// All but the frame counter, which the revisions pack differently.
template <typename Message>
Message messageOf(SIGSELECT sigNo, const KvdNgpduhifSendBcmDataInd& data, u32 nodeIdentifier)
{
    Message m{};
    m.sigNo = sigNo;
    m.ngsmNodeIdentifier = nodeIdentifier;
    m.realTimeOffsetSeconds = data.realTimeOffsetSeconds;
    m.realTimeOffsetNanoSeconds = data.realTimeOffsetNanoSeconds;
    m.syncNodePriority = data.syncNodePriority;
    m.syncRefCandidate = data.syncRefCandidate;
    m.lockedTo = data.lockedTo;
    m.syncProviderNodePriority = data.syncProviderNodePriority;
    m.syncProviderSelectedReference = data.syncProviderSelectedReference;
    m.syncProviderSyncState = inciSyncState(data.syncProviderSyncState, data.translateSyncState);
    m.syncProviderTimeAccuracy = data.syncProviderTimeAccuracy;
    m.syncProviderCbfnJumpIndication = data.syncProviderCbfnJumpIndication != 0 ? 1 : 0;
    m.hopCounter = static_cast<u8>(data.hopCounter);
    m.ituTQualityLevel = 0;
    return m;
}

template <typename Message>
KvdNgpduhifReceiveBcmDataInd receivedOf(const Message& m, const InciOrigin& origin)
{
    KvdNgpduhifReceiveBcmDataInd data{};
    data.sigNo = KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND;
    data.connectionRef = m.connectionRef;
    data.syncNodePriority = m.syncNodePriority;
    data.syncRefCandidate = m.syncRefCandidate;
    data.lockedTo = m.lockedTo;
    data.syncProviderNodePriority = m.syncProviderNodePriority;
    data.nodeGroupSyncRefSelected = m.syncProviderSelectedReference;
    data.syncProviderSyncState = m.syncProviderSyncState;
    data.syncProviderTimeAccuracy = m.syncProviderTimeAccuracy;
    data.syncProviderBfnJumpIndication = m.syncProviderCbfnJumpIndication;
    data.hopCounter = m.hopCounter;
    data.riPortNo = origin.cpriPortNo;
    data.sharedId = origin.sharedId;
    data.dataRTOSeconds = m.realTimeOffsetSeconds;
    data.dataRTONanoseconds = m.realTimeOffsetNanoSeconds;
    data.ngsmNodeIdentifier = m.ngsmNodeIdentifier;
    data.apn = origin.apn;
    return data;
}

}  // namespace

u16 inciSyncState(u16 state, u32 translate)
{
    // From KVD_TUIIF_FREQUENCY_DRIFTING, 2, to KVD_TUIIF_RNT_TIME_HOLDOVER, 11.
    constexpr u16 FIRST = 2;
    constexpr u16 STATES[] = {1, 3, 2, 0, 0, 0, 5, 4, 7, 6};
    if (translate != 1) return state;
    const u32 row = static_cast<u32>(state) - FIRST;
    return row < std::size(STATES) ? STATES[row] : u16{0};
}

InciBroadcastMessageInd inciMessage(const KvdNgpduhifSendBcmDataInd& data, u32 nodeIdentifier)
{
    auto m = messageOf<InciBroadcastMessageInd>(PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND, data, nodeIdentifier);
    m.extendedCbfnCounter = data.mfn * 8u + data.esfc * 256u;
    return m;
}

InciBroadcastMessage2Ind inciMessage2(const KvdNgpduhifSendBcmDataInd& data, u32 nodeIdentifier)
{
    auto m = messageOf<InciBroadcastMessage2Ind>(PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND, data,
                                                 nodeIdentifier);
    m.extendedCbfnCounter = data.mfn + data.esfc * 32u;
    m.extendedCbfnBfn = data.sfn;
    return m;
}

KvdNgpduhifReceiveBcmDataInd inciReceived(const InciBroadcastMessageInd& message, const InciOrigin& origin)
{
    KvdNgpduhifReceiveBcmDataInd data = receivedOf(message, origin);
    data.esfc = message.extendedCbfnCounter >> 8;
    data.mfn = static_cast<u16>(message.extendedCbfnCounter >> 3 & MFN_MASK);
    return data;
}

KvdNgpduhifReceiveBcmDataInd inciReceived2(const InciBroadcastMessage2Ind& message, const InciOrigin& origin)
{
    KvdNgpduhifReceiveBcmDataInd data = receivedOf(message, origin);
    data.esfc = message.extendedCbfnCounter >> 5;
    data.mfn = static_cast<u16>(message.extendedCbfnCounter & MFN_MASK);
    return data;
}
