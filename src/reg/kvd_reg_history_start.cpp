// Start of the regulator from its history: reading, the gap without a program, and the two ways.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "node/bytes.h"
#include "node/platform.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_flashfile.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_histrecord.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"
#include "store/kvd_mgr_mem.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr double MSI_VALID = 200.0;                // s
constexpr double NO_CONTROL[2] = {0, 0};

/// Seconds since the record was written, negative for one from the future.
double ageOf(u32 freqWriteTime)
{
    return static_cast<double>(node::platform().calendar().seconds - static_cast<i64>(freqWriteTime));
}

bool readMsi(u8* record)
{
    if (!KvdLoz6TuMem_ready(MEM_REG_HIST)) return false;
    if (!KvdLoz6TuMem_read(MEM_REG_HIST, record, HIST_RECORD_SIZE)) return false;
    constexpr u32 SUM_AND_SIZE_AT = 4, SUM_AND_SIZE = 8;
    std::memset(record + SUM_AND_SIZE_AT, 0, SUM_AND_SIZE);
    return true;
}

MeasInitiation measValues()
{
    const regulator::State& s = regulator::state();
    MeasInitiation values;
    values.vTmin = s.vTmin;
    values.vTmax = s.vTmax;
    values.coldRestart = KvdLoz6TuReg_isMaster() && s.coldRestart != 0;
    return values;
}

}  // namespace

bool KvdLoz6TuReg_readHistData(u8* record, u32& fromMsi)
{
    if (readMsi(record)) {
        const double age = ageOf(node::be32(record + HIST_WRITE_TIME_AT));
        if (age <= MSI_VALID) {
            KvdLoz6TuReg_countHistoryUse(true);
            fromMsi = 1;
            return true;
        }
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "%s:: current time - persistent memory write time=%s", __func__,
                  TuCommon_text(age));
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "%s:: failed to read history file from persistent memory", __func__);
    if (KvdLoz6TuReg_readFlashFile(record)) {
        KvdLoz6TuReg_countHistoryUse(false);
        fromMsi = 0;
        return true;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "%s:: failed to read history file from flash", __func__);
    return false;
}

namespace {

template <typename Values>
bool areFinite(const Values& values)
{
    for (const double value : values)
        if (!std::isfinite(value)) return false;
    return true;
}

/// Could a running filter have written it? One that couldn't would be steered by, and renewed, for ever.
bool isPlausible(const HistRecord& h)
{
    constexpr double STEERED = 1.05e-5;            // relative, the most that the frequency is steered by
    const double rest[] = {h.delta0_c, h.delta0_f, h.t_mod, h.T, h.t_c_last, h.t_f_last};
    const bool isFinite = areFinite(h.U) && areFinite(h.x_est) && areFinite(h.P_est) && areFinite(rest);
    const double offset = h.U[1] / tuHwIf_factoryDivider() - 1.0;
    if (isFinite && isUpTo(offset, STEERED) && std::min(h.P_est[0], h.P_est[7]) > 0.0) return true;
    KVD_TRACE(TRACE_HIST, TRACE_INFO,
              "history record refused, its values are no filter's: U[1]=%g (offset %g) P_est[0][0]=%g "
              "P_est[1][1]=%g",
              h.U[1], offset, h.P_est[0], h.P_est[7]);
    return false;
}

bool isOfThisOscillator(const HistRecord& h)
{
    char serial[18] = "";
    u8 version{}, manufacturer{};
    const int result = HALI_readOcxoSerial(serial, version, manufacturer);
    if (result != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "HALI_readOcxoSerial failed with return code = %u",
                  static_cast<u32>(result));
        return false;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "OCXO serial: (Board:%s) (Flash:%s)", serial, h.serial);
    if (std::strncmp(serial, h.serial, sizeof serial) != 0) return false;
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Ocxo serial number ok, reading Flash file");
    return true;
}

}  // namespace

int KvdLoz6TuReg_historyForPll()
{
    constexpr int VALID = 0, NOT_VALID = 1, COULD_NOT_BE_READ = 2;
    u8 record[HIST_RECORD_SIZE];
    u32 fromMsi = 0;
    if (!KvdLoz6TuReg_readHistData(record, fromMsi)) return COULD_NOT_BE_READ;
    if (!KvdLoz6TuReg_validateHistory(record)) return NOT_VALID;
    const HistRecord h = KvdLoz6TuReg_unpackHistory(record);
    if (!isPlausible(h)) return NOT_VALID;
    return isOfThisOscillator(h) ? VALID : COULD_NOT_BE_READ;
}

/// Finds nothing at a start of the program: the region is asked for later, by the regulator.
void KvdLoz6TuReg_historyColdFlag(u32& coldRestart)
{
    u8 record[HIST_RECORD_SIZE];
    if (!readMsi(record) || !KvdLoz6TuReg_validateHistory(record)) return;
    if (coldRestart == 1) {
        node::putBe32(record + HIST_COLD_AT, 1);
        KvdLoz6TuMem_write(MEM_REG_HIST, record, sizeof record);
    } else if (node::be32(record + HIST_COLD_AT) == 1) {
        coldRestart = 1;
    }
}

// ---- with persistent memory ---------------------------------------------------------------------

namespace {

bool belongsToTimeReference(const HistRecord& h)
{
    return regulator::timeMode(h.selectedRef, h.prevSelectedRef) == ABSOLUTE_TIME_LOCKING;
}

/// The filter carried over the gap. The record doesn't tell the correction that the unit went away
/// with: it is the one that leaves the controller nothing to do, found by one secant step.
Prediction bridgeGap(const HistRecord& h, double b, double T_new, double dt)
{
    const auto predict = [&](double du) {
        const double u[2] = {0.0, du};
        return KvdLoz6TuReg_predict(h.x_est, h.P_est, b, u, h.T, T_new, dt);
    };
    const auto correction = [&](double du) {
        // Without a covariance the grades are those of the state alone.
        return KvdLoz6TuReg_controller(predict(du).x_pred, Mat6{}, 0, Z_TEMP_REF).u[1];
    };
    const double du1 = correction(0.0);
    const double du2 = correction(du1);
    const double c = du1 == du2 ? du1 : du1 * du1 / (du1 - du2);
    return predict(c);
}

/// The time scale goes on from the counter, which ran through the gap and wrapped once at most.
bool rebuildTime(const HistRecord& h, double& t_c, double& t_f)
{
    double period = 0.0;
    const int result = tuHwIf_readTime(period, t_f);
    if (result != 0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "tuHwIf_readSfc failed (returned 0x%x)", static_cast<u32>(result));
        return false;
    }
    const double d = t_f - h.t_f_last;
    const double r = d - std::floor(d / period) * period;
    const double left = period - (r + h.t_f_last);      // of the turn that the record was written in
    t_c = std::signbit(left) ? h.t_c_last + period : h.t_c_last;
    return true;
}

}  // namespace

int KvdLoz6TuReg_initiateWithMsi(double vT)
{
    u8 record[HIST_RECORD_SIZE];
    if (!readMsi(record)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "failed to read history file from persistent memory");
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with MSI Failed ");
        return INITIATE_FAILED;
    }
    HistRecord h = KvdLoz6TuReg_unpackHistory(record);
    const double dt = ageOf(h.freqWriteTime);
    if (dt <= 0.0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with msi, no sys time");
        return INITIATE_NO_SYSTIME;
    }
    if (dt > MSI_VALID) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "current time - persistent memory write time=%s",
                  TuCommon_text(dt));
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with MSI Failed ");
        return INITIATE_FAILED;
    }
    if (!isPlausible(h)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with MSI Failed ");
        return INITIATE_FAILED;
    }
    const bool hasTime = belongsToTimeReference(h);
    MeasInitiation values = measValues();
    if (hasTime) {
        values.delta0_c = h.delta0_c + KvdLoz6TuReg_restartDelta();
        values.delta0_f = h.delta0_f;
        values.t_mod = h.t_mod;
    }
    regulator::storeSfcGpsOffset();
    KvdLoz6TuReg_controlInitiate(regulator::state().coldRestart != 0, h.U);

    const double b = tuHwIf_calcOcxoGain(h.U[1]);
    const double T = regulator::normalisedTemperature(vT);
    Prediction p = bridgeGap(h, b, T, dt);
    if (!hasTime) p.P_pred[0] += 1.0 / 12;         // s^2, even over one second
    if (!rebuildTime(h, values.time, values.time_f)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with MSI Failed ");
        return INITIATE_FAILED;
    }
    KvdLoz6TuReg_estimateInitiate(p.x_pred, p.P_pred, T, NO_CONTROL, b);
    KvdLoz6TuReg_measInitiate(values);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with MSI SUCCESSFUL");
    return INITIATE_DONE;
}

// ---- with flash ---------------------------------------------------------------------------------

namespace {

/// A valid record of this oscillator.
bool readForFlashStart(HistRecord& h)
{
    u8 record[HIST_RECORD_SIZE];
    u32 fromMsi = 0;
    if (!KvdLoz6TuReg_readHistData(record, fromMsi)) return false;
    if (!KvdLoz6TuReg_validateHistory(record)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Valid historical data not available.");
        return false;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Valid historical data available.");
    regulator::storeSfcGpsOffset();
    h = KvdLoz6TuReg_unpackHistory(record);
    return isOfThisOscillator(h) && isPlausible(h);
}

}  // namespace

int KvdLoz6TuReg_initiateWithFlash(double vT)
{
    HistRecord h;
    if (!readForFlashStart(h)) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "failed to read history file from flash");
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with flash failed");
        return INITIATE_FAILED;
    }
    if (ageOf(h.freqWriteTime) <= 0.0) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with flash, no sys time");
        return INITIATE_NO_SYSTIME;
    }
    KvdLoz6TuReg_controlInitiate(true, h.U);
    Mat6 P = h.P_est;
    estimator::resetTimeRow(P);
    KvdLoz6TuReg_estimateInitiate(h.x_est, P, regulator::normalisedTemperature(vT), NO_CONTROL,
                                  tuHwIf_calcOcxoGain(h.U[1]));
    KvdLoz6TuReg_measInitiate(measValues());
    if (KvdLoz6TuReg_selectedRef() == TU_SR_NO_REF) {
        constexpr double DEFAULT_BUDGET = 1.7e-8;
        KvdLoz6TuReg_setFrequencyLowerLimit(DEFAULT_BUDGET);
        KVD_TRACE(TRACE_HIST, TRACE_INFO,
                  "lim_f set to default value (17 ppb) as initiated with flash and no reference "
                  "currently selected");
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Initiate with flash successful");
    return INITIATE_DONE;
}
