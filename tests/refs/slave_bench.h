// slave_bench.h - The inter-unit measurements on plain registers: words of the BFN input and sync
// data are put in by hand; the port server, the hand-over and the loop are played by the test.
#pragma once
#include "hw/kvd_hwif_words.h"
#include "reg/support/measure_bench.h"

#include "ref/kvd_ref.h"
#include "refs/kvd_slave_int.h"
#include "refs/kvd_slave_warm.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"
#include "tests/support/manager.h"

#include <nlohmann/json.hpp>

namespace bench {

struct SlaveBench;
inline SlaveBench* self = nullptr;           // of the running test, for the operations it plays

struct SlaveBench : regtest::MeasureBench {
    nlohmann::json events = nlohmann::json::array();
    u32 timeTuning = 1, hwControl = 1;
    int serverResult = 0, handOverResult = 0;
    slave::PortData own{{}, 0, 1};
    u32 loopState = SLAVE_PLL_Unlocked;
    u32 loopEvent = EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT;     // left by each step of the loop
    std::vector<double> phases;              // that the loop was given

    explicit SlaveBench(u8 master = 0) : MeasureBench(2)
    {
        self = this;
        connect();
        settle();
        bus.memory[address(16)] = 1;         // a load is done at once
        system.launch(*block, "manager", 16, [] {
            node::traceSetProgramMask(0xFFFFFFFF);
            serve([](Signal* sig) { KvdLoz6TuReg_dispatch(sig); return false; });
        });
        world.runFor(ose::MS);
        manager([&] {
            regulator::state().masterSlaveMode = master;
            slave::setNeeds(&NEEDS);
            KvdLoz6TuReg_setLastTime(0.0, 0.0);
        });
    }

    /// Runs `body` in the manager's process, and what it sets off (a load of the counter takes 12 ms).
    void manager(const std::function<void()>& body)
    {
        runIn(system, system.find("manager"), body);
        world.runFor(20 * ose::MS);
    }

    /// Word and counters of the BFN input, as the peer's hardware and this unit's latch them.
    void bfnIn(const regtest::Triple& local, u32 remoteMfn, u32 remoteSfn, const hwif::BfnExtended& e,
               u32 flags = VALID_WORD)
    {
        const hwif::BfnOutWords words = hwif::packBfnExtended(e);
        set(2, local.inc << 11 | local.mfn << 5 | remoteMfn);
        set(3, flags | local.sfn << 12 | remoteSfn);
        set(4, words.word1);
        set(5, words.word2);
    }
    void interrupt() { manager(KvdLoz6TuSlave_handleIdlInt); }
    hwif::BfnExtended sentWord() { return hwif::unpackBfnExtended(get(6), get(7)); }

    int syncData(const KvdTuiifIdl2SyncDataInd& fields)
    {
        int result = -1;
        manager([&] {
            auto* ind = node::make<KvdTuiifIdl2SyncDataInd>(KVD_TUIIF_IDL2_SYNC_DATA_IND);
            *ind = fields;
            ind->sigNo = KVD_TUIIF_IDL2_SYNC_DATA_IND;
            Signal* sig = reinterpret_cast<Signal*>(ind);
            result = KvdLoz6TuReg_handleIdl2Slave(sig);
            ose::free_buf(&sig);
        });
        return result;
    }
    std::vector<KvdTuiifIdl2SyncReportInd> reports()
    {
        return received<KvdTuiifIdl2SyncReportInd>(KVD_TUIIF_IDL2_SYNC_REPORT_IND);
    }
    template <typename T>
    T get(const std::function<T()>& read)
    {
        ose::DataScope scope(*block);
        return read();
    }
    slave::Idl2State idl2() { return get<slave::Idl2State>([] { return slave::idl2State(); }); }
    u32 clkStatus() { return get<u32>([] { return KvdLoz6SlaveWarm_data().idpiClkStatus; }); }
    using MeasureBench::get;

    static constexpr u32 VALID_WORD = 0xA0000000;    // valid, with the extended words

private:
    static const slave::Needs NEEDS;
};

inline const slave::Needs SlaveBench::NEEDS = {
    [] { return self->timeTuning; },
    [] { return self->hwControl; },
    [] {
        self->events.push_back({"unableToTimeLock"});
        return self->handOverResult;
    },
    [](u8 clkStatus) {
        if (self->serverResult == 0) self->events.push_back({"idpi", clkStatus});
        return self->serverResult;
    },
    [](u32, slave::PortData& data) { data = self->own; },
    [] { return self->loopState; },
    [](double phaseDiff) {
        self->events.push_back({"slavePll"});
        self->phases.push_back(phaseDiff);
        KvdLoz6TuSlave_setSlavePllEvent(self->loopEvent);
    },
};

/// Sync data of a stable, direct link with no phase difference.
inline KvdTuiifIdl2SyncDataInd stableData()
{
    KvdTuiifIdl2SyncDataInd ind{};
    ind.synchPortNo = 1;
    ind.directConn = 1;
    ind.linkStability = 1;
    return ind;
}

}  // namespace bench
