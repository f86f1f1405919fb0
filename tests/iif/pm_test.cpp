// Performance counters: periods and subscriptions, outages by length, delay variation, and a PM
// agent that doesn't do what it should.
#include "iif/kvd_pm_gps.h"
#include "tests/iif/pm_bench.h"

namespace {

using bench::PmBench;
using Values = std::vector<i32>;

constexpr u32 SYNC = SYNC_PM_FROTYPE, GPS = GPSSYNCREF_PM_FROTYPE;

/// Suspect flag and attributes of a report of times without NTP: seconds THS, TFS, FHS, FRS.
Values times(i32 variation, i32 ths, i32 tfs, i32 fhs, i32 frs)
{
    return {0, variation, variation, variation, variation, ths, tfs, fhs, frs};
}

TEST(GpsOutages, CountFromTheSubscriptionOnAndStayUntilTheNext)
{
    PmBench b;
    b.gpsStatus(2);
    b.until(1000);
    b.subscribe(GPS, 300);
    b.until(1170);
    b.gpsStatus(0);                        // 170 s of it lie behind the subscription
    EXPECT_EQ(b.currentOf(GPS), (Values{1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    b.push(1);
    EXPECT_EQ(b.reported(), (Values{1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})) << "suspect";
    b.gpsStatus(2);
    b.gpsStatus(3);                        // says nothing: the outage goes on
    EXPECT_EQ(b.traces("Unknown state!"), 1u);
    b.until(1170 + 3600);
    b.gpsStatus(2);
    b.gpsStatus(1);
    b.push(2);
    EXPECT_EQ(b.reported(), (Values{0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}));
    b.unsubscribe(GPS);
    EXPECT_EQ(b.currentOf(GPS), (Values{1, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}));
    b.subscribe(GPS, 300);
    EXPECT_EQ(b.currentOf(GPS), (Values{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Subscriptions, OfOneSetLeaveTheOtherAlone)
{
    PmBench b;
    for (const u32 froType : {0x10500u, 0x10503u}) {
        b.subscribe(froType, 300);
        b.unsubscribe(froType);
        b.askCurrent(froType);
        EXPECT_TRUE(b.mp().log().empty());
    }
    EXPECT_EQ(b.traces("Wrong froType!"), 6u);
    EXPECT_EQ(b.node.system().find("TmvPmai_proxy"), 0u) << "nobody has subscribed";

    b.clockState(3);
    b.until(100);
    EXPECT_EQ(b.currentOf(SYNC), (Values{1, -1, -1, -1, -1, -2, -2, -2, -2})) << "not subscribed";
    b.subscribe(SYNC, 300);
    b.subscribe(GPS, 300);
    b.push(1);
    ASSERT_EQ(b.agent().records().size(), 2u);
    b.until(250);
    b.unsubscribe(GPS);
    b.push(2);
    EXPECT_EQ(b.agent().records().size(), 3u);
    EXPECT_EQ(b.reported(), times(-2, 0, 150, 0, 0));
    b.until(300);
    b.subscribe(SYNC, 300);                // again, in the middle of a period: that one isn't whole
    b.until(320);
    EXPECT_EQ(b.currentOf(SYNC), (Values{1, -1, -1, -1, -1, -2, -2, -2, -2}));
    b.push(3);
    EXPECT_EQ(b.reported(), (Values{1, -2, -2, -2, -2, -2, -2, -2, -2}));
    b.until(620);
    b.push(4);
    EXPECT_EQ(b.reported(), times(-2, 0, 300, 0, 0)) << "no more than it has";
    b.unsubscribe(SYNC);
    b.push(5);
    EXPECT_EQ(b.agent().records().size(), 5u);
    EXPECT_EQ(b.currentOf(SYNC), (Values{1, -1, -1, -1, -1, -2, -2, -2, -2}));
}

TEST(Restart, ForgetsSubscriptionsAndBeginsSuspect)
{
    PmBench b;
    b.subscribe(SYNC, 300);
    b.push(1);
    b.clockState(3);
    b.until(100);
    b.node.restart(4);
    b.run(0.1);
    b.push(2);                             // to a proxy that is gone
    b.connect();
    b.push(3);
    EXPECT_EQ(b.agent().records().size(), 1u);
    EXPECT_EQ(b.currentOf(SYNC), (Values{1, -1, -1, -1, -1, -2, -2, -2, -2}));
    b.subscribe(SYNC, 300);
    b.push(4);
    EXPECT_EQ(b.reported(), (Values{1, -2, -2, -2, -2, -2, -2, -2, -2}));
}

TEST(Agent, ThatRefusesOrIsSilentIsAskedAgainWhenItComesBack)
{
    using sim::Answer;
    for (const Answer answer : {Answer::Reject, Answer::Suspend, Answer::Silent}) {
        PmBench b;
        b.agent().setAnswer(answer);
        b.subscribe(SYNC, 300);
        EXPECT_EQ(b.mp().count(KVD_TUIIF_SUBSCRIBE_PM_CFM), 1u)
            << "the main processor doesn't wait";
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
    b.until(100);
    b.push(6);
    EXPECT_EQ(b.agent().records().size(), 5u);
    EXPECT_EQ(b.traces("Unable to allocate memory for pmDataStruct_p"), 1u);
    b.agent().die();                       // takes with it what it hasn't confirmed
    b.agent().confirms = true;
    b.agent().start();
    b.until(150);
    b.push(7);
    EXPECT_EQ(b.reported(), times(-2, 0, 145, 0, 0));
}

}  // namespace
