// Life and death of processes: kill, attach, hunt, a program's end.
#include "program.h"

#include "ose/loop_watch.h"

#include <exception>
#include <stdexcept>
#include <thread>

using namespace ose;

namespace tests {
namespace {

class Processes : public Kernel {};

/// Says its letter when the stack is unwound.
struct OnStack {
    std::string* out;
    char letter;
    ~OnStack() { *out += letter; }
};

TEST_F(Processes, AKilledProcessIsUnwoundWhereverItWaits)
{
    const PROCESS high = launch("high", 5, [] { for (;;) takeNumber(); });
    struct Case { const char* where; std::function<void()> wait; };
    const Case cases[] = {
        {"receive", [] { receive(ANY_SIGNAL); }},
        {"receive_w_tmo", [] { receive_w_tmo(1000, ANY_SIGNAL); }},
        {"delay", [] { delay(1000); }},
        {"preempted in send", [high] { for (;;) { sendNumber(high, 1); delay(1); } }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.where);
        said.clear();
        const PROCESS victim = launch("victim", 20, [&] {
            const OnStack mark{&said, 'u'};
            alloc(8, 1);   // released, not reported: it was killed
            c.wait();
            said += "went on";
        });
        world.runFor(5 * MS);
        EXPECT_TRUE(system.alive(victim));
        EXPECT_EQ(block.poolUsed(), 31u);
        system.kill(victim);
        EXPECT_EQ(said, "u");
        EXPECT_FALSE(system.alive(victim));
        EXPECT_EQ(system.find("victim"), 0u);
        EXPECT_EQ(system.nameOf(victim), "");
        EXPECT_EQ(block.poolUsed(), 0u);
        world.runFor(2 * SEC);
        EXPECT_EQ(said, "u");
    }
}

TEST_F(Processes, KilledBeforeTheyRanByThemselvesOrByAnInterrupt)
{
    const PROCESS never = launch("never", 20, [&] { said += "ran "; });
    system.kill(never);
    launch("self", 20, [&] {
        const OnStack mark{&said, 's'};
        kill_proc(current_process());
        said += "went on ";
    });
    static PROCESS victim;
    victim = launch("victim", 21, [&] {
        const OnStack mark{&said, 'u'};
        startIsr([] { kill_proc(victim); }, 4);
        system.raise(4);
        said += "went on";
    });
    world.runFor(1 * SEC);
    EXPECT_EQ(said, "su");
}

TEST_F(Processes, AKilledInterruptProcessIsNotRaisedAnyMore)
{
    static std::string* out;
    out = &said;
    system.call(block, [&] {
        const PROCESS isr = create_process(KIND_INTERRUPT, "isr", [] { *out += "i"; }, 2048, 19, 0, 4);
        EXPECT_EQ(system.raise(4), 0);   // not started
        start(isr);
        EXPECT_EQ(system.raise(4), 1);
        kill_proc(isr);
        EXPECT_EQ(system.raise(4), 0);
        startIsr([] { *out += "j"; kill_proc(current_process()); }, 4);
        EXPECT_EQ(system.raise(4), 1);
        EXPECT_EQ(system.raise(4), 0);
    });
    EXPECT_EQ(said, "ij");
}

// ---- attach -------------------------------------------------------------------------------------

TEST_F(Processes, AttachTellsOfADeathWhateverItsCause)
{
    struct Case { const char* how; std::function<void()> last; bool kill; };
    const Case cases[] = {
        {"returns", [] {}, false},
        {"kills itself", [] { kill_proc(current_process()); }, false},
        {"is killed", [] { delay(1'000'000); }, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.how);
        said.clear();
        const PROCESS mortal = launch("mortal", 20, [&] {
            delay(10);
            c.last();
        });
        launch("watcher", 15, [&] {
            Signal* sig = alloc(8, 90);
            EXPECT_NE(attach(&sig, mortal), 0u);
            EXPECT_EQ(sig, nullptr);
            EXPECT_NE(attach(nullptr, mortal), 0u);
            for (int i = 0; i < 2; ++i) {
                sig = receive(ANY_SIGNAL);
                EXPECT_EQ(sender(&sig), mortal);
                said += std::to_string(sig->sigNo) + " ";
                free_buf(&sig);
            }
        });
        world.runFor(20 * MS);
        if (c.kill) {
            EXPECT_EQ(said, "");
            system.kill(mortal);
        }
        world.runFor(0);
        EXPECT_EQ(said, "90 252 ");
        EXPECT_EQ(block.poolUsed(), 0u);
    }
}

TEST_F(Processes, DetachEndsSupervision)
{
    const PROCESS mortal = launch("mortal", 20, [] { delay(10); });
    system.call(block, [&] {
        Signal* sig = alloc(8, 90);
        AttachRef ref = attach(&sig, mortal);
        AttachRef stays = attach(nullptr, mortal);
        detach(&ref);
        EXPECT_EQ(ref, 0u);
        EXPECT_NE(stays, 0u);
        EXPECT_EQ(takeNumber(), 252u);
        EXPECT_EQ(receive_w_tmo(100, ANY_SIGNAL), nullptr);

        const AttachRef first = attach(nullptr, mortal);   // dead: its news is queued
        AttachRef second = attach(nullptr, mortal);
        AttachRef last = attach(nullptr, mortal);
        sendNumber(current_process(), 5);
        detach(&second);
        EXPECT_NE(first, last);
        for (const SIGSELECT n : {252u, 252u, 5u}) EXPECT_EQ(takeNumber(), n);
        detach(&last);                                     // taken already
        EXPECT_EQ(receive_w_tmo(100, ANY_SIGNAL), nullptr);
    });
    EXPECT_EQ(block.poolUsed(), 0u);
}

// ---- end of a program ---------------------------------------------------------------------------

TEST_F(Processes, ErrorEndsTheProgramFromWhereverItIsCalled)
{
    static System* sys;
    sys = &system;
    static constexpr auto fail = [] { error(0xABC); };
    struct Case { const char* from; void (*body)(); };
    const Case cases[] = {
        {"a process", fail},
        {"an interrupt in an event",
         [] { startIsr(fail, 9); sys->world().after(10 * MS, [] { sys->raise(9); }); }},
        {"an interrupt of its own", [] { startIsr(fail, 9); sys->raise(9); }},
        {"a timer interrupt",
         [] { start(create_process(KIND_TIMER_INTERRUPT, "isr", fail, 2048, 1, 10, 0)); delay(100); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.from);
        ends.clear();
        said.clear();
        Block& b = system.load(IDLE);
        system.launch(b, "bystander", 10, [this] {
            const OnStack mark{&said, 'u'};
            takeNumber();
        });
        system.launch(b, "isr", 20, [&] { c.body(); delay(100); said += "went on"; });
        world.runFor(50 * MS);
        ASSERT_EQ(ends.size(), 1u);
        EXPECT_EQ(ends[0].code, 0xABCu);
        EXPECT_NE(ends[0].text.find("error 0xABC in isr at process_test.cpp:"), std::string::npos)
            << ends[0].text;
        EXPECT_EQ(said, "u");
        EXPECT_EQ(system.find("bystander"), 0u);
        system.unload(b);
    }
    EXPECT_NE(system.find("idle_lm"), 0u);   // the fixture's own program still runs
}

// ---- stacks -------------------------------------------------------------------------------------

TEST_F(Processes, StacksAreUsedAgainAndTellTheirLargestUse)
{
    const auto use = [](std::size_t bytes) {
        volatile char* const room = static_cast<char*>(__builtin_alloca(bytes));
        for (std::size_t i = 0; i < bytes; i += 1024) room[i] = 1;
    };
    for (int i = 0; i < 3000; ++i) system.call(block, [&] { delay(1); });
    EXPECT_EQ(world.now(), 3 * SEC);
    EXPECT_EQ(world.stackUse().stacks, 2u);   // that of the main thread beside
    EXPECT_LT(world.stackUse().largest, 200'000u);
    system.call(block, [&] { use(300'000); }, 15, "large");
    system.call(block, [&] { use(100'000); }, 15, "small");
    EXPECT_GE(world.stackUse().largest, 300'000u);
    EXPECT_LT(world.stackUse().largest, 400'000u);
    EXPECT_EQ(world.stackUse().process, "large");
}

TEST_F(Processes, WithoutRoomForAStackNoneStarts)
{
    system.call(block, [&] {
        world.setStackSize(std::size_t{1} << 50);
        EXPECT_EQ(launch("large", 20, [] {}), 0u);
        EXPECT_EQ(log.expectMisuse("no room for a stack of 1099511627776 KiB beside 2").process, "large");
        EXPECT_THROW(system.load(IDLE), std::runtime_error);
        log.expectMisuse("no room for a stack");
        const PROCESS child = create_process(KIND_PRIORITISED, "child", [] {}, 2000, 20, 0, 0);
        start(child);
        log.expectMisuse("no room for a stack");
        world.setStackSize(64 * 1024);
        start(child);                        // as if it had never been asked
        EXPECT_STREQ(process_name(child), "child");
        delay(1);
        EXPECT_EQ(process_name(child), nullptr);
    });
    EXPECT_EQ(system.find("large"), 0u);
}

int deeper(int depth)
{
    volatile char room[512] = {};
    return depth == 0 ? 0 : deeper(depth - 1) + room[depth % 512];
}

TEST_F(Processes, AnOverflowOfTheStackIsToldWithItsName)
{
    EXPECT_DEATH(
        {
            world.setStackSize(64 * 1024);
            system.call(block, [] { deeper(1'000'000); }, 15, "endless");
        },
        "kernel: stack of process endless overflowed, 64 KiB");
    EXPECT_DEATH(world.setStackSize(16 * 1024 - 1), "setStackSize of less than 16 KiB");
}

TEST(Loop, ThatNeverCallsTheKernelIsToldWithItsName)
{
    const auto turn = [] {
        watchForLoops(50);
        World world;
        System& system = world.createSystem("a");
        volatile bool over = false;
        system.spawn("dizzy", 20, [&over] { while (!over) {} });
        world.runFor(1000);
    };
    EXPECT_DEATH(std::thread(turn).join(),
                 "kernel: process dizzy computes and never gives the processor back");
}

TEST_F(Processes, AnExceptionBelongsToTheStackThatItIsOn)
{
    for (int i = 0; i < 3; ++i) {
        launch("thrower", 20, [&, i] {
            try {
                throw std::runtime_error(std::to_string(i));
            } catch (const std::exception&) {
                delay(3 - i);        // the first ends last
                try {
                    throw;
                } catch (const std::exception& e) {
                    said += e.what();
                }
                delay(10);
            }
        });
    }
    const PROCESS victim = launch("victim", 20, [&] {
        struct Waits {
            ~Waits() { EXPECT_EQ(std::uncaught_exceptions(), 1); kill_proc(other); }
            PROCESS other;
        } const waits{launch("other", 21, [&] { const OnStack mark{&said, 'o'}; takeNumber(); })};
        takeNumber();
    });
    world.runFor(5 * MS);
    system.kill(victim);
    EXPECT_EQ(said, "210o");
    EXPECT_EQ(std::uncaught_exceptions(), 0);
}

}  // namespace
}  // namespace tests
