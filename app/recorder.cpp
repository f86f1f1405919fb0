#include "app/recorder.h"

#include "app/socpri_reports.h"
#include "app/summary.h"
#include "app/unit_status.h"
#include "gps/kvd_gps_receiver.h"
#include "mp/kvd_iifadm.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "refs/kvd_ipsynctsiadm.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_gps_sig.h"
#include "sig/tuiif_sig.h"
#include "node/trace.h"
#include "sim/board/board.h"
#include "sim/scenario/link.h"
#include "unit/kvd_gps_state.h"

#include <algorithm>
#include <cstring>

namespace app {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }

constexpr u8 UNKNOWN_STATE = 7;
constexpr u32 ETHERNET_FRO_CLASS = 7;
constexpr u8 STATUS_OK = 1;                  // of receivers and the time input
constexpr u32 SHAKEN_SAMPLES = 5;            // a state that comes and goes faster isn't told

bool isPacketRef(u32 froClassNo)
{
    return froClassNo == PACKET_TIME_FRO_CLASS || froClassNo == PACKET_FREQ_FRO_CLASS;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string textOf(const char* text, std::size_t room) { return {text, strnlen(text, room)}; }

/// A measurement of the selected reference has an R of its own each time, an exchange counts up.
struct Pulse {
    double R = 0;
    std::optional<double> z, residual;   // s; what the step left of it
    u32 ntp = 0, loop = 0;
    std::array<u32, PTP_CLOCKS> packets{};
};

Pulse pulse()
{
    Pulse p;
    const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
    p.R = KvdLoz6TuReg_getMeasR(z_i);
    const MeasRefData& last = KvdLoz6TuReg_measStateVar().measRefData;
    if (last.z_i == z_i) {
        const EstimatePar& step = KvdLoz6TuReg_estimatePar();
        p.z = last.z;
        p.residual = (last.z - step.x_pred[0]) * last.R / (last.R + step.P_pred[0]);
    }
    p.ntp = KvdLoz6TuIpSyncTsiAdm_counts().numberOfNtpPackets;
    p.loop = KvdLoz6TuReg_pll_lastSample().count;
    for (u32 i = 0; i < PTP_CLOCKS; ++i)
        if (const PtpClock* const c = ptpClockOf(i))
            for (const u32 count : c->used) p.packets[i] += count;
    return p;
}

}  // namespace

Recorder::Recorder(ose::World& world, sim::Unit& unit, Progress& progress, bool withName,
                   const std::vector<CheckSpec>& checks)
    : world_(world), unit_(unit), progress_(progress), prefix_(withName ? unit.name() + "  " : "")
{
    recording.name = unit.name();
    for (const CheckSpec& c : checks)
        if (!c.trace.empty() && c.unit == unit.name()) recording.traceCounts[c.trace] = 0;
    sim::MainProcessor& mp = unit.node().mainProcessor();
    mp.onStatus([this](const sim::ClockStatus& s) { onClockStatus(s); });
    mp.onSelect([this](const sim::MpReference& r) { onSelect(r); });
    mp.onRecord([this](const sim::MpRecord& r) { onRecord(r); });
    unit.node().pmAgent().onRecord([this](const sim::PmRecord& r) {
        recording.pmPeriods.push_back({now(), r.froType, r.suspectFlag != 0, r.values});
    });
    unit.node().system().onSend([this](std::span<const std::byte> signal) {
        ++recording.sentSignals;
        sent_.add(world_.now());
        sent_.addBytes(signal);
    });
    unit.node().countDrives();
    unit.node().system().onWait([this](ose::Wait what, SIGSELECT sigNo, OSTIME time) {
        ++recording.waits;
        waits_.add(world_.now());
        waits_.add(what);
        waits_.add(sigNo);
        waits_.add(time);
    });
    unit.node().traces().setCapacity(0);
    unit.node().traces().onLine([this](const sim::TraceLine& line) { onTrace(line); });
    unit.node().onProgramStart([this](u32 type) { onStart(static_cast<u8>(type)); });
    unit.node().onProgramEnd([this](const sim::ProgramEnd& end) {
        tell("program", "ended: " + (end.text.empty() ? "code " + std::to_string(end.code) : end.text));
    });
}

double Recorder::now() const { return seconds(world_.now()); }

void Recorder::tell(const std::string& kind, const std::string& text)
{
    constexpr std::size_t KIND_WIDTH = 11;
    std::string head = kind;
    head.resize(std::max(KIND_WIDTH, kind.size() + 1), ' ');
    progress_.line(now(), prefix_ + head + text);
    recording.events.push_back({now(), kind, text});
    if (onEvent_) onEvent_(recording.events.back());
}

// ---- samples ------------------------------------------------------------------------------------

void Recorder::sample()
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
    s.radioClockState = runs ? clockState_ : UNKNOWN_STATE;   // nobody tells a state without power
    constexpr u8 DEGRADED = 2;
    s.isDegraded = runs && degrStatus_ == DEGRADED;
    if (runs) {
        s.regState = unit_.node().inProgram([] { return KvdLoz6TuReg_regState(); });
        s.estimate = readEstimate(unit_);
        sampleHeard();
        sampleBound(s);
        sampleGps();
        samplePorts();
        sampleLoop(s);
        s.pdv = unit_.node().inProgram(readPdv);
        tellPdv(s.pdv);
    }
    onRegState(s.regState);
    if (runs && ranBefore_) tellStep(s);
    ranBefore_ = runs;
    recording.samples.push_back(s);
}

void Recorder::sampleHeard()
{
    const Pulse p = unit_.node().inProgram(pulse);
    LastHeard& heard = recording.heard;
    if (p.R != heardR_ && p.R != 0.0) {
        if (p.residual && heard.measurement_s >= 0)
            lag_.take(*p.residual, now() - heard.measurement_s, bound_.turnover());
        heard.measurement_s = now();
    }
    if (p.z) heard.offset_s = *p.z;
    if (p.ntp != heardNtp_) heard.ntp_s = now();
    if (p.loop != heardLoop_ && p.loop != 0) heard.loop_s = now();
    for (u32 i = 0; i < PTP_CLOCKS; ++i)
        if (p.packets[i] != heardPackets_[i] && p.packets[i] != 0) heard.packet_s[i] = now();
    heardR_ = p.R;
    heardNtp_ = p.ntp;
    heardLoop_ = p.loop;
    heardPackets_ = p.packets;
}

/// A reference that has said nothing for a minute is none.
void Recorder::sampleBound(Sample& s)
{
    constexpr double SILENT_s = 60;
    const bool isHeard = recording.heard.measurement_s >= 0 && s.t - recording.heard.measurement_s < SILENT_s;
    const sim::MpReference* const selected = selectedReference(unit_.node().mainProcessor());
    const double interval_s = recording.samples.empty() ? 0.0 : s.t - recording.samples.back().t;
    unit_.node().inProgram([&] { bound_.step(isHeard ? selected : nullptr, interval_s, s.estimate); });
    s.estimate.timeBand_ns += lag_.time_ns();
    s.estimate.freqBand_ppb += lag_.freq_ppb();
}

/// A jump of the counter, by the world's own time.
void Recorder::tellStep(const Sample& s)
{
    const Sample& before = recording.samples.back();
    if (isStep(before, s)) tell("jump", "counter moved by " + timeText(s.timeError_ns - before.timeError_ns));
}

void Recorder::sampleGps()
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
        if (seen.type != GPSS_UNKNOWN) tell("receiver", seen.typeName);
    }
    // A late sentence takes the state from 7 to 6 and the next brings it back: nothing to tell.
    const bool isShaken = seen.state == GPS_OPERATIONAL && !recording.gpsStates.empty()
                          && recording.gpsStates.back().state == GPS_OPERATIONAL_WITH_VALID_TIME;
    shaken_ = isShaken ? shaken_ + 1 : 0;
    if (isShaken && shaken_ < SHAKEN_SAMPLES) return;
    if (!recording.gpsStates.empty() && recording.gpsStates.back().state == seen.state) return;
    recording.gpsStates.push_back({now(), seen.state, sim::gpsStateName(seen.state)});
    tell("GPS", sim::gpsStateName(seen.state));
}

/// Of the PTP clocks.
void Recorder::samplePorts()
{
    struct Port { u32 froId = 0, froClassNo = 0, state = PRE_INIT; };
    const auto ports = unit_.node().inProgram([] {
        std::array<Port, PTP_CLOCKS> found;
        for (u32 i = 0; i < PTP_CLOCKS; ++i)
            if (const PtpClock* const c = ptpClockOf(i))
                found[i] = {c->setup.froId, c->setup.froClassNo, c->portState};
        return found;
    });
    for (u32 i = 0; i < PTP_CLOCKS; ++i) {
        if (ports[i].state == portStates_[i]) continue;
        portStates_[i] = ports[i].state;
        if (ports[i].state != PRE_INIT)
            tell("PTP port",
                 nameOf(ports[i].froId, ports[i].froClassNo) + ": " + ptpPortStateText(ports[i].state));
    }
}

/// Delay variation that stays over its limit, or under it, for a while.
void Recorder::tellPdv(const PdvSample& pdv)
{
    pdvSamples_ = isHigh(pdv) != pdvHigh_ ? pdvSamples_ + 1 : 0;
    if (pdvSamples_ < SHAKEN_SAMPLES) return;
    pdvSamples_ = 0;
    pdvHigh_ = !pdvHigh_;
    if (std::isnan(pdv.limit_ns)) return tell("PDV", "no packet reference any more");
    tell("PDV", std::string(pdvHigh_ ? "over" : "within") + " its limit of " + timeText(pdv.limit_ns) + ": "
                    + timeText(pdv.down_ns) + " down, " + timeText(pdv.up_ns) + " up");
}

void Recorder::sampleLoop(Sample& s)
{
    struct Seen { u32 state; std::string name; };
    const auto seen = unit_.node().inProgram([&s] {
        s.loop = readLoop();
        const u32 master = KvdLoz6TuReg_pllState();
        if (!loopRuns()) return Seen{0, "none"};
        return Seen{master != PLL_Uninitialized ? master : KvdLoz6TuReg_slavePllState(), loopStateText()};
    });
    std::vector<StateChange>& loops = recording.loops;
    if (loops.empty() ? seen.name == "none" : loops.back().name == seen.name) return;
    loops.push_back({now(), static_cast<u8>(seen.state), seen.name});
}

void Recorder::follows(sim::Unit* leader)
{
    leader_ = leader;
    if (leader != nullptr) recording.leader = leader->name();
}

void Recorder::command(const std::string& line)
{
    const double t = now();
    unit_.node().shell().submit(line, [this, t, line](int result, const std::string& output) {
        recording.outputs.push_back({t, line, result, output});
    });
}

std::string Recorder::status() const
{
    const Sample last = recording.samples.empty() ? Sample{} : recording.samples.back();
    const bool hasTime = isTimeLockedState(clockState_) || clockState_ == KVD_TUIIF_RNT_TIME_HOLDOVER;
    const double error_ns = hasTime && !std::isnan(last.gpsTimeError_ns) ? last.gpsTimeError_ns
                                                                         : last.timeError_ns;
    char text[96];
    std::snprintf(text, sizeof text, "%s  %s%s  %+.0f ns", sim::clockStateName(clockState_),
                  selected_.c_str(), last.isDegraded ? " degraded" : "", error_ns);
    return text;
}

void Recorder::collect()
{
    for (const sim::ErrorLogEntry& e : unit_.node().errorLog().entries())
        recording.errors.push_back({seconds(e.at), e.code, e.text});
    for (const sim::TestResult& r : unit_.node().temi().results())
        if (r.result != 0) recording.failedTests.push_back({seconds(r.at), r.name, r.message});
    recording.toldSignals = unit_.node().mainProcessor().toldSignals();
    recording.toldDigest = unit_.node().mainProcessor().toldDigest();
    recording.sentDigest = sent_.value();
    recording.drivenCalls = unit_.node().drivenCalls();
    recording.drivenDigest = unit_.node().drivenDigest();
    recording.waitsDigest = waits_.value();
    recording.tracedDigest = traced_.value();
}

// ---- what the main processor is told ------------------------------------------------------------

void Recorder::raise(const std::string& source, const std::string& text)
{
    std::erase_if(recording.alarms, [&](const Alarm& a) { return a.source == source && a.text != text; });
    const bool stands = std::ranges::any_of(recording.alarms,
                                            [&](const Alarm& a) { return a.source == source; });
    if (!text.empty() && !stands) recording.alarms.push_back({now(), source, text});
}

std::string Recorder::nameOf(u32 froId, u32 froClassNo)
{
    for (const sim::MpReference& r : unit_.node().mainProcessor().config.references)
        if (r.froId == froId && r.froClassNo == froClassNo) return r.name;
    return "reference " + std::to_string(froId);
}

void Recorder::onClockStatus(const sim::ClockStatus& status)
{
    if (recording.states.empty() || recording.states.back().state != status.radioClockState) {
        clockState_ = status.radioClockState;
        recording.states.push_back({now(), clockState_, sim::clockStateName(clockState_)});
        tell("clock", sim::clockStateName(clockState_));
    }
    constexpr u8 DEGRADED = 2, OK = 1, LOSS_OF_TRACKING = 3;
    if (status.degrStatus == DEGRADED && degrStatus_ != DEGRADED) {
        const std::string pdv = recording.samples.empty() ? "" : pdvText(recording.samples.back().pdv);
        tell("degraded", selected_ + (pdv.empty() ? "" : ": " + pdv));
    }
    if (status.degrStatus == OK && degrStatus_ == DEGRADED) tell("degraded", selected_ + " is good again");
    degrStatus_ = status.degrStatus;
    raise("reference", degrStatus_ == DEGRADED ? selected_ + " is degraded" : "");
    raise("tracking", status.ltrStatus == LOSS_OF_TRACKING ? "the hardware can't follow the oscillator" : "");
}

void Recorder::onSelect(const sim::MpReference& r)
{
    selected_ = r.name;
    lag_.restart();
    recording.selected.push_back({now(), r.refType, sim::refTypeName(r.refType)});
    tell("selected", std::string(sim::refTypeName(r.refType)) + " " + r.name);
}

void Recorder::onRegState(u8 state)
{
    if (state == 0 || (!recording.regStates.empty() && recording.regStates.back().state == state)) return;
    recording.regStates.push_back({now(), state, KvdLoz6TuReg_regStateText(state)});
    tell("regulator", KvdLoz6TuReg_regStateText(state));
}

void Recorder::onRecord(const sim::MpRecord& record)
{
    switch (record.sigNo) {
    case KVD_TUIIF_SUBSCRIBE_PM_CFM:
        if (const auto cfm = record.as<KvdTuiifSubscribePmCfm>())
            recording.pmSubscriptions.push_back({now(), cfm->froType});
        break;
    case KVD_TUIIF_GPS_STATUS_IND:             onGpsStatus(record);      break;
    case KVD_TUIIF_HPTSI_STATUS_IND:
    case KVD_TUIIF_GPSOSL_STATUS_IND:          onReceiverStatus(record); break;
    case KVD_TUIIF_QUALITY_LEVEL_IND:          onQuality(record);        break;
    case KVD_TUIIF_PDU_MISSING_IND:            onPduMissing(record);     break;
    case KVD_TUIIF6_BVQ_REF_STATE_IND:         onPacketFaults(record);   break;
    case KVD_TUIIF_OSC_TEMPERATURE_STATE_IND:  onTemperature(record);    break;
    case KVD_TUIIF_CALIBRATION_STATUS_IND:     onCalibration(record);    break;
    default:                                   onSocpriReport(record);   break;
    }
}

void Recorder::onGpsStatus(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifGpsStatusInd>();
    if (!ind) return;
    const std::string text = textOf(ind->text, sizeof ind->text);
    recording.gpsStatuses.push_back({now(), ind->gpsStatus, text});
    tell("GPS status", std::to_string(ind->gpsStatus) + " " + text);
    raise("GPS", ind->gpsStatus > STATUS_OK ? text : "");
}

/// Of the time input and the sync link.
void Recorder::onReceiverStatus(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifHptsiStatusInd>();
    if (!ind) return;
    const std::string source = record.sigNo == KVD_TUIIF_HPTSI_STATUS_IND ? "time input" : "sync link";
    const std::string text = textOf(ind->text, sizeof ind->text);
    tell(source, std::to_string(ind->status) + " " + text);
    raise(source, ind->status > STATUS_OK ? text : "");
}

void Recorder::onQuality(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifQualityLevelInd>();
    if (!ind) return;
    if (ind->froClassNo != ETHERNET_FRO_CLASS) {
        if (isPacketRef(ind->froClassNo))
            tell("PTP class", nameOf(ind->froId, ind->froClassNo) + ": " + std::to_string(ind->clockQuality));
        return;
    }
    const u8 code = static_cast<u8>(ind->clockQuality);
    recording.qualities.push_back({now(), code, qualityLevelName(code)});
    const std::string name = nameOf(ind->froId, ind->froClassNo);
    recording.levels[name] = recording.qualities.back().name;
    tell("quality", name + ": " + recording.qualities.back().name);
}

void Recorder::onPduMissing(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifPduMissingInd>();
    if (!ind) return;
    const bool raised = ind->pduMissing != 0;
    recording.pduAlarms.push_back({now(), raised ? u8{1} : u8{0}, raised ? "raised" : "cleared"});
    const std::string name = nameOf(ind->froId, ind->froClassNo);
    tell("PDU alarm", name + ": " + recording.pduAlarms.back().name);
    raise("ESMC of " + name, raised ? "no frames" : "");
}

void Recorder::onPacketFaults(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiif6BvqRefStateInd>();
    if (!ind || !isPacketRef(ind->froClassNo)) return;
    const std::string name = nameOf(ind->froId, ind->froClassNo);
    const std::string faults = joined(packetFaultWords(ind->additionalRefStateInfo));
    std::string& told = packetFaults_[name];
    if (told != faults) tell("PTP faults", name + ": " + (faults.empty() ? "none" : faults));
    told = faults;
    raise(name, faults);
}

void Recorder::onTemperature(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifOscTemperatureStateInd>();
    if (!ind) return;
    constexpr const char* TEXTS[] = {"", "", "temperature too low", "temperature too high",
                                     "temperature can't be read"};
    const std::string text = ind->oscTempState < std::size(TEXTS) ? TEXTS[ind->oscTempState] : "";
    const bool stood = std::ranges::any_of(recording.alarms,
                                           [](const Alarm& a) { return a.source == "oscillator"; });
    if (!text.empty() || stood) tell("oscillator", text.empty() ? "temperature within its limits" : text);
    raise("oscillator", text);
}

void Recorder::onCalibration(const sim::MpRecord& record)
{
    const auto ind = record.as<KvdTuiifCalibrationStatusInd>();
    if (!ind) return;
    const bool expires = ind->calibrationStatus == KVD_TUIIF_SOON_TO_EXPIRE;
    raise("calibration", expires ? "expires " + textOf(ind->calibrationExpirationDate,
                                                       sizeof ind->calibrationExpirationDate)
                                 : "");
}

void Recorder::onSocpriReport(const sim::MpRecord& record)
{
    std::optional<SocpriReport> report = socpriReport(record);
    if (!report) return;
    report->t = now();
    recording.socpriReports.push_back(*report);
    const std::string port = report->port != 0 ? " port " + std::to_string(report->port) : "";
    tell("radio link",
         std::string(sim::socpriAnswerName(report->sigNo)) + port + ": " + std::to_string(report->status));
}

// ---- the program's life -------------------------------------------------------------------------

void Recorder::onStart(u8 type)
{
    recording.alarms.clear();
    packetFaults_.clear();
    portStates_.fill(PRE_INIT);
    degrStatus_ = 0;
    if (unit_.node().programStarts() <= 1) return;
    recording.restarts.push_back({ranUntil_s_, now(), type, clockState_, "", -1});
    constexpr const char* TYPES[] = {"power on", "cold with test", "cold", "refresh", "warm", "hot"};
    tell("restart", type < std::size(TYPES) ? TYPES[type] : "type " + std::to_string(type));
    flashFile_.clear();
}

/// What a start uses shows in its traces alone.
void Recorder::onStartTrace(const std::string& text)
{
    struct Begin { const char* trace; const char* used; };
    static constexpr Begin BEGINS[] = {
        {"initiate with msi done", FROM_PERSISTENT_MEMORY}, {"initiate with flash done", "flash"},
        {"initiate with calibration done", "calibration"}, {"initiate cold done", "nothing"}};
    constexpr const char* FILE = "Using ";
    if (text.starts_with(FILE) && text.find(" historical data file") != std::string::npos)
        flashFile_ = text.substr(std::strlen(FILE), text.find(' ', std::strlen(FILE)) - std::strlen(FILE));
    Restart& r = recording.restarts.back();
    for (const Begin& b : BEGINS) {
        if (text.find(b.trace) == std::string::npos) continue;
        r.used = b.used;
        if (r.used == "flash") r.used += " " + flashFile_;
        r.used_s = now();
        tell("begins", "with " + r.used);
    }
}

namespace {

/// A text without the digits of addresses, which are more than the eight of a word: each process has its own.
std::string withoutAddresses(std::string text)
{
    constexpr std::size_t WORD_DIGITS = 8;
    for (std::size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at)) {
        at += 2;
        const std::size_t end = std::min(text.find_first_not_of("0123456789abcdefABCDEF", at), text.size());
        if (end - at > WORD_DIGITS) text.erase(at, end - at);
    }
    return text;
}

}  // namespace

void Recorder::onTrace(const sim::TraceLine& line)
{
    ++recording.tracedLines;
    traced_.add(line.at);
    traced_.add(withoutAddresses(line.text));
    if ((node::TRACE_MASK_DEFAULT >> line.level & 1) == 0)
        return;  // what isn't traced by itself isn't judged
    if (!recording.restarts.empty() && recording.restarts.back().used.empty()) onStartTrace(line.text);
    for (auto& [text, count] : recording.traceCounts)
        if (line.text.find(text) != std::string::npos) ++count;
}

}  // namespace app
