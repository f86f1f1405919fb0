// Linked systems, loaded programs and their data, several worlds in one host process.
#include "program.h"

#include "ose/module_data.h"

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace ose;

namespace tests {
namespace {

// ---- linked systems -----------------------------------------------------------------------------

class Linked : public Kernel {
protected:
    Linked() : far(world.createSystem("far"))
    {
        world.link(system, "peer", far);
        world.link(far, "home", system);
    }

    System& far;
};

TEST_F(Linked, APathThatIsGoneTakesTheProcessesBehindItAlong)
{
    far.spawn("server", 20, echo);
    launch("client", 15, [&] {
        for (int round = 0; round < 2; ++round) {
            Signal* sig = alloc(4, 500);
            hunt("peer/server", 0, nullptr, &sig);
            sig = receive(ANY_SIGNAL);
            const PROCESS server = sender(&sig);
            free_buf(&sig);
            sendNumber(server, 7);
            said += std::to_string(takeNumber()) + " ";
            Signal* down = alloc(4, 501);
            attach(&down, server);
            said += std::to_string(takeNumber());
            said += " at " + std::to_string(get_ticks()) + " ";
            sendNumber(server, 8);               // to nobody
        }
    });
    world.after(10 * MS, [&] { world.unlink(system, "peer"); });
    world.after(20 * MS, [&] { world.unlink(system, "peer"); });   // is no path any more
    world.after(30 * MS, [&] { world.link(system, "peer", far); });
    world.after(35 * MS, [&] { world.link(system, "other way", far); });
    world.after(40 * MS, [&] { world.unlink(system, "peer"); });   // there is another path
    world.after(50 * MS, [&] { world.unlink(system, "other way"); });
    world.runFor(1 * SEC);
    EXPECT_EQ(said, "7 501 at 10 7 501 at 50 ");
}

TEST_F(Linked, AKillDoesNotCrossTheLink)
{
    const PROCESS server = far.spawn("server", 20, [] { takeNumber(); });
    system.call(block, [] { kill_proc(hunt("peer/server", 0, nullptr, nullptr)); }, 15, "culprit");
    EXPECT_EQ(log.expectMisuse("another system").process, "culprit");
    EXPECT_TRUE(far.alive(server));
}

// ---- module data --------------------------------------------------------------------------------

std::atomic<int> built{0}, destroyed{0};   // worlds may run in parallel

struct State {
    State() { ++built; }
    ~State() { ++destroyed; }
    u32 count = 7;
    alignas(32) u32 aligned = 1;
};
ModuleData<State> s;

class Programs : public Kernel {};

TEST_F(Programs, EachHasItsOwnDataFromLoadToUnload)
{
    const int builtBefore = built, destroyedBefore = destroyed;
    Block& second = system.load(IDLE);
    EXPECT_EQ(built - builtBefore, 1);
    EXPECT_GE(second.dataSize(), sizeof(State));
    system.call(block, [] { s->count = 100; });
    system.call(second, [] {
        EXPECT_EQ(s->count, 7u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&s->aligned) % 32, 0u);
        s->count = 200;
    });
    {
        const DataScope outer(block);
        EXPECT_EQ(s->count, 100u);
        {
            const DataScope inner(second);
            EXPECT_EQ(s->count, 200u);
        }
        EXPECT_EQ(s->count, 100u);
        EXPECT_EQ(currentSystem(), &system);
    }
    EXPECT_EQ(currentSystem(), nullptr);
    system.unload(second);
    EXPECT_EQ(destroyed - destroyedBefore, 1);
    Block& third = system.load(IDLE);
    const DataScope scope(third);
    EXPECT_EQ(s->count, 7u);
}

TEST_F(Programs, ABadConfigurationIsRefused)
{
    for (const ConfigLine& line : {ConfigLine{"OSE_LM_POOL_SIZE", "many"},
                                   {"OSE_LM_POOL_SIZE", "0"},
                                   {"OSE_LM_POOL_SIZE", "-5"},
                                   {"OSE_LM_POOL_SIZE", "4294967296"},
                                   {"OSE_LM_SIGNAL_SIZES", "63,31"},
                                   {"OSE_LM_SIGNAL_SIZES", "31,,63"},
                                   {"OSE_LM_SIGNAL_SIZES", "3"},
                                   {"OSE_LM_SIGNAL_SIZES", "65536"},
                                   {"OSE_LM_MAIN_PRIORITY", "32"}}) {
        SCOPED_TRACE(std::string(line.key) + "=" + line.value);
        EXPECT_THROW(system.load({"bad", idleMain, std::span(&line, 1)}), std::invalid_argument);
    }
}

/// A helper that needs more of the stack than a wait of its caller.
[[gnu::noinline]] Signal* receiveInHelper()
{
    std::byte room[256];
    asm volatile("" : : "r"(room) : "memory");
    return receive(ANY_SIGNAL);
}

TEST_F(Programs, UnloadReportsWhatWasNeitherFreedNorSentNorKept)
{
    launch("leaker", 20, [&] {
        alloc(8, 61);                     // forgotten
        Signal* timed = alloc(8, 62);
        request_tmo_sig(100'000, &timed);  // not leaked: with a timer,
        Signal* hunting = alloc(8, 63);
        hunt("nobody", 0, nullptr, &hunting);   // a hunt,
        sendNumber(current_process(), 64);      // in the queue,
        Signal* beat = alloc(4, 69);            // kept for good
        keep(beat);
        TimerRef ref = request_tmo_sig(1000, &beat);
        beat = cancel_tmo_sig(&ref);
        Signal* kept = alloc(8, 66);
        keep(kept);
        free_buf(&kept);
        alloc(8, 68);                           // the place of the kept one, and no longer kept
        const SIGSELECT never[] = {1, 1};
        receive(never);
    });
    const PROCESS worker = launch("worker", 20, [] {
        for (;;) {
            Signal* sig = receiveInHelper();
            delay(1000);                        // still at work on it
            free_buf(&sig);
        }
    });
    launch("giver", 20, [worker] { sendNumber(worker, 1); });
    world.runFor(10 * MS);
    system.unload(block);
    for (const SIGSELECT sigNo : {61u, 68u}) {
        const Misuse m = log.expectMisuse("leaked");
        EXPECT_EQ(m.process, "leaker");
        EXPECT_EQ(m.sigNo, sigNo);
        EXPECT_EQ(m.place.rfind("systems_test.cpp:", 0), 0u) << m.place;
    }
}

TEST_F(Programs, AProcessThatReturnsOrIsKilledByItsProgramWithABufferLeaksIt)
{
    const PROCESS victim = launch("careless", 10, [] {
        alloc(4, 65);
        receive(ANY_SIGNAL);
    });
    world.runFor(0);
    using Body = std::function<void()>;
    for (const Body& end : {Body{[] { alloc(4, 65); }},
                            Body{[] { alloc(4, 65); kill_proc(current_process()); }},
                            Body{[victim] { kill_proc(victim); }}}) {
        system.call(block, end, 15, "careless");
        EXPECT_EQ(log.expectMisuse("leaked").process, "careless");
    }
    EXPECT_EQ(block.poolUsed(), 0u);
}

// ---- worlds -------------------------------------------------------------------------------------

/// A busy little world; everything it does, as text.
std::string history()
{
    std::string out;
    World world(1);
    const MisuseLog log(world);
    System& a = world.createSystem("a");
    System& b = world.createSystem("b");
    world.link(a, "b", b);
    Block& block = a.load(IDLE);
    const PROCESS server = b.spawn("echo", 10, echo);
    for (u32 i = 0; i < 5; ++i) {
        a.launch(block, "p", 15 + i % 3, [&out, i] {
            const PROCESS far = hunt("b/echo", 0, nullptr, nullptr);
            for (u32 n = 0; n < 40; ++n) {
                request_tmo((n * 7 + i * 3) % 11, 1000 + n);
                sendNumber(far, n);
                out += std::to_string(takeNumber()) + " " + std::to_string(takeNumber()) + "@"
                       + std::to_string(get_ticks()) + "/" + std::to_string(s->count += i) + " ";
            }
        });
    }
    world.after(50 * MS, [&] { b.kill(server); });
    world.runFor(2 * SEC);
    return out + std::to_string(world.now());
}

TEST(Worlds, InSequenceAndInParallelRunTheSame)
{
    const std::string alone = history();
    EXPECT_GT(alone.size(), 500u);
    EXPECT_EQ(history(), alone);
    std::string parallel[4];
    std::vector<std::thread> threads;
    for (std::string& out : parallel) threads.emplace_back([&out] { out = history(); });
    for (std::thread& t : threads) t.join();
    for (const std::string& out : parallel) EXPECT_EQ(out, alone);
}

TEST(Worlds, MisuseWithoutAHandlerEndsTheHostProcess)
{
    EXPECT_DEATH(
        {
            World world;
            world.createSystem("tu").spawn("careless", 10, [] {
                Signal* none = nullptr;
                free_buf(&none);
            });
            world.runFor(0);
        },
        "kernel misuse: no buffer in free_buf, process=careless, at systems_test.cpp:");
    EXPECT_DEATH(alloc(4, 1), "alloc outside of any process");
    EXPECT_DEATH(static_cast<void>(s->count), "module data used outside of any program");
}

}  // namespace
}  // namespace tests
