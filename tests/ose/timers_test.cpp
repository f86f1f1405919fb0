// Time-outs: delivery, cancel before and after, prepared signals, no timer free.
#include "program.h"

using namespace ose;

namespace tests {
namespace {

class Timers : public Kernel {};

constexpr Time FOREVER_AFTER = INT64_MAX - 1;

TEST_F(Timers, CancelAndResetBeforeAndAfterTheirEnd)
{
    system.call(block, [&] {
        TimerRef early = request_tmo(10, 1);
        TimerRef late = request_tmo(10, 2);
        TimerRef stale = early;
        cancel_tmo(&early);
        EXPECT_EQ(early, 0u);
        delay(10);
        cancel_tmo(&late);   // queued by now: delivered all the same
        EXPECT_EQ(late, 0u);
        EXPECT_EQ(takeNumber(), 2u);

        TimerRef none = 0;
        cancel_tmo(&none);
        EXPECT_EQ(cancel_tmo_sig(&none), nullptr);
        reset_tmo(&none, 5);
        EXPECT_EQ(receive_w_tmo(90, ANY_SIGNAL), nullptr);

        TimerRef inItsPlace = request_tmo(50, 3);
        cancel_tmo(&stale);
        reset_tmo(&stale, 500);
        delay(40);
        reset_tmo(&inItsPlace, 50);
        EXPECT_NE(inItsPlace, 0u);
        EXPECT_EQ(takeNumber(), 3u);
        EXPECT_EQ(get_ticks(), 190u);
        reset_tmo(&inItsPlace, 50);   // it has run out: nothing starts
        EXPECT_EQ(receive_w_tmo(1000, ANY_SIGNAL), nullptr);
    });
    EXPECT_EQ(block.poolUsed(), 0u);
}

TEST_F(Timers, APreparedSignalMovesInAndOut)
{
    struct Beat { SIGSELECT sigNo; u32 count; };
    system.call(block, [&] {
        Signal* sig = alloc(sizeof(Beat), 77);
        reinterpret_cast<Beat*>(sig)->count = 5;
        TimerRef ref = request_tmo_sig(10, &sig);
        EXPECT_EQ(sig, nullptr);
        sig = cancel_tmo_sig(&ref);
        EXPECT_EQ(ref, 0u);
        ASSERT_NE(sig, nullptr);
        ref = request_tmo_sig(10, &sig);   // the same buffer, again and again
        sig = receive(ANY_SIGNAL);
        EXPECT_EQ(reinterpret_cast<Beat*>(sig)->count, 5u);
        ref = request_tmo_sig(10, &sig);
        delay(10);
        EXPECT_EQ(cancel_tmo_sig(&ref), nullptr);   // queued already
        EXPECT_EQ(takeNumber(), 77u);
    });
    EXPECT_EQ(block.poolUsed(), 0u);
}

TEST_F(Timers, NoTimerFree)
{
    // By injection: so many requests, of either kind.
    system.faults().refuseTimers = 2;
    system.call(block, [&] {
        EXPECT_EQ(request_tmo(10, 1), 0u);
        Signal* sig = alloc(4, 2);
        EXPECT_EQ(request_tmo_sig(10, &sig), 0u);
        ASSERT_NE(sig, nullptr);   // still the caller's
        EXPECT_NE(request_tmo_sig(10, &sig), 0u);
        EXPECT_EQ(takeNumber(), 2u);
    });
    EXPECT_EQ(block.poolUsed(), 0u);

    // By the table: 256 in a system, whoever asks.
    const PROCESS other = system.spawn("other", 20, [] {
        for (int i = 0; i < 200; ++i) EXPECT_NE(request_tmo(5000, 1), 0u);
        for (;;) takeNumber();
    });
    world.runFor(0);
    system.spawn("asker", 20, [&] {
        for (int i = 0; i < 56; ++i) EXPECT_NE(request_tmo(10, 1), 0u);
        EXPECT_EQ(request_tmo(10, 1), 0u);
        takeNumber();
        EXPECT_NE(request_tmo(10, 1), 0u);   // one has run out
        said = "asked";
        kill_proc(other);                    // its timers go with it
        for (int i = 0; i < 200; ++i) EXPECT_NE(request_tmo(1000, 1), 0u);
        said += " again";
    });
    world.runFor(100 * MS);
    EXPECT_EQ(said, "asked again");
}

TEST_F(Timers, OfAnotherProcessAreNotOnesOwn)
{
    TimerRef foreign = 0;
    launch("owner", 10, [&] {
        foreign = request_tmo(50, 33);
        EXPECT_EQ(takeNumber(), 33u);
        said = std::to_string(get_ticks());
    });
    world.runFor(0);
    system.call(block, [&] { cancel_tmo(&foreign); }, 15, "thief");
    const Misuse m = log.expectMisuse("timer of another process");
    EXPECT_EQ(m.process, "thief");
    EXPECT_EQ(m.sigNo, 33u);
    world.runFor(1 * SEC);
    EXPECT_EQ(said, "50");
}

TEST_F(Timers, LongerThanTheWorldLastsNeverEnd)
{
    world.runUntil(60 * 86'400 * SEC);
    launch("delays", 20, [&] { delay(0xFFFF'FFFF); said += "delay "; });
    launch("receives", 20, [&] { receive_w_tmo(0xFFFF'FFFF, ANY_SIGNAL); said += "receive "; });
    launch("asks", 20, [&] {
        request_tmo(0xFFFF'FFFF, 1);
        TimerRef reset = request_tmo(5, 2);
        reset_tmo(&reset, 0xFFFF'FFFF);
        takeNumber();
        said += "timer ";
    });
    world.after(FOREVER_AFTER, [&] { said += "event "; });
    world.runFor(86'400 * SEC);
    EXPECT_EQ(said, "");
}

TEST_F(Timers, AnInterruptProcessMayNeitherHaveThemNorWait)
{
    system.call(block, [&] {
        startIsr([] {
            EXPECT_EQ(request_tmo(10, 1), 0u);
            Signal* sig = alloc(4, 2);
            EXPECT_EQ(request_tmo_sig(10, &sig), 0u);
            EXPECT_NE(sig, nullptr);
            free_buf(&sig);
            EXPECT_EQ(receive_w_tmo(0, ANY_SIGNAL), nullptr);
            EXPECT_EQ(receive(ANY_SIGNAL), nullptr);
            delay(5);
        }, 1);
        system.raise(1);
    });
    for (const char* what : {"timer in an", "timer in an", "waits in an", "waits in an"})
        EXPECT_EQ(log.expectMisuse(what + std::string(" interrupt process")).process, "isr");
}

TEST_F(Timers, TicksWrapAt32Bits)
{
    EXPECT_EQ(system_tick(), 1000u);
    world.at(4'294'967'290 * MS, [&] {
        launch("late", 20, [&] {
            const u32 before = get_ticks();
            delay(10);
            said = std::to_string(before) + " " + std::to_string(get_ticks());
        });
    });
    world.runUntil(4'294'967'400 * MS);
    EXPECT_EQ(said, "4294967290 4");   // 4294967300 - 2^32
}

}  // namespace
}  // namespace tests
