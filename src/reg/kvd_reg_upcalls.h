// kvd_reg_upcalls.h - What the regulator asks of the floors above it, and tells them.
// frame/kvd_wiring.cpp gives the table its functions.
// Units   as the functions behind it.
#pragma once
#include "ose/types.h"

struct RegUpcalls {
    // ---- references: measurements
    bool (*referenceEdge)(u32 selectedRef);      // its handler takes the latched edge; false: it has none
    void (*idlInterrupt)();
    void (*measurementsInitiated)();
    bool (*extFastLock)(double& R);              // true with the external reference's own variance, s^2
    void (*useTimeOfDayAtOnce)();                // of the receivers: the reference before had no time
    const u8* (*ptpProfile)(u32 froId);          // nullptr without such a clock

    // ---- the unit's life
    void (*halt)();                              // the halted state; returns when its main processor is gone
    void (*testMode)(u32 on);
    void (*regStateChanged)();
    void (*loopStateChanged)(u32 state);         // 11 where a loop reports a locked time, else another
    // the counters are stepped: before, and after one that was made
    void (*timeStepComes)();
    void (*timeStepped)();

    // ---- a slave's loop
    void (*slaveEvent)(u32 slavePllEvent);
    void (*idl2Reset)();
    void (*printSlave)();
    void (*storeYi)(double yi);
    void (*storeClkStatus)(u32 clkStatus, const char* caller);
    int  (*sendClkStatus)(u8 clkStatus);         // 0 sent
    void (*tellIdl1Locked)(bool isLocked);
    int  (*unableToTimeLock)();                  // 0 sent

    // ---- SoCPRI's client
    u32  (*socpriAction)();                      // InrsiClientAction
    u8   (*socpriPort)();
    void (*socpriReset)();
    void (*socpriReportOcxoTemp)(u32 bad);
    void (*socpriPhaseMeasAnalysisFailed)();
    void (*socpriTimeSyncSucceeded)();
    void (*socpriTimeSyncFailed)();
    void (*socpriSetContinuation)(u32 flag);
    void (*socpriAnswerContinuation)(u32 status);
    void (*socpriSelectRememberedPort)(u8 port);
    void (*socpriSendBfnJumpInfo)(u32 enabled);
    void (*socpriNoMoreBfnJumpsExpected)(u32 isLong);
    void (*socpriRestartPhaseTimer)();
    void (*socpriBfnAlignCompleted)(u32 status);
};
extern const RegUpcalls REG_UPCALLS;
