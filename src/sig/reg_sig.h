// reg_sig.h - Internal signals of the regulator.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT KVD_TUREG_READ_TEMP_TIMEOUT                     = 0x9C680;   // timer, no data
constexpr SIGSELECT KVD_TUREG_WARMUP_TIMEOUT                        = 0x9C681;   // timer, no data
constexpr SIGSELECT KVD_TUREG_JUMP_IND_TIMEOUT                      = 0x9C682;   // timer, no data
constexpr SIGSELECT KVD_TUREG_PTP_TIME_PDV_TIMEOUT_IND              = 0x9C683;   // timer, no data
constexpr SIGSELECT KVD_TUREG_PTP_TIME_NOT_RELIABLE_TIMEOUT_IND     = 0x9C684;   // timer, no data
constexpr SIGSELECT KVD_TUREG_PTP_TIME_1588J3_LOCK_TIMEOUT_IND      = 0x9C685;   // timer, no data
constexpr SIGSELECT KVD_TUREG_PTP_TIME_G82751_LOCK_TIMEOUT_IND      = 0x9C686;   // timer, no data
// shell -> manager: KvdTuhwifGenPdvReq
constexpr SIGSELECT KVD_TUHWIF_GEN_PDV_REQ                          = 0x9C687;
constexpr SIGSELECT KVD_TUREG_IDL2_LINK_RESTART_TIMEOUT             = 0x9C688;   // timer, no data
constexpr SIGSELECT KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND           = 0x9C689;   // packet sync -> manager
constexpr SIGSELECT KVD_TUREG_BFN_JUMP_WARNING_IND_TIMEOUT          = 0x9C68A;   // timer, no data
constexpr SIGSELECT KVD_TUREG_SOCPRI_SFC_ADJ_MONITOR_TMO            = 0x9C68B;   // timer, no data
constexpr SIGSELECT KVD_FORCED_LOCKED_TIMEOUT_IND                   = 0x9C690;   // timer, no data
constexpr SIGSELECT KVD_TUSOCPRI_CONTINUE_POSTPONED_REGULATION_TMO  = 0x9C6E0;   // timer, no data

struct KvdTuhwifGenPdvReq {
    SIGSELECT sigNo;
    u32 type;            // 0 NTP, 1 packet frequency, 2 packet time
    u32 direction;       // 1 uplink, 2 downlink
    u32 enable;          // 1 on, 0 off
};
static_assert(sizeof(KvdTuhwifGenPdvReq) == 16);
