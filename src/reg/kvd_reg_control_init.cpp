// Initiation of the control law, and its limits.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_int.h"
#include "unit/kvd_unit_link.h"

#include <cmath>

namespace {

using control::state;

void readNominal(ControlStateVar& v)
{
    v.nomDiv = tuHwIf_readNomDiv() - 1;
    v.K = tuHwIf_readInitDeltaSigmaK();
    v.M = tuHwIf_readInitDeltaSigmaM();
}

/// Takes the divider that the hardware runs with; without a denominator U1 stays.
void readHardware(ControlStateVar& v, double& U1)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "warm  restart ");
    v.nomDiv = tuHwIf_readNominalDivisor();
    v.K = tuHwIf_readDeltaSigmaK();
    v.M = tuHwIf_readDeltaSigmaM();
    if (v.M != 0) U1 = v.nomDiv + 1.0 + static_cast<double>(v.K) / static_cast<double>(v.M);
}

/// The band test and the truncation differ from those of the running control on purpose.
void writeHardware(ControlStateVar& v, double U1)
{
    if (std::fabs(U1 - v.nomDiv) - 1.0 > 1.0) {
        v.nomDiv = control::nomDivOf(U1);
        tuHwIf_writeNominalDivisor(v.nomDiv);
    }
    v.K = control::toI64((U1 - v.nomDiv - 1.0) * static_cast<double>(v.M));
    tuHwIf_writeDeltaSigmaK(v.K);
    tuHwIf_writeDeltaSigmaM(v.M);
}

void takeU(ControlStateVar& v, const double U[2])
{
    v.U[0] = U[0];
    v.U[1] = U[1];
    tuHwIf_enableDeltaSigma();
    control::loadDefaults(v);
}

}  // namespace

namespace control {

void loadDefaults(ControlStateVar& v)
{
    v.f_lim_low = 1.68e-8;
    v.f_lim_high = 1.7e-8;
    v.t_lim_low = 5e-7;
    v.t_lim_high = 1e-5;
    v.xf_limit = 1.5e-8;
    v.f_ix = F_IX_WORST;
    v.t_ix = 1;
}

}  // namespace control

void KvdLoz6TuReg_controlInitiate(bool coldRestart, double U[2])
{
    const bool idl2Slave = regulator::isIdl2Slave();
    control::State& s = state();
    const u8 before = s.var.regState;
    s.var = ControlStateVar{};
    s.transitionCount = 0;
    if (idl2Slave) s.var.regState = before;   // the link's loop runs on across the initiation
    else           control::storeRegState(WARMUP);
    readNominal(s.var);
    if (!coldRestart || idl2Slave) readHardware(s.var, U[1]);
    else                           writeHardware(s.var, U[1]);
    takeU(s.var, U);
}

void KvdLoz6TuReg_controlInitFromPll(double U[2], bool fromHardware)
{
    control::State& s = state();
    const u8 before = s.var.regState;
    s.var = ControlStateVar{};
    s.transitionCount = 0;
    s.var.regState = before;
    readNominal(s.var);
    if (fromHardware) readHardware(s.var, U[1]);
    takeU(s.var, U);
}

void KvdLoz6TuReg_setFrequencyLimit(double f)
{
    state().var.f_lim_high = f;
    state().var.f_lim_low = f;
}

void KvdLoz6TuReg_setFrequencyLowerLimit(double f)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "set frequency lower limit: %s", TuCommon_text(f));
    state().var.f_lim_low = f;
}

void KvdLoz6TuReg_setHigherTimeLimit(double t)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "set higher time limit: %s", TuCommon_text(t));
    state().var.t_lim_high = t;
}

void KvdLoz6TuReg_setLowerTimeLimit(double t)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "set lower time limit: %s", TuCommon_text(t));
    state().var.t_lim_low = t;
}

void KvdLoz6TuReg_setXfLimit(double xf) { state().var.xf_limit = xf; }
