// idl_unit.h - A whole unit with the servers of the inter-unit links, its oven warm from the beginning.
#pragma once
#include "iif/kvd_biraiifadm.h"
#include "node/trace.h"
#include "refs/kvd_idpi.h"
#include "refs/kvd_slave_warm.h"
#include "sig/bira_sig.h"
#include "sig/idpi_sig.h"
#include "sig/tuiif_sig.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_unit_link.h"

namespace bench {

inline sim::NodeConfig idlConfig(u8 role, bool bira = true, u8 linkType = 1)
{
    sim::NodeConfig c;
    c.mainProcessor.masterSlaveMode = role;
    c.mainProcessor.timeMode = 3;
    c.apn = role == 1 ? 1 : 2;
    c.bira.present = bira;
    c.bira.linkType = linkType;
    c.bira.synchPortNo = 2;
    c.idpi.present = true;
    c.board.temperature.coldStart_V = c.board.temperature.base_V;
    return c;
}
constexpr u8 SLAVE = 0, MASTER = 1;

struct IdlUnit : Unit {
    explicit IdlUnit(const sim::NodeConfig& config, double seconds = 1.0) : Unit(config)
    {
        node.powerOn();
        run(seconds);
    }
    sim::BiraServer& bira() { return node.bira(); }
    sim::IdpiServer& idpi() { return node.idpi(); }
    sim::MainProcessor& mp() { return node.mainProcessor(); }

    template <typename F>
    auto get(F accessor) { return node.inProgram(accessor); }
    u32 hwControl() { return get(KvdLoz6BiraIifAdm_hasHwControl); }
    u32 timeTuning() { return get(KvdLoz6BiraIifAdm_timeTuningOngoing); }
    bool interruptProcess() { return node.system().find("Kvd_loz6_tuhwif_int_proc") != 0; }
    u32 storedClkStatus() { return get([] { return KvdLoz6SlaveWarm_data().idpiClkStatus; }); }
    IdpiPort port(u32 n) { return get([n] { return KvdLoz6Idpi_port(n); }); }
    u32 activePorts() { return get(KvdLoz6Idpi_nActivePorts); }
    /// Traces of every level from now on.
    void traceAll() { get([] { node::traceSetProgramMask(0xFFFFFFFF); }); }

    /// A signal to the manager, in the port server's name.
    template <typename T>
    void inject(const T& layout, std::size_t size = sizeof(T))
    {
        node.system().inject(std::as_bytes(std::span<const T, 1>(&layout, 1)).first(size), manager(),
                             idpi().pid());
        run(0.001);
    }
    /// What the main processor was told of a port's link, newest.
    std::optional<KvdTuiifIdl2LinkStatusFwd> linkTold()
    {
        const sim::MpRecord* const r = mp().last(KVD_TUIIF_IDL2_LINK_STATUS_FWD);
        return r != nullptr ? r->as<KvdTuiifIdl2LinkStatusFwd>() : std::nullopt;
    }
};

}  // namespace bench
