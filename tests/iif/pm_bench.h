// pm_bench.h - The performance counters with a main processor that subscribes and a PM agent that
// pushes only when the test says so.
#pragma once
#include "iif/kvd_pm.h"
#include "node/pmai.h"
#include "reg/kvd_reg_measure.h"
#include "tests/iif/iif_bench.h"

#include <algorithm>

namespace bench {

struct PmBench : IifBench {
    PmBench()
    {
        agent().pushes = false;
        connect();
    }
    sim::PmAgent& agent() { return node.pmAgent(); }

    void subscribe(u32 froType, u32 granularity, u32 froId = 5)
    {
        order(KvdTuiifSubscribePmReq{KVD_TUIIF_SUBSCRIBE_PM_REQ, granularity, froType, froId});
    }
    void unsubscribe(u32 froType, u32 froId = 5)
    {
        order(KvdTuiifUnsubscribePmReq{KVD_TUIIF_UNSUBSCRIBE_PM_REQ, froType, froId});
    }
    void askCurrent(u32 froType, u32 froId = 5)
    {
        order(KvdTuiifGetCurrentPmReq{KVD_TUIIF_GET_CURRENT_PM_REQ, froType, froId});
    }
    template <typename T>
    void order(const T& layout)
    {
        mp().clearLog();
        mp().sendLayout(layout);
        world.runUntil(world.now());
    }
    void push(u32 seqNo)
    {
        agent().push(seqNo);
        world.runUntil(world.now());
    }
    /// Virtual time ends after 106 days: what is later comes at 100.
    void until(double t) { world.runUntil(static_cast<ose::Time>(std::min(t, 100 * 86'400.0)) * ose::SEC); }

    void clockState(u8 state) { in([=] { KvdLoz6TuPm_clockState(state); }); }
    void gpsStatus(u8 status) { in([=] { KvdLoz6TuPm_gpsStatus(status); }); }
    void selectRegulatorRef(u32 z)
    {
        in([=] {
            KvdLoz6TuReg_setSelectedRef(z);
            KvdLoz6TuPm_startStatistics(z);
        });
    }

    /// Suspect flag and values of the last answer to the main processor; empty without one.
    std::vector<i32> current()
    {
        const sim::MpRecord* record = mp().last(KVD_TUIIF_GET_CURRENT_PM_CFM);
        if (record == nullptr) return {};
        const auto cfm = *record->as<KvdTuiifGetCurrentPmCfm>();
        std::vector<i32> values{static_cast<i32>(cfm.suspectFlag)};
        for (u32 i = 0; i < cfm.noOfPmAttr; ++i) {
            i32 value = 0;
            std::memcpy(&value, record->bytes.data() + PM_ATTR_LIST_OFFSET + i * sizeof value, sizeof value);
            values.push_back(value);
        }
        return values;
    }
    std::vector<i32> currentOf(u32 froType)
    {
        askCurrent(froType);
        return current();
    }
    /// The same of the agent's last report.
    std::vector<i32> reported()
    {
        if (agent().records().empty()) return {};
        const sim::PmRecord& r = agent().records().back();
        std::vector<i32> values{static_cast<i32>(r.suspectFlag)};
        values.insert(values.end(), r.values.begin(), r.values.end());
        return values;
    }
};

}  // namespace bench
