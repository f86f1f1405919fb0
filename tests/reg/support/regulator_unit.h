// regulator_unit.h - The program's code loaded in a world of its own, without its processes:
// registers are plain memory, and a test calls the estimator and the control law as the manager
// would.
#pragma once
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/world.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure_int.h"

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace regtest {

/// Registers that keep what is written, a calendar that stands still, traces kept as texts.
class MemoryPlatform : public node::Platform {
public:
    std::map<u32, u32> registers;
    std::vector<std::string> traces;
    std::string shell;
    u32 boardCode = 9;

    u32  mmioRead(u32 address) override { return registers[address]; }
    void mmioWrite(u32 address, u32 value) override { registers[address] = value; }
    void ioBarrier() override {}
    int adiBoardCode(u32& code) override { code = boardCode; return 0; }
    int adiEnableExtInt(u32) override { return 0; }
    int adiDisableExtInt(u32) override { return 0; }
    int boardParameter(const char*, char* text, std::size_t size) override
    {
        constexpr const char* BASE = "0xE0000000";
        if (std::strlen(BASE) >= size) return 1;
        std::strcpy(text, BASE);
        return 0;
    }
    int bootParameter(const char*, char*, std::size_t) override { return 2; }
    int visualIndication(u32) override { return 0; }
    int elgiWrite(const char*, u32, u32, const char*, u32) override { return 0; }
    int registerShutdown(void (*)()) override { return 0; }
    node::CalendarTime calendar() override { return {1'700'000'000, 0}; }   // 2023-11-14 22:13:20
    int fileExists(const char*) override { return 0; }
    int fileRead(const char*, std::string&) override { return 1; }
    int fileWrite(const char*, const std::string&) override { return 1; }
    int fileAppend(const char*, const std::string&) override { return 1; }
    int fileRemove(const char*) override { return 1; }
    int serialOpen(const char*, u32, const node::SerialSetting*, std::size_t) override { return 8; }
    int serialClose(const char*) override { return 8; }
    int serialWrite(const char*, const u8*, std::size_t) override { return 8; }
    std::size_t serialRead(const char*, u8*, std::size_t) override { return 0; }
    int registerCommand(const node::ShellCommand&) override { return 0; }
    void shellPrint(const char* text) override { shell += text; }
    void trace(const node::TraceRecord& record) override { traces.emplace_back(record.text); }
};

inline void waitForever()
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        ose::free_buf(&sig);
    }
}

class RegulatorUnit {
public:
    RegulatorUnit()
    {
        system_.setPlatform(&platform);
        static const ose::ConfigLine CONFIG[] = {{"OSE_LM_POOL_SIZE", "300000"},
                                                 {"OSE_LM_MAIN_NAME", "main"},
                                                 {"OSE_LM_MAIN_PRIORITY", "30"}};
        static const ose::Program PROGRAM{"unit", waitForever, CONFIG};
        block_ = &system_.load(PROGRAM);
        world_.runFor(ose::MS);
        run([this] {
            tuHwIf_initBaseAddresses();
            hwif::setRev3(1);                 // nominal divider 1250 + 0/800000000
            beMaster(true);
            platform.traces.clear();
        });
    }

    /// Runs `body` as a process of the program.
    void run(const std::function<void()>& body) { system_.call(*block_, body); }

    /// From inside run(): the role alone, without the actions of a change of role.
    static void beMaster(bool master) { regulator::state().masterSlaveMode = master ? 1 : 0; }

    /// From inside run(): every trace of the calling process is kept from now on.
    void traceAll() { node::traceSetProgramMask(0xFFFFFFFF); }
    /// Traces kept so far that begin with `text`.
    std::size_t traced(const std::string& text) const
    {
        std::size_t count = 0;
        for (const std::string& t : platform.traces) count += t.rfind(text, 0) == 0 ? 1 : 0;
        return count;
    }

    MemoryPlatform platform;

private:
    ose::World world_{1};
    ose::System& system_ = world_.createSystem("unit");
    ose::Block* block_ = nullptr;
};

/// From inside run(): selects references without the actions of a change.
inline void selectReference(u32 selected, u32 previous)
{
    measure::state().var.selectedRef = selected;
    measure::state().var.prevSelectedRef = previous;
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
    double U[2] = {0.0, 1250.0};
    KvdLoz6TuReg_controlInitiate(false, U);
    Mat6 P{};
    const double diagonal[6] = {1e-14, 1e-20, 1e-30, 1.5e-20, 5.6e-20, 2.2e-19};
    for (u32 i = 0; i < 6; ++i) P[i * 6 + i] = diagonal[i];
    const double u[2] = {0.0, 0.0};
    KvdLoz6TuReg_estimateInitiate(Vec6{}, P, 0.0, u, -1.0 / 1250.0);
    KvdLoz6TuReg_forceRegState(FREQLOCKED);
    control::state().var.f_ix = 5;
    control::state().var.fix = FixFilter{-8.3, 0, 0, 0, 0, 0, 0, 0, 0};
}

}  // namespace regtest
