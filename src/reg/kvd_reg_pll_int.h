// kvd_reg_pll_int.h - What the sources of the loops share, and what they need of their neighbours.
// Nobody else includes it, but for the tests.
// Owner   kvd_reg_pll*.cpp.
#pragma once
#include "base/kvd_math.h"
#include "base/tu_common.h"
#include "reg/kvd_reg_pll.h"

#include <array>

namespace pll {

constexpr u32 HO_VECTOR = 60;                   // filter outputs whose mean is the holdover
constexpr u32 LOG_ENTRIES = 50;
constexpr u32 HIST_PERIOD = 172'800;            // samples between writes to flash, two days
constexpr u32 HIST_OFF = 0xFFFFFFFF;

/// Which loop, as the log names it.
enum Mode : u32 { MODE_NONE = 0, MODE_GPSOSL = 1, MODE_IDL1 = 2, MODE_IDL2 = 3, MODE_SOCPRI = 4 };

struct LogEntry {
    u32 state = 0;
    u32 mode = MODE_NONE;
    char time[TIME_STAMP_SIZE] = "";
};

struct Pll {
    double targetDiff = 0;                      // phase that the loop holds, s
    u32 currState = PLL_Uninitialized, prevState = PLL_Uninitialized;
    u32 currSlaveState = SLAVE_PLL_Uninitialized, prevSlaveState = SLAVE_PLL_Uninitialized;
    u32 stateChanged = 0;                       // cleared by the new state's first run
    u16 logIndex = 0;
    double Kp = 0, Ki = 0, yi = 0;
    u32 holdOverVectorFull = 0, holdOverVectorIndex = 0;
    u32 emptyHOVector = 1;                      // a lock state empties the vector
    u32 timeAccuracyIndSent = 0;
    double extAccFreqOffset = 0;                // frequency steps of a slave on IDL1
    std::array<LogEntry, LOG_ENTRIES> log{};
    std::array<double, HO_VECTOR> vector{};
    u32 histPllCountDown = HIST_OFF;            // samples to the next write to flash
    u32 writeToFlash = 0;                       // the next filter run writes the history there
    u8  regulationMode = REGULATION_ON;
    double lastPhaseDiff = 0;                   // s, and how many there have been
    u32 phaseCount = 0;
};
Pll& vars();
void notePhase(double phaseDiff);

/// Cleared at a state's first run; a master's two loops and a slave have a set of their own.
struct Counters {
    u8  changeStateCounter = 0;
    u32 samplesInUnlocked = 0;
    u32 samples = 0;                            // in holdover
    u8  unreliableMeasCnt = 0;
    u8  changeToOffsetLockedCounter = 0;
    u8  changeToUnlockedCounter = 0;
};

/// True once after a change of state: the first run of the new one.
bool takeStateChanged();

// kvd_reg_pll_filter.cpp
void filter(double x, u32 writeToFlash = 0);
void setSlaveGains(bool isIdl2);
u32  vectorFill();                              // its valid entries
/// Mean of the vector's valid entries, 0 without any.
double vectorMean();
void emptyVector();

// kvd_reg_pll_state.cpp
void changeState(u32 pllState);
void changeSlaveState(u32 slavePllState);
Mode mode();
bool isGpsOsl();
bool isSoCpri();

/// A loop was given a sample in a state that has no handler.
void traceFaulty(const char* control, u32 state);

// What the loops' states have in common; each has limits of its own.
constexpr u8 UNRELIABLE = 2;                    // first samples that don't count
/// Counts this sample among those, when it is one.
bool isUnreliable(Counters& c);
/// Unlocked: one farther than `far_s` off is the new target, and true; the others count how long the phase
/// has been within `near_s` of the target.
bool followTarget(Counters& c, double phaseDiff, double near_s, double far_s);
/// Locked, a phase beyond the limit: the first of a row is the target, if it is farther than `far_s` off, and
/// those within `near_s` of that are counted apart.
void countBeyondLimit(Counters& c, double phaseDiff, double near_s, double far_s);
/// OffsetLocked: the phase has left the target.
void loseOffset(const char* control, double phaseDiff);

// kvd_reg_pll_slave_idl1.cpp, kvd_reg_pll_slave_idl2.cpp
void controlIdl1(double phaseDiff);
void controlIdl2(double phaseDiff);

/// Neighbours' operations. Tests put their own in place.
struct Needs {
    u32  (*selectedRef)();
    bool (*isMaster)();
    u32  (*idlMode)();
    // hardware, time, history
    double (*currentFreqOffset)();
    void (*adjustFrequency)(double y);
    void (*adjustOffset)(double c, double f);
    TimePair (*offset)();
    void (*clearOffset)();
    void (*adjustSlaveOffset)(double c, double f);
    TimePair (*slaveOffset)();
    void (*clearSlaveOffset)();
    void (*adjustTime)(double d_c, double d_f);
    void (*clearMod)();
    void (*writeHistory)(bool toFlash, double y);
    void (*retryJump)();                        // a jump that waits for a better moment
    // reports
    void (*forceStatus)();                      // the next status goes out even if it is the last one's
    void (*lastRegulatorState)(u32 pllState);
    void (*lastSlaveRegulatorState)(u32 slavePllState);
    void (*setFreqLocked)();
    void (*report)(u8 clockState);
    void (*timeAccuracy)();
    void (*tellGpsOut)(u32 pllState);           // PLL_IS_TIME_LOCKED or another
    // SoCPRI
    u32  (*action)();                           // InrsiClientAction
    bool (*timeDataEqual)();
    void (*answerContinuation)(u32 status);
    void (*armContinuation)();
    void (*timeSyncSucceeded)();
    void (*timeSyncFailed)();
    // slave
    void (*storeYi)(double yi);
    void (*slaveEvent)(u32 event);              // SlavePllEvent
    void (*tellIdl1Locked)(bool isLocked);      // the port server, by way of the BIRA client
    int  (*unableToTimeLock)();
    int  (*sendClkStatus)(u8 clkStatus);        // 0 sent
    void (*storeClkStatus)(u32 clkStatus, const char* caller);
    u8   (*startType)();                        // BiraStartType
    bool (*isTimeSyncAsked)();
    void (*tellFineTime)();
};
const Needs& needs();
/// For tests; nullptr puts the program's own back.
void setNeeds(const Needs* replacement);

}  // namespace pll
