// history_bench.h - The regulator's history in a process of its own, beside the node's board,
// persistent memory, volumes and calendar: a master that is locked in frequency.
#pragma once
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_flashfile.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_histrecord.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure_int.h"
#include "store/kvd_mgr_mem.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <cstring>

namespace regtest {

constexpr i64 NOW = 1'704'067'200;       // 2024-01-01

struct HistoryBench : IdleNode {
    explicit HistoryBench(sim::NodeConfig config = {}) : IdleNode(std::move(config)) { connect(); }

    /// The services of a program that was just loaded.
    void connect()
    {
        in([] {
            u32 cold = 0;
            ASSERT_EQ(HALI_init(), 0);
            ASSERT_EQ(tuHwIf_initiate(cold, 0), 0);
            KvdLoz6TuMem_initiate();
            KvdLoz6TuMem_allocate(MEM_REG_HIST, 0);
            while (Signal* sig = ose::receive_w_tmo(1, ose::ANY_SIGNAL)) {
                KvdLoz6TuMem_dispatch(sig);
                ose::free_buf(&sig);
            }
            regulator::State& r = regulator::state();
            r.masterSlaveMode = 1;
            r.vTmin = 1.0;
            r.vTmax = 3.0;
        });
        node.setCalendar(NOW);
    }
    /// Another program, as after a restart that leaves the board alone.
    void restart()
    {
        node.restart(4);
        world.runFor(ose::MS);
        connect();
    }
    /// A filter that would hold its frequency for hours.
    void lock()
    {
        in([] {
            double U[2] = {0.0, tuHwIf_factoryDivider()};
            KvdLoz6TuReg_controlInitiate(true, U);
            Mat6 P{};
            P[0] = 1e-16, P[7] = 1e-20, P[14] = 1e-34;
            const double u[2] = {0.0, 0.0};
            KvdLoz6TuReg_estimateInitiate(Vec6{}, P, 0.0, u, -1.0 / U[1]);
            control::state().var.f_ix = 5;
        });
    }
    /// Content, "" when it isn't there.
    std::string file(const char* path)
    {
        const auto& files = node.volumes().files();
        const auto found = files.find(path);
        return found != files.end() ? found->second : "";
    }
    bool traced(const std::string& text) { return node.traces().has(text); }
};

inline std::string asFile(const std::vector<u8>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline std::vector<u8> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace regtest
