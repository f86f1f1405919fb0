// kvd_ref_history.h - What the inter-unit links went through: rings for the operator's printout.
// Owner   kvd_ref_idl.cpp holds the one instance; the types here touch nothing else.
#pragma once
#include "ose/types.h"

#include <array>

enum IdlTimerType : u8 {
    TIMER_NONE = 0,
    HO_TIMER = 1,
    WTR_TIMER = 2,
    SUP_TIMER = 3,
    SLAVE_HO_TIMER = 4
};
enum IdlTimerStatus : u8 {
    TIMER_STATUS_NONE = 0,
    TIMER_ON = 1,
    TIMER_CANCELED = 2,
    TIMER_EXPIRED = 3
};

constexpr u32 TIME_STAMP_SIZE = 27;   // "%Y-%m-%d %H:%M:%S", point, six digits, terminator

/// A push into a full ring drops the oldest.
template <typename Record, u32 CAPACITY>
struct RefRing {
    std::array<Record, CAPACITY> slot{};
    u32 next = 0;
    u32 count = 0;
    void push(const Record& r)
    {
        slot[next] = r;
        next = (next + 1) % CAPACITY;
        if (count < CAPACITY) ++count;
    }
    const Record& oldest(u32 i) const { return slot[(next + CAPACITY - count + i) % CAPACITY]; }
};

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
