// kvd_socpri_inrsi_master_int.h - What the sources of the master's client share: its record, orders and
// dispatch (kvd_socpri_inrsi.cpp), measurements of the port in focus (kvd_socpri_inrsi_meas.cpp),
// holdover and the regulator's results (kvd_socpri_inrsi_result.cpp), the synthesiser's copy
// (kvd_socpri_inrsi_revert.cpp), the logs (kvd_socpri_inrsi_log.cpp). Nobody else includes it, but for
// the tests.
#pragma once
#include "base/tu_common.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "socpri/kvd_socpri_inrsi_int.h"

namespace inrsi::master {

constexpr u8  FREQ_ATTEMPTS = 15;
constexpr u8  UNAVAILABLE_TRIES = 5;           // requests put off, 100 ms apart
constexpr u16 RETRIEVE_ms = 300, RETRIEVE_SLOW_ms = 1000;   // slow: after a jump, and through port X
constexpr u32 LOG_ENTRIES = 1000, SUPERVISION_ENTRIES = 50;

/// The divider's words before a scan moved them: integer part as the register holds it, one less.
struct SynthesiserCopy {
    u32 valid = 0;
    i64 numerator = 0, denominator = 0;
    u32 integerPart = 0;
};

struct LogEntry {
    u32  used;
    char time[TIME_STAMP_SIZE];
    u32  event, line;
    CpriPortStatus cpriPortStatus;
    Subscribed subscribed;
    u32  currAction;
    u8   measUnavailableCounter, continuationOfSync;
    u8   portNo;
    u32  sharedUnitId;
    u8   freqScanCnt;
    i16  freqDiff;
    u32  freqDiffValid, trpDiffHigh, trpDiffLow, trpDiffValid;
};

struct SupervisionEntry {
    u32  used;
    char time[TIME_STAMP_SIZE];
    u8   port;
    double phaseDiff;                          // s
    u32  valid;
};

extern const Role ROLE;

struct Record {
    Client client{.role = &ROLE};
    u32 currAction = INRSI_CLIENT_IDLE;
    u8  freqScanCnt = 0;                       // attempts left
    i16 freqDiff = 0;                          // ppb
    u32 freqDiffValid = 0;
    u32 trpDiffHigh = 0, trpDiffLow = 0, trpDiffValid = 0;
    u8  measUnavailableCounter = 0;            // requests put off because no link was there
    bool continuationOfSync = false;           // an answer is owed, for the port below
    u8  continuationPort = NO_PORT;
    bool measOngoing = false;                  // one request to the server is open
    OSTIME measAskedAt = 0;                    // when it went out, ms
    bool linkGone = false;                     // met once already
    u16 measRetrieveTimeMs = RETRIEVE_ms;
    SynthesiserCopy synthesiser;
    std::array<LogEntry, LOG_ENTRIES> log{};
    u16 logIndex = 0;
    std::array<SupervisionEntry, SUPERVISION_ENTRIES> supervisionLog{};
    u8  supervisionIndex = 0;
};

Record& record();
const Record& snapshot();
void keepSnapshot();
inline Client& client() { return record().client; }
inline u8 focus() { return client().portNo; }
/// On signals.
inline u8 wirePort(u8 port) { return static_cast<u8>(port + 1); }
inline void log(Event event, bool keep = false, ose::Place at = ose::Place::current())
{
    inrsi::log(client(), event, keep, at);
}

// ---- kvd_socpri_inrsi.cpp ------------------------------------------------------------------------

void setToIdle();
/// Timers of the port in focus, and idle.
void dropWork();
/// The same for another order or none: an answer that is owed isn't owed any more.
void giveUpWork();
/// Tells an order's result: of a scan, a selection, or of what failed in an alignment.
void answerOrder(u32 syncStatus);
void inrsiLinkSyncAborted(u32 syncStatus);
/// During a jump on the link: its result is told, the work and the jump end. False without a jump.
bool abortJump(u32 syncStatus);
/// The port in focus is supervised again, if it has a unit.
void superviseFocus();
/// The loop may have left its holdover: the five minutes end with it, and go on without.
void endHoldoverLimit();

// ---- kvd_socpri_inrsi_meas.cpp -------------------------------------------------------------------

void sendInrsiGetFreqDiffReq();
void sendInrsiGetPhaseDiffReq();
/// What a request is given for its answer, as the client stands.
OSTIME retrieveTime();
void handleLinkDownIndication(u8 port);
/// True when the signal was one of a measurement or its timers.
bool dispatchMeasurement(Signal* sig);

// ---- kvd_socpri_inrsi_result.cpp -----------------------------------------------------------------

void onGoToTimeHoldover();
void onHoldoverTimeout();

// ---- kvd_socpri_inrsi_revert.cpp -----------------------------------------------------------------

void saveSynthesiser();
void dropSynthesiserCopy();
/// Back to the copy, and the slave is told; nothing without one.
void revertSynthesiser();
/// Relative change of the divider from b to a: (a - b) / b.
double relativeChange(const SynthesiserCopy& a, const SynthesiserCopy& b);

// ---- kvd_socpri_inrsi_log.cpp --------------------------------------------------------------------

void writeLog(Event event, u32 line, bool keep);
void logSupervision(u8 port, double phaseDiff, u32 valid);
void printInfo();
void printHistory();
void printSupervisionHistory(u8 port);         // 0 to 5, NO_PORT for all

}  // namespace inrsi::master
