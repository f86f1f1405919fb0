// ref_sig.h - Internal signals of reference management.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUREF_TIMEOUT_IND                  = 0x9C620;   // timer, data
constexpr SIGSELECT KVD_TUREF_IDL1_WTR_TIMEOUT_IND         = 0x9C621;   // timer, no data
constexpr SIGSELECT KVD_TUREF_IDL1_HO_TIMEOUT_IND          = 0x9C622;   // timer, no data
constexpr SIGSELECT KVD_TUREF_IDL1_SUPERVISION_TIMEOUT_IND = 0x9C623;   // timer, no data
constexpr SIGSELECT KVD_TUREF_IDL2_WTR_TIMEOUT_IND         = 0x9C624;   // timer, no data
constexpr SIGSELECT KVD_TUREF_IDL2_HO_TIMEOUT_IND          = 0x9C625;   // timer, no data
constexpr SIGSELECT KVD_TUREF_IDL2_SUPERVISION_TIMEOUT_IND = 0x9C626;   // timer, no data
constexpr SIGSELECT KVD_TUREF_GPSOSL_HOLDOVER_TIMEOUT_IND  = 0x9C627;   // timer, no data
constexpr SIGSELECT KVD_TUREF_SLAVE_HOLDOVER_TIMEOUT_IND   = 0x9C628;   // timer, data
constexpr SIGSELECT KVD_TUREF_IDL2_SYNC_DATA_TIMEOUT_IND   = 0x9C629;   // timer, no data
constexpr SIGSELECT KVD_TUREFMON_PROC_TOGGLE_STATUS_IND    = 0x9C630;   // from the monitor, data
constexpr SIGSELECT KVD_TUREFMON_CHECK_TD_IND              = 0x9C631;   // from the monitor, no data
constexpr SIGSELECT KVD_TUPHYADM_ANSWER_TMO                = 0x9C632;   // timer, no data
constexpr SIGSELECT KVD_TUIPSYNCTSIADM_ANSWER_TMO          = 0x9C633;   // timer, no data

struct KvdTurefTimeoutInd {
    SIGSELECT sigNo;
    u8 row;              // synchRefNo, 0 to 11
};
static_assert(offsetof(KvdTurefTimeoutInd, row) == 4);

struct KvdTurefSlaveHoldoverTimeoutInd {
    SIGSELECT sigNo;
    u32 port;            // IDLPORT_1 or IDLPORT_2
};
static_assert(offsetof(KvdTurefSlaveHoldoverTimeoutInd, port) == 4);

struct KvdTurefmonProcToggleStatusInd {
    SIGSELECT sigNo;
    u32 status;          // toggle status word
};
static_assert(offsetof(KvdTurefmonProcToggleStatusInd, status) == 4);
