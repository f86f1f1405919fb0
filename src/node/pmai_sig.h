// pmai_sig.h - What the PM agent's proxy and the agent say to each other; what the client sees
// stands in pmai.h.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Name of the agent's process.
constexpr const char* TMV_PMAI_SERVER_NAME = "TmvPmaiServer";

constexpr SIGSELECT TMV_PMAI_SERVER_UP_IND   = 0xB0102;   // hunt signal: sent by the agent, no data
constexpr SIGSELECT TMV_PMAI_SERVER_DOWN_IND = 0xB0103;   // attach signal: the agent died, no data
constexpr SIGSELECT TMV_PMAI_ATTACH_REQ      = 0xB0104;   // proxy -> agent, no data
constexpr SIGSELECT TMV_PMAI_ATTACH_CFM      = 0xB0105;   // agent -> proxy, no data
constexpr SIGSELECT TMV_PMAI_ATTACH_REJ      = 0xB0106;   // agent -> proxy, no data
constexpr SIGSELECT TMV_PMAI_PM_DATA_IND     = 0xB0107;   // .. -> agent: TmvPmaiPmData
constexpr SIGSELECT TMV_PMAI_PM_DATA_CFM     = 0xB0108;   // agent -> proxy: record taken, no data
constexpr SIGSELECT TMV_PMAI_END_OF_DATA_IND = 0xB0109;   // .. -> agent: TmvPmaiEndOfData

struct TmvPmaiEndOfData {
    SIGSELECT sigNo;
    u32 seqNo;
    u32 froType;
};
static_assert(sizeof(TmvPmaiEndOfData) == 12);
