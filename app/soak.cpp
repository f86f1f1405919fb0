#include "app/soak.h"

#include "app/clock_model.h"
#include "app/soak_waits.h"
#include "iif/kvd_biraiifadm.h"
#include "mp/kvd_iifadm.h"
#include "ref/kvd_ref.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/node/digest.h"
#include "sim/scenario/link.h"
#include "sim/scenario/packet_net.h"
#include "sim/scenario/unit.h"
#include "store/kvd_mgr_mem.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <deque>
#include <limits>
#include <memory>
#include <set>

namespace app {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }

/// Words of events that leave the references alone.
bool sparesReferences(const std::string& what)
{
    for (const char* const word : {"unit.command", "node.msi", "mp.gps_attributes", "mp.ask", "mp.jump"})
        if (what.starts_with(word)) return true;
    return false;
}

/// Processes of the program that come with what it is set up for, and are to stay.
constexpr const char* PROCESSES[] = {"Kvd_loz6_tumgr_proc",    "Kvd_loz6_fifo_proc",
                                     "Tsv_IfSupport_proc",     "Kvd_loz6_tupktsync_proc",
                                     "Kvd_loz6_turefmon_proc", "Kvd_loz6_tuhwif_int_proc",
                                     "TuGpsInt_proc",          "TuGpsOslInt_proc",
                                     "TuHptsiInt_proc",        "PsxIwNgscInciServer"};

/// One unit under watch: what is done to it and what it shows.
class Watched {
public:
    Watched(sim::Unit& unit, const sim::UnitSpec& spec, sim::Digest& digest, std::vector<Violation>& found)
        : unit_(unit), spec_(spec), digest_(digest), found_(found), watch_(unit.name()), waits_(unit.node())
    {
        may_.hasTime = spec.node.mainProcessor.timeMode != 1;
        const auto& references = spec.node.mainProcessor.references;
        // Packets are averaged for hours before they are trusted with the time.
        may_.canKnowTime = references.empty() ||       // by radio links
                           std::any_of(references.begin(), references.end(), [](const sim::MpReference& r) {
                               return r.refType == GPS_REF || r.refType == HPTSI_REF
                                      || r.refType == GPSOSL_REF;
                           });
        unit.node().traces().setCapacity(0);
        unit.node().mainProcessor().onStatus([this](const sim::ClockStatus& s) {
            if (s.radioClockState != told_) ++clockChanges;
            told_ = s.radioClockState;
            const u32 connection = unit_.node().mainProcessor().connections();
            if (connection != connection_) watch_.forgetTold();
            connection_ = connection;
            constexpr double NEW_ROLE_s = 15.0;        // in which the former role's last word may still come
            if (may_.idle || seconds(s.at) - roleChanged_s_ < NEW_ROLE_s) watch_.forgetTold();
            watch_.told(seconds(s.at), s.radioClockState, found_);
            digest_.add(s.at);
            digest_.add(s.radioClockState);
            digest_.add(s.refState);
        });
        unit.node().mainProcessor().onRecord([this](const sim::MpRecord& r) {
            waits_.told(r);
            if (const auto ind = r.as<KvdTuiifGpsStatusInd>(); ind && r.sigNo == KVD_TUIIF_GPS_STATUS_IND)
                gpsTold_ = ind->gpsStatus;
            if (const auto ind = r.as<KvdTuiifEtFroidInd>(); ind && r.sigNo == KVD_TUIIF_ET_FROID_IND)
                toldOfLine(*ind);
        });
        unit.node().mainProcessor().onOrder([this](std::span<const std::byte> s) {
            lookAtSelection(s);
            model_.ordered(s);
            waits_.ordered(seconds(unit_.node().world().now()), s);
        });
        unit.node().traces().onLine([this](const sim::TraceLine& l) {
            model_.recorded(seconds(l.at), l.text);
            if (l.text == "New recovery mode: 1") may_.narrowed_s = seconds(l.at);
        });
        unit.node().onProgramStart([this](u32) {
            model_.programStarts(unit_.node().volumes().exists("/d/socpri_active") != 0);
            waits_.programStarts();
            watch_.forgetTold();
            lines_.clear();
            may_.halting = boardFaults_ > 0;
            if (unit_.node().programStarts() > 1) ++restarts;
        });
    }

    /// What an event lets the unit do. `what` is its name, its words and its details.
    void onEvent(const std::string& what, double t)
    {
        waits_.onEvent(what);
        const bool isOff = what.ends_with(" off");
        const std::string name = what.substr(0, what.find(' '));
        if (name == "mp.jump") may_.jump_s = t;
        if (!sparesReferences(what)) may_.reference_s = t;
        // Another role has other states; an oven that leaves its limits warms up again.
        if (name == "mp.change_master") roleChanged_s_ = t;
        if (name == "mp.change_master" || name == "temperature.step") watch_.forgetTold();
        if (name == "node.packet_stamps") stampsFail_ = !stampsFail_;
        if (name == "temperature.step") ovenMoved_s_ = t, ovenIsOut_ = !ovenIsOut_;
        if (name != "board.fault") return;
        boardFaults_ += isOff ? -1 : 1;
        may_.halting = true;
        may_.boardFault_s = t;
        if (what.find("synth") != std::string::npos || what.find("feedback") != std::string::npos)
            unlocked_ = !isOff;
        if (what.find("synth") != std::string::npos) model_.synthesiserUnlocked(t, !isOff);
    }

    /// What happens to the packet network or a link may happen to any reference.
    void onOtherEvent(double t) { may_.reference_s = t; }
    /// Something was done to a unit, this one or another.
    void onDisturbance(double t) { disturbed_s_ = t; }
    /// Where it is the unit that follows.
    void watchLink(const sim::Link& link) { links_.push_back(&link); }
    void mayStep(double t) { may_.jump_s = t; }
    double jumped_s() const { return may_.jump_s; }

    void look(double t)
    {
        const Moment m = moment(t);
        if (unlocked_) unlockedUntil_s_ = t;
        if (stampsFail_) may_.reference_s = t;   // a reference without measurements ages unseen
        constexpr double CHECKED_EACH_s = 130.0;           // two minute checks
        may_.unlocked = t - unlockedUntil_s_ < CHECKED_EACH_s;
        watch_.look(m, may_, found_);
        digest_.add(m.timeError_ns);
        digest_.add(m.clock);
    }

    u64 restarts = 0, clockChanges = 0;

private:
    void toldOfLine(const KvdTuiifEtFroidInd& ind)
    {
        constexpr u32 ADDED = 1;
        if (ind.statusControl == ADDED) lines_.insert(ind.froId);
        else                            lines_.erase(ind.froId);
    }

    /// A line that the node's port service hasn't told the unit of is none: an order to select it is dropped.
    void lookAtSelection(std::span<const std::byte> signal)
    {
        KvdTuiifSelectSynchRefInd ind{};
        if (signal.size() < sizeof ind) return;
        std::memcpy(&ind, signal.data(), sizeof ind);
        if (ind.sigNo == KVD_TUIIF_SELECT_SYNCH_REF_IND)
            selectsNoLine_ = ind.refType == PDH_SDH_REF && !lines_.contains(ind.froId);
    }

    Moment moment(double t)
    {
        Moment m;
        sim::Node& node = unit_.node();
        const sim::MainProcessor& mp = node.mainProcessor();
        m.t = t;
        m.runs = node.program() != nullptr;
        m.starts = node.programStarts();
        m.timeError_ns = node.board().timeError_s() * 1e9;
        m.freqError_ppb = node.board().frequencyError() * 1e9;
        const auto ahead_s = unit_.counterAgainstGps_s();
        m.gpsError_ns = ahead_s ? *ahead_s * 1e9 : std::numeric_limits<double>::quiet_NaN();
        if (!mp.connected()) connectedSince_s_ = t, gpsTold_ = 0;
        constexpr double SETTLED_s = 15.0;
        m.connected = t - connectedSince_s_ > SETTLED_s;
        m.quiet_s = t - disturbed_s_;
        may_.refused = t - connectedSince_s_ < SETTLED_s;
        may_.slave = mp.config.masterSlaveMode == KVD_TUIIF_SLAVE_TU;
        may_.follows = !links_.empty();
        m.told = mp.clockState();
        m.refStateTold = mp.status().refState;
        waits_.lookAtServices(t);
        if (!m.runs) return m;
        m.poolUsed = node.program()->poolUsed();
        struct Seen {
            u8 clock, selected, degrState;
            double c, f;
            u32 jumpState, refState, byText, samples;
            bool isDriving, hasMemory, serves;
        };
        const Seen seen = node.inProgram([] {
            const TimePair last = KvdLoz6TuReg_getLastTime();
            return Seen{KvdLoz6TuIifAdm_radioClockState(),
                        KvdLoz6TuIifAdm_selectedRef(),
                        KvdLoz6TuReg_degrState(),
                        last.c,
                        last.f,
                        KvdLoz6TuReg_jumpState(),
                        KvdLoz6TuIifAdm_tuiifRefState(),
                        KvdLoz6TuRef_stateMask(ROW_GPS) | KvdLoz6TuRef_stateMask(ROW_HPTSI),
                        KvdLoz6TuReg_pll_lastSample().count,
                        KvdLoz6BiraIifAdm_hasHwControl() != 0
                            && KvdLoz6TuReg_initiateState() != TUREG_START   // a hand-over is awaited
                            && KvdLoz6TuReg_initiateState() != TUREG_WARM_INITIATED,
                        KvdLoz6TuMem_ready(MEM_REG_HIST) != 0,
                        KvdLoz6TuIifAdm_startState() == TUIIF_START_RESTART_READY};
        });
        constexpr double OVEN_SETTLED_s = 600.0;
        may_.idle = !seen.isDriving || ovenIsOut_ || t - ovenMoved_s_ < OVEN_SETTLED_s;
        m.due = model_.due(t);
        m.words = model_.words();
        m.before = model_.before();
        m.loopHoldsTime = model_.loopHoldsTime();
        m.loopPullsIn = model_.loopPullsIn();
        // A receiver's return is told by its status text, its bit with the next change of another.
        m.refState = seen.refState & ~seen.byText;
        m.refStateTold &= ~seen.byText;
        m.serves = seen.serves;
        m.waits = waits_.look(t, disturbed_s_, seen.serves);
        m.isRefused = waits_.isRefused();
        m.clock = seen.clock;
        m.selected = seen.selected;
        // A slave takes its link, and SoCPRI's orders their radio link, without a selection.
        const bool isOwnChoice = may_.slave || seen.selected == SOCPRI_REF || selectsNoLine_;
        m.wanted = isOwnChoice ? seen.selected : mp.selectedRefType();
        m.degraded = seen.degrState == KVD_TUIIF_REF_DEGRADED;
        m.coarse_s = seen.c;
        m.fine_s = seen.f;
        if (seen.jumpState != JUMP_NOT_NEEDED) may_.jump_s = t;
        if (seen.samples != loopSamples_) loopSampled_s_ = t;
        loopSamples_ = seen.samples;
        constexpr double SAMPLED_WITHIN_s = 2.0;
        m.hearsLeader = t - loopSampled_s_ < SAMPLED_WITHIN_s;
        lookAtInput(m);
        lookAtLinks(m);
        lookAtComponents(m);
        if (!seen.hasMemory) m.missing += " TuRegHistData";
        return m;
    }

    void lookAtLinks(Moment& m)
    {
        m.followError_ns = std::numeric_limits<double>::quiet_NaN();
        for (const sim::Link* const link : links_) {
            if (&link->follower() != &unit_) continue;
            m.leaderGone = !link->isUp();
            m.followError_ns = sim::counterDifference_s(unit_, link->leader()) * 1e9;
            m.leaderFreqError_ppb = link->leader().node().board().frequencyError() * 1e9;
        }
    }

    /// What the unit has in hand when all is well, and what it lacks of that.
    void lookAtComponents(Moment& m)
    {
        const sim::MainProcessor& mp = unit_.node().mainProcessor();
        for (const sim::MpReference& r : spec_.node.mainProcessor.references)
            if ((may_.slave && mp.suitsRole(r)) || r.refType == GPSOSL_REF) m.isWatched = mp.supervises(r);
        for (const sim::MpReference& r : spec_.node.mainProcessor.references)
            if (mp.suitsRole(r) && r.supervise && !mp.usable(r)) m.unusable += " " + r.name;
        for (const sim::MpReference& r : spec_.node.mainProcessor.references)
            if (r.refType == GPS_REF && mp.supervises(r) && gpsTold_ == 0) m.untold = r.name;
        for (const char* const name : PROCESSES) {
            const bool isThere = unit_.node().system().find(name) != 0;
            if (!isThere && had_.contains(name)) m.missing += std::string(" ") + name;
            if (isThere && m.quiet_s > 3000.0) had_.insert(name);
        }
    }

    /// True when the line gives its signal, or the port got a packet since the last look.
    bool isAlive(const sim::MpReference& r)
    {
        if (r.refType == PACKET_TIME_REF || r.refType == PACKET_FREQ_REF) return packetsCame_;
        constexpr std::pair<const char*, sim::ReferenceInput> INPUTS[] = {
            {"pps", sim::ReferenceInput::Pps}, {"external", sim::ReferenceInput::ExternalFrequency},
            {"eth-b", sim::ReferenceInput::EthernetB}};
        for (const sim::PhyPort& port : unit_.node().phyPorts().ports())
            if (r.refType == PDH_SDH_REF && port.froId == r.froId)
                return unit_.input(port.line == 0 ? sim::ReferenceInput::Pdh1 : sim::ReferenceInput::Pdh2)
                    .present();
        for (const auto& [name, input] : INPUTS)
            if (r.name == name) return unit_.input(input).present();
        return true;                   // looked at otherwise
    }

    /// A line or a packet reference that has been dead for a minute, and what the unit says of it.
    void lookAtInput(Moment& m)
    {
        constexpr double FILTERED_s = 60.0;
        const u32 packets = unit_.node().packetPort().received();
        packetsCame_ = packets != packets_;
        packets_ = packets;
        for (const sim::MpReference& r : spec_.node.mainProcessor.references) {
            if (r.refType != m.selected || r.refType == GPS_REF) continue;
            // A packet reference that begins is told without faults until its clock's timers have run.
            const bool isCreated = unit_.node().mainProcessor().packetRefCreated(r.froId, r.froClassNo);
            if (isAlive(r) || (isCreated && !wasCreated_)) aliveAt_s_ = m.t;
            wasCreated_ = isCreated;
            m.selectedDead = m.t - aliveAt_s_ > FILTERED_s;
            m.selectedUsable = unit_.node().mainProcessor().usable(r);
            return;
        }
        aliveAt_s_ = m.t;
    }

    sim::Unit& unit_;
    const sim::UnitSpec& spec_;
    sim::Digest& digest_;
    std::vector<Violation>& found_;
    SoakWatch watch_;
    ClockModel model_;
    SoakWaits waits_;
    Licence may_;
    bool ovenIsOut_ = false, stampsFail_ = false;
    double ovenMoved_s_ = -1e9, roleChanged_s_ = -1e9;
    int boardFaults_ = 0;
    bool unlocked_ = false;
    double unlockedUntil_s_ = -1e9;
    u8 told_ = 7, gpsTold_ = 0;
    u32 connection_ = 0;
    double connectedSince_s_ = 0, aliveAt_s_ = 0;
    u32 packets_ = 0, loopSamples_ = 0;
    double loopSampled_s_ = -1e9;
    bool packetsCame_ = false, wasCreated_ = false;
    double disturbed_s_ = 0;
    std::vector<const sim::Link*> links_;
    std::set<std::string> had_;        // processes
    std::set<u32> lines_;              // froIds of those that it has told
    bool selectsNoLine_ = false;       // by the main processor's last word
};

class Soak {
public:
    Soak(const sim::Scenario& scenario, SoakResult& result)
        : scenario_(scenario), result_(result), world_(scenario.seed)
    {
        world_.onMisuse([this](const ose::Misuse& m) {
            result_.violations.push_back({seconds(world_.now()), "kernel", "misuse: " + m.text()});
        });
        for (const sim::UnitSpec& spec : scenario.units) {
            units_.push_back(std::make_unique<sim::Unit>(world_, spec));
            watched_.push_back(std::make_unique<Watched>(*units_.back(), spec, digest_, result.violations));
        }
        net_ = std::make_unique<sim::PacketNet>(world_, scenario, units_);
        links_ = sim::makeLinks(world_, scenario, units_);
        for (const auto& link : links_)
            for (std::size_t i = 0; i < units_.size(); ++i)
                if (&link->to() == units_[i].get() || &link->from() == units_[i].get())
                    watched_[i]->watchLink(*link);
        for (const sim::EventSpec& e : scenario.events)
            world_.at(static_cast<ose::Time>(std::llround(e.at_s * 1e12)), [this, &e] { happen(e); });
        scheduleLook(1);
    }

    void run()
    {
        const auto began = std::chrono::steady_clock::now();
        const ose::Time end = static_cast<ose::Time>(scenario_.duration_s * 1e12);
        while (world_.now() < end && result_.violations.empty())
            world_.runUntil(std::min(world_.now() + 10 * ose::SEC, end));
        result_.wall_s = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        result_.hours = seconds(world_.now()) / 3600.0;
        result_.digest = digest_.value();
        for (const auto& w : watched_) {
            result_.restarts += w->restarts;
            result_.clockChanges += w->clockChanges;
        }
        result_.lastEvents.assign(last_.begin(), last_.end());
    }

private:
    void happen(const sim::EventSpec& e)
    {
        const double t = seconds(world_.now());
        for (const auto& watched : watched_) watched->onDisturbance(t);
        if (e.netAction || e.linkAction)
            for (const auto& watched : watched_) watched->onOtherEvent(t);
        if (e.netAction) e.netAction(*net_);
        for (const auto& link : links_)
            if (e.linkAction && link->spec().name == e.link) e.linkAction(*link);
        for (std::size_t i = 0; i < units_.size(); ++i) {
            if (e.netAction || e.linkAction || units_[i]->name() != e.unit) continue;
            watched_[i]->onEvent(e.what, t);
            e.action(*units_[i]);
        }
        ++result_.events;
        char line[160];
        std::snprintf(line, sizeof line, "%.1f s  %s  %s", e.at_s, e.unit.c_str(), e.what.c_str());
        last_.push_back(line);
        constexpr std::size_t KEPT = 12;
        if (last_.size() > KEPT) last_.pop_front();
    }

    void scheduleLook(u64 second)
    {
        world_.at(static_cast<ose::Time>(second) * ose::SEC + ose::SEC / 2, [this, second] {
            double jumped_s = -1e9;
            for (const auto& w : watched_) jumped_s = std::max(jumped_s, w->jumped_s());
            if (!links_.empty())
                for (auto& w : watched_) w->mayStep(jumped_s);   // a leader's steps are its followers'
            for (auto& w : watched_) w->look(seconds(world_.now()));
            scheduleLook(second + 1);
        });
    }

    const sim::Scenario& scenario_;
    SoakResult& result_;
    ose::World world_;
    sim::Digest digest_;
    std::vector<std::unique_ptr<sim::Unit>> units_;
    std::unique_ptr<sim::PacketNet> net_;
    std::vector<std::unique_ptr<sim::Link>> links_;
    std::vector<std::unique_ptr<Watched>> watched_;
    std::deque<std::string> last_;
};

}  // namespace

SoakResult runSoak(const SoakOptions& options)
{
    const std::string text = drawScenario(options.hours, options.seed);
    const sim::Scenario scenario = sim::readScenarioText(text, "soak-" + std::to_string(options.seed));
    SoakResult result;
    Soak(scenario, result).run();
    return result;
}

int printSoak(const SoakOptions& options, const SoakResult& r)
{
    if (!options.quiet || !r.violations.empty())
        std::printf("soak seed %llu: %.1f virtual hours in %.1f s, %llu events, %llu restarts, %llu changes "
                    "of clock state, digest %016llx\n",
                    static_cast<unsigned long long>(options.seed), r.hours, r.wall_s,
                    static_cast<unsigned long long>(r.events),
                    static_cast<unsigned long long>(r.restarts),
                    static_cast<unsigned long long>(r.clockChanges),
                    static_cast<unsigned long long>(r.digest));
    if (r.violations.empty()) return 0;
    for (const std::string& event : r.lastEvents) std::printf("  event      %s\n", event.c_str());
    for (const Violation& v : r.violations)
        std::printf("  VIOLATION  %.1f s  %s: %s\n", v.t, v.unit.c_str(), v.what.c_str());
    std::printf("  replay     tu soak --hours %g --seed %llu, or --save a.toml and tu run a.toml\n",
                options.hours, static_cast<unsigned long long>(options.seed));
    return 1;
}

}  // namespace app
