#include "app/unit_status.h"

#include "app/reference_bound.h"
#include "app/summary.h"
#include "app/unit_why.h"
#include "mp/kvd_iifadm.h"
#include "pktsync/tupktsync_coli.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_ref_table.h"

#include <algorithm>
#include <cmath>

namespace app {
namespace {

constexpr double NS = 1e9, PPB = 1e9;
constexpr std::size_t EVENTS_SHOWN = 10;

bool isPacketType(u8 refType) { return refType == PACKET_TIME_REF || refType == PACKET_FREQ_REF; }

// ---- references ---------------------------------------------------------------------------------

const char* idlStateWord(u32 state)
{
    constexpr const char* WORDS[] = {"not supervised", "waits for the other unit", "on", "off",
                                     "waits to restore"};
    return state < std::size(WORDS) ? WORDS[state] : "unknown";
}

/// Row of the table of supervised paths, REF_ROWS for a reference that has none.
u32 rowOf(const sim::MpReference& r)
{
    switch (r.refType) {
    case PDH_SDH_REF:
        for (u32 row = 0; row < ROW_TU; ++row)
            if (KvdLoz6TuRef_row(row).froId == r.froId) return row;
        return REF_ROWS;
    case TU_REF: case GPS_REF: case HPTSI_REF: case ETHA_REF: case ETHB_REF: case ETHC_REF: case GPSOSL_REF:
        return KvdLoz6TuRef_rowOfRefType(r.refType);
    default:
        return REF_ROWS;
    }
}

std::string rowState(const RefDesc& row)
{
    if (row.supervisionStatus == 0) return "not supervised";
    if (row.filterType == HO_FILTER) return "signal lost, held off";
    if (row.filterType == WTR_FILTER) return "signal back, waits to restore";
    return row.refStatus == REF_STATUS_ON    ? "signal"
           : row.refStatus == REF_STATUS_OFF ? "no signal"
                                             : "unknown";
}

void readPacketRef(SourceStatus& source, const LastHeard& heard, double now_s)
{
    const i32 id = TuPktsync_SyncrefCtrl_syncrefIdOf(source.froId, source.froClassNo);
    const PtpClock* const clock = id >= 0 ? ptpClockOf(static_cast<u32>(id)) : nullptr;
    if (clock == nullptr) {
        source.state = "not created";
        return;
    }
    source.state = ptpPortStateText(clock->portState);
    if (ptpHasMaster(*clock))
        source.state += std::string(" of ")
                        + TuPktsync_portIdentityText(clock->parent.parentPortIdentity).data() + ", class "
                        + std::to_string(clock->parent.grandmasterClockQuality.clockClass);
    source.faults = packetFaultWords(clock->fault_flags);
    const double at_s = heard.packet_s[static_cast<std::size_t>(id)];
    if (at_s >= 0) source.age_s = now_s - at_s;
    if (clock->selected && clock->offsetFromMaster != 0)
        source.offset_ns = static_cast<double>(clock->offsetFromMaster) / 65536.0;
}

/// A loop's phases aren't the estimator's, and it keeps no noise.
void readFromLoop(SourceStatus& source, const LastHeard& heard, double now_s)
{
    source.state += ", " + loopStateText();
    if (heard.loop_s < 0) return;
    source.age_s = now_s - heard.loop_s;
    source.offset_ns = readLoop().phase_ns;
}

/// What the unit's program knows of it.
void readFromProgram(SourceStatus& source, const sim::MpReference& r, const LastHeard& heard, double now_s)
{
    if (isPacketType(r.refType)) {
        readPacketRef(source, heard, now_s);
    } else if (r.refType == IDL1_REF || r.refType == IDL2_REF) {
        source.state = idlStateWord(KvdLoz6TuRef_idlState(r.refType == IDL1_REF ? IDLPORT_1 : IDLPORT_2));
    } else if (r.refType == NTP_REF) {
        if (heard.ntp_s >= 0) source.age_s = now_s - heard.ntp_s;
    } else if (r.refType == SOCPRI_REF) {
        source.state = "radio links";
    } else if (const u32 row = rowOf(r); row < REF_ROWS) {
        source.state = rowState(KvdLoz6TuRef_row(row));
        if (r.refType == GPS_REF && source.supervised)
            source.state += std::string(", receiver ")
                            + sim::gpsStateName(static_cast<u8>(KvdLoz6TuGps_gpsState()));
    } else {
        source.state = "no line";
    }
    if (!source.selected) return;
    if (loopRuns()) return readFromLoop(source, heard, now_s);
    if (heard.measurement_s < 0) return;
    const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
    if (!source.age_s) source.age_s = now_s - heard.measurement_s;
    source.noise_ns = std::sqrt(std::max(0.0, KvdLoz6TuReg_getMeasR(z_i))) * NS;
    if (!source.offset_ns) source.offset_ns = heard.offset_s * NS;
}

std::string alarmOf(const UnitRecording& recording, const std::string& source)
{
    for (const Alarm& a : recording.alarms)
        if (a.source == source) return a.text;
    return "";
}

/// Why the main processor doesn't have it selected.
std::string whyNotSelected(const SourceStatus& source, const sim::MpReference& r, sim::MainProcessor& mp,
                           const UnitRecording& recording)
{
    if (!source.supervised && !r.alwaysUsable && r.refType != NTP_REF) return "not supervised";
    if (!source.usable) {
        if (!source.faults.empty()) {
            std::string text;
            for (const std::string& f : source.faults) text += (text.empty() ? "" : ", ") + f;
            return text;
        }
        if (r.refType == GPS_REF) {
            const std::string alarm = alarmOf(recording, "GPS");
            return alarm.empty() ? "the receiver isn't ready" : alarm;
        }
        if (r.refType == NTP_REF) return "no server answers";
        return source.state.empty() ? "not usable" : source.state;
    }
    if (!mp.suitsRole(r)) return "not for a unit in this role";
    if (!mp.config.selects) return "the main processor was told to select another";
    return "lower priority than the selected one";
}

std::vector<SourceStatus> readSources(sim::Unit& unit, const UnitRecording& recording, double now_s)
{
    sim::MainProcessor& mp = unit.node().mainProcessor();
    std::vector<SourceStatus> sources;
    for (const sim::MpReference& r : mp.config.references) {
        SourceStatus source;
        source.name = r.name;
        source.type = sim::refTypeName(r.refType);
        source.froId = r.froId;
        source.froClassNo = r.froClassNo;
        source.supervised = mp.supervises(r);
        source.usable = mp.usable(r);
        source.selected = mp.selectedRefType() == r.refType && mp.selectedFroId() == r.froId;
        if (unit.node().program() != nullptr)
            unit.node().inProgram([&] { readFromProgram(source, r, recording.heard, now_s); });
        if (const auto level = recording.levels.find(r.name); level != recording.levels.end())
            source.state += ", " + level->second;
        if (!source.selected) source.why = whyNotSelected(source, r, mp, recording);
        sources.push_back(std::move(source));
    }
    return sources;
}

// ---- the clock ----------------------------------------------------------------------------------

void readClock(UnitStatus& status)
{
    status.isMaster = KvdLoz6TuReg_isMaster() != 0;
    status.connected = KvdLoz6TuIifAdm_startState() == TUIIF_START_RESTART_READY;
    status.clockState = KvdLoz6TuIifAdm_radioClockState();
    status.clock = sim::clockStateName(status.clockState);
    status.regulator = KvdLoz6TuReg_regStateText(KvdLoz6TuReg_regState());
    if (loopRuns()) {
        status.loop = loopStateText();
        status.loopStatus = LoopStatus{readLoop(), KvdLoz6TuReg_pll_targetDiff() * NS, {}};
    }
    const ControlStateVar& control = KvdLoz6TuReg_controlStateVar();
    status.timeAccuracy_ns = control.t_acc_report;
    status.frequencyAccuracy_ppb = control.f_acc_report;
    status.isDegraded = KvdLoz6TuReg_degrState() == KVD_TUIIF_REF_DEGRADED;
    status.pdv = readPdv();
    for (u32 i = 0; i < PTP_CLOCKS; ++i)
        if (const PtpClock* const c = ptpClockOf(i))
            for (u32 type = 0; type < c->used.size(); ++type)
                if (c->used[type] != 0)
                    status.packets.push_back({c->setup.froId, ptpMessageWord(type), c->used[type]});
}

void readLastSample(UnitStatus& status, const UnitRecording& recording)
{
    if (recording.samples.empty()) return;
    const Sample& s = recording.samples.back();
    status.estimate = s.estimate;
    status.estimateAt_s = s.t;
    status.timeError_ns = s.timeError_ns;
    status.gpsTimeError_ns = s.gpsTimeError_ns;
    status.freqError_ppb = s.freqError_ppb;
}

void readSelection(UnitStatus& status, sim::MainProcessor& mp, const UnitRecording& recording)
{
    status.referenceType = sim::refTypeName(mp.selectedRefType());
    if (const sim::MpReference* const r = selectedReference(mp)) status.reference = r->name;
    if (!recording.selected.empty()) status.selectedSince_s = recording.selected.back().t;
}

}  // namespace

const sim::MpReference* selectedReference(const sim::MainProcessor& mp)
{
    for (const sim::MpReference& r : mp.config.references)
        if (r.refType == mp.selectedRefType() && r.froId == mp.selectedFroId()) return &r;
    return nullptr;
}

bool loopRuns()
{
    return KvdLoz6TuReg_pllState() != PLL_Uninitialized
           || KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized;
}

std::string loopStateText()
{
    const u32 master = KvdLoz6TuReg_pllState();
    return master != PLL_Uninitialized ? KvdLoz6TuReg_pllStateText(master)
                                       : KvdLoz6TuReg_slavePllStateText(KvdLoz6TuReg_slavePllState());
}

LoopValues readLoop()
{
    const LoopSample last = KvdLoz6TuReg_pll_lastSample();
    if (!loopRuns() || last.count == 0) return {};
    return {last.phaseDiff * NS, last.y * PPB};
}

PdvSample readPdv()
{
    const PacketPdv pdv = KvdLoz6TuReg_packetPdv(KvdLoz6TuIifAdm_activRefFroId());
    return pdv.limit > 0 ? PdvSample{pdv.down * NS, pdv.up * NS, pdv.limit * NS} : PdvSample{};
}

const char* ptpMessageWord(u32 type)
{
    switch (type) {
    case 0:  return "sync";
    case 1:  return "delay_req";
    case 8:  return "follow_up";
    case 9:  return "delay_resp";
    case 11: return "announce";
    case 12: return "signaling";
    default: return "other";
    }
}

Estimate readEstimate(sim::Unit& unit)
{
    // What the filter's model hasn't: ovens' Allan deviation at 1 s, as data sheets have it at most, and the
    // latch of an edge in steps of the counter, 1/122.88 MHz, even over one.
    constexpr double SHORT_TERM_ppb = 0.01, LATCH_ns = 8.138 / 3.4641;
    const double counter_s = unit.node().board().counterTime_s();
    return unit.node().inProgram([counter_s] {
        Estimate e;
        // A loop keeps no covariance, and before the oscillator is warm nothing is estimated.
        if (loopRuns() || KvdLoz6TuReg_isMaster() == 0 || KvdLoz6TuReg_initiateState() < TUREG_INIT_NOISY)
            return e;
        const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
        constexpr double STEP_MAX_s = 10.0;
        const TimePair last = KvdLoz6TuReg_getLastTime();
        double age_s = std::remainder(counter_s - last.f, COUNTER_PERIOD);
        if (!(age_s >= 0.0 && age_s < STEP_MAX_s)) age_s = 0.0;   // the counter was stepped since
        const double freq = v.x_est[1] + v.b * v.u_tf[1];         // the step's control is out already
        const auto P = [&v](u32 row, u32 column) { return v.P_est[row * 6 + column]; };
        e.freq_ppb = freq * PPB;
        e.freqDeviation_ppb = std::sqrt(std::max(0.0, P(1, 1))) * PPB;
        e.freqBand_ppb = SIGMAS * std::hypot(e.freqDeviation_ppb, SHORT_TERM_ppb);
        if (!KvdLoz6TuReg_knowsTime() || KvdLoz6TuReg_t_ix() < 2) return e;
        // A coarse offset may be a date's seconds: ns are added to what is left of it within a turn.
        const TimePair delta0 = KvdLoz6TuReg_getOffset();
        const double offset_s = std::remainder(delta0.c, COUNTER_PERIOD) + delta0.f;
        e.time_ns = std::remainder(offset_s + (v.x_est[0] + freq * age_s), COUNTER_PERIOD) * NS;
        e.timeDeviation_ns = std::sqrt(std::max(0.0, P(0, 0) + 2 * age_s * P(0, 1) + age_s * age_s * P(1, 1)))
                             * NS;
        e.timeBand_ns = SIGMAS * std::hypot(e.timeDeviation_ns, LATCH_ns);
        return e;
    });
}

std::vector<std::string> packetFaultWords(u32 faultFlags)
{
    struct Word { u32 flag; const char* text; };
    static constexpr Word WORDS[] = {
        {FAULT_NO_ANNOUNCE, "no Announce"},
        {FAULT_CLOCK_CLASS, "clock class not good enough"},
        {FAULT_CLOCK_ACCURACY, "clock accuracy not good enough"},
        {FAULT_SYNC_FAILED, "no Sync"},
        {FAULT_SYNC_DEGRADED, "Sync messages lost"},
        {FAULT_SYNC_RATE, "Sync rate too low"},
        {FAULT_NO_DELAY_RESP, "no Delay_Resp"},
        {FAULT_DELAY_REQ_RATE, "Delay_Req rate too low"},
        {FAULT_UC_NO_REPLY, "no reply to a unicast request"},
        {FAULT_UC_NO_AGREE, "unicast request refused"},
        {FAULT_UC_MC_NOK, "unicast master not good enough"},
        {FAULT_UC_CANCELLED, "unicast grant cancelled"},
        {FAULT_FREQ_NOT_TRACEABLE, "frequency not traceable"},
        {FAULT_TIME_NOT_TRACEABLE, "time not traceable"},
        {FAULT_TRACEABLILITY_INCONSISTENT, "class and traceability contradict each other"},
    };
    std::vector<std::string> words;
    for (const Word& w : WORDS)
        if ((faultFlags & w.flag) != 0) words.emplace_back(w.text);
    return words;
}

UnitStatus readUnitStatus(sim::Unit& unit, const UnitRecording& recording, double now_s)
{
    sim::Node& node = unit.node();
    UnitStatus status;
    status.unit = unit.name();
    status.t = now_s;
    status.runs = node.program() != nullptr;
    status.starts = node.programStarts();
    status.sources = readSources(unit, recording, now_s);
    readSelection(status, node.mainProcessor(), recording);
    readLastSample(status, recording);
    status.alarms = recording.alarms;
    const std::size_t shown = std::min(EVENTS_SHOWN, recording.events.size());
    status.events.assign(recording.events.end() - static_cast<std::ptrdiff_t>(shown), recording.events.end());
    status.eventsTotal = recording.events.size();
    if (status.runs) {
        status.poolUsed = node.program()->poolUsed();
        status.poolPeak = node.program()->poolPeak();
        node.inProgram([&] {
            readClock(status);
            status.boundFrom = claimText(selectedReference(node.mainProcessor()));
        });
        if (status.loopStatus && recording.heard.loop_s >= 0)
            status.loopStatus->age_s = now_s - recording.heard.loop_s;
    }
    if (!recording.states.empty() && recording.states.back().state == status.clockState)
        status.since_s = recording.states.back().t;
    explain(status, unit);
    return status;
}

}  // namespace app
