// regulator_unit.h - The program's code on plain registers, without its processes: a test calls the estimator
// and the control law as the manager would.
#pragma once
#include "hw/fake_bus.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure_int.h"

#include <functional>
#include <string>

namespace regtest {

class RegulatorUnit : public hwtest::Bench {
public:
    RegulatorUnit() : Bench(2, false)
    {
        run([] {
            tuHwIf_initBaseAddresses();
            hwif::setRev3(1);                 // nominal divider 1250 + 0/800000000
            beMaster(true);
        });
        bus.traces.clear();
    }

    /// Runs `body` as a process of the program.
    void run(const std::function<void()>& body) { system.call(*block, body); }

    /// From inside run(): the role alone, without the actions of a change of role.
    static void beMaster(bool master) { regulator::state().masterSlaveMode = master ? 1 : 0; }

    /// From inside run(): every trace of the calling process is kept from now on.
    void traceAll() { node::traceSetProgramMask(0xFFFFFFFF); }
    /// Traces kept so far that begin with `text`.
    std::size_t traced(const std::string& text) const
    {
        std::size_t count = 0;
        for (const auto& [level, line] : bus.traces) count += line.starts_with(text) ? 1 : 0;
        return count;
    }
};

/// From inside run(): selects references without the actions of a change.
inline void selectReference(u32 selected, u32 previous)
{
    measure::state().var.selectedRef = selected;
    measure::state().var.prevSelectedRef = previous;
}

/// A filter that runs in FREQLOCKED on a good estimate.
inline void startFilter(bool cold)
{
    double U[2] = {0.0, 1250.0};
    KvdLoz6TuReg_controlInitiate(cold, U);
    Mat6 P{};
    const double diagonal[6] = {1e-14, 1e-20, 1e-30, 1.5e-20, 5.6e-20, 2.2e-19};
    for (u32 i = 0; i < 6; ++i) P[i * 7] = diagonal[i];
    const double u[2] = {0.0, 0.0};
    KvdLoz6TuReg_estimateInitiate(Vec6{}, P, 0.0, u, -1.0 / 1250.0);
    KvdLoz6TuReg_forceRegState(FREQLOCKED);
    control::state().var.f_ix = 5;
}

/// A unit that runs in FREQLOCKED on a good estimate, master, 1PPS-like reference `selected`.
inline void settle(u32 selected, double t_mod)
{
    selectReference(selected, 0);
    measure::state().var.t_mod_old = t_mod;
    measure::state().var.delta0_c = 3.0;
    measure::state().var.delta0_f = 0.25;
    tuHwIf_writeNominalDivisor(1249);
    tuHwIf_writeDeltaSigmaK(0);
    tuHwIf_writeDeltaSigmaM(800000000);
    startFilter(false);
    control::state().var.fix = FixFilter{-8.3, 0, 0, 0, 0, 0, 0, 0, 0};
}

}  // namespace regtest
