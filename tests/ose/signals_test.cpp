// Buffers and queues as a program sees them: ownership, sizes, pool limits, selections.
#include "program.h"

#include <cstring>

using namespace ose;

namespace tests {
namespace {

class Signals : public Kernel {};

TEST_F(Signals, ReceiveWithTimeOut)
{
    struct Case { const char* when; OSTIME sentAfter; bool comes; u32 until; };
    for (const Case& c : {Case{"before the time-out", 9, true, 9}, Case{"after it", 11, false, 10},
                          Case{"at the same instant, sent by who asked first", 10, true, 10}}) {
        SCOPED_TRACE(c.when);
        PROCESS taker = 0;
        u32 began = 0, ended = 0;
        bool came = false;
        launch("giver", 20, [&] {
            began = get_ticks();
            delay(c.sentAfter);
            sendNumber(taker, 5);
        });
        world.runFor(0);
        taker = launch("taker", 10, [&] {
            Signal* sig = receive_w_tmo(10, ANY_SIGNAL);
            ended = get_ticks();
            came = sig != nullptr;
            if (sig != nullptr) free_buf(&sig);
            delay(100);
        });
        world.runFor(1 * SEC);
        EXPECT_EQ(came, c.comes);
        EXPECT_EQ(ended - began, c.until);
    }
    EXPECT_EQ(block.poolUsed(), 0u);
}

TEST_F(Signals, AreZeroedEvenWhenTheBufferIsUsedAgain)
{
    system.call(block, [&] {
        for (int round = 0; round < 2; ++round) {
            Signal* sig = alloc(100, 1);
            auto* bytes = reinterpret_cast<u8*>(sig);
            for (u32 i = 4; i < 100; ++i) ASSERT_EQ(bytes[i], 0) << i;
            std::memset(bytes, 0xA5, 100);
            free_buf(&sig);
        }
    });
}

TEST_F(Signals, RestoreTakesOverFromAnInterruptProcess)
{
    static Signal* left;
    left = nullptr;
    launch("owner", 10, [&] {
        startIsr([] { left = alloc(8, 77); }, 3);
        delay(10);
        ASSERT_NE(left, nullptr);
        restore(left);
        free_buf(&left);
        said = "restored";
    });
    world.runFor(5 * MS);
    EXPECT_EQ(system.raise(3), 1);
    world.runFor(10 * MS);
    EXPECT_EQ(said, "restored");
    EXPECT_EQ(block.poolUsed(), 0u);
}

// ---- misuse -------------------------------------------------------------------------------------

TEST_F(Signals, MisuseIsReportedWithProcessSignalAndPlace)
{
    PROCESS other = launch("other", 25, [] {
        for (;;) {
            Signal* sig = receive(ANY_SIGNAL);
            delay(1'000'000);
            free_buf(&sig);
        }
    });
    struct Case { const char* what; bool hasSignal; std::function<void()> body; };
    Signal* kept = nullptr;
    alignas(64) static u8 noBuffer[256];
    const Case cases[] = {
        {"freed twice", false, [] {
             Signal* sig = alloc(8, 42);
             Signal* again = sig;
             free_buf(&sig);
             free_buf(&again);
             EXPECT_EQ(again, nullptr);
         }},
        {"used after free", false, [&] {
             Signal* sig = alloc(8, 42);
             Signal* again = sig;
             free_buf(&sig);
             send(&again, other);
         }},
        {"not the owner", true, [&] {
             Signal* sig = alloc(8, 42);
             kept = sig;
             send(&sig, other);
             free_buf(&kept);
         }},
        {"not the owner", true, [] {
             Signal* sig = alloc(8, 42);
             Signal* again = sig;
             TimerRef t = request_tmo_sig(50, &sig);
             send(&again, current_process());
             cancel_tmo(&t);
         }},
        {"not the owner", true, [] {
             Signal* sig = alloc(8, 42);
             kill_proc(0);
             Signal* queued = sig;
             send(&sig, current_process());
             restore(queued);
             takeNumber();
         }},
        {"no buffer in free_buf", false, [] { Signal* none = nullptr; free_buf(&none); }},
        {"no buffer in send", false, [&] { Signal* none = nullptr; send(&none, other); }},
        {"not a signal buffer", false, [] {
             auto* odd = reinterpret_cast<Signal*>(noBuffer + 128);
             free_buf(&odd);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        system.call(block, c.body, 15, "culprit");
        const Misuse m = log.expectMisuse(c.what);
        EXPECT_EQ(m.process, "culprit");
        EXPECT_EQ(m.sigNo, c.hasSignal ? 42u : 0u);
        EXPECT_EQ(m.place.rfind("signals_test.cpp:", 0), 0u) << m.place;
    }
    EXPECT_EQ(log.count(), 0u);
}

TEST_F(Signals, AWriteBehindTheEndIsFoundWhenTheBufferGoesOn)
{
    // The byte behind the signal lies in the same buffer, where the sanitizer lets the write pass.
    system.call(block, [] {
        Signal* sig = alloc(10, 42);
        Signal* good = sig;
        volatile u8* bytes = reinterpret_cast<volatile u8*>(sig);
        const u8 before = bytes[10];
        bytes[10] = static_cast<u8>(before + 1);
        send(&sig, current_process());
        bytes[10] = before;
        free_buf(&good);
    });
    EXPECT_EQ(log.expectMisuse("written past its end").sigNo, 42u);
}

// ---- pool ---------------------------------------------------------------------------------------

TEST_F(Signals, SizeLimitsOnBothSides)
{
    struct Case { u32 size; bool good; };
    // The program's largest class is 1023 bytes; a signal holds at least its number.
    for (const Case& c : {Case{0, false}, Case{3, false}, Case{4, true}, Case{1023, true}, Case{1024, false},
                          Case{65536, false}, Case{0xFFFFFFFF, false}}) {
        SCOPED_TRACE(c.size);
        ends.clear();
        Block& fresh = system.load(IDLE);
        bool went = false;
        system.launch(fresh, "asker", 20, [&] {
            Signal* sig = alloc(c.size, 9);
            went = sig != nullptr;
            free_buf(&sig);
        });
        world.runFor(0);
        EXPECT_EQ(went, c.good);
        if (!c.good) {
            const Misuse m = log.expectMisuse("signal size");
            EXPECT_EQ(m.process, "asker");
            EXPECT_EQ(m.sigNo, 9u);
            ASSERT_EQ(ends.size(), 1u);
            EXPECT_EQ(ends[0].code, 0x80000002u);
        }
        system.unload(fresh);
    }
}

TEST_F(Signals, APoolCountsWholeSizeClassesAndItsEndEndsTheProgram)
{
    // 2000 bytes hold one buffer of 1023 and seven of 127 (1912 bytes); 88 are left: two of 31.
    u32 allocated = 0;
    launch("hog", 20, [&] {
        alloc(1000, 1);
        for (int i = 0; i < 7; ++i) alloc(32, 1);
        EXPECT_EQ(block.poolUsed(), 1912u);
        for (;;) {
            alloc(31, 1);
            ++allocated;
        }
    });
    world.runFor(0);
    EXPECT_EQ(allocated, 2u);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].code, 0x80000001u);
    EXPECT_NE(ends[0].text.find("signals_test.cpp"), std::string::npos) << ends[0].text;
    EXPECT_EQ(block.poolPeak(), 1974u);
    EXPECT_EQ(block.poolUsed(), 0u);
}

}  // namespace
}  // namespace tests
