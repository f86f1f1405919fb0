// Who runs when: priorities, interrupts, virtual time, the host's clock.
#include "program.h"

#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

using namespace ose;

namespace tests {
namespace {

class Scheduling : public Kernel {};

TEST_F(Scheduling, OnlyAHigherPriorityReceiverRunsBeforeSendReturns)
{
    struct Case { u32 receiver; const char* order; };
    for (const Case& c : {Case{19, "send took sent "}, Case{20, "send sent took "},
                          Case{21, "send sent took "}}) {
        SCOPED_TRACE(c.receiver);
        said.clear();
        const PROCESS taker = launch("taker", c.receiver, [&] {
            takeNumber();
            said += "took ";
        });
        world.runFor(0);
        launch("giver", 20, [&] {
            said += "send ";
            sendNumber(taker, 1);
            said += "sent ";
        });
        world.runFor(0);
        EXPECT_EQ(said, c.order);
    }
}

TEST_F(Scheduling, ReadyOnesRunByPriorityThenByTurnAndThePreemptedBeforeItsEquals)
{
    const PROCESS high = launch("high", 2, [&] {
        takeNumber();
        said += "high ";
    });
    launch("d", 21, [this] { said += "d"; });
    launch("b", 20, [&] {
        sendNumber(high, 1);
        said += "b";
    });
    launch("a", 3, [this] { said += "a "; });
    launch("c", 20, [this] { said += "c"; });
    world.runFor(0);
    EXPECT_EQ(said, "a high bcd");
}

TEST_F(Scheduling, AnInterruptRunsToItsEndBeforeWhomItWoke)
{
    static PROCESS target;
    static std::string* out;
    out = &said;
    target = launch("target", 1, [&] {
        for (;;) {
            takeNumber();
            said += "target ";
        }
    });
    static System* sys;
    sys = &system;
    launch("low", 25, [&] {
        startIsr([] {
            *out += "[";
            sendNumber(target, 1);
            sys->raise(9);                     // follows it
            *out += "] ";
        }, 7);
        startIsr([] { *out += "second "; }, 9);
        said += "before ";
        EXPECT_EQ(this->system.raise(7), 1);   // as a register access of the process may do
        said += "after ";
        EXPECT_EQ(this->system.raise(8), 0);
    });
    world.runFor(0);
    EXPECT_EQ(said, "before [] second target after ");
    said.clear();
    world.after(1 * MS, [&] {
        system.raise(7);
        said += "event ";
    });
    world.runFor(1 * MS);
    EXPECT_EQ(said, "[] second event target ");
}

// ---- virtual time -------------------------------------------------------------------------------

TEST_F(Scheduling, EqualDueTimesRunInOrderOfRequest)
{
    const Time t = world.now() + 50 * MS;
    launch("a", 20, [&] { delay(50); said += "a"; });
    world.runFor(0);
    world.at(t, [&] { said += "1"; });
    launch("b", 10, [&] { delay(50); said += "b"; });
    world.runFor(0);
    world.at(t, [&] { said += "2"; });
    world.at(t - 1 * PS, [&] { said += "0"; });
    world.runUntil(t - 2 * PS);
    EXPECT_EQ(said, "");
    world.runUntil(t);   // what is due at the end of a run still runs
    EXPECT_EQ(said, "0a1b2");
    EXPECT_EQ(world.now(), t);
}

TEST_F(Scheduling, EventsInThePastRunNowAndCancelledOnesNever)
{
    world.runFor(1 * SEC);
    world.at(5, [&] { said += "past "; });
    EventId never = world.after(1 * MS, [&] { said += "never "; });
    EventId first = world.after(2 * MS, [&] { said += "first "; });
    EventId stale = first;
    EXPECT_EQ(world.cancel(never), 1);
    EXPECT_EQ(never, 0u);
    world.after(3 * MS, [&] { EXPECT_EQ(world.cancel(first), 0); });
    world.runFor(10 * MS);
    EXPECT_EQ(said, "past first ");
    // An id of old doesn't hit the event that lives in its place now.
    world.after(1 * MS, [&] { said += "second "; });
    EXPECT_EQ(world.cancel(stale), 0);
    world.runFor(10 * MS);
    EXPECT_EQ(said, "past first second ");
    EXPECT_EQ(world.now(), 1 * SEC + 20 * MS);
}

TEST_F(Scheduling, StopEndsTheRunAfterTheInstant)
{
    launch("stopper", 20, [&] {
        delay(20);
        world.stop();
        said += "same instant ";
        delay(1);
        said += "later ";
    });
    world.runFor(1 * SEC);
    EXPECT_EQ(said, "same instant ");
    EXPECT_EQ(world.now(), 20 * MS);
    world.runFor(1 * SEC);
    EXPECT_EQ(said, "same instant later ");

    const Time now = world.now();   // a stop that comes between two runs isn't lost
    world.stop();
    world.runFor(1 * SEC);
    EXPECT_EQ(world.now(), now);
    world.runFor(1 * SEC);
    EXPECT_EQ(world.now(), now + 1 * SEC);
}

TEST_F(Scheduling, NoProgressStopsTheRunAndNamesWhoSpins)
{
    static System* sys;
    static std::string* out;
    static bool again;
    sys = &system;
    out = &said;
    const auto interrupt = [](Entry entry) {
        startIsr(entry, 3);
        return sys->raise(3);
    };
    const PROCESS pong = launch("pong", 20, echo);
    const auto pingPong = [&] { while (again) { sendNumber(pong, 1); takeNumber(); } };
    const auto events = [&] {
        static std::function<void()> next;
        next = [this] { if (again) world.after(0, next); };
        next();
    };
    const auto poll = [] { while (again) receive_w_tmo(0, ANY_SIGNAL); };
    struct Case { const char* who; std::function<void()> body; };
    const Case cases[] = {
        {"busy, pong", pingPong},
        {"", events},
        {"busy", poll},
        {"busy", [] { for (const u32 until = get_ticks() + 5; again && get_ticks() != until;) {} }},
        {"isr", [&] { interrupt([] { if (again) sys->raise(3); }); }},
        {"isr", [&] { interrupt([] { while (again) receive_w_tmo(0, ANY_SIGNAL); }); }},
        {"isr", [&] { interrupt([] {}); while (again) sys->raise(3); }},
    };
    world.setSpinLimit(1000);
    for (const Case& c : cases) {
        said.clear();
        again = true;
        const PROCESS busy = launch("busy", 20, [&] { c.body(); *out += "over"; delay(1000); });
        const Time began = world.now();
        world.runFor(1 * SEC);
        EXPECT_EQ(world.now(), began);
        EXPECT_NE(log.expectMisuse("no progress").process.find(c.who), std::string::npos);
        again = false;
        world.runFor(10 * MS);
        EXPECT_EQ(said, "over");
        system.kill(busy);
        if (const PROCESS isr = system.find("isr")) system.kill(isr);
        EXPECT_EQ(log.count(), 0u);
    }
}

TEST_F(Scheduling, AnExceptionLeavesTheRun)
{
    world.after(1 * MS, [] { throw std::runtime_error("event"); });
    EXPECT_THROW(world.runFor(10 * MS), std::runtime_error);
    EXPECT_THROW(system.call(block, [] { throw std::logic_error("body"); }), std::logic_error);
    system.call(block, [&] { delay(5); said = "goes on"; });
    EXPECT_EQ(said, "goes on");
    launch("bystander", 20, [] { for (;;) delay(1); });
    int asked = 0;
    const auto done = [&] { return ++asked == 5 ? throw std::range_error("done") : false; };
    EXPECT_THROW(world.runUntilTrue(done, 100 * MS), std::range_error);
}

TEST_F(Scheduling, ACallThatCanNeverEndIsReported)
{
    system.call(block, [] { takeNumber(); }, 15, "stuck");
    EXPECT_EQ(log.expectMisuse("waits for ever").process, "stuck");
    EXPECT_EQ(system.find("stuck"), 0u);
    EXPECT_EQ(world.now(), 0);   // nothing could wake it, so no time has passed

    launch("busy", 20, [] { for (;;) delay(3'600'000); });
    system.call(block, [] { takeNumber(); }, 15, "stuck");
    EXPECT_EQ(log.expectMisuse("waits for ever").process, "stuck");
}

// ---- the host's clock ---------------------------------------------------------------------------

TEST_F(Scheduling, WorkOfTheHostRunsInTheWorldOfItsTime)
{
    world.setPace(1.0);
    Time at = -1;
    std::thread host([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        world.post([&] {
            at = world.now();
            system.call(block, [&] { delay(1); said = "called"; });
            world.stop();
        });
    });
    world.runFor(3600 * SEC);   // nothing else is due for an hour
    host.join();
    EXPECT_EQ(said, "called");
    EXPECT_GE(at, 20 * MS);
    EXPECT_LT(at, 60 * SEC);
    EXPECT_LT(world.now(), 60 * SEC);
}

TEST_F(Scheduling, AWorldStaysOnItsHostThread)
{
    EXPECT_DEATH(std::thread([this] { world.runFor(1); }).join(),
                 "a world belongs to the host thread that has run it first");
}

}  // namespace
}  // namespace tests
