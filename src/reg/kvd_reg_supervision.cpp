// Supervision of the selected reference's frequency and delay variation: rings of interval values
// that a reader of the node's logs can look back on.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet_int.h"

#include <algorithm>
#include <cmath>

using packet::state;

namespace {

constexpr double STEP_RATE = 2e-05;              // s each second: a phase that moves faster stepped
constexpr double LINE_STEP_s = 6.25e-05;
constexpr u8 CONSEC_JUMPS_MAX = 10;

u32 selectedIndex() { return KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef()); }
bool isPacketFrequency(u32 z_i) { return z_i == Z_NTP_REF || z_i == Z_PKT_FREQ_REF; }
bool isLine(u32 z_i) { return (z_i >= Z_EXT_REF && z_i <= Z_SDH_REF) || z_i == Z_ETH_REF; }

/// The place before this one of a ring.
template <typename Ring>
auto& before(Ring& ring, u32 place) { return ring[(place + ring.size() - 1) % ring.size()]; }

bool hadPhaseJump(const packet::SupervisionRecord& r, u32 intervals)
{
    const u32 count = std::min<u32>(intervals, packet::PDV_RING);
    for (u32 i = 1; i <= count; ++i) {
        const u32 place = (r.pdvInterval + packet::PDV_RING - i) % packet::PDV_RING;
        if (r.pdv[place] == packet::MARK_PHASE_JUMP) return true;
    }
    return false;
}

double frequencyEntry(packet::SupervisionRecord& r, u32 interval, u32 window)
{
    if (isPacketFrequency(selectedIndex())) {
        constexpr u32 SAMPLES_A_PDV = 60;
        if (hadPhaseJump(r, (interval + window) / SAMPLES_A_PDV)) return packet::MARK_PHASE_JUMP;
    } else if (r.phaseJumpFlag != 0) {
        r.phaseJumpFlag = 0;
        return packet::MARK_PHASE_JUMP;
    }
    const double deviation = packet::difference(r.minCurr, r.minPrev) / interval;
    KVD_TRACE(TRACE_TUREG, TRACE_3, "freq_dev %s", TuCommon_text(deviation));
    return deviation;
}

/// The minimum of a window of `window` samples stands for the phase of its interval: packets come
/// late, never early.
void takeMinimum(packet::SupervisionRecord& r, u32 interval, u32 window, TimePair phase)
{
    constexpr u32 OPENS_AT = 5;
    const u32 c = r.currMeas;
    if (r.minCount == 0 && c != OPENS_AT && (c + OPENS_AT) % interval != 0) return;
    if (r.minCount < window) {
        if (packet::isBelow(phase, r.minCurr)) r.minCurr = phase;
        ++r.minCount;
        return;
    }
    if (packet::isPhase(r.minPrev)) {
        r.freqDev[r.freqInterval] = frequencyEntry(r, interval, window);
        r.freqInterval = static_cast<u8>((r.freqInterval + 1) % packet::FREQ_RING);
    }
    r.minPrev = r.minCurr;
    r.minCurr = packet::NO_MINIMUM;
    r.minCount = 0;
}

/// Standard deviation of the last `count` phases, ms. False when there aren't as many.
bool phaseDeviation(const packet::SupervisionRecord& r, u32 count, double& std_ms)
{
    const auto phase = [&r](u32 back) {
        return r.phaseWindow[(r.windowIdx + 2 * packet::PHASE_WINDOW - 1 - back) % packet::PHASE_WINDOW];
    };
    const auto meanOf = [count](auto value) {
        double sum = 0.0;
        for (u32 i = 0; i < count; ++i) sum += value(i);
        return sum / count;
    };
    const auto fromNewest = [&phase](u32 back) { return packet::difference(phase(back), phase(0)); };
    for (u32 i = 0; i < count; ++i)
        if (!packet::isPhase(phase(i))) return false;
    const double mean = meanOf(fromNewest);
    const auto deviation = [&](u32 back) { return (fromNewest(back) - mean) * 1000.0; };
    const double rest = meanOf(deviation);       // what the mean's rounding has left
    const auto square = [&](u32 back) {
        const double e = deviation(back) - rest;
        return e * e;
    };
    std_ms = std::sqrt(meanOf(square));
    return true;
}

void appendPdv(packet::SupervisionRecord& r, double entry)
{
    r.pdv[r.pdvInterval] = entry;
    r.pdvInterval = static_cast<u8>((r.pdvInterval + 1) % packet::PDV_RING);
}

void takePdv(packet::SupervisionRecord& r, u32 z_i, TimePair phase)
{
    u32 n = packet::PHASE_WINDOW;
    if (state().highPdvCounter > packet::HIGH_PDV_SAMPLES) {
        const auto m = static_cast<u32>(measure::state().var.measRefData.m);
        const u32 rest = r.currMeas % packet::PHASE_WINDOW;
        r.pdvStopped = 1;
        n = std::max(rest, std::min(r.currMeas, m));
        n = std::clamp<u32>(n, 1, packet::PHASE_WINDOW);
    }
    r.phaseWindow[r.windowIdx] = phase;
    r.windowIdx = static_cast<u8>((r.windowIdx + 1) % packet::PHASE_WINDOW);
    double deviation = 0.0;
    if (!phaseDeviation(r, n, deviation)) return;
    if (z_i != Z_PKT_TIME_REF) deviation *= packet::GAUSS_999;
    if (r.currMeas % n != 0 && r.pdvStopped == 0) return;

    if (u8& flag = r.jumpFlags[r.pdvInterval]; flag != 0) {
        flag = 0;
        ++r.consecJumps;
        ++r.totalJumps;
        appendPdv(r, packet::MARK_PHASE_JUMP);
    } else {
        r.consecJumps = 0;
        appendPdv(r, deviation);
    }
    if (r.pdvStopped != 0) r.pdv[r.pdvInterval] = packet::MARK_PDV_DEGRADED;
}

/// A step within a packet reference's interval spoils this interval's values, and the ones before
/// when the interval has only begun.
void markPacketJump(packet::SupervisionRecord& r)
{
    constexpr u32 SETTLED = 49, LATE_IN_PDV = 50, PDV_SAMPLES = 60;
    constexpr u32 WINDOW = 150, LATE_IN_FREQ = 51;
    const u32 c = r.currMeas;
    r.jumpFlags[r.pdvInterval] = 1;
    if (c > SETTLED && c % PDV_SAMPLES < LATE_IN_PDV) {
        before(r.pdv, r.pdvInterval) = packet::MARK_PHASE_JUMP;
        if (c > WINDOW && (c - WINDOW) % r.intervalSize < LATE_IN_FREQ)
            before(r.freqDev, r.freqInterval) = packet::MARK_PHASE_JUMP;
    }
    if (r.consecJumps <= CONSEC_JUMPS_MAX) return;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO,
              "More than 10 consecutive intervals with phase jump!!! Degrading reference.");
    constexpr u8 DEGRADED = 2;
    packet::needs().setRefState(DEGRADED);
    r.pdv[r.pdvInterval] = packet::MARK_PDV_DEGRADED;
    r.consecJumps = 0;
}

}  // namespace

void KvdLoz6TuReg_frequencySupervision(u32 interval, u32 window, double phase)
{
    KvdLoz6TuReg_frequencySupervision(interval, window, TimePair{0.0, phase});
}

void KvdLoz6TuReg_frequencySupervision(u32 interval, u32 window, TimePair phase)
{
    packet::SupervisionRecord& r = state().supervision;
    const double now = phase.c + phase.f;
    const bool stepped = r.lastPhase != 0.0 && isBeyond(now - r.lastPhase, interval * STEP_RATE);
    ++r.currMeas;
    r.lastPhase = now;
    if (stepped) return;
    takeMinimum(r, interval, window, phase);
    const u32 z_i = selectedIndex();
    if ((isPacketFrequency(z_i) || z_i == Z_PKT_TIME_REF) && r.pdvStopped == 0) takePdv(r, z_i, phase);
}

void KvdLoz6TuReg_supervisionPhaseJump() { state().supervision.phaseJumpFlag = 1; }

void KvdLoz6TuReg_reportPhaseJump(u32 z_i, double phase)
{
    packet::SupervisionRecord& r = state().supervision;
    if (isPacketFrequency(z_i)) return markPacketJump(r);
    if (!isLine(z_i) || isUpTo(phase - r.lastPhase, LINE_STEP_s)) return;
    ++r.totalJumps;
    r.phaseJumpFlag = 1;
    constexpr u8 DROPPED_UP_TO = 28;             // of a window of 30
    if (r.minCount <= DROPPED_UP_TO) r.minCurr = packet::NO_MINIMUM;
}

void KvdLoz6TuReg_supervisionRestart()
{
    packet::SupervisionRecord& r = state().supervision;
    const u32 z_i = selectedIndex();
    constexpr u16 NTP_INTERVAL = 720, OTHER_INTERVAL = 360;
    r.intervalSize = z_i == Z_NTP_REF ? NTP_INTERVAL : OTHER_INTERVAL;
    if (z_i == Z_NTP_REF) {
        r.phaseWindow.fill(packet::NO_PHASE);
        r.jumpFlags.fill(0);
        r.windowIdx = 0;
        r.consecJumps = 0;
    }
    if (r.currMeas > 1) {
        const u32 selected = KvdLoz6TuReg_selectedRef();
        appendPdv(r, packet::MARK_PDV_REF_CHANGED + selected);
        r.freqDev[r.freqInterval] = packet::MARK_FREQ_REF_CHANGED + selected;
        r.freqInterval = static_cast<u8>((r.freqInterval + 1) % packet::FREQ_RING);
    }
    r.totalJumps = 0;
    r.pdvStopped = 0;
    r.currMeas = 0;
    r.minPrev = packet::NO_PHASE;
    r.lastPhase = 0.0;
    r.minCount = 0;
    r.phaseJumpFlag = 0;
    r.minCurr = packet::NO_MINIMUM;
}
