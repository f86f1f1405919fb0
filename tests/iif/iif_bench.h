// iif_bench.h - The interface to the main processor and the performance counters by themselves in a
// simulated node: a manager process that hands each signal to them and runs what the test wants run in
// its context, and a packet sync process that keeps what it gets. The other components are there but
// receive no signal, so the clock moves only when the test says so.
#pragma once
#include "frame/kvd_mgr_proc.h"
#include "hw/hali.h"
#include "iif/kvd_iifadm_orders.h"
#include "iif/kvd_pm.h"
#include "mp/kvd_iifadm.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_unit_process.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <functional>
#include <optional>
#include <vector>

namespace bench {

inline std::vector<std::vector<std::byte>>& pktsyncInbox()
{
    static std::vector<std::vector<std::byte>> inbox;
    return inbox;
}

inline void iifMain()
{
    for (const char* group : TRACE_GROUP_NAMES) node::traceRegisterGroup(group);
    node::traceSetProgramMask(0xFFFFFFFF);
    const PROCESS manager = ose::create_process(ose::KIND_PRIORITISED, "iif_manager", [] {
        node::traceAttachProcess();
        HALI_init();
        serve([](Signal* sig) {
            if (KvdLoz6TuIifAdm_dispatch(sig) == 0) KvdLoz6TuPm_dispatch(sig);
            return false;
        });
    }, 16384, 16, 0, 0);
    const PROCESS pktsync = ose::create_process(ose::KIND_PRIORITISED, "iif_pktsync", [] {
        serve([](Signal* sig) {
            const auto* bytes = reinterpret_cast<const std::byte*>(sig);
            pktsyncInbox().emplace_back(bytes, bytes + ose::sigsize(&sig));
            return false;
        });
    }, 8192, 18, 0, 0);
    KvdLoz6TuMgr_setPids(manager, pktsync, pktsync);
    ose::start(manager);
    ose::start(pktsync);
    waitForEver();
}

/// What the main processor negotiates.
struct Negotiated {
    u8 timeMode = 3;
    u8 masterSlaveMode = 1;
};

struct IifBench : Unit {
    explicit IifBench(Negotiated negotiated = {}) : IifBench(config(negotiated)) {}
    explicit IifBench(const sim::NodeConfig& c) : Unit(withProgram(c))
    {
        pktsyncInbox().clear();
        node.powerOn();
        world.runFor(ose::MS);
    }

    static sim::NodeConfig config(Negotiated negotiated)
    {
        sim::NodeConfig c;
        c.smn = 7;
        c.apn = 1;
        c.piuInstanceId = 55;
        c.mainProcessor.selects = false;
        c.mainProcessor.timeMode = negotiated.timeMode;
        c.mainProcessor.masterSlaveMode = negotiated.masterSlaveMode;
        return c;
    }
    static sim::NodeConfig config() { return config(Negotiated{}); }
    static sim::NodeConfig withProgram(sim::NodeConfig c)
    {
        static const ose::Program program = programOf("iif", iifMain);
        c.program = &program;
        return c;
    }

    sim::MainProcessor& mp() { return node.mainProcessor(); }
    PROCESS iifManagerPid() { return node.system().find("iif_manager"); }

    /// Runs `body` in the manager process, at this instant.
    void in(const std::function<void()>& body) { runIn(node.system(), iifManagerPid(), body); }
    /// A signal from nobody in particular, taken at this instant.
    template <typename T>
    void inject(const T& layout, PROCESS from = 0)
    {
        injectInto(node.system(), iifManagerPid(), layout, from);
    }
    /// A module takes a signal; what it posts to itself comes only as a step of its own.
    void dispatch(bool (*taker)(Signal*), SIGSELECT sigNo, const void* data = nullptr, std::size_t size = 0)
    {
        in([&] {
            Signal* sig = ose::alloc(static_cast<u32>(4 + (size + 3) / 4 * 4), sigNo);
            if (size > 0) std::memcpy(reinterpret_cast<char*>(sig) + 4, data, size);
            EXPECT_TRUE(taker(sig)) << std::hex << sigNo;
            ose::free_buf(&sig);
        });
    }
    template <typename F>
    auto look(F accessor) { return node.inProgram(accessor); }
    /// Quality levels that were told, as check values have them.
    nlohmann::json qualities()
    {
        nlohmann::json all = nlohmann::json::array();
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_QUALITY_LEVEL_IND)) {
            const auto q = r.as<KvdTuiifQualityLevelInd>();
            all.push_back(
                {"KVD_TUIIF_QUALITY_LEVEL_IND", q->froId, q->froClassNo, q->clockQuality, q->tcuDetected});
        }
        return all;
    }

    void initiate()
    {
        in([] {
            KvdLoz6TuIifAdm_initiate();
            KvdLoz6TuIifAdm_msiMemInitiated();
        });
    }
    void connect()
    {
        initiate();
        run(5);
        ASSERT_TRUE(mp().connected());
        ASSERT_EQ(startState(), TUIIF_START_RESTART_READY);
        mp().clearLog();
        node.traces().clear();
    }
    u32 startState() { return look(KvdLoz6TuIifAdm_startState); }
    u8  clock() { return look(KvdLoz6TuIifAdm_radioClockState); }

    void select(u8 refType, u32 froId = 1, u32 froClassNo = 2)
    {
        in([=] { KvdLoz6TuIifAdm_updateSelection(refType, froId, froClassNo); });
    }
    void update(u8 clockState) { in([=] { KvdLoz6TuIifAdm_updateRadioClockState(clockState); }); }
    void report(u8 regState) { in([=] { KvdLoz6TuIifAdm_reportRegState(regState); }); }
    /// The latest signal of that number as a layout, and the log is empty afterwards.
    template <typename T>
    std::optional<T> take(SIGSELECT sigNo)
    {
        world.runUntil(world.now());
        std::optional<T> found;
        if (const sim::MpRecord* record = mp().last(sigNo)) found = record->as<T>();
        mp().clearLog();
        return found;
    }
    std::size_t sent(SIGSELECT sigNo)
    {
        world.runUntil(world.now());
        return mp().count(sigNo);
    }
};

}  // namespace bench
