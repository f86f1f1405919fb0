// Packet measurements: state and neighbours, thresholds, and references that give frequency.
#include "reg/kvd_reg_packet.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet_int.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"
#include "sig/tupktsync_sig.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

using packet::state;

namespace {

ose::ModuleData<packet::State> s;

void sendRegInd(i64 offsetFromMaster, i64 meanPathDelay)
{
    auto* ind = node::make<TuPktsyncRegInd>(TUPKTSYNC_REG_IND);
    ind->offsetFromMaster = offsetFromMaster;
    ind->meanPathDelay = meanPathDelay;
    node::sendTo(KvdLoz6TuPktsync_pid(), ind);
}

constexpr packet::Needs NEEDS = {
    .ptpProfile = [](u32 froId) { return REG_UPCALLS.ptpProfile(froId); },
    .estimate = KvdLoz6TuReg_estimate,
    .setRefState = KvdLoz6TuReg_setDegrState,
    .refState = KvdLoz6TuReg_degrState,
    .restartEstimate = KvdLoz6TuReg_restartEstimate,
    .tellPacketSync = sendRegInd,
    .packetCounterDiff = KvdLoz6TuReg_sfcNtpDiff,
    .sfcPtpOffset = KvdLoz6TuReg_sfcPtpOffset,
};

constexpr double FRACTION = 1.0 / 4294967296.0;  // s, RFC 5905 timestamp format
constexpr double MEMORY = 50.0;                  // of the noise adaptation, samples
constexpr double M_MAX = 36000.0;

constexpr double DEFAULT_PDV_s = 0.015;          // NTP and packet frequency
constexpr packet::ProfileRow PROFILES[] = {
    {packet::LOCK_1588J3_TIMER, 5.0, 2e-11,   5e-06, 0.0001},
    {packet::LOCK_G82751_TIMER, 0.5, 1.6e-16, 5e-08, 3.5e-07},
};

/// Many exchanges until the clock is locked, then few.
void setNtpRate()
{
    constexpr u8 FAST = 10, SLOW = 1;            // exchanges a second
    const u8 rate = KvdLoz6TuReg_getPktRate();
    const bool isLocked = KvdLoz6TuReg_isLocked();
    if (!isLocked && rate == SLOW) KvdLoz6TuReg_setPktRate(FAST);
    if (isLocked && rate == FAST) KvdLoz6TuReg_setPktRate(SLOW);
}

void countSample(u32 z_i)
{
    constexpr double FIRST_R = 5e-07;
    MeasStateVar& v = measure::state().var;
    if (v.m[z_i] >= M_MAX) return;
    v.m[z_i] += 1.0;
    if (v.m[z_i] > 1.0) return;
    state().highPdvCounter = 0;
    v.R_all[z_i] = FIRST_R;
    v.t_mod_old = 0.0;
}

void judgePdv(double deviation, double limit)
{
    constexpr u8 GOOD = 1, DEGRADED = 2;
    u32& counter = state().highPdvCounter;
    if (deviation > limit) {
        if (counter++ > packet::HIGH_PDV_SAMPLES) packet::needs().setRefState(DEGRADED);
        return;
    }
    counter = 0;
    packet::needs().setRefState(GOOD);
}

bool isPacketFrequency(u32 z_i) { return z_i == Z_NTP_REF || z_i == Z_PKT_FREQ_REF; }
u32 historyOf(u32 z_i) { return z_i == Z_NTP_REF ? packet::HISTORY_NTP : packet::HISTORY_FREQUENCY; }

double* thresholdOf(u32 type)
{
    switch (type) {
    case NTP_FRO_CLASS:         return &state().pdvThreshold[packet::HISTORY_NTP];
    case PACKET_TIME_FRO_CLASS: return &state().pdvThreshold[packet::HISTORY_TIME];
    case PACKET_FREQ_FRO_CLASS: return &state().pdvThreshold[packet::HISTORY_FREQUENCY];
    default: return nullptr;
    }
}

void traceThreshold(u32 type, double threshold_s, bool isDefault)
{
    const char* const name = type == 4   ? "PacketTimeSyncRef"
                             : type == 5 ? "PacketFrequencySyncRef"
                                         : "IpSyncRef";
    if (!isDefault)
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "PDV threshold has been set to %.9lf [s] for %s", threshold_s,
                  name);
    else if (type == 4)
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "PDV threshold has been reset to the default values %.9lf [s] (1588J3), "
                  "%.9lf [s] (G82751) for PacketTimeSyncRef",
                  PROFILES[0].pdvLimit, PROFILES[1].pdvLimit);
    else
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "PDV threshold has been reset to the default value %.9lf [s] for %s", threshold_s, name);
}

}  // namespace

packet::State& packet::state() { return *s; }
const packet::Needs& packet::needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void packet::setNeeds(const Needs* replacement) { s->needs = replacement; }

const packet::ProfileRow* packet::profileRow(u8 profile)
{
    return profile < std::size(PROFILES) ? &PROFILES[profile] : nullptr;
}

double packet::timePdvLimit(const ProfileRow& row)
{
    const double set = s->pdvThreshold[HISTORY_TIME];
    return set == 0.0 ? row.pdvLimit : set;
}

bool packet::sampleInterval(double& t_s)
{
    if (KvdLoz6TuReg_calcSampleTimeInterval(t_s)) return true;
    KVD_TRACE(TRACE_TUREG, TRACE_ERROR,
              "handleRefClkInt: calcSampleTimeInterval failed- Measurement discarded.");
    REG_UPCALLS.halt();
    return false;
}

void packet::estimate(const MeasRefData& data)
{
    MeasStateVar& v = measure::state().var;
    v.measRefData = data;
    v.R_all[data.z_i] = needs().estimate(v.measRefData);
}

// ---- NTP and packet frequency -------------------------------------------------------------------

void KvdLoz6TuReg_handlePktFreqMsg(const double (&T)[8])
{
    const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
    if (!isPacketFrequency(z_i)) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement discarded: No reference selected.");
        return;
    }
    if (!KvdLoz6TuReg_isValidState()) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement discarded: Regulator not in valid state.");
        return;
    }
    double t_s = 0.0;
    if (!packet::sampleInterval(t_s)) return;
    const TimePair server = KvdLoz6Math_longDouble((T[2] + T[4]) / 2, (T[3] + T[5]) / 2 * FRACTION);
    const TimePair client = KvdLoz6Math_longDouble((T[0] + T[6]) / 2, (T[1] + T[7]) / 2 * FRACTION);
    if (z_i == Z_NTP_REF) setNtpRate();
    countSample(z_i);
    constexpr double ONE_SECOND = 1.0;
    if (KvdLoz6TuReg_getMod() < ONE_SECOND) {
        const double time[2] = {client.c, client.f}, timeRef[2] = {server.c, server.f};
        KvdLoz6TuReg_updateOffsetForNewMod(time, timeRef, ONE_SECOND);
    }

    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    const double seconds = T[6] - T[4], fraction = (T[7] - T[5]) * FRACTION;
    const TimePair z = KvdLoz6Math_ldMod(seconds - delta0.c, fraction - delta0.f, ONE_SECOND);
    constexpr double R_MIN = 1e-14;
    packet::estimate({z.c + z.f, z_i, t_s, MEMORY, std::max(KvdLoz6TuReg_getMeasR(z_i), R_MIN)});

    const double deviation = std::sqrt(KvdLoz6TuReg_getMeasR(z_i));
    const u32 type = historyOf(z_i);
    const double pdv = deviation * packet::GAUSS_999;
    packet::historyEntry(type, pdv > DEFAULT_PDV_s, pdv, 0.0);
    judgePdv(deviation, state().pdvThreshold[type] / packet::GAUSS_999);
    constexpr u32 INTERVAL = 720, WINDOW = 150;
    KvdLoz6TuReg_frequencySupervision(INTERVAL, WINDOW, TimePair{seconds, fraction});
}

bool KvdLoz6TuReg_pdvIsHigh()
{
    return isPacketFrequency(KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef()))
           && state().highPdvCounter > packet::HIGH_PDV_SAMPLES + 1;
}

// ---- thresholds ---------------------------------------------------------------------------------

void KvdLoz6TuReg_setPdvThreshold(u32 type, u32 nanoseconds)
{
    double* const threshold = thresholdOf(type);
    if (threshold == nullptr) return;
    const bool isDefault = nanoseconds == 0;
    *threshold = !isDefault ? nanoseconds * 1e-09 : type == 4 ? 0.0 : DEFAULT_PDV_s;
    traceThreshold(type, *threshold, isDefault);
}

void KvdLoz6TuReg_pdvThresholdText(char* text, u32 room)
{
    const auto ns = [](double threshold_s) { return static_cast<u32>(std::lround(threshold_s * 1e9)); };
    std::snprintf(
        text, room,
        "***** Reference PDV threshold [ns] *****\n   Packet Time : %10u (1588J3)\n"
        "                 %10u (G82751)\n   Packet Freq : %10u\n   NTP         : %10u\n",
        ns(packet::timePdvLimit(PROFILES[0])), ns(packet::timePdvLimit(PROFILES[1])),
        ns(s->pdvThreshold[packet::HISTORY_FREQUENCY]), ns(s->pdvThreshold[packet::HISTORY_NTP]));
}

PacketPdv KvdLoz6TuReg_packetPdv(u32 froId)
{
    const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
    if (isPacketFrequency(z_i)) {
        const double pdv = std::sqrt(KvdLoz6TuReg_getMeasR(z_i)) * packet::GAUSS_999;
        return {pdv, pdv, s->pdvThreshold[historyOf(z_i)]};
    }
    if (z_i != Z_PKT_TIME_REF) return {};
    const u8* const profile = packet::needs().ptpProfile(froId);
    const packet::ProfileRow* const row = profile != nullptr ? packet::profileRow(*profile) : nullptr;
    if (row == nullptr) return {};
    return {packet::PDV_SIGMAS * s->filter.stdDev21, packet::PDV_SIGMAS * s->filter.stdDev43,
            packet::timePdvLimit(*row)};
}

void KvdLoz6TuReg_packetPrintInfo()
{
    const packet::TimeFilter& f = s->filter;
    const packet::SupervisionRecord& r = s->supervision;
    node::shellPrintf("\n***** Packet references *****\n");
    node::shellPrintf("   packets in interval  : %u\n", f.numberOfPkts);
    node::shellPrintf("   floor 21, 43, rtd    : %.9f, %.9f, %.9f s\n", f.down.minMin.c + f.down.minMin.f,
                      f.up.minMin.c + f.up.minMin.f, f.roundTrip.minMin.c + f.roundTrip.minMin.f);
    node::shellPrintf("   deviation 21, 43     : %.9f, %.9f s\n", f.stdDev21, f.stdDev43);
    node::shellPrintf("   high PDV samples     : %u\n", s->highPdvCounter);
    for (u32 i = 0; i < packet::PDV_TIMERS; ++i)
        node::shellPrintf("   timer %u              : %s\n", i, packet::pdvTimerRuns(i) ? "runs" : "-");
    node::shellPrintf("   supervised samples   : %u (interval %u, %u phase jumps)\n", r.currMeas,
                      r.intervalSize, r.totalJumps);
}
