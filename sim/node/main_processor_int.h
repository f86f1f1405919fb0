// main_processor_int.h - What the sources of the main processor share: the connection and what it is told
// (main_processor.cpp), orders, selection, packet references, the record of what came.
#pragma once
#include "sig/ref_types.h"
#include "sim/node/main_processor_config.h"

namespace sim {

inline bool isPacket(u8 refType) { return refType == PACKET_TIME_REF || refType == PACKET_FREQ_REF; }
inline bool isEthernet(u8 refType) { return refType >= ETHA_REF && refType <= ETHC_REF; }

inline bool same(const MpReference& a, const MpReference& b)
{
    return a.refType == b.refType && a.froId == b.froId && a.froClassNo == b.froClassNo;
}

/// The selection of none.
inline MpReference none()
{
    MpReference ref;
    ref.name = "none";
    ref.refType = NO_REF;
    ref.froId = FRO_NONE;
    ref.froClassNo = FRO_NONE;
    return ref;
}

}  // namespace sim
