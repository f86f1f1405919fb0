#include "app/runner.h"

#include "app/checks.h"
#include "app/console.h"
#include "app/delay_recorder.h"
#include "app/progress.h"
#include "app/socpri_reports.h"
#include "app/summary.h"
#include "gps/kvd_gps_receiver.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "sig/reg_types.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/net/host_net.h"
#include "sim/refs/host_gps.h"
#include "sim/scenario/link.h"
#include "sim/scenario/packet_net.h"
#include "sim/scenario/unit.h"
#include "unit/kvd_gps_state.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace app {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }
ose::Time worldTime(double s) { return std::llround(s * 1e12); }

/// Follows one unit: its changes of state as they happen, a sample an interval.
class Recorder {
public:
    Recorder(ose::World& world, sim::Unit& unit, Progress& progress, bool withName,
             const std::vector<CheckSpec>& checks)
        : world_(world), unit_(unit), progress_(progress),
          prefix_(withName ? unit.name() + "  " : "")
    {
        recording.name = unit.name();
        for (const CheckSpec& c : checks)
            if (!c.trace.empty() && c.unit == unit.name()) recording.traceCounts[c.trace] = 0;
        sim::MainProcessor& mp = unit.node().mainProcessor();
        mp.onStatus([this](const sim::ClockStatus& s) {
            onClockState(s.radioClockState);
            onReferenceState(s.degrStatus);
        });
        mp.onSelect([this](const sim::MpReference& r) { onSelect(r); });
        mp.onRecord([this](const sim::MpRecord& r) { onRecord(r); });
        unit.node().pmAgent().onRecord([this](const sim::PmRecord& r) {
            recording.pmPeriods.push_back({now(), r.froType, r.suspectFlag != 0, r.values});
        });
        unit.node().traces().setCapacity(0);
        unit.node().traces().onLine([this](const sim::TraceLine& line) { onTrace(line); });
        unit.node().onProgramStart([this](u32 type) { onStart(static_cast<u8>(type)); });
        unit.node().onProgramEnd([this](const sim::ProgramEnd& end) {
            tell("program ended: " +
                 (end.text.empty() ? "code " + std::to_string(end.code) : end.text));
        });
    }

    void sample()
    {
        Sample s;
        sim::Board& board = unit_.node().board();
        s.t = now();
        s.timeError_ns = board.timeError_s() * 1e9;
        s.freqError_ppb = board.frequencyError() * 1e9;
        if (leader_ != nullptr) s.followError_ns = sim::counterDifference_s(unit_, *leader_) * 1e9;
        if (const auto ahead_s = unit_.counterAgainstGps_s()) s.gpsTimeError_ns = *ahead_s * 1e9;
        s.div = board.divider();
        s.temperature_V = board.temperature_V();
        const bool runs = unit_.node().program() != nullptr;
        if (runs) ranUntil_s_ = s.t;
        s.radioClockState = runs ? clockState_ : u8{7};   // nobody tells a state without power
        if (runs) {
            s.regState = unit_.node().inProgram([] { return KvdLoz6TuReg_regState(); });
            sampleGps();
        }
        onRegState(s.regState);
        recording.samples.push_back(s);
    }

    /// The unit that it follows, nullptr for none.
    void follows(sim::Unit* leader)
    {
        leader_ = leader;
        if (leader != nullptr) recording.leader = leader->name();
    }

    void command(const std::string& line)
    {
        const double t = now();
        unit_.node().shell().submit(line, [this, t, line](int result, const std::string& output) {
            recording.outputs.push_back({t, line, result, output});
        });
    }

    void happens(const std::string& what)
    {
        recording.events.push_back({now(), "event", what});
        tell("event      " + what);
    }
    void tell(const std::string& text) { progress_.line(now(), prefix_ + text); }

    std::string status() const
    {
        constexpr u8 RNT_TIME_LOCKED = 10, RNT_TIME_HOLDOVER = 11;
        const Sample last = recording.samples.empty() ? Sample{} : recording.samples.back();
        const bool hasTime = clockState_ == RNT_TIME_LOCKED || clockState_ == RNT_TIME_HOLDOVER;
        const double error_ns = hasTime && !std::isnan(last.gpsTimeError_ns) ? last.gpsTimeError_ns
                                                                             : last.timeError_ns;
        char text[96];
        std::snprintf(text, sizeof text, "%s  %s  %+.0f ns", sim::clockStateName(clockState_),
                      selected_.c_str(), error_ns);
        return text;
    }

    /// What the node's services have kept themselves.
    void collect()
    {
        for (const sim::ErrorLogEntry& e : unit_.node().errorLog().entries())
            recording.errors.push_back({seconds(e.at), e.code, e.text});
        for (const sim::TestResult& r : unit_.node().temi().results())
            if (r.result != 0) recording.failedTests.push_back({seconds(r.at), r.name, r.message});
        recording.toldSignals = unit_.node().mainProcessor().toldSignals();
        recording.toldDigest = unit_.node().mainProcessor().toldDigest();
    }

    UnitRecording recording;

private:
    double now() const { return seconds(world_.now()); }

    void onClockState(u8 state)
    {
        if (!recording.states.empty() && recording.states.back().state == state) return;
        clockState_ = state;
        recording.states.push_back({now(), state, sim::clockStateName(state)});
        tell(std::string("clock      ") + sim::clockStateName(state));
    }

    /// A state that stands says nothing of measurements that are refused meanwhile; this does.
    void onReferenceState(u8 degrStatus)
    {
        const bool isDegraded = degrStatus == KVD_TUIIF_REF_DEGRADED;
        if (std::exchange(isDegraded_, isDegraded) == isDegraded) return;
        tell(std::string("reference  ") + (isDegraded ? "degraded" : "no longer degraded"));
    }

    void onSelect(const sim::MpReference& r)
    {
        selected_ = r.name;
        recording.selected.push_back({now(), r.refType, sim::refTypeName(r.refType)});
        tell(std::string("selected   ") + sim::refTypeName(r.refType) + " " + r.name);
    }

    void onRegState(u8 state)
    {
        if (state == 0 ||
            (!recording.regStates.empty() && recording.regStates.back().state == state))
            return;
        recording.regStates.push_back({now(), state, KvdLoz6TuReg_regStateText(state)});
        tell(std::string("regulator  ") + KvdLoz6TuReg_regStateText(state));
    }

    void sampleGps()
    {
        struct Seen { u8 state, type; std::string typeName; };
        const Seen seen = unit_.node().inProgram([] {
            const u32 type = KvdLoz6TuGps_receiver().gpssType;
            return Seen{static_cast<u8>(KvdLoz6TuGps_gpsState()), static_cast<u8>(type),
                        KvdLoz6TuGps_gpssTypeText(type)};
        });
        if (recording.gpsStates.empty() && seen.state <= GPS_UN_INIT) return;
        if (recording.gpsTypes.empty() || recording.gpsTypes.back().state != seen.type) {
            recording.gpsTypes.push_back({now(), seen.type, sim::gpssTypeName(seen.type)});
            if (seen.type != GPSS_UNKNOWN) tell("receiver   " + seen.typeName);
        }
        // A late sentence takes the state from 7 to 6 and the next brings it back: nothing to tell.
        const bool isShaken = seen.state == GPS_OPERATIONAL && !recording.gpsStates.empty() &&
                              recording.gpsStates.back().state == GPS_OPERATIONAL_WITH_VALID_TIME;
        shaken_ = isShaken ? shaken_ + 1 : 0;
        if (isShaken && shaken_ < SHAKEN_SAMPLES) return;
        if (!recording.gpsStates.empty() && recording.gpsStates.back().state == seen.state) return;
        recording.gpsStates.push_back({now(), seen.state, sim::gpsStateName(seen.state)});
        tell(std::string("GPS        ") + sim::gpsStateName(seen.state));
    }

    void onRecord(const sim::MpRecord& record)
    {
        if (record.sigNo == KVD_TUIIF_SUBSCRIBE_PM_CFM)
            if (const auto cfm = record.as<KvdTuiifSubscribePmCfm>())
                recording.pmSubscriptions.push_back({now(), cfm->froType});
        onEthernetReport(record);
        onSocpriReport(record);
        if (record.sigNo != KVD_TUIIF_GPS_STATUS_IND) return;
        const auto ind = record.as<KvdTuiifGpsStatusInd>();
        if (!ind) return;
        const std::string text(ind->text, strnlen(ind->text, sizeof ind->text));
        recording.gpsStatuses.push_back({now(), ind->gpsStatus, text});
        tell("GPS status " + std::to_string(ind->gpsStatus) + " " + text);
    }

    void onSocpriReport(const sim::MpRecord& record)
    {
        std::optional<SocpriReport> report = socpriReport(record);
        if (!report) return;
        report->t = now();
        recording.socpriReports.push_back(*report);
        const std::string port = report->port != 0 ? " port " + std::to_string(report->port) : "";
        tell("radio link " + std::string(sim::socpriAnswerName(report->sigNo)) + port + ": " +
             std::to_string(report->status));
    }

    void onEthernetReport(const sim::MpRecord& record)
    {
        constexpr u32 ETHERNET = 7;              // froClassNo
        if (record.sigNo == KVD_TUIIF_QUALITY_LEVEL_IND) {
            const auto ind = record.as<KvdTuiifQualityLevelInd>();
            if (!ind || ind->froClassNo != ETHERNET) return;
            const u8 code = static_cast<u8>(ind->clockQuality);
            recording.qualities.push_back({now(), code, qualityLevelName(code)});
            tell("quality    " + recording.qualities.back().name + ", reference " +
                 std::to_string(ind->froId));
        } else if (record.sigNo == KVD_TUIIF_PDU_MISSING_IND) {
            const auto ind = record.as<KvdTuiifPduMissingInd>();
            if (!ind) return;
            const bool raised = ind->pduMissing != 0;
            recording.pduAlarms.push_back({now(), raised ? u8{1} : u8{0}, raised ? "raised" : "cleared"});
            tell("PDU alarm  " + recording.pduAlarms.back().name + ", reference " +
                 std::to_string(ind->froId));
        }
    }

    void onStart(u8 type)
    {
        if (unit_.node().programStarts() <= 1) return;
        recording.restarts.push_back({ranUntil_s_, now(), type, clockState_, "", -1});
        flashFile_.clear();
    }

    /// What a start uses shows in its traces alone.
    void onStartTrace(const std::string& text)
    {
        struct Begin { const char* trace; const char* used; };
        static constexpr Begin BEGINS[] = {
            {"initiate with msi done", FROM_PERSISTENT_MEMORY}, {"initiate with flash done", "flash"},
            {"initiate with calibration done", "calibration"}, {"initiate cold done", "nothing"}};
        constexpr const char* FILE = "Using ";
        if (text.starts_with(FILE) && text.find(" historical data file") != std::string::npos)
            flashFile_ =
                text.substr(std::strlen(FILE), text.find(' ', std::strlen(FILE)) - std::strlen(FILE));
        Restart& r = recording.restarts.back();
        for (const Begin& b : BEGINS) {
            if (text.find(b.trace) == std::string::npos) continue;
            r.used = b.used;
            if (r.used == "flash") r.used += " " + flashFile_;
            r.used_s = now();
            tell("begins     with " + r.used);
        }
    }

    void onTrace(const sim::TraceLine& line)
    {
        if (!recording.restarts.empty() && recording.restarts.back().used.empty())
            onStartTrace(line.text);
        for (auto& [text, count] : recording.traceCounts)
            if (line.text.find(text) != std::string::npos) ++count;
    }

    ose::World& world_;
    sim::Unit& unit_;
    sim::Unit* leader_ = nullptr;
    Progress& progress_;
    std::string prefix_;
    u8 clockState_ = 7;
    bool isDegraded_ = false;
    std::string selected_ = "none";
    double ranUntil_s_ = 0;
    std::string flashFile_;
    static constexpr u32 SHAKEN_SAMPLES = 5;
    u32 shaken_ = 0;
};

class Run {
public:
    /// `clock` is the host's, where the run keeps its time.
    Run(const sim::Scenario& scenario, const std::vector<CheckSpec>& checks, const RunOptions& options,
        sim::HostClock* clock)
        : scenario_(scenario), checks_(checks), options_(options), world_(scenario.seed),
          progress_(!options.quiet && !options.shell, scenario.duration_s)
    {
        world_.onMisuse([this](const ose::Misuse& m) { misuses_.push_back(m.text()); });
        for (const sim::UnitSpec& spec : scenario.units) {
            units_.push_back(std::make_unique<sim::Unit>(world_, spec));
            recorders_.push_back(std::make_unique<Recorder>(
                world_, *units_.back(), progress_, scenario.units.size() > 1, checks));
            if (!options.out.empty())
                units_.back()->node().traces().toFile(options.out + "/trace-" + spec.node.name +
                                                      ".txt");
        }
        links_ = sim::makeLinks(world_, scenario, units_);
        net_ = std::make_unique<sim::PacketNet>(world_, scenario, units_);
        if (!options.out.empty()) delays_.watch(net_->network(), scenario);
        if (clock != nullptr) openInterfaces(*clock);
        takeLeaders();
        scheduleEvents();
        scheduleCommands();
        scheduleSample(0);
    }

    Recording run()
    {
        const auto began = std::chrono::steady_clock::now();
        world_.setPace(hostNet_ ? 0 : options_.speed);   // on an interface the host's clock drives it
        std::unique_ptr<Console> console = startConsole();
        const ose::Time end = worldTime(scenario_.duration_s);
        const double slice_s = hostNet_ ? 0.2 : 10.0;
        for (double t = slice_s; world_.now() < end; t += slice_s) {
            const ose::Time until = std::min(worldTime(t), end);
            if (hostNet_) hostNet_->runUntil(until);
            else          world_.runUntil(until);
            if (console && console->ended()) break;
            progress_.at(seconds(world_.now()), recorders_.front()->status());
        }
        progress_.end();
        if (options_.stacks) std::printf("stacks         %s\n", world_.stackUse().text().c_str());
        return finish(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
    }

private:
    /// On an address that its interface doesn't have, what needs datagrams would never get any.
    static bool needsDatagrams(const sim::Scenario& scenario, const std::string& host)
    {
        constexpr u8 ETHERNET_TIME = 0;
        for (const sim::UnitSpec& unit : scenario.units)
            if (unit.node.name == host)
                return std::ranges::any_of(unit.node.mainProcessor.packetRefs, [](const auto& r) {
                    return r.typeOfPktStruct != ETHERNET_TIME;
                });
        return std::ranges::any_of(scenario.masters,
                                   [&](const auto& m) { return m.name == host && m.unicast; });
    }

    /// What the units on an interface listen to; nothing where there are masters alone.
    std::optional<std::vector<sim::Listening>> listeningOn(const std::string& interface) const
    {
        std::optional<std::vector<sim::Listening>> all;
        for (const auto& unit : units_)
            for (const auto& port : hostNet_->ports()) {
                if (port->interface() != interface || &port->host() != &unit->node().packetPort()) continue;
                if (!all) all.emplace();
                for (const sim::MpPacketRef& ref : unit->node().mainProcessor().config.packetRefs)
                    all->push_back(listeningOf(ref));
            }
        return all;
    }

    void openInterfaces(sim::HostClock& clock)
    {
        hostClock_ = &clock;
        hostNet_ = std::make_unique<sim::HostNet>(world_, net_->network(), clock);
        hostNet_->onHeard([this](const std::string& interface) { return listeningOn(interface); },
                          [this](const std::string& interface, const std::string& text) {
                              recorders_.front()->tell(interface + "      " + text);
                          });
        for (const HostInterface& i : options_.interfaces) {
            const std::string name = i.host.empty() ? units_.front()->name() : i.host;
            sim::NetHost* const host = net_->network().host(name);
            if (host == nullptr)
                throw sim::HostError(i.interface + ": there is no unit or master '" + name + "'");
            for (const auto& other : hostNet_->ports())
                if (&other->host() == host)
                    throw sim::HostError(i.interface + ": '" + name + "' is on " + other->interface());
            const sim::HostPort& port = hostNet_->add(*host, i.interface);
            if (!port.carriesDatagrams() && needsDatagrams(scenario_, name))
                throw sim::HostError(i.interface + ": '" + name + "' needs " + port.noDatagrams());
        }
        for (const HostInterface& i : options_.interfaces)
            recorders_.front()->tell("stamps     " + hostNet_->stampsOf(i.interface));
        if (options_.receiver) openReceiver(*options_.receiver);
        realTimeRefused_ = askForRealTime();
        if (!realTimeRefused_.empty())
            recorders_.front()->tell("host       no SCHED_FIFO: " + realTimeRefused_ +
                                     "; a loaded machine makes the run late, the summary tells how much");
    }

    /// In place of the simulated receiver, which has no power any more.
    void openReceiver(const HostReceiver& r)
    {
        const std::size_t index = r.unit.empty() ? 0 : indexOf(r.unit);
        if (index >= units_.size()) throw sim::HostError(r.tty + ": there is no unit '" + r.unit + "'");
        sim::Unit& unit = *units_[index];
        if (!scenario_.units[index].gps)
            throw sim::HostError(r.tty + ": '" + unit.name() + "' has no [unit.gps]");
        unit.gps().setPowered(false);
        receiver_ = std::make_unique<sim::HostGps>(world_, *hostClock_, unit.node().serial(), r.tty, r.pps);
        receiver_->onWord(
            [this, index](const std::string& text) { recorders_[index]->tell("receiver   " + text); });
        unit.node().board().connect(sim::ReferenceInput::Pps, receiver_.get());
        hostNet_->attach(*receiver_);
    }

    void scheduleEvents()
    {
        for (const sim::EventSpec& event : scenario_.events) {
            if (event.linkAction) {
                scheduleLinkEvent(event);
                continue;
            }
            if (event.netAction) {
                world_.at(worldTime(event.at_s), [this, &event] {
                    recorders_.front()->happens(event.what);
                    event.netAction(*net_);
                });
                continue;
            }
            world_.at(worldTime(event.at_s), [this, &event, index = indexOf(event.unit)] {
                recorders_[index]->happens(event.what);
                event.action(*units_[index]);
            });
        }
    }

    /// Each unit follows the leader of its first link.
    void takeLeaders()
    {
        for (std::size_t i = 0; i < units_.size(); ++i) {
            const auto followed = std::find_if(links_.begin(), links_.end(), [&](const auto& link) {
                return link->spec().kind != sim::LinkKind::Inci && &link->follower() == units_[i].get();
            });
            recorders_[i]->follows(followed != links_.end() ? &(*followed)->leader() : nullptr);
        }
    }

    void scheduleLinkEvent(const sim::EventSpec& event)
    {
        const auto link = std::find_if(links_.begin(), links_.end(), [&](const auto& l) {
            return l->spec().name == event.link;
        });
        world_.at(worldTime(event.at_s),
                  [this, &event, &link = **link, index = indexOf((*link)->spec().to)] {
                      recorders_[index]->happens(event.what);
                      event.linkAction(link);
                      takeLeaders();
                  });
    }

    std::size_t indexOf(const std::string& name) const
    {
        const auto unit = std::find_if(units_.begin(), units_.end(),
                                       [&](const auto& u) { return u->name() == name; });
        return static_cast<std::size_t>(unit - units_.begin());
    }

    void scheduleCommands()
    {
        for (const CheckSpec& check : checks_) {
            if (check.command.empty()) continue;
            const auto recorder =
                std::find_if(recorders_.begin(), recorders_.end(),
                             [&](const auto& r) { return r->recording.name == check.unit; });
            world_.at(worldTime(check.from_s),
                      [r = recorder->get(), &check] { r->command(check.command); });
        }
    }

    void scheduleSample(u64 number)
    {
        world_.at(worldTime(static_cast<double>(number) * scenario_.interval_s), [this, number] {
            for (auto& recorder : recorders_) recorder->sample();
            delays_.sample();
            scheduleSample(number + 1);
        });
    }

    std::unique_ptr<Console> startConsole()
    {
        if (!options_.shell) return nullptr;
        std::vector<sim::Node*> nodes;
        for (auto& unit : units_) nodes.push_back(&unit->node());
        auto console = std::make_unique<Console>(world_, nodes, hostNet_ == nullptr);
        console->start();
        return console;
    }

    Recording finish(double wall_s)
    {
        Recording recording;
        recording.scenario = scenario_.name;
        recording.title = scenario_.title;
        recording.seed = scenario_.seed;
        recording.interval_s = scenario_.interval_s;
        recording.virtual_s = seconds(world_.now());
        recording.wall_s = wall_s;
        for (auto& recorder : recorders_) {
            recorder->collect();
            recording.units.push_back(recorder->recording);
            recording.units.back().delays = delays_.take(recorder->recording.name);
        }
        // An operator who left early has seen only a part of what the checks speak of.
        if (world_.now() >= worldTime(scenario_.duration_s))
            recording.checks = evaluateChecks(checks_, recording);
        recording.misuses = misuses_;
        if (hostNet_) recording.host = hostReport(*hostNet_, *hostClock_, realTimeRefused_, receiver_.get());
        if (!options_.out.empty())
            for (auto& unit : units_)
                unit->node().volumes().save(options_.out + "/volumes-" + unit->name());
        return recording;
    }

    const sim::Scenario& scenario_;
    const std::vector<CheckSpec>& checks_;
    RunOptions options_;
    ose::World world_;
    Progress progress_;
    std::vector<std::string> misuses_;
    std::vector<std::unique_ptr<sim::Unit>> units_;
    std::vector<std::unique_ptr<sim::Link>> links_;
    std::unique_ptr<sim::PacketNet> net_;
    sim::HostClock* hostClock_ = nullptr;
    DelayRecorder delays_;
    std::unique_ptr<sim::HostNet> hostNet_;
    std::unique_ptr<sim::HostGps> receiver_;
    std::string realTimeRefused_;
    std::vector<std::unique_ptr<Recorder>> recorders_;
};

}  // namespace

Recording runScenario(const sim::Scenario& scenario, const std::vector<CheckSpec>& checks,
                      const RunOptions& options)
{
    if (!options.onHost()) return Run(scenario, checks, options, nullptr).run();
    sim::HostClock clock;
    sim::Scenario onHost = scenario;
    const i64 tai_s = clock.taiAtBeginning() - (options.hostTimeIsUtc ? sim::TAI_AHEAD_OF_UTC : 0);
    onHost.setMasterEpoch(tai_s);
    for (sim::UnitSpec& unit : onHost.units)
        if (unit.gps) unit.gps->start = clock.taiAtBeginning() - sim::TAI_AHEAD_OF_UTC;
    return Run(onHost, checks, options, &clock).run();
}

}  // namespace app
