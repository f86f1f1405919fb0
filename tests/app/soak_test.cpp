// The long run's watch: that it sees each thing that must not be, and lets pass what may; that a seed
// draws the same run each time.
#include "app/soak.h"
#include "sim/scenario/scenario.h"

#include <gmock/gmock.h>

#include <functional>

namespace {

using app::Licence;
using app::Moment;
using app::SoakWatch;
using app::Violation;
using testing::HasSubstr;

/// A unit that has been locked in time to GPS for hours.
Moment sound(double t)
{
    Moment m;
    m.t = t;
    m.runs = m.connected = true;
    m.starts = 1;
    m.clock = m.told = 10;
    m.selected = m.wanted = 6;
    m.coarse_s = 2048.0;
    m.fine_s = std::fmod(t, 1024.0);
    m.poolUsed = 20000;
    m.due = {10};
    m.serves = true;
    m.followError_ns = std::nan("");
    return m;
}

TEST(SoakWatch, SeesWhatMustNotBe)
{
    struct Case {
        const char* what;
        std::function<void(Moment&, Licence&)> plant;
        const char* found;               // "" when it may be
    };
    for (const Case& c : std::vector<Case>{
             {"nothing", [](Moment&, Licence&) {}, ""},
             {"a step", [](Moment& m, Licence&) { m.timeError_ns = 6000; }, "without an order"},
             {"an ordered step", [](Moment&m, Licence&may) { m.timeError_ns = 6000, may.jump_s = m.t - 11; },
              ""},
             {"a late step", [](Moment& m, Licence& may) { m.timeError_ns = 6000, may.jump_s = m.t - 13; },
              "without an order"},
             {"a coarse time between turns", [](Moment& m, Licence&) { m.coarse_s = 1000; },
              "number of turns"},
             {"no coarse time", [](Moment& m, Licence&) { m.coarse_s = -1; }, ""},
             {"a fine time of a turn", [](Moment& m, Licence&) { m.fine_s = 1024; }, "out of range"},
             {"a halt", [](Moment& m, Licence&) { m.clock = m.told = 6; }, "halted"},
             {"a halt after a fault", [](Moment&m, Licence&may) { m.clock = m.told = 6, may.halting = true; },
              ""},
             {"a loss of tracking", [](Moment& m, Licence&) { m.clock = m.told = 5; }, "loss of tracking"},
             {"time in frequency mode", [](Moment&, Licence& may) { may.hasTime = false; }, "frequency mode"},
             {"no reference", [](Moment& m, Licence&) { m.selected = m.wanted = 1; }, "no reference"},
             {"a state that isn't told", [](Moment&m, Licence&) { m.told = 8; }, "told clock state 8, is 10"},
             {"another reference", [](Moment& m, Licence&) { m.wanted = 2; }, "type 6 selected, wanted 2"},
             {"a dead reference that is told usable", [](Moment&m, Licence&) { m.selectedDead = true; },
              "told usable"},
             {"one that is told dead",
              [](Moment& m, Licence&) { m.selectedDead = true, m.selectedUsable = false; }, ""},
             {"a wrong frequency", [](Moment& m, Licence&) { m.freqError_ppb = -21; }, "ppb off"},
             {"a wrong time", [](Moment& m, Licence&) { m.gpsError_ns = 2001; }, "ns off"},
             {"the same from a reference that is told degraded",
              [](Moment& m, Licence&) { m.gpsError_ns = 2001, m.degraded = true; }, ""},
             {"the same after a fault of the receiver",
              [](Moment& m, Licence& may) { m.gpsError_ns = 2001, may.reference_s = m.t - 3000; }, ""},
             {"a regulator without samples", [](Moment& m, Licence&) { m.fine_s = 5; }, "no sample"},
             {"the same after a refusal", [](Moment&m, Licence&may) { m.fine_s = 5, may.refused = true; },
              ""},
             {"a clock state by nothing", [](Moment& m, Licence&) { m.clock = m.told = 8; },
              "clock state 8 told, 10 by"},
             {"a leader's link that is gone",
              [](Moment& m, Licence&) {
                  m.clock = m.told = 16, m.due = {16}, m.leaderGone = true;
                  m.t += 10 * (m.t - 8000), m.fine_s = std::fmod(m.t, 1024.0);
              }, "whose link is gone"},
             {"a loop that holds over for ever",
              [](Moment& m, Licence&) {
                  m.clock = m.told = 11, m.due = {}, m.selected = m.wanted = 1, m.before = 14;
                  m.loopHoldsTime = true, m.t += 10 * (m.t - 8000), m.fine_s = std::fmod(m.t, 1024.0);
              }, "holds over since"},
             {"a wait without an end", [](Moment& m, Licence&) { m.waits = "asks nobody"; }, "asks nobody"},
             {"signals that pile up", [](Moment& m, Licence&) { m.poolUsed += 16385; }, "bytes"},
         }) {
        SCOPED_TRACE(c.what);
        SoakWatch watch("tu1");
        std::vector<Violation> found;
        Licence may;
        may.hasTime = true;
        for (const double t : {0.0, 1000.0, 4000.0, 8000.0}) watch.look(sound(t), may, found);
        ASSERT_TRUE(found.empty()) << found[0].what;
        for (int i = 1; i <= 10; ++i) {            // some count after a while alone
            Moment m = sound(8000.0 + 4 * i);
            c.plant(m, may);
            watch.look(m, may, found);
        }
        if (*c.found == '\0') {
            EXPECT_TRUE(found.empty()) << found[0].what;
        } else {
            ASSERT_FALSE(found.empty());
            EXPECT_THAT(found[0].what, HasSubstr(c.found));
        }
    }
}

TEST(SoakWatch, AsksForEverythingAnHourAfterTheLastDisturbance)
{
    struct Case {
        std::function<void(Moment&, Licence&)> plant;
        const char* found;               // "" when it may be
    };
    for (const Case& c : std::vector<Case>{
             {[](Moment&, Licence&) {}, ""},
             {[](Moment& m, Licence&) { m.clock = m.told = 8, m.due = {8}; }, ""},
             {[](Moment&m, Licence&) { m.clock = m.told = 3, m.due = {3}; }, "clock state 3"},
             {[](Moment&m, Licence&may) { may.canKnowTime = false, m.clock = m.told = 3, m.due = {3}; }, ""},
             {[](Moment&, Licence& may) { may.slave = true; }, "clock state 10"},
             {[](Moment& m, Licence&) { m.runs = false; }, "doesn't run"},
             {[](Moment& m, Licence&) { m.connected = false; }, "no connection"},
             {[](Moment& m, Licence&) { m.told = 8; }, "told clock state 8"},
             {[](Moment& m, Licence&) { m.refState = 1; }, "told usable references 0, are 1"},
             {[](Moment& m, Licence&) { m.unusable = " gps"; }, "not told usable: gps"},
             {[](Moment& m, Licence&) { m.missing = " TuGpsInt_proc"; }, "no more: TuGpsInt_proc"},
         }) {
        SCOPED_TRACE(c.found);
        SoakWatch watch("tu1");
        std::vector<Violation> found;
        Licence may;
        may.hasTime = may.canKnowTime = true;
        Moment before = sound(8000), m = sound(8001);
        c.plant(before, may), c.plant(m, may);
        before.quiet_s = 3599, m.quiet_s = 3600;
        watch.look(before, may, found);
        found.clear();
        watch.look(m, may, found);
        if (*c.found == '\0') {
            EXPECT_TRUE(found.empty()) << found[0].what;
        } else {
            ASSERT_FALSE(found.empty());
            EXPECT_THAT(found.back().what, HasSubstr(c.found));
        }
    }
}

TEST(SoakWatch, KnowsWhichClockStatesFollow)
{
    constexpr u8 WARMUP = 1, DRIFTING = 2, LOCKED = 3, HOLDOVER = 4, LOST = 5, FAILED = 6, OFFSET = 8;
    constexpr u8 RNT = 10;
    SoakWatch watch("tu1");
    std::vector<Violation> found;
    for (const u8 clock : {WARMUP, DRIFTING, LOCKED, OFFSET, RNT, LOCKED, HOLDOVER, LOST, RNT, FAILED})
        watch.told(100, clock, found);
    EXPECT_TRUE(found.empty()) << found[0].what;
    watch.told(100, LOCKED, found);                  // the halted state ends with a restart alone
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].what, "clock state 6 was followed by 3");
    watch.forgetTold();
    watch.told(100, DRIFTING, found);
    EXPECT_EQ(found.size(), 1u);
    watch.told(100, OFFSET, found);                  // time before frequency
    watch.told(100, WARMUP, found);                  // cold without a start
    EXPECT_EQ(found.size(), 3u);
}

TEST(Soak, DrawsScenariosThatCanBeRead)
{
    for (u64 seed = 1; seed <= 80; ++seed)
        EXPECT_NO_THROW(sim::readScenarioText(app::drawScenario(20.0, seed), "drawn")) << seed;
}

}  // namespace
