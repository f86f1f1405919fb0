#include "app/unit_why.h"

#include "app/summary.h"
#include "mp/kvd_iifadm.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace app {
namespace {

constexpr double TICK_s = 2.1;               // of the temperature
constexpr u8 START_UP_TICKS = 57;            // until a warm oscillator is used
constexpr double DAY_s = 86400.0;
constexpr double AHEAD_s = 30 * DAY_s;
constexpr u8 SOCPRI_STARTING = 17;

/// What the rules look at, read in one go.
struct Grades {
    double frequency = 0, frequencyLimit = 0;    // |x1| + 3 sigma, and where a lock begins or is lost
    double time_s = 0, timeLock_s = 0, timeLoss_s = 0;
    bool knowsTime = false, tracksTime = false;
    double delta0_s = 0;
    u32 initiateState = 0;
    u8 ticks = 0;
    double vT = 0, vTmin = 0, vTmax = 0;
    u32 jumpState = 0;
    u32 thresholds_min[3] = {0, 0, 0};
};

Grades readGrades()
{
    const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
    Grades g;
    g.frequency = std::abs(v.x_est[1] + v.b * v.u_tf[1]) + SIGMAS * std::sqrt(std::max(0.0, v.P_est[7]));
    g.frequencyLimit = c.f_ix == 5 ? c.f_lim_high : c.f_lim_low;
    g.time_s = std::abs(v.x_est[0]) + SIGMAS * std::sqrt(std::max(0.0, v.P_est[0]));
    g.timeLock_s = c.t_lim_low;
    g.timeLoss_s = c.t_lim_high;
    g.knowsTime = KvdLoz6TuReg_knowsTime();
    g.tracksTime = KvdLoz6TuReg_timeMode() == ABSOLUTE_TIME_LOCKING;
    g.delta0_s = std::remainder(m.delta0_c + m.delta0_f, COUNTER_PERIOD);
    g.initiateState = KvdLoz6TuReg_initiateState();
    g.ticks = KvdLoz6TuReg_noisyCounter();
    g.vT = m.vT;
    g.vTmin = m.vTmin;
    g.vTmax = m.vTmax;
    g.jumpState = KvdLoz6TuReg_jumpState();
    for (u32 i = 0; i < std::size(g.thresholds_min); ++i)
        g.thresholds_min[i] = KvdLoz6TuIifAdm_holdoverThreshold(i);
    return g;
}

template <typename... Values>
std::string text(const char* format, Values... values)
{
    char line[320];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

std::string ppb(double relative) { return text("%.3g ppb", relative * 1e9); }
std::string time(double s) { return timeText(s * 1e9); }

// ---- holdover -----------------------------------------------------------------------------------

/// When something that grows passes a limit, between the steps that see it.
struct Crossing {
    double limit = 0;
    double at_s = AHEAD_s;
    double before = 0;

    void look(double now, double t, double step_s)
    {
        if (at_s >= AHEAD_s && now > limit)
            at_s = before > limit ? 0.0 : t - step_s * (now - limit) / (now - before);
        before = now;
    }
};

/// Steps that grow with the distance; the filter's own noise is added in each.
struct Ahead { double time_s = AHEAD_s, loss_s = AHEAD_s, drift_s = AHEAD_s; };

Ahead lookAhead(const Grades& g, double limit_s)
{
    const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
    constexpr double NO_CONTROL[2] = {0, 0};
    constexpr double FIRST_STEP_s = 30.0, GROWTH = 0.05;
    Vec6 x = v.x_est;
    Mat6 P = v.P_est;
    // Time is steered to what is estimated, so that its uncertainty alone grows.
    const auto timeOf = [&P] { return SIGMAS * std::sqrt(std::max(0.0, P[0])); };
    const auto frequencyOf = [&] { return std::abs(x[1]) + SIGMAS * std::sqrt(std::max(0.0, P[7])); };
    Crossing toLimit{limit_s, AHEAD_s, timeOf()}, toLoss{g.timeLoss_s, AHEAD_s, timeOf()};
    Crossing toDrift{g.frequencyLimit, AHEAD_s, frequencyOf()};
    for (double t = 0; t < AHEAD_s;) {
        const double step_s = std::max(FIRST_STEP_s, GROWTH * t);
        const Prediction next = KvdLoz6TuReg_predict(x, P, 0.0, NO_CONTROL, v.T, v.T, step_s);
        x = next.x_pred;
        P = next.P_pred;
        t += step_s;
        toLimit.look(timeOf(), t, step_s);
        toLoss.look(timeOf(), t, step_s);
        toDrift.look(frequencyOf(), t, step_s);
        if (std::max({toLimit.at_s, toLoss.at_s, toDrift.at_s}) < AHEAD_s) break;
    }
    return {toLimit.at_s, toLoss.at_s, toDrift.at_s};
}

struct HoldoverRow { u8 clock; u32 holdoverClass; u8 below; };
constexpr HoldoverRow HOLDOVERS[] = {
    {KVD_TUIIF_RNT_TIME_HOLDOVER, HOLDOVER_RNT, KVD_TUIIF_TIME_OFFSET_HOLDOVER},
    {KVD_TUIIF_TIME_OFFSET_HOLDOVER, HOLDOVER_TO, KVD_TUIIF_FREQUENCY_HOLDOVER},
    {KVD_TUIIF_FREQUENCY_HOLDOVER, HOLDOVER_FREQ, KVD_TUIIF_FREQUENCY_DRIFTING},
};

const HoldoverRow* holdoverRow(u8 clock)
{
    for (const HoldoverRow& row : HOLDOVERS)
        if (row.clock == clock) return &row;
    return nullptr;
}

void nextLimit(HoldoverStatus& h, u8 clock, double in_s)
{
    if (in_s >= AHEAD_s || (h.nextIn_s && *h.nextIn_s <= in_s)) return;
    h.next = sim::clockStateName(clock);
    h.nextIn_s = in_s;
}

HoldoverStatus readHoldover(const UnitStatus& status, const HoldoverRow& row, const Grades& g)
{
    HoldoverStatus h;
    h.seconds = status.t - status.since_s;
    if (const u32 minutes = g.thresholds_min[row.holdoverClass]; minutes != 0) {
        h.threshold_s = minutes * 60.0;
        h.left_s = std::max(0.0, *h.threshold_s - h.seconds);
        nextLimit(h, row.below, *h.left_s);
    }
    if (!status.loop.empty()) return h;      // a loop keeps no covariance to extrapolate
    const bool holdsTime = row.clock != KVD_TUIIF_FREQUENCY_HOLDOVER;
    const Ahead ahead = lookAhead(g, h.limit_ns * 1e-9);
    if (holdsTime) {
        nextLimit(h, KVD_TUIIF_FREQUENCY_HOLDOVER, ahead.loss_s);
        if (ahead.time_s < AHEAD_s) h.limitIn_s = ahead.time_s;
    }
    nextLimit(h, KVD_TUIIF_FREQUENCY_DRIFTING, ahead.drift_s);
    return h;
}

/// What is the matter with the references, as far as somebody has said so.
std::string lostReference(const UnitStatus& status)
{
    for (const Alarm& a : status.alarms)
        for (const SourceStatus& s : status.sources)
            if (a.source == s.name || (a.source == "GPS" && s.type == std::string("GPS_REF")))
                return s.name + ": " + a.text + " since " + clockText(a.since_s);
    for (const SourceStatus& s : status.sources)
        if (!s.usable) return s.name + ": " + s.why;
    return "no reference is selected";
}

void explainHoldover(UnitStatus& status, const HoldoverRow& row, const Grades& g)
{
    status.holdover = readHoldover(status, row, g);
    const HoldoverStatus& h = *status.holdover;
    status.why = lostReference(status);
    if (status.loop.empty())
        status.why += row.clock == KVD_TUIIF_FREQUENCY_HOLDOVER
                          ? "; frequency known to " + ppb(g.frequency) + " of " + ppb(g.frequencyLimit)
                          : "; estimated error " + time(g.time_s);
    const std::string limit = time(h.limit_ns * 1e-9);
    if (h.limitIn_s)
        status.why += *h.limitIn_s > 0 ? ", " + limit + " in about " + clockText(*h.limitIn_s)
                                       : ", above " + limit;
    status.change = h.left_s ? clockText(*h.left_s) + " left of the threshold of " + clockText(*h.threshold_s)
                             : "";
    if (h.nextIn_s && !(h.left_s && *h.nextIn_s >= *h.left_s))
        status.change += (status.change.empty() ? "in about " : "; the estimate's own limit is met in about ")
                         + clockText(*h.nextIn_s);
    status.change += h.nextIn_s ? ", then " + h.next : "nothing within 30 days";
    status.change += "; a usable reference brings it back";
}

// ---- the other states ---------------------------------------------------------------------------

void explainWarmUp(UnitStatus& status, const Grades& g)
{
    if (g.vT < g.vTmin || g.vT > g.vTmax) {
        status.why = text("the oscillator's sensor shows %.3f V, outside %.2f to %.2f V", g.vT, g.vTmin,
                          g.vTmax);
        status.change = "temperature within its limits, then the start-up counter";
    } else if (g.initiateState < TUREG_INIT_NOISY && g.ticks < START_UP_TICKS) {
        const int left = START_UP_TICKS - g.ticks;
        status.why = text("start-up: temperature tick %u of %u", g.ticks, START_UP_TICKS);
        status.change = text("about %s until the estimator begins", clockText(left * TICK_s).c_str());
    } else {
        status.why = "the estimator begins";
        status.change = "its first step grades the frequency";
    }
}

void explainDrifting(UnitStatus& status, const Grades& g)
{
    status.why = "frequency known to " + ppb(g.frequency) + ", above the limit of " + ppb(g.frequencyLimit);
    status.change = status.referenceType == "NO_REF"
                        ? lostReference(status) + ": without a reference it doesn't get better"
                        : "FREQUENCY_LOCKED when it is below";
}

void explainFrequencyLocked(UnitStatus& status, const Grades& g, u8 timeMode)
{
    status.why = "frequency known to " + ppb(g.frequency) + " of " + ppb(g.frequencyLimit);
    if (timeMode == FREQUENCY_LOCKING)
        status.change = "the main processor wants frequency alone; FREQUENCY_DRIFTING above the limit";
    else if (!g.tracksTime)
        status.change = "its reference gives no time; FREQUENCY_DRIFTING above the limit";
    else if (!g.knowsTime)
        status.change = "TIME_OFFSET_LOCKED once the reference has told the time of day";
    else
        status.change = "time known to " + time(g.time_s) + "; TIME_OFFSET_LOCKED below "
                        + time(g.timeLock_s);
}

void explainTime(UnitStatus& status, const Grades& g)
{
    status.why = "time known to " + time(g.time_s) + " of " + time(g.timeLoss_s) + ", frequency to "
                 + ppb(g.frequency) + " of " + ppb(g.frequencyLimit);
    if (status.clockState == KVD_TUIIF_RNT_TIME_LOCKED) {
        status.change = "loss of its reference: RNT_TIME_HOLDOVER";
        return;
    }
    status.why += "; the frame counter stands " + time(g.delta0_s) + " off that time";
    status.change = g.jumpState != JUMP_NOT_NEEDED ? "RNT_TIME_LOCKED with the jump that is ordered"
                                                   : "RNT_TIME_LOCKED when a jump is ordered (do mp.jump)";
}

/// A packet time reference whose delays vary too much isn't measured, and the estimate says nothing of it.
void tellRefusal(UnitStatus& status)
{
    if (status.referenceType != "PACKET_TIME_REF" || !isHigh(status.pdv)) return;
    status.why += "; no measurement is taken: " + pdvText(status.pdv);
    status.change = "the estimate gets worse until the variation is within its limit (kvdpdvthr)";
}

/// Of states that a loop or another unit decides.
void explainLoop(UnitStatus& status)
{
    const std::string loop = status.loop.empty() ? "no loop runs" : "the loop is in " + status.loop;
    switch (status.clockState) {
    case KVD_TUIIF_SLAVE_FREE_RUNNING:
        status.why = status.referenceType == "NO_REF"
                         ? "a slave without a locked loop: " + lostReference(status)
                         : "its loop isn't locked yet: " + loop;
        status.change = "SLAVE_FREQUENCY_LOCKED when its loop begins to follow the other unit";
        break;
    case KVD_TUIIF_SLAVE_FREQUENCY_LOCKED:
        status.why = loop;
        status.change = "SLAVE_FRAME_LOCKED when the loop is locked";
        break;
    case KVD_TUIIF_SLAVE_FRAME_LOCKED:
        status.why = "it follows " + status.reference + ": " + loop;
        status.change = "a minute without its link: SLAVE_FREE_RUNNING";
        break;
    case KVD_TUIIF_PREJUMP_START:
    case KVD_TUIIF_PREJUMP_HIST:
        status.why = loop;
        status.change = "the first time step from the sync link";
        break;
    case SOCPRI_STARTING:
        status.why = "radio links are scanned";
        status.change = "a link that the main processor selects";
        break;
    default:
        status.why = status.reference + " drives a loop: " + loop;
        status.change = "the state of the loop";
    }
}

void explainRunning(UnitStatus& status, const Grades& g, u8 timeMode)
{
    if (const HoldoverRow* const row = holdoverRow(status.clockState))
        return explainHoldover(status, *row, g);
    switch (status.clockState) {
    case KVD_TUIIF_WARMUP: return explainWarmUp(status, g);
    case KVD_TUIIF_LOSS_OF_TRACKING:
        status.why = "the hardware can't follow the oscillator";
        status.change = "its tests passing again";
        return;
    case KVD_TUIIF_FAILURE:
        status.why = "the regulator has failed";
        status.change = "a restart";
        return;
    case KVD_TUIIF_UNKNOWN:
        status.why = status.connected ? "the clock hasn't been graded yet" : "no main processor is connected";
        status.change = status.connected ? "the first grade" : "its connection";
        return;
    default: break;
    }
    if (!status.loop.empty() || !status.isMaster) return explainLoop(status);
    switch (status.clockState) {
    case KVD_TUIIF_FREQUENCY_DRIFTING: return explainDrifting(status, g);
    case KVD_TUIIF_FREQUENCY_LOCKED:   return explainFrequencyLocked(status, g, timeMode);
    case KVD_TUIIF_TIME_OFFSET_LOCKED:
    case KVD_TUIIF_RNT_TIME_LOCKED:    return explainTime(status, g);
    default:                           return explainLoop(status);
    }
}

}  // namespace

void explain(UnitStatus& status, sim::Unit& unit)
{
    if (!status.runs) {
        status.why = "the unit's program isn't loaded";
        status.change = "power, or a restart";
        return;
    }
    const u8 timeMode = unit.node().mainProcessor().config.timeMode;
    unit.node().inProgram([&] { explainRunning(status, readGrades(), timeMode); });
    tellRefusal(status);
}

}  // namespace app
