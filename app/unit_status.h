// unit_status.h - What a unit is at one moment: its clock and why, its estimate, its references, its faults.
// Read from the product's state and the node's records, neither of which a look changes. Consoles, the status
// socket, metrics and reports are made from this struct alone.
// Units   s of virtual time; ns, ppb and relative values where a name says so.
#pragma once
#include "app/recording.h"
#include "sim/scenario/unit.h"

#include <optional>
#include <string>
#include <vector>

namespace app {

/// One reference of any kind, as the unit and its main processor see it.
struct SourceStatus {
    std::string name;                  // the scenario's, or the packet clock's master
    std::string type;                  // "GPS_REF"
    u32 froId = 0, froClassNo = 0;
    bool supervised = false;
    bool usable = false;               // for the main processor's policy
    bool selected = false;
    std::string state;                 // "ON", "hold-off", "SLAVE", ... of its own machine
    std::optional<double> age_s;       // of its last sample or packet
    std::optional<double> noise_ns;    // deviation of its measurements as the filter has learnt it
    std::optional<double> offset_ns;   // of its last measurement
    std::vector<std::string> faults;   // in words
    std::string why;                   // why it isn't selected; empty when it is
};

/// What the loop that has the divider was last given, as in the last sample.
struct LoopStatus {
    LoopValues values;
    double held_ns = 0;                // phase that it holds until a jump takes it out
    std::optional<double> age_s;       // of its last phase
};

/// What comes next while there is no reference: the first of its limits that will be met.
struct HoldoverStatus {
    double seconds = 0;                // since the clock says so
    std::optional<double> threshold_s; // the operator's, and what is left of it
    std::optional<double> left_s;
    std::string next;                  // clock state after the first limit
    std::optional<double> nextIn_s;    // when it is met by the estimate; nothing: not within 30 days
    std::optional<double> limitIn_s;   // when three deviations of time reach `limit_ns`
    double limit_ns = HOLDOVER_LIMIT_ns;
};

struct UnitStatus {
    std::string unit;
    double t = 0;
    bool runs = false;                 // its program is loaded
    bool connected = false;            // to its main processor
    bool isMaster = true;

    u8 clockState = 7;
    std::string clock = "UNKNOWN";     // "RNT_TIME_LOCKED"
    double since_s = 0;
    std::string regulator;             // "TRUETIME"
    std::string loop;                  // "PLL_Locked"; empty where no loop has the divider
    std::string why;                   // the rule that keeps the clock state there
    std::string change;                // what would change it

    std::string reference = "none";    // selected one: name and type
    std::string referenceType = "NO_REF";
    std::optional<double> selectedSince_s;

    Estimate estimate;                 // of the last sample
    double estimateAt_s = 0;
    std::string boundFrom;             // why the references may be off by so much
    double timeError_ns = 0;           // truth at that sample, as in Sample
    double gpsTimeError_ns = std::numeric_limits<double>::quiet_NaN();
    double freqError_ppb = 0;
    double timeAccuracy_ns = 0;        // as the unit tells it
    double frequencyAccuracy_ppb = 0;

    bool isDegraded = false;
    PdvSample pdv;                     // one value of a frequency reference stands for both directions
    std::optional<LoopStatus> loopStatus;
    std::optional<HoldoverStatus> holdover;

    std::vector<SourceStatus> sources;
    std::vector<Alarm> alarms;
    std::vector<UnitEvent> events;     // the last ten, oldest first

    u64 eventsTotal = 0;
    u32 starts = 0;                    // of the program
    u32 poolUsed = 0, poolPeak = 0;    // bytes
    struct PacketCount { u32 froId = 0; std::string type; u32 taken = 0; };
    std::vector<PacketCount> packets;  // PTP messages that served, by clock and type
};

/// Between two instants of the world, outside of any process. `recording` is what has been recorded so far.
UnitStatus readUnitStatus(sim::Unit& unit, const UnitRecording& recording, double now_s);
/// The one that the main processor has selected; nullptr for none.
const sim::MpReference* selectedReference(const sim::MainProcessor& mp);
/// Inside the unit's program: a loop has the divider; its state, "PLL_Locked"; what it was last given.
bool loopRuns();
std::string loopStateText();
LoopValues readLoop();
/// Inside the unit's program: delay variation of the selected packet reference.
PdvSample readPdv();
/// The unit's own estimate of its clock now. The board's counter is read, so only where its phase is read
/// anyway.
Estimate readEstimate(sim::Unit& unit);

/// "38 ns", "1.5 us", "-2.1 ms", "12.35 s": for people.
std::string timeText(double ns);
/// "PDV 45 us down, 31 us up, limit 30 us"; empty without one.
std::string pdvText(const PdvSample& pdv);
/// "follow_up" for 8.
const char* ptpMessageWord(u32 type);
/// Words for the fault flags of a packet reference, empty for none.
std::vector<std::string> packetFaultWords(u32 faultFlags);

}  // namespace app
