// kvd_gps_send_int.h - What the sources of the sending side share; nobody else includes it.
#pragma once
#include "gps/kvd_gps_send.h"

#include <span>

namespace gps {

constexpr u32 SEND_QUEUE_SIZE = 940;     // bytes, the NUL behind the last sentence with them
constexpr u32 RESET_STEP_IDLE = 4;

struct SendState {
    char queue[SEND_QUEUE_SIZE] = {};
    u32  queued = 0;                     // bytes in `queue`, without the NUL
    u32  commandFlag = 0;                // what is queued was ordered by the operator
    GpsSendCounters counters;

    bool resetActive = false;            // the sequence of kvd_gps_reset.cpp
    u32  resetStep = RESET_STEP_IDLE;
    u32  pnvxCnt = 0;                    // fillers sent, 0 to 19
    bool resetDebug = false;             // the debug sentence ends it
};
SendState& sendState();

/// Next sentence of the running reset sequence into `out` (SEND_QUEUE_SIZE bytes); its length, 0
/// when this tick sends nothing.
u32 nextResetSentence(char* out);

}  // namespace gps
