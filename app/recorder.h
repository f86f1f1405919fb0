// recorder.h - Follows one unit through a run: its changes as they happen, a sample an interval. It looks at
// the product's state and changes none of it.
#pragma once
#include "app/checks.h"
#include "app/estimate_lag.h"
#include "app/progress.h"
#include "app/recording.h"
#include "app/reference_bound.h"
#include "sim/node/digest.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace app {

class Recorder {
public:
    Recorder(ose::World& world, sim::Unit& unit, Progress& progress, bool withName,
             const std::vector<CheckSpec>& checks);

    void sample();
    /// The unit that it follows, nullptr for none.
    void follows(sim::Unit* leader);
    /// Lets the unit's shell run a line and keeps what it prints.
    void command(const std::string& line);
    /// A line above the progress bar, kept among the events.
    void tell(const std::string& kind, const std::string& text);
    /// Beside the progress bar.
    std::string status() const;
    /// What the node's services have kept themselves.
    void collect();
    /// After each event of this unit.
    void onEvent(std::function<void(const UnitEvent&)> observer) { onEvent_ = std::move(observer); }
    sim::Unit& unit() { return unit_; }

    UnitRecording recording;

private:
    double now() const;
    void onClockStatus(const sim::ClockStatus& status);
    void onSelect(const sim::MpReference& r);
    void onRegState(u8 state);
    void onRecord(const sim::MpRecord& record);
    void onGpsStatus(const sim::MpRecord& record);
    void onReceiverStatus(const sim::MpRecord& record);
    void onQuality(const sim::MpRecord& record);
    void onPduMissing(const sim::MpRecord& record);
    void onPacketFaults(const sim::MpRecord& record);
    void onTemperature(const sim::MpRecord& record);
    void onCalibration(const sim::MpRecord& record);
    void onSocpriReport(const sim::MpRecord& record);
    void onStart(u8 type);
    void onStartTrace(const std::string& text);
    void onTrace(const sim::TraceLine& line);
    void sampleHeard();
    void sampleBound(Sample& s);
    void sampleGps();
    void samplePorts();
    void sampleLoop(Sample& s);
    void tellPdv(const PdvSample& pdv);
    void tellStep(const Sample& s);
    /// The alarm of a source; an empty text takes it back.
    void raise(const std::string& source, const std::string& text);
    /// "ptp" where the main processor knows it so, else "reference 3".
    std::string nameOf(u32 froId, u32 froClassNo);

    ose::World& world_;
    sim::Unit& unit_;
    sim::Unit* leader_ = nullptr;
    Progress& progress_;
    std::string prefix_;
    u8 clockState_ = 7;
    u8 degrStatus_ = 0;
    std::string selected_ = "none";
    double ranUntil_s_ = 0;
    bool ranBefore_ = false;
    std::string flashFile_;
    std::map<std::string, std::string> packetFaults_;   // as last told, by reference
    std::array<u32, 8> portStates_{};
    double heardR_ = 0;                                 // s^2, of the selected reference
    u32 heardNtp_ = 0, heardLoop_ = 0;
    std::array<u32, 8> heardPackets_{};
    ReferenceBound bound_;
    EstimateLag lag_;
    bool pdvHigh_ = false;
    u32 pdvSamples_ = 0;                                // in a row that differ from what was told
    u32 shaken_ = 0;
    sim::Digest sent_, waits_;                          // signals, and waits, with their times
    sim::Digest traced_;                                // of texts and times, not of where they are written
    std::function<void(const UnitEvent&)> onEvent_;
};

}  // namespace app
