// measure_bench.h - The program's code on plain registers, for the measurement core and the regulator's
// start: counters, latch and temperature are put into their words, signals are dispatched by hand, or by a
// process of the regulator's own, which takes the time-outs too.
#pragma once
#include "hw/fake_bus.h"
#include "mp/kvd_iifadm_state.h"
#include "regulator_unit.h"
#include "sig/hwif_sig.h"
#include "sig/reg_sig.h"
#include "support/manager.h"

#include <algorithm>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace regtest {

constexpr u32 VALID = 0x80000000;

struct Triple { u32 mfn, sfn, inc; };

/// The triple nearest to a time of the counter, s.
inline Triple tripleOf(double seconds)
{
    const double total = std::floor(seconds * 122880000.0 + 0.5);
    const double frames = std::floor(total / 1228800.0);
    return {static_cast<u32>(frames / 4096) % 25, static_cast<u32>(std::fmod(frames, 4096)),
            static_cast<u32>(total - frames * 1228800.0)};
}

struct MeasureBench : hwtest::Bench {
    u32 board;
    double now = 100.0;          // s of the running counter
    ose::Time launchedAt = 0;

    explicit MeasureBench(u32 boardType = 2) : Bench(boardType), board(boardType)
    {
        world.onMisuse([](const ose::Misuse& m) { ADD_FAILURE() << m.text(); });
        putOcxo(10000000, 1, 3);
        volts(2.0);
        run(now);
    }

    // ---- registers ------------------------------------------------------------------------------
    void putRun(const Triple& c)
    {
        const u32 frames = c.mfn << 12 | c.sfn;
        if (board == 1) put(BASE(), 0x24, frames), put(BASE(), 0x28, c.inc);
        else            put(hwtest::BASE_2C, 0xc8, frames), put(hwtest::BASE_2C, 0xcc, c.inc << 1);
    }
    void putLatch(const Triple& c)
    {
        if (board == 1) return put(BASE(), 0x34, VALID | c.mfn << 12 | c.sfn), put(BASE(), 0x38, c.inc);
        put(hwtest::BASE_2C, 0xb4, VALID);
        put(hwtest::BASE_2C, 0xb8, c.mfn << 12 | c.sfn);
        put(hwtest::BASE_2C, 0xbc, c.inc << 1);
    }
    void run(double seconds) { putRun(tripleOf(now = seconds)); }
    void latch(double seconds) { putLatch(tripleOf(seconds)); }
    void noLatch() { put(hwtest::BASE_2C, 0xb4, 0); }
    void failRun() { putRun({31, 0, 0}); }       // no counter stands at 31
    void volts(double v) { put(TIMING(), 0x10, VALID | static_cast<u32>(v * 32768 + 0.5)); }
    void failTemperature() { put(TIMING(), 0x10, 0); }
    /// Nominal frequency in Hz, limits in whole volts (the lower one is read times 0.9).
    void putOcxo(u32 nominal_Hz, u32 min_V, u32 max_V)
    {
        put(TIMING(), 0xa0, nominal_Hz);
        put(TIMING(), 0xd0, min_V);
        put(TIMING(), 0xc8, max_V);
    }

    // ---- the program ----------------------------------------------------------------------------
    void start(u32 coldRestart = 1, u8 masterSlaveMode = 1)
    {
        in([&] { KvdLoz6TuReg_initiate(coldRestart, FREQUENCY_LOCKING, masterSlaveMode); });
    }
    template <typename T>
    void dispatch(SIGSELECT sigNo, const T& fields)
    {
        in([&] {
            T* layout = node::make<T>(sigNo);
            *layout = fields;
            layout->sigNo = sigNo;
            Signal* sig = reinterpret_cast<Signal*>(layout);
            EXPECT_EQ(KvdLoz6TuReg_dispatch(sig), 1);
            ose::free_buf(&sig);
        });
    }
    void dispatch(SIGSELECT sigNo) { dispatch(sigNo, Signal{}); }
    /// A reference edge at a counter time, served `lag` seconds later.
    void edge(double latched, double lag = 0.001)
    {
        latch(std::fmod(latched, 1024.0));
        run(std::fmod(latched + lag, 1024.0));
        dispatch(KVD_TUHWIF_REF_INTERRUPT, KvdTuhwifRefInterrupt{0, 4});
    }
    /// One temperature tick, 2.1 s after the last.
    void tick()
    {
        run(std::fmod(now + 2.1, 1024.0));
        dispatch(KVD_TUREG_READ_TEMP_TIMEOUT);
    }
    void ticks(u32 count) { while (count-- > 0) tick(); }
    u32 startUpState()
    {
        ose::DataScope scope(*block);
        return KvdLoz6TuReg_initiateState();
    }
    u8 regState()
    {
        ose::DataScope scope(*block);
        return KvdLoz6TuReg_regState();
    }
    MeasStateVar meas()
    {
        ose::DataScope scope(*block);
        return KvdLoz6TuReg_measStateVar();
    }
    /// Changes the core's record, for a test that begins in the middle.
    void edit(const std::function<void(measure::State&)>& change)
    {
        ose::DataScope scope(*block);
        change(measure::state());
    }
    /// A filter that runs, with no reference yet: state FREQLOCKED, master.
    void settle()
    {
        in([&] {
            regulator::State& r = regulator::state();
            r.masterSlaveMode = 1;
            r.tuRegInitiateState = TUREG_INIT;
            r.passedWarmup = 1;
            r.initCnt = 120;
            r.vTmin = 1.0;
            r.vTmax = 3.0;
            MeasInitiation values;
            values.vTmin = 1.0;
            values.vTmax = 3.0;
            KvdLoz6TuReg_measInitiate(values);
            hwif::setRev3(0);
            startFilter(true);
        });
        bus.traces.clear();
    }
    void select(u32 selectedRef)
    {
        in([&] { KvdLoz6TuReg_configRefType(selectedRef, 0xFFFFFFFF, 0xFFFFFFFF); });
    }

    /// The next call halts the process; the main processor's death, a second later, ends that.
    void endHaltLater()
    {
        world.after(ose::SEC, [this] {
            const Signal dead{0x90E02};
            const PROCESS halted = system.find("call");
            ASSERT_NE(halted, 0u);
            system.inject(std::as_bytes(std::span(&dead, 1)), halted, halted);
        });
    }

    // ---- a process of the regulator's own -------------------------------------------------------
    void launch()
    {
        system.launch(*block, "manager", 16, [] {
            bench::serve([](Signal* sig) { KvdLoz6TuReg_dispatch(sig); return false; });
        });
        world.runFor(ose::MS);
        launchedAt = world.now();
    }
    template <typename T>
    void inject(const T& layout) { bench::injectInto(system, system.find("manager"), layout); }
    void inManager(const std::function<void()>& body) { bench::runIn(system, system.find("manager"), body); }

    // ---- the main processor ---------------------------------------------------------------------
    std::vector<std::vector<std::byte>> sent;      // what reached it

    void connect()
    {
        const PROCESS peer = system.spawn("mp", 20, [this] {
            bench::serve([this](Signal* sig) {
                const auto* bytes = reinterpret_cast<const std::byte*>(sig);
                sent.emplace_back(bytes, bytes + ose::sigsize(&sig));
                return false;
            });
        });
        ose::DataScope scope(*block);
        tuiif::state().startState = TUIIF_START_RESTART_READY;
        tuiif::state().procTuiifMpPid = peer;
    }
    /// All of one number that reached the main processor.
    template <typename T>
    std::vector<T> received(SIGSELECT sigNo)
    {
        world.runFor(ose::MS);
        std::vector<T> found;
        for (const auto& bytes : sent) {
            if (bytes.size() < sizeof(T)) continue;
            T layout;
            std::memcpy(&layout, bytes.data(), sizeof layout);
            if (layout.sigNo == sigNo) found.push_back(layout);
        }
        return found;
    }

private:
    u32 BASE() const { return hwtest::BASE_1; }
    u32 TIMING() const { return board == 1 ? hwtest::BASE_1 : hwtest::BASE_2B; }
    void put(u32 base, u32 offset, u32 value) { bus.memory[base + offset] = value; }
};

}  // namespace regtest
