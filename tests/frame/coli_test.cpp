// The operator's commands: what they keep and act on. Arguments and answers stand in scenarios/operator.toml.
#include "hw/kvd_hwif.h"
#include "refs/kvd_ext.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/unit_bench.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

struct Operator : bench::Unit {
    Operator()
    {
        node.powerOn();
        run(5);
    }
    /// Result of a line; its output stays in `text`.
    int type(const std::string& line) { return command(line, text); }
    std::string text;
};

TEST(OperatorsCommands, AllOfTheReportHasTheManagersSectionOnce)
{
    Operator op;
    EXPECT_EQ(op.type("kvdinfo all"), 0);
    EXPECT_THAT(op.text, HasSubstr("tumgr_proc related data"));
    const std::size_t memory = op.text.find("***** Persistent memory *****");
    EXPECT_NE(memory, std::string::npos) << "with the manager's section";
    EXPECT_EQ(op.text.find("***** Persistent memory *****", memory + 1), std::string::npos);
}

TEST(Genwander, StartsAndStops)
{
    Operator op;
    EXPECT_EQ(op.type("genwander 10 100"), 0);
    op.run(0.1);
    EXPECT_TRUE(op.traced("Starting wander generation, frequency= 10, amplitude= 100, offset= 0"));
    EXPECT_EQ(op.type("genwander 10 0 1.5"), 0);             // offset alone keeps it running
    op.run(0.1);
    EXPECT_FALSE(op.traced("Wander generation stopped."));
    EXPECT_EQ(op.type("genwander 10 0"), 0);
    op.run(0.1);
    EXPECT_TRUE(op.traced("Wander generation stopped."));
}

TEST(ClientCommands, ActOnWhatTheyName)
{
    Operator op;
    const auto ask = [&](auto what) { return op.node.inProgram(what); };
    op.node.mainProcessor().clearLog();
    for (const char* line : {"kvdconfigtimeacc enable", "kvdconfigtimeacc set 1000", "kvdsetfastlock 2",
                             "kvdsetcallimit 60", "kvdselectregref eth_b", "freerunning"})
        EXPECT_EQ(op.type(line), 0) << line;
    op.run(0.1);
    const auto told = op.node.mainProcessor().all(KVD_TUIIF_TIME_ACCURACY_CHANGE_IND);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].as<KvdTuiifTimeAccuracyChangeInd>()->timeAccuracy, 1000u);
    EXPECT_EQ(ask([] { return std::pair{KvdLoz6TuExt_useFastLock(), KvdLoz6TuExt_R_fastLock()}; }),
              (std::pair{1u, 1e-14}));
    EXPECT_EQ(ask(tuHwIf_calibrationLimit), 60u);
    EXPECT_EQ(ask(KvdLoz6TuReg_selectedRef), u32{TU_ETH_REF});
    EXPECT_TRUE(op.traced("Setting P_est to achieve frequency drifting"));
}

}  // namespace
