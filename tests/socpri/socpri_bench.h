// socpri_bench.h - A whole unit with a measurement server of radio links, its oven warm from the
// beginning, the service started and ports A and C subscribed.
#pragma once
#include "hw/kvd_hwif.h"
#include "ref/kvd_ref.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"
#include "socpri/kvd_socpri_inrsi_sdu_int.h"
#include "tests/support/unit_bench.h"

#include <optional>
#include <vector>

namespace bench {

constexpr u8 SLAVE = 0, MASTER = 1;
constexpr u32 UNIT_A = 11, UNIT_C = 33;          // behind ports 1 and 3
constexpr double LATER = 0.02;                   // s, for a signal to take effect

inline sim::NodeConfig socpriConfig(u8 role)
{
    sim::NodeConfig c;
    c.apn = role == MASTER ? 1 : 2;
    c.mainProcessor.masterSlaveMode = role;
    c.mainProcessor.timeMode = 3;
    c.mainProcessor.selects = false;
    c.board.temperature.coldStart_V = c.board.temperature.base_V;
    c.inrsi.present = true;
    c.inrsi.links = {{.port = 1, .unit = UNIT_A}, {.port = 3, .unit = UNIT_C, .huntPath = "bbu/3"}};
    return c;
}

struct SocpriUnit : Unit {
    explicit SocpriUnit(u8 role, bool started = true) : SocpriUnit(socpriConfig(role), started) {}
    explicit SocpriUnit(const sim::NodeConfig& config, bool started = true) : Unit(config)
    {
        node.powerOn();
        run(2.0);
        node.inProgram([] { node::traceSetProgramMask(0xFFFFFFFF); });
        if (!started) return;
        order(KVD_TUIIF_SOCPRI_START_REQ);
        supervise({1, 3});
        mp().clearLog();
    }

    sim::InrsiServer& inrsi() { return node.inrsi(); }
    sim::MainProcessor& mp() { return node.mainProcessor(); }
    template <typename F>
    auto get(F accessor) { return node.inProgram(accessor); }

    struct Count { u32 esfc; u16 mfn; };

    // ---- orders ---------------------------------------------------------------------------------
    template <typename T>
    void send(const T& layout)
    {
        mp().sendLayout(layout);
        run(LATER);
    }
    void order(SIGSELECT sigNo) { send(sigNo); }
    void order(SIGSELECT sigNo, u8 port) { send(KvdTuiifSocpriScanLinkReq{sigNo, 1, port}); }
    void scan(u8 port) { order(KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, port); }
    void select(u8 port) { order(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ, port); }
    void deselect(u8 port)
    {
        send(KvdTuiifSocpriDeselectSyncLinkInd{KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND, {}, 0, port});
    }
    void align(u8 port, Count group)
    {
        send(KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 1, port, group.esfc,
                                              group.mfn});
    }
    void otherEndSays(Count c)
    {
        send(KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, c.esfc, c.mfn});
    }
    void supervise(std::vector<u8> ports, bool on = true)
    {
        KvdTuiifSocpriSupInd ind{KVD_TUIIF_SOCPRI_SUP_IND, on ? 1u : 0u, 1, {}};
        std::copy(ports.begin(), ports.end(), ind.syncRiPortNo);
        send(ind);
    }
    /// A signal to the manager in the server's name.
    template <typename T>
    void inject(const T& layout, std::size_t size = sizeof(T))
    {
        node.system().inject(std::as_bytes(std::span<const T, 1>(&layout, 1)).first(size), manager(),
                             inrsi().pid());
        run(LATER);
    }

    // ---- links ----------------------------------------------------------------------------------
    /// Differences that the server measures from now on, of every unit.
    void frequencyIs(std::optional<sim::InrsiFrequency> f) { inrsi().onFrequency([f](u32) { return f; }); }
    void phaseIs(std::optional<sim::InrsiPhase> p) { inrsi().onPhase([p](u32) { return p; }); }
    /// A link selected by frequency, its loop at work.
    void synchronise(u8 port)
    {
        frequencyIs(sim::InrsiFrequency{1, true});
        select(port);
        run(0.5);
        ASSERT_EQ(action(), u32{INRSI_CLIENT_ACTION_TIME_SYNC});
    }
    /// The same until the loop is locked.
    void lock(u8 port)
    {
        synchronise(port);
        run(10.0);
        ASSERT_TRUE(get(KvdLoz6TuReg_pllIsLocked));
    }

    /// To the begin or the end of a measurement of the port in focus.
    void toMeasurement(bool isOngoing)
    {
        for (int i = 0; i < 5000; ++i, run(0.001))
            if ((get([] { return inrsi::master::record().measOngoing; }) != 0) == isOngoing) return;
        ADD_FAILURE() << "no measurement begins or ends within 5 s";
    }

    // ---- what is seen ---------------------------------------------------------------------------
    Count count()
    {
        return get([] {
            u16 mfn = 0, sfn = 0;
            u32 inc = 0;
            tuHwIf_readSfc(mfn, sfn, inc);
            return Count{static_cast<u32>(KvdLoz6TuReg_getLastTime().c / 1024.0), mfn};
        });
    }
    /// The master's events since the last call, without the words that all begin with.
    std::string events()
    {
        constexpr std::size_t PREFIX = sizeof "INRSI_CL_EV_" - 1;
        return get([this] {
            std::string text;
            const inrsi::master::Record& r = inrsi::master::record();
            for (; seen != r.logIndex; seen = (seen + 1) % inrsi::master::LOG_ENTRIES)
                text += (inrsi::eventText(inrsi::Event{r.log[seen].event}) + PREFIX) + std::string(" ");
            return text;
        });
    }
    u32 seen = 0;
    u32 action() { return get(inrsiGetAction); }
    u8  port() { return get(inrsiGetPortNo); }
    /// Newest answer or indication of that number, and forgets all that was told.
    template <typename T>
    std::optional<T> told(SIGSELECT sigNo)
    {
        std::optional<T> found;
        if (const sim::MpRecord* record = mp().last(sigNo)) found = record->as<T>();
        mp().clearLog();
        return found;
    }
    /// "port:status" of the newest answer of that number, "" when there was none.
    template <typename T = KvdTuiifSocpriScanLinkRsp>
    std::string result(SIGSELECT sigNo)
    {
        const auto r = told<T>(sigNo);
        return r ? std::to_string(r->portNo) + ":" + std::to_string(r->syncStatus) : "";
    }
    std::string scanned() { return result(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP); }
    std::string selected() { return result(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP); }
    std::string synced() { return result(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND); }
    std::string supervised()
    {
        return result<KvdTuiifSocpriSupervisionStatusInd>(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND);
    }
    template <typename T>
    std::optional<u32> status(SIGSELECT sigNo)
    {
        const auto r = told<T>(sigNo);
        return r ? std::optional<u32>(r->status) : std::nullopt;
    }
    auto aligned()
    {
        return status<KvdTuiifSocpriBfnAlignToGroupRsp>(KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP);
    }
    auto started() { return status<KvdTuiifSocpriStartRsp>(KVD_TUIIF_SOCPRI_START_RSP); }
    /// Link states told: "port:status:unit", oldest first.
    std::vector<std::string> links()
    {
        std::vector<std::string> out;
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_SOCPRI_LINK_STATUS_FWD)) {
            const auto fwd = r.as<KvdTuiifSocpriLinkStatusFwd>();
            if (fwd)
                out.push_back(std::to_string(fwd->portNo) + ":" + std::to_string(fwd->linkStatus) + ":"
                              + std::to_string(static_cast<i32>(fwd->id)));
        }
        mp().clearLog();
        return out;
    }
    std::string printed(const std::string& line)
    {
        std::string text;
        EXPECT_EQ(command(line, text), 0) << line;
        return text;
    }
};

}  // namespace bench
