#include "app/runner.h"

#include "app/checks.h"
#include "app/console.h"
#include "app/delay_recorder.h"
#include "app/progress.h"
#include "app/recorder.h"
#include "app/run_control.h"
#include "app/status_feed.h"
#include "app/summary.h"
#include "sim/net/host_net.h"
#include "sim/refs/host_gps.h"
#include "sim/scenario/link.h"
#include "sim/scenario/packet_net.h"
#include "sim/scenario/unit.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace app {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }
ose::Time worldTime(double s) { return std::llround(s * 1e12); }

class Run {
public:
    /// `clock` is the host's, where the run keeps its time.
    Run(const sim::Scenario& scenario, const std::vector<CheckSpec>& checks, const RunOptions& options,
        sim::HostClock* clock)
        : scenario_(scenario), checks_(checks), options_(options), world_(scenario.seed),
          progress_(!options.quiet && !options.shell, scenario.duration_s),
          feed_(scenario.name, options.feed)
    {
        world_.onMisuse([this](const ose::Misuse& m) { misuses_.push_back(m.text()); });
        for (sim::UnitSpec spec : scenario.units) {
            spec.node.tracesEveryLevel = options.traceAll;
            units_.push_back(std::make_unique<sim::Unit>(world_, spec));
            recorders_.push_back(std::make_unique<Recorder>(world_, *units_.back(), progress_,
                                                            scenario.units.size() > 1, checks));
            feed_.add(*recorders_.back());
            recorders_.back()->onEvent([this, r = recorders_.back().get()](const UnitEvent& event) {
                feed_.changed();
                if (console_) console_->show(r->recording.name, event);
            });
            if (!options.out.empty())
                units_.back()->node().traces().toFile(options.out + "/trace-" + spec.node.name + ".txt");
        }
        links_ = sim::makeLinks(world_, scenario, units_);
        net_ = std::make_unique<sim::PacketNet>(world_, scenario, units_);
        if (!options.out.empty()) delays_.watch(net_->network(), scenario);
        if (clock != nullptr) openInterfaces(*clock);
        takeLeaders();
        scheduleEvents();
        scheduleCommands();
        scheduleSample(0);
        pages_.resize(units_.size());
        if (scenario.pagesEvery_s > 0) schedulePages(1);
    }

    Recording run()
    {
        const auto began = std::chrono::steady_clock::now();
        if (!options_.quiet && !options_.feed.metrics.empty())
            std::printf("metrics        http://%s/metrics\n", feed_.metricsAddress().c_str());
        const double speed = hostNet_ ? 0 : options_.speed;          // the host's clock drives it
        RunControl control(world_, worldTime(scenario_.duration_s), speed, options_.shell,
                           [this](ose::Time until) { advance(until); });
        startConsole(control);
        control.run([this, &control] {
            progress_.at(seconds(world_.now()), recorders_.front()->status());
            feed_.look(seconds(world_.now()), control.paused());
        });
        feed_.end(seconds(world_.now()));
        console_.reset();
        progress_.end();
        if (options_.stacks) std::printf("stacks         %s\n", world_.stackUse().text().c_str());
        return finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
    }

private:
    /// On an address that its interface doesn't have, what needs datagrams would never get any.
    static bool needsDatagrams(const sim::Scenario& scenario, const std::string& host)
    {
        constexpr u8 ETHERNET_TIME = 0;
        for (const sim::UnitSpec& unit : scenario.units)
            if (unit.node.name == host)
                return std::ranges::any_of(unit.node.mainProcessor.packetRefs,
                                           [](const auto& r) { return r.typeOfPktStruct != ETHERNET_TIME; });
        return std::ranges::any_of(scenario.masters,
                                   [&](const auto& m) { return m.name == host && m.unicast; });
    }

    bool isOneStepMaster(const std::string& host) const
    {
        return std::ranges::any_of(scenario_.masters,
                                   [&](const auto& m) { return m.name == host && !m.twoStep; });
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
                              recorders_.front()->tell(interface, text);
                          });
        for (const HostInterface& i : options_.interfaces)
            if (isOneStepMaster(i.host)) hostNet_->wantOneStep(i.interface);
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
            recorders_.front()->tell("stamps", hostNet_->stampsOf(i.interface));
        for (const HostInterface& i : options_.interfaces)
            if (isOneStepMaster(i.host))
                recorders_.front()->tell("one-step", hostNet_->oneStepOf(i.interface));
        feed_.onHost([this] { return toJson(host()); });
        if (options_.receiver) openReceiver(*options_.receiver);
        realTimeRefused_ = askForRealTime();
        if (!realTimeRefused_.empty())
            recorders_.front()->tell(
                "host", "no SCHED_FIFO: " + realTimeRefused_
                            + "; a loaded machine makes the run late, the summary tells how much");
    }

    HostReport host() const { return hostReport(*hostNet_, *hostClock_, realTimeRefused_, receiver_.get()); }

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
            [this, index](const std::string& text) { recorders_[index]->tell("receiver", text); });
        unit.node().board().connect(sim::ReferenceInput::Pps, receiver_.get());
        hostNet_->attach(*receiver_);
    }

    void advance(ose::Time until)
    {
        constexpr ose::Time HOST_SLICE = 200 * ose::MS;
        if (hostNet_) hostNet_->runUntil(std::min(until, world_.now() + HOST_SLICE));
        else          world_.runUntil(until);
    }

    void scheduleEvents()
    {
        for (const sim::EventSpec& event : scenario_.events)
            world_.at(worldTime(event.at_s), [this, &event] { happen(event); });
    }

    void happen(const sim::EventSpec& event)
    {
        if (event.linkAction) {
            const auto link = std::ranges::find_if(
                links_, [&](const auto& l) { return l->spec().name == event.link; });
            recorders_[indexOf((*link)->spec().to)]->tell("event", event.what);
            event.linkAction(**link);
            takeLeaders();
        } else if (event.netAction) {
            recorders_.front()->tell("event", event.what);
            event.netAction(*net_);
        } else {
            const std::size_t index = indexOf(event.unit);
            recorders_[index]->tell("event", event.what);
            event.action(*units_[index]);
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
            const auto recorder = std::find_if(recorders_.begin(), recorders_.end(), [&](const auto& r) {
                return r->recording.name == check.unit;
            });
            world_.at(worldTime(check.from_s), [r = recorder->get(), &check] { r->command(check.command); });
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

    /// Commands whose pages show what nobody is told.
    static constexpr const char* PAGES[] = {"kvdinfo all", "kvdhist all", "kvdtupktsync"};

    void schedulePages(u64 number)
    {
        world_.at(worldTime(static_cast<double>(number) * scenario_.pagesEvery_s), [this, number] {
            for (std::size_t i = 0; i < units_.size(); ++i)
                for (const char* line : PAGES)
                    units_[i]->node().shell().submit(
                        line, [this, i](int, const std::string& page) { pages_[i].add(page); });
            schedulePages(number + 1);
        });
    }

    void startConsole(RunControl& control)
    {
        if (!options_.shell) return;
        std::vector<Recorder*> units;
        for (const auto& r : recorders_) units.push_back(r.get());
        console_ = std::make_unique<Console>(ConsoleRun{
            world_, control, scenario_, units, hostNet_ == nullptr,
            [this](const sim::EventSpec& event) { happen(event); },
            [this] { return hostNet_ ? heardText(toJson(host())) : ""; }});
        control.onEnd([this] {
            console_->tell("the scenario's end at " + clockText(scenario_.duration_s)
                           + " is reached: 'quit' ends the run, 'until' or 'step' goes beyond");
        });
        console_->start();
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
        recording.complete = world_.now() >= worldTime(scenario_.duration_s);
        if (recording.complete) recording.checks = evaluateChecks(checks_, recording);
        recording.misuses = misuses_;
        if (hostNet_) recording.host = host();
        if (!options_.out.empty())
            for (auto& unit : units_) unit->node().volumes().save(options_.out + "/volumes-" + unit->name());
        if (!hostNet_ && recording.complete) lookInside(recording);
        return recording;
    }

    /// State that nobody is told stands in the units' files and pages; looked at when all else is recorded,
    /// since a command takes its time.
    void lookInside(Recording& recording)
    {
        for (std::size_t i = 0; i < units_.size(); ++i) {
            sim::Node& node = units_[i]->node();
            sim::Digest files;
            // The last command has another process write the records of each second to files.
            for (const char* line :
                 {"kvdinfo all", "kvdhist all", "kvdreadhist", "kvdtupktsync", "gpsstatus", "kvdgpstrace"}) {
                std::string page;
                node.shell().run(line, page);
                pages_[i].add(page);
            }
            world_.runFor(ose::SEC);
            for (const auto& [path, content] : node.volumes().files()) {
                files.add(path);
                files.add(content);
            }
            recording.units[i].filesDigest = files.value();
            recording.units[i].pagesDigest = pages_[i].value();
        }
    }

    const sim::Scenario& scenario_;
    const std::vector<CheckSpec>& checks_;
    RunOptions options_;
    std::vector<sim::Digest> pages_;   // of each unit
    ose::World world_;
    Progress progress_;
    StatusFeed feed_;
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
    std::unique_ptr<Console> console_;
};

void makeOneStep(std::vector<sim::PtpMasterConfig>& masters, const std::vector<HostInterface>& interfaces)
{
    bool any = false;
    for (sim::PtpMasterConfig& m : masters)
        for (const HostInterface& i : interfaces)
            if (i.host == m.name) any = true, m.twoStep = false;
    if (!any) throw sim::HostError("--one-step: no master is on an interface, as with --ptp-if gm1=eth1");
}

}  // namespace

Recording runScenario(const sim::Scenario& scenario, const std::vector<CheckSpec>& checks,
                      const RunOptions& options)
{
    if (!options.onHost()) return Run(scenario, checks, options, nullptr).run();
    sim::HostClock clock;
    sim::Scenario onHost = scenario;
    const i64 tai_s = clock.taiAtBeginning() - (options.hostTimeIsUtc ? sim::TAI_AHEAD_OF_UTC : 0);
    onHost.setMasterEpoch(tai_s);
    if (options.oneStep) makeOneStep(onHost.masters, options.interfaces);
    for (sim::UnitSpec& unit : onHost.units)
        if (unit.gps) unit.gps->start = clock.taiAtBeginning() - sim::TAI_AHEAD_OF_UTC;
    return Run(onHost, checks, options, &clock).run();
}

}  // namespace app
