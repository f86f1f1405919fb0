// Frame counter against the counter that stamps packets.
// The stamps come from a counter in NTP format, which the hardware latches on a frame edge (10 ms);
// the difference of the two is constant but for planned steps of the frame counter.
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_measure_int.h"

#include <cmath>

namespace {

constexpr double NTP_PERIOD = 4294967296.0;             // s, RFC 5905 timestamp format
constexpr double NTP_FRACTION = 1.0 / 4294967296.0;     // s, its resolution
constexpr double FRAME = 0.01;                          // s

void takeDiff(measure::State& s, TimePair candidate)
{
    s.diff_c = candidate.c;
    s.diff_f = candidate.f;
}

}  // namespace

void measure::setDiffCheckActive()
{
    State& s = state();
    s.diffCheckActive = 1;
    s.diffCheckTicks = TICKS_BETWEEN_DIFF_CHECKS;
}

TimePair measure::diffCandidate(double t_f, double t_c_last, double t_f_last, double period, u32 ntpSeconds,
                                u32 ntpFraction)
{
    const double t_f_sfc = t_f - std::fmod(t_f, FRAME);
    double t_c_sfc = t_c_last;
    if (t_f_last - t_f_sfc > period / 2) t_c_sfc += period;
    return KvdLoz6Math_ldMod(t_c_sfc - ntpSeconds, t_f_sfc - ntpFraction * NTP_FRACTION, NTP_PERIOD);
}

void measure::checkDiff(State& s, TimePair candidate)
{
    // The parts of two equal differences move against each other from second to second:
    // compare the sums.
    const double distance = (candidate.c - s.diff_c) + (candidate.f - s.diff_f);
    const bool isEqual = std::fabs(distance) < NTP_FRACTION;
    if (s.diff_c == 0.0 && s.diff_f == 0.0) {
        takeDiff(s, candidate);
        ++s.countConsecutiveDiff;
    } else if (s.diffCheckAfterJump != 0) {
        s.diffCheckAfterJump = 0;
        if (isEqual) {
            s.diffCheckActive = 0;
        } else {
            s.diffCheckActive = 1;
            s.diffCheckTicks = TICKS_BETWEEN_DIFF_CHECKS;
            takeDiff(s, candidate);
            ++s.countConsecutiveDiff;
        }
    } else if (isEqual) {
        ++s.countConsecutiveDiff;
        KVD_TRACE(TRACE_TUREG, TRACE_3,
                  "New diff differes from the previous one << 1NTP.countConsecutiveDiff=%u",
                  s.countConsecutiveDiff);
    } else {
        s.countConsecutiveDiff = 0;
        if (std::signbit(distance)) takeDiff(s, candidate);   // the latch can only be late, never early
    }
    constexpr u32 ENOUGH = 3;
    if (s.countConsecutiveDiff >= ENOUGH) {
        s.diffCheckActive = 0;
        s.diffCheckAfterJump = 0;
        s.countConsecutiveDiff = 0;
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Three consecutive diff received!");
    }
}

void KvdLoz6TuReg_handlePp100msInterupt()
{
    double period = 0.0, t_f = 0.0;
    if (tuHwIf_readTime(period, t_f) != 0) return;
    if (getBoardType() != BVQ1) return;
    u32 seconds = 0, fraction = 0;
    const int result = tuHwIf_readNtp(seconds, fraction);
    if (result != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "tuHwIf_readNtp failed (returned 0x%x)", static_cast<u32>(result));
        return;
    }
    measure::State& s = measure::state();
    measure::checkDiff(s, measure::diffCandidate(t_f, s.var.t_c_last, s.var.t_f_last, period, seconds,
                                                 fraction));
}

void KvdLoz6TuReg_diffCheckAfterJump()
{
    measure::setDiffCheckActive();
    measure::state().diffCheckAfterJump = 1;
}

TimePair KvdLoz6TuReg_sfcNtpDiff() { return {measure::state().diff_c, measure::state().diff_f}; }
