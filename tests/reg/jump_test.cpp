// A step that the counters refuse, and the operator's removal of time.
#include "mp/kvd_iifadm_state.h"
#include "reg/kvd_reg_jump.h"
#include "reg/support/measure_bench.h"
#include "support/unit_bench.h"

using regtest::MeasureBench;

static constexpr double TIME_OF_DAY = 4294967296.0;

TEST(Jump, ClearsTheOffsetWhenTheCountersRefuseTheStep)
{
    MeasureBench b;
    b.settle();
    b.bus.memory[b.address(16)] = 0;             // no load is done
    b.in([] {
        measure::state().var.t_mod_old = TIME_OF_DAY;
        measure::state().var.histCountDown = 17.0;
        KvdLoz6TuReg_setLastTime(1024.0, 500.0);
        KvdLoz6TuReg_setOffset(0.0, 1e-3);
        KvdLoz6TuReg_setJumpState(JUMP_REQUESTED);
        KvdLoz6TuReg_Jump();
        EXPECT_EQ(KvdLoz6TuReg_jumpState(), 0u);
    });
    EXPECT_EQ(b.bus.countOf("not finished in 10 ms"), 1u);
    const MeasStateVar m = b.meas();
    EXPECT_TRUE(m.delta0_f == 0.0 && m.histCountDown == 0.0 && m.t_c_last == 1024.0);
    EXPECT_NEAR(m.t_f_last, 499.999, 1e-11);
}

TEST(RemovalOfTime, OnlyInAHoldoverOfTime)
{
    struct Case { u8 clock; int result; };
    for (const Case& c : {Case{9, 0}, {11, 0}, {8, 10}, {10, 10}}) {
        SCOPED_TRACE(int{c.clock});
        bench::Unit u;
        u.node.powerOn();
        u.run(5);
        u.node.inProgram([&c] {
            tuiif::state().savedBvqStatusData.radioClockState = c.clock;
            measure::state().var.t_mod_old = TIME_OF_DAY;
            return control::state().var.t_ix = 3;
        });
        std::string output;
        EXPECT_EQ(u.command("kvdremovetime", output), c.result);
        EXPECT_EQ(u.node.inProgram(KvdLoz6TuReg_t_ix), c.result == 0 ? 1 : 3);
        EXPECT_EQ(u.node.inProgram(KvdLoz6TuReg_knowsTime) != 0, c.result != 0);
    }
}
