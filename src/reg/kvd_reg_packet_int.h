// kvd_reg_packet_int.h - What the sources of the packet measurements share: state, and arithmetic
// as functions of their arguments. Nobody else includes it, but for the tests.
// Owner   kvd_reg_packet*.cpp.
// Units   seconds; timers in ms, rates in packets per second.
// Errors  told at each function.
#pragma once
#include "base/kvd_timer.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_mtie.h"
#include "reg/kvd_reg_packet.h"

#include <array>

namespace packet {

// ---- profile ------------------------------------------------------------------------------------

enum Profile : u8 { IEEE_1588_J3_PROFILE = 0, ITU_T_G_8275_1_PROFILE = 1 };

struct ProfileRow {
    u32 lockTimer;         // index of its lock timer
    double filterWindow;   // s of packets in an interval
    double R;              // s^2, at the first samples
    double delayMargin;    // s, below the first delay floor
    double pdvLimit;       // s, default limit of high delay variation
};
/// nullptr for any other value.
const ProfileRow* profileRow(u8 profile);

// ---- delays -------------------------------------------------------------------------------------

// A node that hasn't its master's time yet is years away from it. One double of such a distance has
// steps of 60 ns, so the whole seconds stay apart (c) from the rest (f) until two of them are held
// against each other.

/// a less b, s.
constexpr double difference(TimePair a, TimePair b) { return (a.c - b.c) + (a.f - b.f); }
constexpr bool isBelow(TimePair a, TimePair b) { return (a.c - b.c) + a.f < b.f; }
/// The pair further by as many s.
TimePair moved(TimePair t, double by);

/// T2 - T1, and T3 - T4, with the seconds reduced by constants of the two scales.
TimePair delay21(const PktTimeMsg& p);
TimePair delay43(const PktTimeMsg& p);
/// Mean path delay, s; `down` gives T1 and T2, `up` gives T3 and T4.
double meanPathDelay(const PktTimeMsg& down, const PktTimeMsg& up);
constexpr bool isRoundTripOk(double meanPathDelay) { return meanPathDelay >= 0.0 && meanPathDelay <= 0.45; }
/// Nearest of 8, 16, 32, 64, 128 and 256 packets/s; an interval of 0 counts as the shortest.
u16 packetRate(u32 syncIntervalMs);
u16 nearestRate(double perSecond);

constexpr TimePair NO_DELAY_YET{2147483647.0, 0.0};

/// One direction's floor, or the round trip's.
struct Floor {
    TimePair min;          // smallest of this interval
    TimePair minMin;       // slow floor
    u32 close;             // a packet came within 250 ns of the floor in this interval
};
/// Takes delay x. True when its packet is the one to keep.
bool trackDelay(TimePair x, Floor& floor);

/// Local and reference time of a pair of packets, before the offset; a gives T1 and T2, b gives T3
/// and T4.
struct TimesOfPair { double local[2]; double reference[2]; };
TimesOfPair timesOfPair(const PktTimeMsg& a, const PktTimeMsg& b, TimePair diff,
                        double sfcPtpOffset);
/// Phase error with that modulus, s; a wider modulus than before goes into the offset first.
double phaseError(const PktTimeMsg& a, const PktTimeMsg& b, double t_mod);

// ---- variances ----------------------------------------------------------------------------------

constexpr u32 RING_ROOM = 256;
constexpr double SECOND_DIFFERENCE_LIMIT = 5e-05;   // s
constexpr u32 RING_SIZE = 250;

/// Variance from second differences, which see neither an offset nor a frequency error.
struct SecondDifference {
    double x0 = 0, x1 = 0, x2 = 0;       // the three latest samples, newest first
    double var = 0;                      // s^2
    u32 skip = 0;                        // 1: the next sample isn't to be taken
    double limit = SECOND_DIFFERENCE_LIMIT;
    u32 size = RING_SIZE;
    std::array<double, RING_ROOM> ring{};
    u32 idx = 0;
    u32 full = 0;
};
void takeSample(SecondDifference& v, double x0);
/// A full ring far from its latest samples starts afresh. True then, with log10 of the ratio.
bool varianceJumpCheck(SecondDifference& v, double* ratio = nullptr);
/// The long estimator's start: plausible values instead of none.
void startLong(SecondDifference& v);

/// Welford's running mean and variance, as two accumulators of which one can start over while the
/// other carries on.
struct RunningVariance {
    struct Accumulator { u64 n = 0; TimePair mean{0, 0}; double sum = 0; };
    i32 window = -1;                     // samples until the older one starts over, -1 never
    std::array<Accumulator, 2> accumulators{};
    u32 older = 0;                       // the one that is reported
    double variance = 0;
};
/// Pointer to the variance, s^2; nullptr, traced, without an object.
const double* runningVariance(RunningVariance* v, TimePair x);
void resetRunningVariance(RunningVariance* v);

// ---- way back -----------------------------------------------------------------------------------

constexpr u32 QUIET_WINDOW = 1024;       // packets, a minute of 16 a second

/// A degraded reference's path, judged by its latest round trips.
struct QuietPath {
    RunningVariance roundTrip{.window = QUIET_WINDOW};
    u32 since_ms = 0;                    // degraded and quiet since then
    u32 resumedAt_ms = 0;
    bool isResumed = false;              // and hasn't done well since
};
enum class WayBack : u8 { None, Variances, Estimate };
/// Takes a packet. After a quarter of an hour of a degraded reference on a quiet path its variances are to
/// begin anew; when it is degraded again after that, the estimate too.
WayBack watchQuietPath(QuietPath& q, const PktTimeMsg& msg, double limit_s);

// ---- timers -------------------------------------------------------------------------------------

enum PdvTimer : u32 {
    HIGH_PDV_TIMER = 0,
    NOT_RELIABLE_TIMER = 1,
    LOCK_1588J3_TIMER = 2,
    LOCK_G82751_TIMER = 3,
    PDV_TIMERS = 4,
};
struct RunningTimer {
    PROCESS owner = 0;
    KvdTimer timer;
    bool isTold = false;                 // that it ended, since it was stopped last
};

/// The clock's time is locked, as the profile's lock timer waits for.
constexpr bool isTimeState(u8 regState) { return regState == TIMELOCKED || regState == TRUETIME; }
/// Starts it unless it runs. True when it was started.
bool startPdvTimer(u32 which);
/// Stops it; only the process that started it may. True when it ran.
bool stopPdvTimer(u32 which);
/// Level of its traces. What lasts begins it anew at each end: that is told once.
node::TraceLevel pdvLevel(u32 which);
bool pdvTimerRuns(u32 which);

// ---- history ------------------------------------------------------------------------------------

enum HistoryType : u32 { HISTORY_NTP = 0, HISTORY_FREQUENCY = 1, HISTORY_TIME = 2, HISTORY_TYPES };
constexpr u32 NO_REF_ID = 0xFFFFFFFF;
constexpr u32 HISTORY_PLACES = 8, HISTORY_RECORDS = 20;

struct PdvRecord {
    DateTime time{};
    double values[2] = {0, 0};           // s: one, or downlink and uplink
};
struct HistoryPlace {
    u32 used = 0;
    u32 type = 0;                        // HistoryType
    u32 refId = NO_REF_ID;
    u32 count = 0;                       // 0 to 39; from 20 on the ring is full
    u32 first = 0;                       // the oldest record of a full ring
    std::array<PdvRecord, HISTORY_RECORDS> records{};
    PdvRecord current{};
};
/// What the last stored entry of a type was.
struct Remembered { double values[2] = {0, 0}; u32 high = 0; };

struct History {
    std::array<HistoryPlace, HISTORY_PLACES> places{};
    std::array<Remembered, HISTORY_TYPES> remembered{};
    std::array<u32, HISTORY_TYPES> currentId{NO_REF_ID, NO_REF_ID, NO_REF_ID};
};
/// One value of the current reference's variation; `high` beyond the limit of its kind.
void historyEntry(u32 type, bool high, double value1, double value2);

// ---- supervision --------------------------------------------------------------------------------

constexpr u32 PDV_RING = 240, PHASE_WINDOW = 60, FREQ_RING = 240;
constexpr TimePair NO_MINIMUM{4294967296.0, 0.0};
constexpr TimePair NO_PHASE{0.0, 0.0};
constexpr bool isPhase(TimePair t) { return t.c + t.f != 0.0; }

// Entries far above any real one.
constexpr double MARK_PHASE_JUMP = 10000000.0;
constexpr double MARK_PDV_DEGRADED = 20000000.0;
constexpr double MARK_PDV_REF_CHANGED = 30000000.0;      // + selectedRef
constexpr double MARK_FREQ_REF_CHANGED = 20000000.0;     // + selectedRef

struct SupervisionRecord {
    u32 currMeas = 0;                    // samples since the record restarted
    std::array<double, PDV_RING> pdv{};  // ms, or a mark
    std::array<TimePair, PHASE_WINDOW> phaseWindow{};
    std::array<u8, PDV_RING> jumpFlags{};
    u8 windowIdx = 0, pdvInterval = 0;
    u8 consecJumps = 0;                  // intervals with a jump in a row
    u32 totalJumps = 0;
    u8 pdvStopped = 0;
    TimePair minPrev = NO_PHASE, minCurr = NO_MINIMUM;
    double lastPhase = 0;                // held against steps of ms only
    std::array<double, FREQ_RING> freqDev{};
    u8 minCount = 0;                     // samples in the minimum's window
    u8 freqInterval = 0;
    u8 phaseJumpFlag = 0;
    u16 intervalSize = 360;              // for display
};

// ---- state --------------------------------------------------------------------------------------

/// Filter of a packet time reference.
struct TimeFilter {
    u32 numberOfPkts = 0;
    Floor down{NO_DELAY_YET, {-4294967294.0, 0.0}, 0};
    Floor up{NO_DELAY_YET, {-4294967294.0, 0.0}, 0};
    Floor roundTrip{NO_DELAY_YET, {-1.0, 0.0}, 0};
    double floorGain21 = 0, floorGain43 = 0;
    TimePair prevZ21{0, 0}, prevZ43{0, 0};
    u8 jumpCount21 = 0, jumpCount43 = 0;
    double stdDev21 = 0, stdDev43 = 0;
    PktTimeMsg syncPacket{}, delayPacket{};
    u8 lastRegState = 9;                 // none yet
    i32 secOffset = 0;
    i32 lastAsymComp = 0;                // ns
    SecondDifference syncVar, delayVar, syncVarLong, delayVarLong;
    double compensation = 0;             // s, of the last measurement, for their difference
    RunningVariance variances[2];
    RunningVariance* variance21 = nullptr;
    RunningVariance* variance43 = nullptr;
    MtieMask* mask = nullptr;
    QuietPath quiet;
};

/// Neighbours' operations. Tests put their own in place.
struct Needs {
    const u8* (*ptpProfile)(u32 froId);              // nullptr without such a clock
    double (*estimate)(const MeasRefData& data);
    void   (*setRefState)(u8 degrState);             // 1 good, 2 degraded
    u8     (*refState)();
    void   (*restartEstimate)();                     // knows neither time nor frequency then
    /// The selected clock's offset, ns * 2^16, and its mean path delay, ns.
    void   (*tellPacketSync)(i64 offsetFromMaster, i64 meanPathDelay);
    TimePair (*packetCounterDiff)();                 // frame counter less packet stamps' counter, s
    double (*sfcPtpOffset)();                        // s
};
const Needs& needs();
/// For tests; nullptr puts the program's own back.
void setNeeds(const Needs* replacement);

struct State {
    const Needs* needs = nullptr;
    TimeFilter filter;
    u32 highPdvCounter = 0;              // samples in a row
    std::array<double, HISTORY_TYPES> pdvThreshold{0.015, 0.015, 0.0};   // s; 0: the profile's
    std::array<RunningTimer, PDV_TIMERS> timers{};
    History history;
    SupervisionRecord supervision;
};
State& state();

/// A record to the estimator, which also stands in the core's record afterwards; the result is the
/// index's new R.
void estimate(const MeasRefData& data);
/// Time since the last sample, s. False without one: the counter can't be read, the unit halts.
bool sampleInterval(double& t_s);
/// What `R_all` of the selected reference says about its delay variation.
constexpr u32 HIGH_PDV_SAMPLES = 10;     // more in a row than these degrade

/// So many deviations are a time reference's delay variation.
constexpr double PDV_SIGMAS = 6.0;
constexpr double GAUSS_999 = 5.14;         // standard deviations that hold all but a few ppm
/// Limit of a time reference's delay variation, s: the set one, or the profile's.
double timePdvLimit(const ProfileRow& row);
/// The mask's windows and results begin anew.
void resetMask();

}  // namespace packet
