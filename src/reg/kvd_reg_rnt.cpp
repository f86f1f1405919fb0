#include "reg/kvd_reg_rnt.h"

#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/bytes.h"
#include "node/sig.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "sig/tuiif_sig.h"
#include "store/kvd_mgr_mem.h"
#include "base/frame_counter.h"

#include <cmath>

namespace {

constexpr double SECONDS_A_DAY = 86400.0;
constexpr double CALENDAR_TO_GPS = 62483270400.0;   // s, 723186 days up to 1980-01-06

bool isLeapYear(i64 year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

/// Days before 1 January of a year, so that this day itself counts 1 more.
i64 daysBefore(i64 year)
{
    const double y = static_cast<double>(year);
    return static_cast<i64>(365 * y + std::ceil(y / 4) - std::ceil(y / 100) + std::ceil(y / 400));
}

/// A prepared answer to the main processor.
template <typename T> void answer(T* cfm)
{
    Signal* sig = reinterpret_cast<Signal*>(cfm);
    KvdLoz6TuIifAdm_send(&sig);
}

}  // namespace

// ---- arithmetic ---------------------------------------------------------------------------------

namespace regulator {

i32 rntToSfcDiff(double delta0_c, double delta0_f)
{
    constexpr double HALF = 20480000.0, WHOLE = 40960000.0;   // us
    const double c = KvdLoz6Math_fmodSignY(delta0_c, SFN_PERIOD_s);
    const double f = KvdLoz6Math_fmodSignY(delta0_f, SFN_PERIOD_s);
    const double v = std::floor((c + f) * 1e6 + HALF + 0.5);
    return static_cast<i32>(KvdLoz6Math_fmodSignY(v, WHOLE) - HALF);
}

Date dateOfDays(i64 days)
{
    constexpr u8 DAYS[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    i64 year = static_cast<i64>(std::floor(static_cast<double>(days) / 365.2425));
    i64 day = days - daysBefore(year);
    if (day <= 0) {                        // the mean year is ahead of the calendar's at its end
        --year;
        day = days - daysBefore(year);
    }
    u8 month = 1;
    for (; month < 12; ++month) {
        const i64 length = DAYS[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
        if (day <= length) break;
        day -= length;
    }
    return {static_cast<u16>(year), month, static_cast<u8>(day)};
}

RntTime rntTime(double rnt)
{
    const double whole = std::floor(rnt);
    const double days = std::floor(whole / SECONDS_A_DAY);
    const u32 second = static_cast<u32>(whole - days * SECONDS_A_DAY);
    return {dateOfDays(static_cast<i64>(days)), static_cast<u8>(second / 3600),
            static_cast<u8>(second / 60 % 60), static_cast<u8>(second % 60),
            static_cast<u32>((rnt - whole) * 4294967296.0)};
}

double rntOfCounter(double t_c_last, double t_f_last, double t_f, double period, double delta0_c,
                    double delta0_f, double sfcGpsOffset)
{
    if (t_c_last == -1.0) t_c_last = 0.0;
    if (t_f_last == -1.0) t_f_last = 0.0;
    const double t = t_f - t_f_last < -period / 2 ? t_c_last + period : t_c_last;
    return t + t_f - delta0_c - delta0_f + sfcGpsOffset + CALENDAR_TO_GPS;
}

}  // namespace regulator

// ---- requests -----------------------------------------------------------------------------------

void KvdLoz6TuReg_onGetRntToSfcDiffReq(const Signal* sig)
{
    const auto* req = as<KvdTuiifGetRntToSfcDiffReq>(sig);
    if (req == nullptr) return;
    const TimePair offset = KvdLoz6TuReg_getOffset();
    auto* cfm = node::make<KvdTuiifGetRntToSfcDiffCfm>(KVD_TUIIF_GET_RNT_TO_SFC_DIFF_CFM);
    cfm->clientPid = req->clientPid;
    cfm->diff = regulator::rntToSfcDiff(offset.c, offset.f);
    answer(cfm);
}

void KvdLoz6TuReg_onGetRntForSfnReq(const Signal* sig)
{
    const auto* req = as<KvdTuiifGetRntForSfnReq>(sig);
    if (req == nullptr) return;
    u16 sfn = 0;
    double period = 0.0, t_f = 0.0;
    if (tuHwIf_getSfnAndCorrespondingTime(sfn, period, t_f) != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "tuHwIf_getSfnAndCorrespondingTime failed");
        auto* rej = node::make<KvdTuiifGetRntForSfnRej>(KVD_TUIIF_GET_RNT_FOR_SFN_REJ);
        rej->clientPid = req->clientPid;
        rej->rejectCause = RNT_REJECT_NO_COUNTER;
        answer(rej);
        return;
    }
    const TimePair last = KvdLoz6TuReg_getLastTime(), offset = KvdLoz6TuReg_getOffset();
    const regulator::RntTime time = regulator::rntTime(regulator::rntOfCounter(
        last.c, last.f, t_f, period, offset.c, offset.f, KvdLoz6TuReg_sfcGpsOffset()));
    auto* cfm = node::make<KvdTuiifGetRntForSfnCfm>(KVD_TUIIF_GET_RNT_FOR_SFN_CFM);
    cfm->clientPid = req->clientPid;
    cfm->sfn = sfn;
    cfm->year = time.date.year;
    cfm->month = time.date.month;
    cfm->day = time.date.day;
    cfm->hour = time.hour;
    cfm->minute = time.minute;
    cfm->second = time.second;
    cfm->decimalSecond = time.fraction;
    answer(cfm);
}

// ---- the date of frame number zero --------------------------------------------------------------

namespace {

constexpr DateTime GPS_EPOCH = {1980, 1, 6, 0, 0, 19};
constexpr DateTime PTP_EPOCH = {1970, 1, 1, 0, 0, 0};

/// Takes the date and returns what sfcGpsOffset changed by.
double takeSfnInitTime(const DateTime& date)
{
    regulator::State& s = regulator::state();
    const i64 t0 = TuCommon_dateToSeconds(date);
    const double before = s.sfcGpsOffset;
    s.sfcGpsOffset = static_cast<double>(t0 - TuCommon_dateToSeconds(GPS_EPOCH));
    s.sfcPtpOffset = static_cast<double>(t0 - TuCommon_dateToSeconds(PTP_EPOCH));
    return s.sfcGpsOffset - before;
}

}  // namespace

void regulator::storeSfcGpsOffset()
{
    if (!KvdLoz6TuMem_ready(MEM_REG_NF)) return;
    u8 region[MEM_REG_NF_SIZE] = {};
    KvdLoz6TuMem_read(MEM_REG_NF, region, sizeof region);   // zeros when nothing valid stood there
    node::putBeDouble(region + MEM_REG_NF_OFFSET, state().sfcGpsOffset);
    KvdLoz6TuMem_write(MEM_REG_NF, region, sizeof region);
}

void KvdLoz6TuReg_onSetSfnInitTimeInd(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSetSfnInitTimeInd>(sig);
    if (ind == nullptr) return;
    const TuiifSfnInitTime& t = ind->sfnInitTime;
    KvdLoz6TuReg_shiftOffset(takeSfnInitTime({t.year, t.month, t.day, t.hour, t.minute, t.second}));
    regulator::storeSfcGpsOffset();
}

void KvdLoz6TuReg_initSfnInitTime(const DateTime& date)
{
    regulator::State& s = regulator::state();
    u8 region[MEM_REG_NF_SIZE] = {};
    const bool known = KvdLoz6TuMem_ready(MEM_REG_NF) && KvdLoz6TuMem_read(MEM_REG_NF, region, sizeof region);
    const double stored = node::beDouble(region + MEM_REG_NF_OFFSET);
    const double change = takeSfnInitTime(date);
    s.restartDelta = known ? s.sfcGpsOffset - stored : 0.0;
    // At the program's start the filter takes its offset later; a peer that comes back finds it
    // in use.
    if (s.tuRegInitiateState >= TUREG_WARM_INITIATED) {
        KvdLoz6TuReg_shiftOffset(change);
        regulator::storeSfcGpsOffset();
    }
}

void KvdLoz6TuReg_calcSoCpriRTO(u32& seconds, u32& nanoseconds)
{
    const TimePair offset = KvdLoz6TuReg_getOffset();
    seconds = static_cast<u32>(std::fabs(offset.c) + 0.5);
    nanoseconds = static_cast<u32>(std::fabs(offset.f) * 1e9 + 0.5);
}
