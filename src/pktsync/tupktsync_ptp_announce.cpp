// Announce: which masters there are, which is the best, what its clock is worth.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "pktsync/tupktsync_genann.h"
#include "pktsync/tupktsync_grandmasters.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

constexpr u32 QUALIFYING = 3;          // Announces inside the window (IEEE 1588-2008 9.3.2.4.4)
constexpr u32 WINDOW_INTERVALS = 4;
constexpr u16 STEPS_MAX = 254;

enum class Verdict { Dropped, Known, New };

/// ms that don't run over with the kernel's 32-bit ticks: they are read at each arrival, and while there is
/// a foreign master each few seconds.
struct Clock { u32 ticks = 0; u64 total = 0; };
ose::ModuleData<Clock> arrivalClock;

double now_ms()
{
    Clock& k = *arrivalClock;
    const u32 ticks = ose::get_ticks();
    k.total += ticks - k.ticks;
    k.ticks = ticks;
    return static_cast<double>(k.total) * ose::system_tick() / 1000.0;
}

// ---- foreign masters ----------------------------------------------------------------------------

void startForeignTimer(PtpForeignMaster& f)
{
    const u32 interval = ptpLogToMs(f.logAnnounceInterval);
    const u32 spread = ose::get_ticks() * 2'654'435'761u >> 16;   // keeps the five apart
    TuPktsync_timerStart(f.timer, interval + static_cast<u32>(u64{spread % 101} * interval / 1000));
}

void saveArrival(PtpForeignMaster& f)
{
    auto& t = f.arrival_ms;
    auto place = std::find(t.begin(), t.end(), 0.0);
    if (place == t.end()) {                          // the last one that is later than the one before it
        const auto rising = std::adjacent_find(t.rbegin(), t.rend(), std::greater<>{});
        place = rising == t.rend() ? t.begin() : std::prev(rising.base());
    }
    *place = now_ms();
    startForeignTimer(f);
}

/// Arrivals inside the window; older ones are forgotten.
u32 countArrivals(PtpForeignMaster& f)
{
    const double oldest = now_ms() - WINDOW_INTERVALS * ptpLogToMs(f.logAnnounceInterval);
    u32 count = 0;
    for (double& t : f.arrival_ms) {
        if (t == 0.0) continue;
        if (t < oldest) t = 0.0;
        else ++count;
    }
    return count;
}

/// Stores the sender's arrival. False while it hasn't qualified, or there is no entry left for it.
bool qualifies(PtpClock& c, const PtpHeader& h)
{
    const auto begin = c.foreignMasters.begin();
    const auto end = c.foreignMasters.end();
    auto f = std::find_if(begin, end, [&](const PtpForeignMaster& m) {
        return m.used && m.port == h.sourcePortIdentity;
    });
    if (f != end) {
        f->logAnnounceInterval = h.logMessageInterval;
        saveArrival(*f);
        if (countArrivals(*f) >= QUALIFYING) return true;
        ++c.stored;
        return false;
    }
    f = std::find_if(begin, end, [](const PtpForeignMaster& m) { return !m.used; });
    if (f == end) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Maximum number of stored foreignMasters reached (%u)",
                  PTP_FOREIGN_MASTERS);
        return false;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_INFO, "Announce received from unknown GM, foreignMasterId= %u",
              static_cast<u32>(f - begin));
    f->used = true;
    f->port = h.sourcePortIdentity;
    f->logAnnounceInterval = h.logMessageInterval;
    f->arrival_ms.fill(0.0);
    ++c.foreignMasterCount;
    saveArrival(*f);
    ++c.stored;
    return false;
}

// ---- choice -------------------------------------------------------------------------------------

bool candidateWins(const PtpClock& c, const PtpHeader& h, const PtpAnnounce& a)
{
    const PtpParent& p = c.parent;
    const PtpDataset present{p.grandmasterPriority1, p.grandmasterClockQuality,
                             p.grandmasterPriority2, p.grandmasterIdentity,
                             c.stepsRemoved,         p.parentPortIdentity};
    const PtpDataset candidate{a.grandmasterPriority1, a.grandmasterClockQuality,
                               a.grandmasterPriority2, a.grandmasterIdentity,
                               a.stepsRemoved,         h.sourcePortIdentity};
    return c.setup.ptpProfile == IEEE_1588_J3 ? dataSetBmcaComparison(present, candidate)
                                              : dataSetAbmcaComparison(present, candidate);
}

Verdict judge(PtpClock& c, const PtpHeader& h, const PtpAnnounce& a)
{
    const bool isParent = h.sourcePortIdentity == c.parent.parentPortIdentity;
    if (c.setup.ptpMapping != PTP_ETHERNET) return isParent ? Verdict::Known : Verdict::New;
    if (c.setup.ptpProfile == IEEE_1588_J3 && a.stepsRemoved > STEPS_MAX) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Announce received stepRemoved = %d field not accepted.",
                  a.stepsRemoved);
        return Verdict::Dropped;
    }
    if (!qualifies(c, h)) return Verdict::Dropped;
    if (candidateWins(c, h, a)) return Verdict::New;
    if (isParent) return Verdict::Known;
    ++c.stored;
    return Verdict::Dropped;
}

// ---- what is taken ------------------------------------------------------------------------------

PtpTraceability traceabilityOf(u8 clockClass, u8 clockAccuracy, u8 flags)
{
    return {clockClass, clockAccuracy, (flags & PTP_TIME_TRACEABLE) != 0,
            (flags & PTP_FREQUENCY_TRACEABLE) != 0};
}

void traceQualityChange(const PtpClock& c, const PtpTraceability& was, const PtpTraceability& is)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_INFO,
              "%s::ptpProfile is %hhu (%s), clock class (%u -> %u), clock accuracy (0x%02x -> "
              "0x%02x), timetraceable (%u -> %u), frequencytraceable (%u -> %u), "
              "QualityLevelIndex= %u",
              "handleAnnounce", c.setup.ptpProfile, "ITU_T_G_8275_1", was.clockClass, is.clockClass,
              was.clockAccuracy, is.clockAccuracy, was.timeTraceable, is.timeTraceable,
              was.frequencyTraceable, is.frequencyTraceable, ptpQualityLevelIndex(is));
}

/// A master of an arbitrary time scale is followed like any other; that its time isn't TAI is told once.
void traceTimescale(const PtpClock& c, bool isNewMaster, u8 flagsBefore)
{
    const bool wasTai = (flagsBefore & PTP_TIMESCALE) != 0;
    const bool isTai = (c.timeProperties.flags & PTP_TIMESCALE) != 0;
    if (ptpIsFrequency(c)) return;
    if (!isTai && (isNewMaster || wasTai))
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_INFO,
                  "The master of syncrefId %u has no ptpTimescale: its time isn't TAI, and so isn't this "
                  "node's",
                  c.setup.syncrefId);
    else if (isTai && !isNewMaster && !wasTai)
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_INFO, "The master of syncrefId %u has ptpTimescale now",
                  c.setup.syncrefId);
}

void checkFaults(PtpClock& c, const PtpTraceability& is)
{
    u32 faults = c.fault_flags & ~u32{FAULT_NO_ANNOUNCE};
    if (ptpIsG82751Time(c)) {
        faults = ptpFaultsG82751(ptpQualityLevelIndex(is), faults);
        ptpFaults(c, faults & ~c.fault_flags, c.fault_flags & ~faults);
        return;
    }
    const PtpClockRqmt& r = c.setup.rqmt;
    const PtpRequirement required{ptpIsFrequency(c), r.clockClass, r.freqClockClassG8265_1, r.clockAccuracy};
    faults = ptpFaultsJ3(required, is, (c.timeProperties.flags & PTP_TIMESCALE) != 0, faults);
    ptpFaults(c, faults & ~c.fault_flags, c.fault_flags & ~faults);
    constexpr u32 UNUSABLE = FAULT_CLOCK_CLASS | FAULT_CLOCK_ACCURACY | FAULT_TIME_NOT_TRACEABLE;
    TuPktsyncPTP_UCneg_notify_announce(c.setup.syncrefId, (faults & UNUSABLE) == 0 ? 1 : 0);
}

}  // namespace

bool ptpOnAnnounce(PtpClock& c, const PtpHeader& received, const PtpAnnounce& announce)
{
    PtpHeader h = received;
    PtpAnnounce a = announce;
    if (!TuPktsync_genAnn(received, h.flagField[1], a)) return false;
    if (!ptpIsG82751Time(c) && (h.flagField[0] & PTP_ALTERNATE_MASTER) != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Announce received from ALTERNATE_MASTER clock");
        return false;
    }
    if (h.sourcePortIdentity.clockIdentity == PtpClockIdentity{}) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Announce received with clockIdentity 0");
        return false;
    }
    const Verdict verdict = judge(c, h, a);
    if (verdict == Verdict::Dropped) return false;

    PtpParent& p = c.parent;
    if (verdict == Verdict::New && a.grandmasterIdentity != p.grandmasterIdentity)
        TuPktsync_addGrandmaster(c.setup.syncrefId, a.grandmasterIdentity);
    const PtpTraceability was =
        traceabilityOf(p.grandmasterClockQuality.clockClass, p.grandmasterClockQuality.clockAccuracy,
                       c.timeProperties.flags);
    const PtpTraceability is = traceabilityOf(a.grandmasterClockQuality.clockClass,
                                              a.grandmasterClockQuality.clockAccuracy, h.flagField[1]);
    c.stepsRemoved = static_cast<u16>(a.stepsRemoved + 1);
    p = {h.sourcePortIdentity, a.grandmasterIdentity, a.grandmasterClockQuality, a.grandmasterPriority1,
         a.grandmasterPriority2};
    constexpr u8 FLAGS = PTP_LEAP61 | PTP_LEAP59 | PTP_UTC_OFFSET_VALID | PTP_TIMESCALE | PTP_TIME_TRACEABLE
                         | PTP_FREQUENCY_TRACEABLE;
    const u8 flagsBefore = c.timeProperties.flags;
    c.timeProperties = {a.currentUtcOffset, static_cast<u8>(h.flagField[1] & FLAGS), a.timeSource};
    c.logAnnounceInterval = h.logMessageInterval;
    traceTimescale(c, verdict == Verdict::New, flagsBefore);
    if (ptpIsG82751Time(c)) {
        if (was != is) {
            traceQualityChange(c, was, is);
            ptpReportQuality(c, ptpQualityOf(c));
        }
    } else if (was.clockClass != is.clockClass) {
        ptpReportQuality(c, ptpQualityOf(c));
    }
    ptpPortEvent(c, verdict == Verdict::New ? REC_STATE_BMC_SLAVE_NEW_MASTER : REC_STATE_BMC_SLAVE);
    checkFaults(c, is);
    return true;
}

void ptpForeignMasterTimeout(PtpClock& c, u32 index)
{
    PtpForeignMaster& f = c.foreignMasters[index];
    if (countArrivals(f) > 0) {
        startForeignTimer(f);
        return;
    }
    f.used = false;
    --c.foreignMasterCount;
}
