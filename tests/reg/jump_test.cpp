// Jumps at their edges: steps too small or refused; and the operator's removal of time.
#include "mp/kvd_iifadm_state.h"
#include "reg/kvd_reg_jump.h"
#include "reg/support/measure_bench.h"
#include "support/unit_bench.h"

using regtest::MeasureBench;

static constexpr double TIME_OF_DAY = 4294967296.0;

TEST(Jump, ClearsTheOffsetWhateverBecomesOfTheStep)
{
    struct Case { const char* what; double delta0_f, t_f_last; u32 loadStatus; };
    for (const Case& c : std::initializer_list<Case>{
             {"below an increment of 8.138 ns", 8.1e-9, 500.0,           1},
             {"below, kept as -1 s and the rest", -8.1e-9, 500.0 + 8.1e-9, 1},
             {"the load isn't done",              1e-3, 499.999,           0}}) {
        SCOPED_TRACE(c.what);
        MeasureBench b;
        b.settle();
        b.bus.memory[b.address(16)] = c.loadStatus;
        b.in([&c] {
            measure::state().var.t_mod_old = TIME_OF_DAY;
            measure::state().var.histCountDown = 17.0;
            KvdLoz6TuReg_setLastTime(1024.0, 500.0);
            KvdLoz6TuReg_setOffset(0.0, c.delta0_f);
            KvdLoz6TuReg_setJumpState(JUMP_REQUESTED);
            KvdLoz6TuReg_Jump();
            EXPECT_EQ(KvdLoz6TuReg_jumpState(), 0u);
        });
        EXPECT_EQ(b.bus.countOf("not finished in 10 ms"), c.loadStatus == 0 ? 1u : 0u);
        const MeasStateVar m = b.meas();
        EXPECT_TRUE(m.delta0_f == 0.0 && m.histCountDown == 0.0 && m.t_c_last == 1024.0);
        EXPECT_NEAR(m.t_f_last, c.t_f_last, 1e-11) << "moved when a step was tried";
    }
}

TEST(RemovalOfTime, OnlyInAHoldoverOfTime)
{
    struct Case { u8 clock; int result; };
    for (const Case& c : {Case{9, 0}, {11, 0}, {8, 10}, {10, 10}}) {
        SCOPED_TRACE(int{c.clock});
        bench::Unit u;
        u.node.powerOn();
        u.run(5);
        const auto in = [&u](const std::function<void()>& body) {
            u.node.system().call(*u.node.program(), body);
        };
        in([&c] {
            tuiif::state().savedBvqStatusData.radioClockState = c.clock;
            measure::state().var.t_mod_old = TIME_OF_DAY;
            control::state().var.t_ix = 3;
        });
        std::string output;
        EXPECT_EQ(u.command("kvdremovetime", output), c.result);
        in([&c] {
            EXPECT_EQ(KvdLoz6TuReg_t_ix(), c.result == 0 ? 1 : 3);
            EXPECT_EQ(KvdLoz6TuReg_knowsTime() != 0, c.result != 0);
        });
    }
}
