// kvd_socpri_inci_bcm.h - The broadcast's data in its forms: as the sync group logic gives and takes it, as
// it goes between units in revision 1 and 2. References of the connections are the caller's.
#pragma once
#include "node/ngpduhif.h"
#include "sig/inci_sig.h"

/// Clock state as the other unit knows it. With translate 1 it is one of ours (radioClockState), otherwise it
/// goes as it is.
u16 inciSyncState(u16 state, u32 translate);

InciBroadcastMessageInd  inciMessage(const KvdNgpduhifSendBcmDataInd& data, u32 nodeIdentifier);
InciBroadcastMessage2Ind inciMessage2(const KvdNgpduhifSendBcmDataInd& data, u32 nodeIdentifier);

/// Where a broadcast came in.
struct InciOrigin {
    u8  cpriPortNo;
    u32 sharedId;
    u32 apn;             // of this unit
};
KvdNgpduhifReceiveBcmDataInd inciReceived(const InciBroadcastMessageInd& message, const InciOrigin& origin);
KvdNgpduhifReceiveBcmDataInd inciReceived2(const InciBroadcastMessage2Ind& message, const InciOrigin& origin);
