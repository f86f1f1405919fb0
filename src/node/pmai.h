// pmai.h - Client of the node's PM agent, which collects performance counters period by period.
// A process of its own, started at the first attach, hunts for the agent, speaks with it and passes
// its pushes on to the client. The agent confirms each record that it has taken.
// Owner   the process that attaches; it alone calls these operations.
// Errors  operations answer 0 for done. An agent that rejects stays attached to and the next one to
//         come up under its name is asked again; until then there are no pushes, and records are
//         dropped.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TMV_PMAI_PUSH_IND = 0xB0101;   // agent -> client: TmvPmaiPushInd

/// A period of 300 s has ended: whoever has a period of its own that ends with it, reports.
struct TmvPmaiPushInd {
    SIGSELECT sigNo;
    u32 seqNo;             // counts the pushes
};
static_assert(sizeof(TmvPmaiPushInd) == 8);

/// The most values that one record holds.
constexpr u32 PMAI_ATTR_MAX = 16;
/// Records that the agent hasn't taken yet: with so many there is no memory for another.
constexpr u32 PMAI_RECORDS_MAX = 4;

/// One record of counters. The client fills it from froType on.
struct TmvPmaiPmData {
    SIGSELECT sigNo;
    u32 seqNo;
    u32 froType, froId;
    u32 suspectFlag;       // 1: not a whole period
    u32 noOfPmAttr;        // 0 to PMAI_ATTR_MAX
    i32 pmAttrList[PMAI_ATTR_MAX];
};
static_assert(offsetof(TmvPmaiPmData, froType) == 8 && offsetof(TmvPmaiPmData, pmAttrList) == 24);

namespace node {

/// Starts the proxy; pushes go to `client` from now on. 1 when that has been done before.
u32 TmvPmai_serviceAttach(PROCESS client);
/// An empty record, nullptr when there is no memory for it.
TmvPmaiPmData* TmvPmai_newPmData();
/// Hands a record over; it is gone in any case. 1 without a proxy.
u32 TmvPmai_sendPmData(u32 seqNo, TmvPmaiPmData* data);
/// Nothing more comes of this froType for this push. 1 without a proxy.
u32 TmvPmai_endOfData(u32 seqNo, u32 froType);

}  // namespace node
