// hwif_sig.h - Signals of the hardware interface and its interrupt process.
#pragma once
#include "ose/types.h"

#include <cstddef>

// interrupt process -> manager: KvdTuhwifRefInterrupt
constexpr SIGSELECT KVD_TUHWIF_REF_INTERRUPT  = 0x9C640;
// shell, own timer -> manager: KvdTuhwifGenWanderReq
constexpr SIGSELECT KVD_TUHWIF_GEN_WANDER_REQ = 0x9C643;
// interrupt process -> manager, no data
constexpr SIGSELECT KVD_TUGPS_OUT_INTERRUPT   = 0x9C651;

struct KvdTuhwifRefInterrupt {
    SIGSELECT sigNo;
    u32 pending;         // abstract bits: 1 port A, 2 100 ms, 4 reference edge, 8 GPS output
};
static_assert(offsetof(KvdTuhwifRefInterrupt, pending) == 4 && sizeof(KvdTuhwifRefInterrupt) == 8);

struct KvdTuhwifGenWanderReq {
    SIGSELECT sigNo;
    u32 operation;       // 0 stop, 1 start, 2 step
    double frequency;    // mHz
    double amplitude;    // ns
    double offset;       // relative
};
static_assert(offsetof(KvdTuhwifGenWanderReq, frequency) == 8 && sizeof(KvdTuhwifGenWanderReq) == 32);
