// kvd_reg_jump_int.h - What the sources of the time jumps share, and what they need of the loops
// and of SoCPRI. Nobody else includes it, but for the tests.
// Owner   kvd_reg_jump*.cpp.
// Units   seconds; timers in ms.
// Errors  none here.
#pragma once
#include "base/kvd_math.h"
#include "reg/kvd_reg_jump.h"

namespace jump {

/// Neighbours' operations. Tests of the stages put their own in place.
struct Needs {
    // the loops
    u32    (*pllState)();                            // PllState
    void   (*forcePllState)(u32 pllState);
    double (*targetDiff)();                          // s, phase that the loop holds
    void   (*setTargetDiff)(double targetDiff);
    // SoCPRI's link client
    u32    (*action)();                              // InrsiClientAction
    void   (*sendBfnJumpInfo)(u32 enabled);
    void   (*noMoreBfnJumpsExpected)(u32 isLong);    // the wait before it says so
    void   (*restartPhaseTimer)();
    void   (*bfnAlignCompleted)(u32 status);
    // SoCPRI's measurements
    void   (*orderContinuedRegulationTimer)();
    void   (*logEvent)(u32 event);                   // SocpriEvent
    // slave units
    void   (*sendFollowSfcAdj)(double c, double f);
};
const Needs& needs();
/// For tests; nullptr puts the program's own back.
void setNeeds(const Needs* replacement);

/// A jump has begun: told in the next time data.
void markPerformed();
bool isPending();
/// Turns of the counter and the time within one, 0 up to 1024 s.
TimePair turnsOf(double c, double f);
/// The step that takes the offset away, and the offset cleared; nothing up to one counter step.
bool removeOffset();
void traceRefusedTimer();

constexpr OSTIME JUMP_IND_TMO_ms = 4000;
constexpr OSTIME BFN_JUMP_WARNING_TMO_ms = 3930;     // the links are warned 70 ms ahead
constexpr OSTIME SFC_ADJ_MONITOR_TMO_ms = 3000;
constexpr u32 BFN_OUT_JUMP = 0x40000000;             // first word of the BFN output at a jump

}  // namespace jump
