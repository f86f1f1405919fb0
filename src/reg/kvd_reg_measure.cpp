#include "reg/kvd_reg_measure.h"

#include "base/element_of.h"
#include "base/trace_groups.h"
#include "fifo/kvd_fifo_reg.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace {

ose::ModuleData<measure::State> s;

constexpr double R_LINE = 5e-10;        // s^2, (22 us)^2
constexpr double R_PACKET = 5e-07;
constexpr double M_LINE = 10000.0;      // a line's noise is known beforehand: adapt slowly

using measure::KEPT;
constexpr measure::IndexRow INDEX_ROWS[] = {
    // label           R         m        m when selected
    {"<none>",         0.0,      0.0,     KEPT},
    {"IDL1_LOZ6",      1e-14,    0.0,     KEPT},
    {"EXT_REF",        R_LINE,   0.0,     0.0},
    {"PDH_REF1",       R_LINE,   M_LINE,  M_LINE},
    {"PDH_REF2",       R_LINE,   M_LINE,  M_LINE},
    {"PDH_REF3",       R_LINE,   M_LINE,  M_LINE},
    {"PDH_REF4",       R_LINE,   M_LINE,  M_LINE},
    {"SDH_REF",        R_LINE,   M_LINE,  M_LINE},
    {"GPS_REF",        1e-14,    0.0,     0.0},
    {"NTP_REF",        R_PACKET, 0.0,     0.0},
    {"SOFT_REF",       1e-14,    0.0,     KEPT},
    {"TEMP_REF",       1e-06,    0.0,     KEPT},
    {"PKT_FREQ_REF",   R_PACKET, 0.0,     0.0},
    {"PKT_TIME_REF",   2e-11,    0.0,     0.0},
    {"NO_REF",         0.0,      0.0,     KEPT},
    {"ETH_REF",        R_LINE,   M_LINE,  M_LINE},
    {"EXT_1PPS_REF",   1e-14,    0.0,     0.0},
    {"IDL2_LOZ6",      1e-14,    0.0,     KEPT},
    {"HPTSI_REF",      1e-14,    0.0,     0.0},
    {"GPS_OUT_REF",    5e-18,    0.0,     0.0},
    {"GPSOSL_REF",     1e-18,    0.0,     0.0},
    {"SOCPRI_REF",     0.0,      0.0,     0.0},
};
static_assert(std::size(INDEX_ROWS) == Z_I_COUNT);

constexpr u32 SELECTED_REF_MAX = TU_SR_SOCPRI_REF;
struct SelectedRow { u32 z_i; bool isTimeRef; };
constexpr SelectedRow SELECTED_ROWS[SELECTED_REF_MAX + 1] = {
    {Z_NO_REF,       true},    // holdover keeps the mode of the reference before
    {Z_PDH_REF1,     false},
    {Z_PDH_REF2,     false},
    {Z_PDH_REF3,     false},
    {Z_PDH_REF4,     false},
    {Z_SDH_REF,      false},
    {Z_GPS_REF,      true},
    {Z_EXT_REF,      false},
    {Z_NTP_REF,      false},
    {Z_IDL1_LOZ6,    true},
    {Z_ETH_REF,      false},
    {Z_EXT_1PPS_REF, false},
    {Z_PKT_FREQ_REF, false},
    {Z_PKT_TIME_REF, true},
    {Z_IDL2_LOZ6,    true},
    {Z_HPTSI_REF,    true},
    {Z_GPS_OUT_REF,  true},
    {Z_GPSOSL_REF,   true},
    {Z_SOCPRI_REF,   true},
};

constexpr u32 BOARD_DELAY_DEFAULT_ns = 32;   // 1PPS input to the latch

/// Board delay in s from the board parameter, a 16-bit count of ns.
double readBoardDelay()
{
    char text[16] = "";
    const int result = node::platform().boardParameter("pp1s_board_delay_to_latch", text, sizeof text);
    char* end = nullptr;
    const unsigned long delay_ns = std::strtoul(text, &end, 0);
    if (result == 0 && end != text) return static_cast<u16>(delay_ns) * 1e-9;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO,
              "Unabled to read board delay parameter - using default one %u [ns] instead",
              BOARD_DELAY_DEFAULT_ns);
    return BOARD_DELAY_DEFAULT_ns * 1e-9;
}

}  // namespace

namespace measure {

State& state() { return *s; }
const IndexRow& indexRow(u32 z_i) { return INDEX_ROWS[z_i < Z_I_COUNT ? z_i : 0]; }

}  // namespace measure

// ---- indices ------------------------------------------------------------------------------------

const char* KvdLoz6TuReg_measurementText(u32 z_i) { return measure::indexRow(z_i).label; }

u32 KvdLoz6TuReg_measurementIndex(u32 selectedRef)
{
    if (selectedRef <= SELECTED_REF_MAX) return SELECTED_ROWS[selectedRef].z_i;
    KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "Unknown TUREG refType =%d", static_cast<int>(selectedRef));
    return Z_NO_REF;
}

bool KvdLoz6TuReg_isTimeRef(u32 selectedRef)
{
    return selectedRef <= SELECTED_REF_MAX && SELECTED_ROWS[selectedRef].isTimeRef;
}

// ---- initiation ---------------------------------------------------------------------------------

void KvdLoz6TuReg_measInitiate(const MeasInitiation& values)
{
    MeasStateVar& v = s->var;
    s->hasSampled = false;
    if (values.time == -1.0) {               // the mark of a record without time isn't a time
        v.t_c_last = -1.0;
        v.t_f_last = 0.0;
    } else {
        const TimePair wraps = KvdLoz6Math_longDouble(values.time / COUNTER_PERIOD,
                                                      values.time_f / COUNTER_PERIOD);
        v.t_c_last = wraps.c * COUNTER_PERIOD;
        v.t_f_last = wraps.f * COUNTER_PERIOD;
    }
    v.t_mod_old = values.t_mod;
    v.delta0_c = values.delta0_c;
    v.delta0_f = values.delta0_f;
    for (u32 z_i = 0; z_i < Z_I_COUNT; ++z_i) {
        const bool restored = z_i != Z_SOCPRI_REF;
        v.m[z_i] = restored && values.m != nullptr ? (*values.m)[z_i] : INDEX_ROWS[z_i].m;
        v.R_all[z_i] = restored && values.R_all != nullptr ? (*values.R_all)[z_i] : INDEX_ROWS[z_i].R;
    }
    double R_fastLock = 0.0;
    if (REG_UPCALLS.extFastLock(R_fastLock)) v.R_all[Z_EXT_REF] = R_fastLock;
    v.vTmin = values.vTmin;
    v.vTmax = values.vTmax;
    v.vThigh = 0.0;
    v.vTlow = 2 * values.vTmax;
    v.delta0_slave_c = 0.0;
    v.delta0_slave_f = 0.0;
    v.refBreak = 0;
    v.mean_dsfc = 0.0;
    v.max_locked_diff = 0.0;
    v.max_locked_interval_diff = 0.0;
    v.jump_idl1 = values.jump_idl1;
    if (values.coldRestart) s->coldRestartFlag = 1;
    s->followedStep = false;
    s->pp1sBoardDelay = readBoardDelay();
    REG_UPCALLS.measurementsInitiated();
}

// ---- reference change ---------------------------------------------------------------------------

namespace {

void clearTime()
{
    s->var.t_mod_old = 0.0;
    s->var.delta0_c = 0.0;
    s->var.delta0_f = 0.0;
}

void restartPacketHistory(u32 refType, u32 froId)
{
    constexpr u32 HISTORY_NTP = 0, HISTORY_FREQUENCY = 1, HISTORY_TIME = 2;
    switch (refType) {
    case TU_SR_NTP_REF:      KvdLoz6TuReg_restartPdvHistory(HISTORY_NTP, froId);        break;
    case TU_SR_PKT_FREQ_REF: KvdLoz6TuReg_restartPdvHistory(HISTORY_FREQUENCY, froId);  break;
    case TU_SR_PKT_TIME_REF:
        KvdLoz6TuReg_onPktTimeRefInit();
        KvdLoz6TuReg_restartPdvHistory(HISTORY_TIME, froId);
        break;
    default: break;
    }
}

void dropLatchedEdge()                       // of the reference before
{
    double period = 0.0, time = 0.0;
    tuHwIf_readLatchedRefClock(period, time);
    KvdLoz6FifoReg_setLatchedTime(0.0);
}

/// What the estimator has to forget with the reference before.
void resetEstimateForReference(u32 refType, u32 previous)
{
    const bool losesTime = refType == TU_SR_PKT_TIME_REF
                           && (previous == TU_GPS_OUT_REF || previous == TU_SR_GPSOSL_REF);
    if (!KvdLoz6TuReg_knowsTime() || losesTime) {
        clearTime();
        KvdLoz6TuReg_resetTimeUncertainty();
    }
    // Where a frequency's edges or packets lie beside the time held so far means nothing: taken for an error
    // of that time, it would be steered away.
    for (const u32 ref : {previous, refType})
        if (ref != TU_SR_NO_REF && !KvdLoz6TuReg_isTimeRef(ref)) KvdLoz6TuReg_resetTimeUncertainty();
}

}  // namespace

void KvdLoz6TuReg_handleConfigRefType(u32 refType, u32 froId)
{
    MeasStateVar& v = s->var;
    v.prevSelectedRef = v.selectedRef;
    if (refType > SELECTED_REF_MAX) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "handleConfigRefType: Not supported reference (%d)",
                  static_cast<int>(refType));
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "handleConfigRefType: Go on with 'TU_SR_NO_REF'");
        v.selectedRef = TU_SR_NO_REF;
        return;
    }
    const u32 previous = v.prevSelectedRef;
    v.selectedRef = refType;
    const u32 z_i = KvdLoz6TuReg_measurementIndex(refType);
    if (INDEX_ROWS[z_i].mSelected != KEPT) v.m[z_i] = INDEX_ROWS[z_i].mSelected;
    v.refBreak = 0;
    if (refType != TU_SR_NO_REF) KvdLoz6TuReg_supervisionRestart();
    dropLatchedEdge();
    v.histCountDown = 0.0;

    if (previous == TU_SR_PKT_TIME_REF) KvdLoz6TuReg_onPktTimeRefTerm();
    restartPacketHistory(refType, froId);
    resetEstimateForReference(refType, previous);
    if ((refType == TU_SR_GPS_REF || refType == TU_SR_HPTSI_REF) && previous != TU_SR_NO_REF) {
        REG_UPCALLS.useTimeOfDayAtOnce();
    }
    if (refType == TU_SR_NO_REF) v.calibrationCountDown = 0.0;
    else if (refType != TU_SR_GPS_REF && refType != TU_GPS_OUT_REF) KvdLoz6TuReg_setSourceTime(true);

    const u8 f_ix = KvdLoz6TuReg_f_ix();
    if ((f_ix == 2 || f_ix == 3) && previous != TU_SR_GPSOSL_REF) KvdLoz6TuReg_restartEstimate();
    constexpr u8 NOISY_FROM = 57, NOISY_OVER = 120;   // temperature ticks
    if (!KvdLoz6TuReg_isTimeRef(refType) && KvdLoz6TuReg_noisyCounter() > NOISY_FROM)
        KvdLoz6TuReg_setNoisyCounter(NOISY_OVER);
    if (refType == TU_SR_NTP_REF && !KvdLoz6TuReg_isLocked()) KvdLoz6TuReg_setPktRate(10);
}

void KvdLoz6TuReg_followedStep() { s->followedStep = true; }

void KvdLoz6TuReg_takeOverAsMaster(u8 otherRegState)
{
    if (KvdLoz6TuReg_isMaster()) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Master set to slave, no action");
        return;
    }
    const u8 regState = KvdLoz6TuReg_regState();
    const bool timeLocked = regState == TIMELOCKED || regState == TRUETIME;
    const bool isOffsetTrue = !std::exchange(s->followedStep, false);
    if (timeLocked && isOffsetTrue && (otherRegState == TIMELOCKED || otherRegState == TRUETIME)) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Set t_mod_old to TMOD_GPS_NMEA");
        s->var.t_mod_old = TMOD_GPS_NMEA;
    } else if (timeLocked || regState == STARTUPTIME) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Set delta0_c, delta0_f and t_mod_old to 0.0.");
        clearTime();
    }
}

// ---- access -------------------------------------------------------------------------------------

const MeasStateVar& KvdLoz6TuReg_measStateVar() { return s->var; }
u32  KvdLoz6TuReg_selectedRef() { return s->var.selectedRef; }
u32  KvdLoz6TuReg_prevSelectedRef() { return s->var.prevSelectedRef; }
void KvdLoz6TuReg_setSelectedRef(u32 selectedRef) { s->var.selectedRef = selectedRef; }

void KvdLoz6TuReg_setMeasR(double R, u32 z_i)
{
    if (z_i >= Z_I_COUNT) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "Check: z_i [%d] out-of-range", static_cast<int>(z_i));
        return;
    }
    s->var.R_all[z_i] = R;
}

double KvdLoz6TuReg_getMeasR(u32 z_i)
{
    const double* const R = elementOf(s->var.R_all, z_i);
    return R != nullptr ? *R : 0.0;
}

void KvdLoz6TuReg_restartMeasNoise(u32 z_i)
{
    s->var.R_all[z_i] = INDEX_ROWS[z_i].R;
    s->var.m[z_i] = INDEX_ROWS[z_i].m;
}

bool KvdLoz6TuReg_adjustOffset(double c, double f)
{
    constexpr double TOO_SMALL = 4.9e-08;    // s, six counter steps
    MeasStateVar& v = s->var;
    if (std::fabs(c + f) <= TOO_SMALL && v.selectedRef != TU_SR_SOCPRI_REF) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "%s: No adjustment, the value is too small", __func__);
        return false;
    }
    const TimePair offset = KvdLoz6Math_longDouble(c + v.delta0_c, f + v.delta0_f);
    v.delta0_c = offset.c;
    v.delta0_f = offset.f;
    return true;
}

void KvdLoz6TuReg_adjustSlaveOffset(double c, double f)
{
    MeasStateVar& v = s->var;
    const TimePair offset = KvdLoz6Math_longDouble(c + v.delta0_slave_c, f + v.delta0_slave_f);
    v.delta0_slave_c = offset.c;
    v.delta0_slave_f = offset.f;
}

TimePair KvdLoz6TuReg_getSlaveOffset() { return {s->var.delta0_slave_c, s->var.delta0_slave_f}; }

void KvdLoz6TuReg_clearSlaveOffset()
{
    s->var.delta0_slave_c = 0.0;
    s->var.delta0_slave_f = 0.0;
}

void KvdLoz6TuReg_noteLockedDiff(double z)
{
    for (double* const most : {&s->var.max_locked_diff, &s->var.max_locked_interval_diff})
        *most = std::max(*most, std::fabs(z));
}

u32 KvdLoz6TuReg_countMeasurement(u32 z_i)
{
    s->var.m[z_i] += 1.0;
    return static_cast<u32>(s->var.m[z_i]);
}

void KvdLoz6TuReg_restartMeasurementCount(u32 z_i) { s->var.m[z_i] = 0.0; }

TimePair KvdLoz6TuReg_getOffset() { return {s->var.delta0_c, s->var.delta0_f}; }

void KvdLoz6TuReg_setOffset(double c, double f)
{
    const TimePair offset = KvdLoz6Math_longDouble(c, f);
    s->var.delta0_c = offset.c;
    s->var.delta0_f = offset.f;
    if (c == 0.0 && f == 0.0) KvdLoz6TuReg_supervisionPhaseJump();
}

void KvdLoz6TuReg_shiftOffset(double c) { s->var.delta0_c += c; }

TimePair KvdLoz6TuReg_getLastTime() { return {s->var.t_c_last, s->var.t_f_last}; }

void KvdLoz6TuReg_setLastTime(double c, double f)
{
    s->var.t_c_last = c;
    s->var.t_f_last = f;
}

double KvdLoz6TuReg_setMod(double t_mod)
{
    const double before = s->var.t_mod_old;
    s->var.t_mod_old = t_mod;
    return before;
}

double KvdLoz6TuReg_getMod() { return s->var.t_mod_old; }
bool   KvdLoz6TuReg_knowsTime() { return s->var.t_mod_old >= TMOD_GPS_NMEA; }
double KvdLoz6TuReg_getPp1sBoardDelay() { return s->pp1sBoardDelay; }

void KvdLoz6TuReg_setTempLimits(double vTmin, double vTmax)
{
    s->var.vTmin = vTmin;
    s->var.vTmax = vTmax;
}

void KvdLoz6TuReg_setPortSupervised(u32 supervised, u32 port) { s->portSupervised[port] = supervised; }

void KvdLoz6TuReg_setHistCountDown(double ticks) { s->var.histCountDown = ticks; }
void KvdLoz6TuReg_setCalibrationCountDown(double seconds) { s->var.calibrationCountDown = seconds; }

void KvdLoz6TuReg_setJumpIdl1()
{
    constexpr u32 IDL1_PORT = 0;
    if (s->portSupervised[IDL1_PORT] != 0) s->var.jump_idl1 = 1;
}

void KvdLoz6TuReg_clearJumpIdl1() { s->var.jump_idl1 = 0; }
u8   KvdLoz6TuReg_jumpIdl1() { return s->var.jump_idl1; }
u32  KvdLoz6TuReg_coldRestartFlag() { return s->coldRestartFlag; }
void KvdLoz6TuReg_clearColdRestartFlag() { s->coldRestartFlag = 0; }
u8   KvdLoz6TuReg_getPktRate() { return s->var.pktRate; }

void KvdLoz6TuReg_setPktRate(u8 rate)
{
    if (s->var.pktRate == rate) return;
    s->var.pktRate = rate;
    auto* ind = node::make<KvdTuiifPktRateInd>(KVD_TUIIF_PKT_RATE_IND);
    ind->pktRate = rate;
    Signal* sig = reinterpret_cast<Signal*>(ind);
    KvdLoz6TuIifAdm_send(&sig);
}
