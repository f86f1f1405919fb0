// kvd_reg_socpri_int.h - What the sources of the radio links' measurements share, and what they need
// of their neighbours. Nobody else includes it, but for the tests.
#pragma once
#include "base/tu_common.h"
#include "reg/kvd_reg_socpri.h"

#include <array>

namespace socpri {

constexpr u32 LOG_RECORDS = 3000;

struct LogRecord {
    u32 used;
    u32 event;                     // SocpriEvent
    u8  portNo;                    // in focus of the link client
    i32 freqDiff;                  // ppb
    u32 freqDiffValid;
    u32 trpDiffHigh, trpDiffLow;
    u32 trpDiffValid;
    u8  validityCnt;
    double phaseDiffCalc;          // s, before reduction
    double phaseDiff;              // s
    double targetDiff;             // s, phase that the loop holds
    double relAbsDiff;             // s
    u32 m;
    u32 iterationIsRegulated;      // the value went to the loop
    u32 pllState;
    u32 esfc;
    u16 mfn, sfn;
    u32 inc;
    u32 ref_esfc;
    u16 ref_mfn;
    double delta0_c, delta0_f;     // s
    char time[TIME_STAMP_SIZE];
};

struct Log {
    std::array<LogRecord, LOG_RECORDS> record;
    u16 index;                     // written next
};

/// The local count at a moment.
struct Counters {
    u32 esfc;
    u16 mfn, sfn;
    u32 inc;
};
Counters readCounters();
/// A record with all that can be read by itself.
LogRecord newRecord(u32 event, const Counters& counters = readCounters());
void write(const LogRecord& record);
/// The newest record.
const LogRecord& newest();
const Log& snapshot();
u8 validityCnt();

/// Neighbours' operations. Tests put their own in place.
struct Needs {
    double (*currentFrequency)();
    void   (*adjustFrequency)(double relative);
    void   (*sendFollowOcxoAdj)(i16 freqDiff);
    void   (*pllControl)(double phaseDiff);
    void   (*adjustTime)(double c, double f);
    void   (*phaseMeasAnalysisFailed)();
    void   (*answerContinuation)(u32 status);
};
const Needs& needs();
/// For tests; nullptr puts the program's own back.
void setNeeds(const Needs* replacement);

}  // namespace socpri
