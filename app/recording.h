// recording.h - What a run leaves behind: changes of state, series of the true errors, results of
// checks.
// Times in s of virtual time, errors against the world's own time, never the unit's estimate.
#pragma once
#include "app/host_run.h"
#include "app/score.h"
#include "ose/types.h"

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace app {

struct StateChange {
    double t = 0;
    u8 state = 0;
    std::string name;
};

/// What the main processor was told of the GPS receiver.
struct GpsStatus {
    double t = 0;
    u8 status = 0;
    std::string name;             // the text
};

/// What a command of the unit printed when the scenario asked for it.
struct CommandOutput {
    double t = 0;                 // when the command was given
    std::string line;
    int result = 0;
    std::string output;
};

/// An answer about a radio link that the main processor got; the signal says which.
struct SocpriReport {
    double t = 0;
    u32 sigNo = 0;
    u8  port = 0;                 // from 1; 0 where the answer names none
    u32 status = 0;
};

struct Selection {
    double t = 0;
    u8 refType = 0;
    std::string name;
};

/// One report of performance counters, as the PM agent got it.
struct PmPeriod {
    double t = 0;
    u32 froType = 0;
    bool suspect = false;
    std::vector<i32> values;
};

/// The main processor's subscription to a set of them, as confirmed.
struct PmSubscription {
    double t = 0;
    u32 froType = 0;
};

/// An entry of the node's error log.
struct ErrorEntry {
    double t = 0;
    std::string code;
    std::string text;
};

/// A test that failed, as the test service was told.
struct FailedTest {
    double t = 0;
    std::string name;
    std::string message;
};

constexpr const char* FROM_PERSISTENT_MEMORY = "persistent memory";

/// A start of the program after the first one, and what its regulator began with.
struct Restart {
    double stopped_s = 0;         // the last moment of the run before
    double started_s = 0;
    u8 type = 0;                  // restart type, as the test service tells it
    u8 formerState = 0;           // radio clock state of the run before
    std::string used;             // "persistent memory", "flash /d/kvd_loz_data_1", ...; empty: nothing yet
    double used_s = -1;           // when
};

/// Something that happened to a unit, as a progress line tells it.
struct UnitEvent {
    double t = 0;
    std::string kind;             // "clock", "selected", "degraded", "PTP port", "jump", ...
    std::string text;
};

/// Something that is wrong and stands until it is taken back.
struct Alarm {
    double since_s = 0;
    std::string source;           // "GPS", "ptp", "oscillator", "reference", ...
    std::string text;
};

/// When the unit last heard of its references, s, -1 for never; to a sample's interval.
struct LastHeard {
    double measurement_s = -1;    // a measurement of the selected reference reached the estimator
    double offset_s = 0;          // what it said, of the unit's clock against the reference
    double ntp_s = -1;
    double loop_s = -1;           // a phase reached the loop that has the divider
    std::array<double, 8> packet_s{-1, -1, -1, -1, -1, -1, -1, -1};   // of the PTP clock of that syncref
};

/// Delay variation of the selected packet reference beside its limit, as the unit measures it; NaN without
/// one.
struct PdvSample {
    double down_ns = std::numeric_limits<double>::quiet_NaN();
    double up_ns = std::numeric_limits<double>::quiet_NaN();
    double limit_ns = std::numeric_limits<double>::quiet_NaN();
};
/// Over its limit now; the reference is degraded when that lasts.
bool isHigh(const PdvSample& pdv);

/// What the loop that has the divider was last given and what it makes of it; NaN while none has.
struct LoopValues {
    double phase_ns = std::numeric_limits<double>::quiet_NaN();     // local less reference
    double divider_ppb = std::numeric_limits<double>::quiet_NaN();  // at rest, over its factory value
};

constexpr double SIGMAS = 3.0;    // deviations of a band, as the unit grades its estimate

/// What the unit itself takes its clock for, each with one deviation from the filter's own covariance and
/// carried on to the moment; NaN where it has no estimate. A band is three of them each way, with the
/// oscillator's short-term noise and the counter's steps, which the filter's model hasn't, and the mean of
/// its residuals. A bound is what references may be off by, beside the band; NaN where nobody knows.
struct Estimate {
    double time_ns = std::numeric_limits<double>::quiet_NaN();   // counter against the time that it knows
    double timeDeviation_ns = std::numeric_limits<double>::quiet_NaN();
    double timeBand_ns = std::numeric_limits<double>::quiet_NaN();
    double timeBound_ns = std::numeric_limits<double>::quiet_NaN();
    double freq_ppb = std::numeric_limits<double>::quiet_NaN();
    double freqDeviation_ppb = std::numeric_limits<double>::quiet_NaN();
    double freqBand_ppb = std::numeric_limits<double>::quiet_NaN();
    double freqBound_ppb = std::numeric_limits<double>::quiet_NaN();
};

/// Delays of the packets between a unit and a master, as the network had them: of each sample's interval the
/// last one each way, NaN where there was none.
struct PacketDelays {
    std::string peer;
    std::vector<float> down_us, up_us;
};

/// One sample of the series.
struct Sample {
    double t = 0;
    double timeError_ns = 0;      // counter against true time, since the start
    double freqError_ppb = 0;     // true rate of the counter
    double gpsTimeError_ns = std::numeric_limits<double>::quiet_NaN();   // counter against true time
    double followError_ns = std::numeric_limits<double>::quiet_NaN();    // counter against the leader's
    double div = 0;               // divider as written
    double temperature_V = 0;     // of the oscillator's sensor
    u8 radioClockState = 0;
    u8 regState = 0;
    bool isDegraded = false;      // the selected reference, as the main processor was told
    Estimate estimate;            // its time against gpsTimeError_ns, its frequency against freqError_ppb
    PdvSample pdv;
    LoopValues loop;
};

/// A stretch of the run during which the clock was locked, settling time taken off.
struct LockedSpan {
    std::size_t first = 0, last = 0;   // samples, both included
};

struct CheckResult {
    std::string unit;
    std::string name;
    bool pass = false;
    std::string detail;
    std::string kind;                  // "mask", "time_error", ...
    std::optional<double> value;       // what was measured, where it is a number
    std::optional<double> least, most; // what it may be
    std::string of;                    // unit of the three: ns, ppb, times
    double from_s = 0, to_s = 0;       // what the check looked at; a moment has both equal
};


/// "QL-PRC (2)": the name of an SSM code of option I (ITU-T G.781), where it has one; 255 is none.
std::string qualityLevelName(u8 ssm);

struct UnitRecording {
    std::string name;
    std::string leader;                   // of the link that it follows, empty for none
    std::vector<StateChange> states;      // radio clock state, as the main processor was told
    std::vector<StateChange> regStates;
    std::vector<StateChange> loops;       // state of the loop that has the divider, "none" without one
    std::vector<Selection> selected;
    std::vector<StateChange> gpsStates;   // without the moments that a late sentence takes from 7
    std::vector<StateChange> gpsTypes;
    std::vector<GpsStatus> gpsStatuses;
    std::vector<StateChange> qualities;   // levels of Ethernet references, SSM codes, as told
    std::map<std::string, std::string> levels;   // the last one, by reference
    std::vector<StateChange> pduAlarms;   // 1 when the peer's frames are missing
    std::vector<SocpriReport> socpriReports;
    std::vector<PmPeriod> pmPeriods;
    std::vector<PmSubscription> pmSubscriptions;
    std::vector<CommandOutput> outputs;
    std::vector<Restart> restarts;
    std::vector<ErrorEntry> errors;
    std::vector<FailedTest> failedTests;
    std::vector<UnitEvent> events;        // all of these and more, in order
    std::vector<PacketDelays> delays;     // between it and each master on its paths, as long as `samples`
    std::map<std::string, u64> traceCounts;   // of the texts that checks ask for
    std::vector<Alarm> alarms;            // that stand now
    LastHeard heard;
    u64 toldSignals = 0, toldDigest = 0;  // all that the main processor got from the unit
    u64 sentSignals = 0, sentDigest = 0;  // all that it sent to others
    u64 drivenCalls = 0, drivenDigest = 0; // what it did to registers, lines, files, memory, sockets
    u64 waits = 0, waitsDigest = 0;       // times that its processes asked for, and ended before
    u64 tracedLines = 0, tracedDigest = 0;
    u64 filesDigest = 0, pagesDigest = 0; // at the end: its flash files, what its commands print
    std::vector<Sample> samples;
};
/// From the start to the state of the run before, s; nothing when it never came.
std::optional<double> timeToFormerState_s(const UnitRecording& unit, const Restart& restart);
/// What the time moved by from the last sample before the restart to the first one after the regulator
/// began, ns; nothing unless it began with persistent memory, which alone keeps the time.
std::optional<double> errorAcrossGap_ns(const UnitRecording& unit, const Restart& restart);

struct Recording {
    std::string scenario;
    std::string title;
    u64 seed = 0;
    double interval_s = 1.0;
    double virtual_s = 0;
    double wall_s = 0;
    bool complete = true;                 // it ran to the scenario's end, so that its checks are judged
    std::vector<UnitRecording> units;
    std::vector<CheckResult> checks;
    std::vector<std::string> misuses;     // of the kernel
    std::optional<HostReport> host;       // of a run on the machine's interfaces
    bool passed() const;
};

/// Scores of one unit, from its locked spans.
struct Extremes { double max = 0, rms = 0; };
struct Scores {
    std::vector<LockedSpan> spans;
    double scored_s = 0;                  // how much of the run was scored
    Extremes timeError_ns;                // from the beginning of each span
    Extremes aboutMean_ns;                // from the mean of each span, which a jump would take
    Extremes freqError_ppb;
    Extremes following_ns;                // counter against the leader's while its time is locked
    double followed_s = 0;                // how much of the run that was
    double timeToLock_s = -1;             // first locked state, -1 without any
    double mtieFrom_s = 0, mtieTo_s = 0;  // longest span: where MTIE and TDEV were taken
    std::vector<TauValue> mtie_ns;
    std::vector<TauValue> tdev_ns;
};
/// A stretch without a reference, from the moment that the clock says so.
struct Holdover {
    std::size_t first = 0, last = 0;      // samples, both included
    double seconds = 0;
    double drift_ns = 0;                  // time error at the end less that at the beginning
};
std::vector<Holdover> holdovers(const UnitRecording& unit);
/// After these the time error of a holdover is put beside the limit.
constexpr double HOLDOVER_MARKS_s[] = {3600.0, 8 * 3600.0, 24 * 3600.0};
constexpr double HOLDOVER_LIMIT_ns = 1500.0;
/// Largest time error within the first `seconds` of a holdover; nothing when it ended before.
std::optional<double> holdoverError_ns(const UnitRecording& unit, const Holdover& holdover, double seconds);

/// A stretch in which the selected reference was told to be degraded, with the largest delay variation in it.
struct Degradation {
    double from_s = 0, to_s = 0;
    std::string reference;                // "PACKET_TIME_REF"
    PdvSample pdv;
};
std::vector<Degradation> degradations(const UnitRecording& unit);

/// True when the counters were stepped by more than 1 us between two samples that follow each other.
bool isStep(const Sample& before, const Sample& after);
/// The settling time after each lock and each step that a score leaves out, s.
constexpr double SETTLING_s = 300.0;
Scores score(const UnitRecording& unit, double interval_s);
/// MTIE of the longest scored stretch between two times; empty when there is none.
std::vector<TauValue> mtieBetween(const UnitRecording& unit, double interval_s, double from_s, double to_s);
/// Radio clock states in which a clock counts as locked to its reference. A slave tells
/// SLAVE_FREQUENCY_LOCKED while its loop pulls in, or has lost its link before it ever locked: that counts
/// for nothing.
bool isLockedState(u8 radioClockState);
/// Those in which its counter is the reference's.
bool isTimeLockedState(u8 radioClockState);

}  // namespace app
