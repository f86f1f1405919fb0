// Performance counters beside a PM agent that doesn't do what it should.
#include "tests/iif/pm_bench.h"

namespace {

using bench::PmBench;
using Values = std::vector<i32>;

constexpr u32 SYNC = SYNC_PM_FROTYPE;

TEST(Agent, ThatRefusesOrIsSilentIsAskedAgainWhenItComesBack)
{
    using sim::Answer;
    for (const Answer answer : {Answer::Reject, Answer::Suspend, Answer::Silent}) {
        PmBench b;
        b.agent().setAnswer(answer);
        b.subscribe(SYNC, 300);
        EXPECT_EQ(b.mp().count(KVD_TUIIF_SUBSCRIBE_PM_CFM), 1u) << "the main processor doesn't wait";
        b.push(1);
        EXPECT_FALSE(b.agent().attached());
        EXPECT_EQ(b.currentOf(SYNC).size(), 9u);
        b.agent().die();
        b.run(1);
        b.agent().setAnswer(Answer::Accept);
        b.agent().start();
        b.run(1);
        b.push(2);
        EXPECT_EQ(b.agent().records().size(), 1u);
    }
}

TEST(Agent, ThatTakesNothingLosesNothingOfThePeriod)
{
    PmBench b;
    b.subscribe(SYNC, 300);
    b.push(1);
    b.clockState(3);
    b.agent().confirms = false;
    for (u32 n = 2; n < 6; ++n) b.push(n);
    EXPECT_EQ(b.agent().records().size(), 5u);
    EXPECT_FALSE(b.traced("Unable to allocate memory for pmDataStruct_p"));
    b.push(6);
    EXPECT_EQ(b.agent().records().size(), 5u);
    EXPECT_EQ(b.traces("Unable to allocate memory for pmDataStruct_p"), 1u);
    b.until(100);
    b.agent().die();                       // takes with it what it hasn't confirmed
    b.agent().confirms = true;
    b.agent().start();
    b.until(150);
    b.push(7);
    EXPECT_EQ(b.reported(), (Values{0, -2, -2, -2, -2, 0, 145, 0, 0}));
}

}  // namespace
