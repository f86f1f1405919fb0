// kvd_ref_history.h - What the inter-unit links went through: rings for the operator's printout.
// Owner   kvd_ref_idl_print.cpp holds the one instance; the types here touch nothing else.
#pragma once
#include "base/ref_ring.h"
#include "base/tu_common.h"

#include <array>

enum IdlTimerType : u8 { TIMER_NONE = 0, HO_TIMER = 1, WTR_TIMER = 2, SUP_TIMER = 3, SLAVE_HO_TIMER = 4 };
enum IdlTimerStatus : u8 { TIMER_STATUS_NONE = 0, TIMER_ON = 1, TIMER_CANCELED = 2, TIMER_EXPIRED = 3 };

struct IdlHistoryRecord {
    u32 idlState;
    u8  port;
    u8  timerType;                    // IdlTimerType
    u8  timerStatus;                  // IdlTimerStatus
    char time[TIME_STAMP_SIZE];
};

struct IdlHistory {
    static constexpr u32 PORTS = 2;
    RefRing<IdlHistoryRecord, 200> ring;
    struct Port {
        bool hasLatest = false;
        bool hasHeld = false;
        IdlHistoryRecord latest{};    // last one written
        IdlHistoryRecord held{};      // restart that waits for something else to happen
    };
    std::array<Port, PORTS> port;

    /// Takes one event. Dropped when equal to the port's latest. A HO or supervision timer's
    /// restart right after its cancel in the same state is held, and written ahead of the next
    /// event that differs: a healthy link restarts its timer at every interrupt and would fill the
    /// ring.
    void offer(const IdlHistoryRecord& event);
};

struct SynchPortRecord {
    u8 synchPortNo;                   // 0 to 5
    char time[TIME_STAMP_SIZE];
};
