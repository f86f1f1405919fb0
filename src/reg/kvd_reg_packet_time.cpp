// A packet time reference: from every exchange to at most two measurements a second.
// In an interval the packets nearest to the floor of the delay stand for all, since what delays a
// packet in the network only ever adds. Until the clock is locked that is the floor of the round
// trip, which needs no frequency; then one floor a direction.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet_int.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>

using packet::state;

namespace {

constexpr double NS = 1e-09;
constexpr double GATE_s = 5e-05;                 // between accepted delays
constexpr double WIDE_MOD = TMOD_GPS_NMEA;       // s

bool isLocked(u8 regState) { return regState == FREQLOCKED || packet::isTimeState(regState); }

/// One packet on its way through the filter.
struct Packet {
    const PktTimeMsg& msg;
    const packet::ProfileRow& profile;
    u8 profileNo;
    u16 rate;                                    // packets a second
    u8 regState;
};

void followAsymmetry(packet::TimeFilter& f, const PktTimeMsg& msg)
{
    constexpr double KEPT_ns = 100.0;
    const double d = static_cast<double>(f.lastAsymComp) - msg.asymComp;
    if (isBeyond(d, KEPT_ns) && measure::state().var.m[Z_PKT_TIME_REF] > 0.0)
        KvdLoz6TuReg_adjustOffset(0.0, d * NS);
    f.lastAsymComp = msg.asymComp;
}

TimePair uplink(const PktTimeMsg& msg)
{
    const TimePair z43 = packet::delay43(msg);
    return {-z43.c, -z43.f};
}

/// Below the first delays seen, so that the floors can only be met from above.
void countPacket(packet::TimeFilter& f, const PktTimeMsg& msg, const packet::ProfileRow& profile)
{
    constexpr double M_MAX = 36000.0;
    MeasStateVar& v = measure::state().var;
    double& m = v.m[Z_PKT_TIME_REF];
    if (m >= M_MAX) return;
    if (m <= 1.0) {
        state().highPdvCounter = 0;
        v.R_all[Z_PKT_TIME_REF] = profile.R;
        f.down.minMin = packet::moved(packet::delay21(msg), -2 * profile.delayMargin);
        f.up.minMin = packet::moved(uplink(msg), -2 * profile.delayMargin);
    }
    m += 1.0;
}

void resetVariances(packet::TimeFilter& f)
{
    packet::resetRunningVariance(f.variance21);
    packet::resetRunningVariance(f.variance43);
}

// ---- locked -------------------------------------------------------------------------------------

/// One direction's delay into its variance. False for an outlier; as many in a row as packets come
/// in a second are a new route.
struct Direction { TimePair& prev; u8& jumpCount; double& stdDev; packet::RunningVariance* variance; };

bool takeDelay(packet::TimeFilter& f, Direction d, TimePair z, u16 rate, const char* name)
{
    if (isBeyond(packet::difference(z, d.prev), GATE_s)) {
        constexpr u8 COUNT_MAX = 255;
        d.jumpCount = static_cast<u8>(std::min(d.jumpCount + 1, int{COUNT_MAX}));
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_5, "%s= %+.9f [sec] (prev %s = %.9f [sec])", name, z.c + z.f, name,
                  d.prev.c + d.prev.f);
        if (d.jumpCount < std::min<u16>(rate, COUNT_MAX)) return false;
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "new mean found: %.9f [sec]", z.c + z.f);
        resetVariances(f);
        packet::resetMask();
        d.prev = z;
        return false;
    }
    d.jumpCount = 0;
    const double* const variance = packet::runningVariance(d.variance, z);
    if (variance != nullptr) {
        d.stdDev = std::sqrt(*variance);
        d.prev = z;
    }
    return variance != nullptr;
}

struct CriteriaText { const char* entered; const char* left; };
constexpr CriteriaText HIGH_PDV_TEXT[] = {
    {"High PDV criteria for 1588J3 profile entered: pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f",
     "High PDV criteria for 1588J3 profile left: pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f"},
    {"High PDV criteria for G82751 profile entered: pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f",
     "High PDV criteria for G82751 profile left: pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f"},
};

void judgeHighPdv(const Packet& p, double dl, double ul)
{
    const double limit = packet::timePdvLimit(p.profile);
    const CriteriaText& text = HIGH_PDV_TEXT[p.profileNo];
    if (std::max(dl, ul) > limit) {
        if (packet::startPdvTimer(packet::HIGH_PDV_TIMER))
            KVD_TRACE(TRACE_PTPTIME_REF, packet::pdvLevel(packet::HIGH_PDV_TIMER), text.entered, dl, ul);
    } else if (packet::stopPdvTimer(packet::HIGH_PDV_TIMER)) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_INFO, text.left, dl, ul);
        packet::needs().setRefState(KVD_TUIIF_REF_OK);
    }
}

/// Few packets under some variation: what the clock tells may not be relied on once that has lasted a minute.
void judgeReliability(const Packet& p, double dl, double ul)
{
    constexpr double LIMIT_s = 3.5e-07;
    constexpr u16 MANY = 64;
    if (std::max(dl, ul) > LIMIT_s && p.rate < MANY) {
        if (packet::startPdvTimer(packet::NOT_RELIABLE_TIMER))
            KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3,
                      "Not Reliable criteria for 1588J3 profile entered: rate = %hu, "
                      "pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f",
                      p.rate, dl, ul);
    } else if (packet::stopPdvTimer(packet::NOT_RELIABLE_TIMER)) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3,
                  "Not Reliable criteria for 1588J3 profile left: rate = %hu, "
                  "pdv( z21_netw ) = %+.9f, pdv( z43_netw ) = %+.9f",
                  p.rate, dl, ul);
        packet::needs().setRefState(KVD_TUIIF_REF_OK);
    }
}

void lockedPath(packet::TimeFilter& f, const Packet& p)
{
    if (p.regState != f.lastRegState) {
        resetVariances(f);
        packet::resetMask();
    }
    const TimePair z21 = packet::delay21(p.msg), z43 = packet::delay43(p.msg);
    if (packet::trackDelay(z21, f.down)) f.syncPacket = p.msg;
    if (packet::trackDelay(uplink(p.msg), f.up)) f.delayPacket = p.msg;

    const double meanDelay = packet::meanPathDelay(p.msg, p.msg);
    bool bothTaken = false;
    if (packet::isRoundTripOk(meanDelay)) {
        const bool taken21 = takeDelay(f, {f.prevZ21, f.jumpCount21, f.stdDev21, f.variance21}, z21, p.rate,
                                       "z21");
        const bool taken43 = takeDelay(f, {f.prevZ43, f.jumpCount43, f.stdDev43, f.variance43}, z43, p.rate,
                                       "z43");
        bothTaken = taken21 && taken43;
        if (f.jumpCount21 == 0 && f.jumpCount43 == 0)
            KvdLoz6TuReg_addMtieMask(f.mask, packet::phaseError(p.msg, p.msg, 1.0), p.rate);
    } else {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "Packet rountrip delay outside limits, %s",
                  TuCommon_text(meanDelay));
    }
    const double dl = packet::PDV_SIGMAS * f.stdDev21, ul = packet::PDV_SIGMAS * f.stdDev43;
    constexpr double HIGH_s = 0.0001;
    if (dl != 0.0 || ul != 0.0) packet::historyEntry(packet::HISTORY_TIME, std::max(dl, ul) > HIGH_s, dl, ul);
    if (!bothTaken) return;
    judgeHighPdv(p, dl, ul);
    if (p.profileNo == packet::IEEE_1588_J3_PROFILE) judgeReliability(p, dl, ul);
}

void unlockedPath(packet::TimeFilter& f, const Packet& p)
{
    if (isLocked(f.lastRegState)) resetVariances(f);
    if (packet::trackDelay({0.0, packet::meanPathDelay(p.msg, p.msg)}, f.roundTrip)) f.syncPacket = p.msg;
    f.delayPacket = f.syncPacket;
}

// ---- end of the interval ------------------------------------------------------------------------

bool isIntervalDone(const packet::TimeFilter& f, const Packet& p)
{
    constexpr double SHORT_s = 0.5;
    if (f.numberOfPkts >= p.profile.filterWindow * p.rate) return true;
    return f.numberOfPkts >= SHORT_s * p.rate && f.down.close != 0 && f.up.close != 0;
}

/// Up by that share of the distance to the interval's smallest delay.
void raiseBy(packet::Floor& floor, double share)
{
    floor.minMin = packet::moved(floor.minMin, packet::difference(floor.min, floor.minMin) * share);
}

/// A floor that no packet came near to moves up, faster the longer that lasts.
void raiseFloor(packet::Floor& floor, double& gain)
{
    if (floor.close != 0) {
        gain = 0.0;
        return;
    }
    raiseBy(floor, gain + 0.2);
    gain = 0.4;
}

void moveFloors(packet::TimeFilter& f, const Packet& p)
{
    if (isLocked(p.regState)) {
        raiseFloor(f.down, f.floorGain21);
        raiseFloor(f.up, f.floorGain43);
        return;
    }
    f.down.minMin = packet::moved(packet::delay21(f.syncPacket), -p.profile.delayMargin);
    f.up.minMin = packet::moved(uplink(f.syncPacket), -p.profile.delayMargin);
    if (f.roundTrip.close == 0) raiseBy(f.roundTrip, 0.8);
}

void clearInterval(packet::TimeFilter& f)
{
    f.numberOfPkts = 0;
    for (packet::Floor* floor : {&f.down, &f.up, &f.roundTrip}) {
        floor->close = 0;
        floor->min = packet::NO_DELAY_YET;
    }
}

bool areRoundTripsOk(const packet::TimeFilter& f)
{
    for (const double meanDelay : {packet::meanPathDelay(f.syncPacket, f.syncPacket),
                                   packet::meanPathDelay(f.delayPacket, f.delayPacket),
                                   packet::meanPathDelay(f.syncPacket, f.delayPacket)}) {
        if (packet::isRoundTripOk(meanDelay)) continue;
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "Packet rountrip delay outside limits, %s",
                  TuCommon_text(meanDelay));
        return false;
    }
    return true;
}

/// Whole seconds between the two scales, which a second's step of one of them leaves alone.
void followSeconds(packet::TimeFilter& f)
{
    constexpr double KEPT_s = 5;
    const auto s = static_cast<i32>(static_cast<u32>(f.syncPacket.T2_s)
                                    - static_cast<u32>(f.syncPacket.T1_s));
    if (isBeyond(static_cast<double>(s) - f.secOffset, KEPT_s)) f.secOffset = s;
}

/// Seconds of `to` less those of `from`, plus the offset between their scales, with nanoseconds.
double delaySample(i64 to_s, i32 to_ns, i64 from_s, i32 from_ns, double offset_s)
{
    const auto seconds = static_cast<i64>(static_cast<u64>(to_s) - static_cast<u64>(from_s));
    return (static_cast<double>(seconds) + offset_s) + (static_cast<double>(to_ns) - from_ns) * NS;
}

/// The variance of each direction's delay, and what their difference does to the phase.
double takeNoise(packet::TimeFilter& f)
{
    const PktTimeMsg& a = f.syncPacket;
    const PktTimeMsg& b = f.delayPacket;
    const double down = delaySample(a.T2_s, a.T2_ns, a.T1_s, a.T1_ns, -static_cast<double>(f.secOffset));
    const double up = delaySample(b.T4_s, b.T4_ns, b.T3_s, b.T3_ns, f.secOffset);
    const auto take = [](packet::SecondDifference& v, double x) {
        packet::takeSample(v, x);
        packet::varianceJumpCheck(v);
    };
    take(f.syncVar, down);
    take(f.delayVar, up);
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "variance estimate sync and delay: %s",
              TuCommon_text(f.syncVar.var + f.delayVar.var));
    constexpr double PDV_ASYMMETRY = 300000.0;   // s of phase for each s^2 of difference
    f.compensation = (f.syncVar.var - f.delayVar.var) * PDV_ASYMMETRY;
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "PDV assymtery comp : %g ", f.compensation);
    take(f.syncVarLong, down);
    take(f.delayVarLong, up);
    constexpr double R_MIN = 1e-16;
    return std::max((f.syncVarLong.var + f.delayVarLong.var) * 0.25, R_MIN);
}

/// Seconds to ns, held within the count's range.
i64 nanosecondsOf(double whole, double rest)
{
    constexpr double LIMIT_s = 9.2e9;
    return static_cast<i64>(std::clamp(whole, -LIMIT_s, LIMIT_s)) * 1'000'000'000 + std::llround(rest * 1e9);
}

void tellPacketSync(const packet::TimeFilter& f)
{
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    const i64 offset_ns = nanosecondsOf(delta0.c, delta0.f);
    const i64 offsetFromMaster = static_cast<i64>(static_cast<u64>(offset_ns) << 16);
    const i64 meanPathDelay = nanosecondsOf(0.0, packet::meanPathDelay(f.syncPacket, f.delayPacket));
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3,
              "Send TUPKTSYNC_REG_IND: offsetFromMaster = %lld, meanPathDelay = %lld",
              static_cast<long long>(offsetFromMaster), static_cast<long long>(meanPathDelay));
    packet::needs().tellPacketSync(offsetFromMaster, meanPathDelay);
}

void measureInterval(packet::TimeFilter& f, const Packet& p)
{
    moveFloors(f, p);
    clearInterval(f);
    if (packet::pdvTimerRuns(packet::HIGH_PDV_TIMER) || !areRoundTripsOk(f)) return;
    double t_s = 0.0;
    if (!packet::sampleInterval(t_s)) return;
    followSeconds(f);
    const double t_mod = isLocked(p.regState) ? WIDE_MOD : 1.0;
    double z = packet::phaseError(f.syncPacket, f.delayPacket, t_mod);
    const double R = takeNoise(f);
    z -= f.compensation;
    constexpr double MEMORY = 50.0;
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "z= %-17.16g, R= %-17.16g", z, R);
    packet::estimate({z, Z_PKT_TIME_REF, t_s, MEMORY, R});
    constexpr u32 INTERVAL = 720, WINDOW = 150;
    KvdLoz6TuReg_frequencySupervision(INTERVAL, WINDOW, z);
    tellPacketSync(f);
}

/// A degraded reference that nothing ails any more is measured again, whatever its past says.
void followWayBack(packet::TimeFilter& f, const Packet& p)
{
    const double limit = packet::timePdvLimit(p.profile);
    const packet::WayBack way = packet::watchQuietPath(f.quiet, p.msg, limit);
    if (way == packet::WayBack::None) return;
    resetVariances(f);
    packet::stopPdvTimer(packet::HIGH_PDV_TIMER);
    if (way == packet::WayBack::Estimate) packet::needs().restartEstimate();
    packet::needs().setRefState(KVD_TUIIF_REF_OK);
}

/// The reference is to lock the clock within the profile's time.
void superviseLock(const Packet& p)
{
    if (packet::isTimeState(p.regState)) packet::stopPdvTimer(p.profile.lockTimer);
    else                                 packet::startPdvTimer(p.profile.lockTimer);
}

}  // namespace

void packet::resetMask() { state().filter.mask = KvdLoz6TuReg_resetMtieMask(state().filter.mask); }

void KvdLoz6TuReg_handlePktTimeMsg(const PktTimeMsg& msg)
{
    packet::TimeFilter& f = state().filter;
    if (KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef()) != Z_PKT_TIME_REF) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement discarded: No reference selected.");
        return;
    }
    followAsymmetry(f, msg);
    // A packet that is on its way when its clock goes finds none.
    const u8* const selected = packet::needs().ptpProfile(state().history.currentId[packet::HISTORY_TIME]);
    if (selected == nullptr) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_ERROR, "selected profile is NULL pointer");
        return;
    }
    const u8 profileNo = *selected;
    const packet::ProfileRow* const profile = packet::profileRow(profileNo);
    if (profile == nullptr) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_ERROR, "Unexpected profile (%hhu)", profileNo);
        return;
    }
    countPacket(f, msg, *profile);
    if (f.numberOfPkts == 0) f.syncPacket = f.delayPacket = msg;
    ++f.numberOfPkts;
    const Packet p{msg, *profile, profileNo, packet::packetRate(msg.syncIntervalMs), KvdLoz6TuReg_regState()};
    superviseLock(p);
    followWayBack(f, p);
    if (isLocked(p.regState)) lockedPath(f, p);
    else                      unlockedPath(f, p);
    f.lastRegState = p.regState;
    if (isIntervalDone(f, p)) measureInterval(f, p);
}

void KvdLoz6TuReg_onPktTimeRefInit()
{
    packet::TimeFilter& f = state().filter;
    f.variance21 = &f.variances[0];
    f.variance43 = &f.variances[1];
    resetVariances(f);
    for (u32 i = 0; i < packet::PDV_TIMERS; ++i) packet::stopPdvTimer(i);
    clearInterval(f);
    f.syncVar = {};
    f.delayVar = {};
    f.compensation = 0;
    packet::startLong(f.syncVarLong);
    packet::startLong(f.delayVarLong);
    f.prevZ21 = f.prevZ43 = {0.0, 0.0};
    f.jumpCount21 = f.jumpCount43 = 0;
    f.stdDev21 = f.stdDev43 = 0.0;
    f.mask = KvdLoz6TuReg_openMtieMask();
    f.quiet = {};
}

void KvdLoz6TuReg_onPktTimeRefTerm()
{
    packet::TimeFilter& f = state().filter;
    for (u32 i = 0; i < packet::PDV_TIMERS; ++i) packet::stopPdvTimer(i);
    KvdLoz6TuReg_closeMtieMask(f.mask);
    f.mask = nullptr;
    f.variance21 = f.variance43 = nullptr;
}
