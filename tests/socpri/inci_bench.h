// inci_bench.h - Units whose program runs the process of SYNC-INCI alone, in one world: the test is their
// manager and, where it wants to, the other unit.
#pragma once
#include "frame/kvd_mgr_proc.h"
#include "mp/kvd_iifadm_state.h"
#include "node/trace.h"
#include "sig/inci_sig.h"
#include "socpri/kvd_ngpduh_proc.h"
#include "tests/support/idle_node.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_unit_process.h"

#include <cstring>
#include <deque>
#include <optional>
#include <vector>

namespace bench {

/// Signals that a process of the test was sent.
struct Inbox {
    struct Taken {
        PROCESS from;
        std::vector<std::byte> bytes;
        SIGSELECT sigNo() const
        {
            SIGSELECT n;
            std::memcpy(&n, bytes.data(), sizeof n);
            return n;
        }
    };
    std::vector<Taken> taken;

    void collect()
    {
        serve([this](Signal* sig) {
            const auto* bytes = reinterpret_cast<const std::byte*>(sig);
            taken.push_back({ose::sender(&sig), {bytes, bytes + ose::sigsize(&sig)}});
            return false;
        });
    }
    std::size_t count(SIGSELECT sigNo) const
    {
        std::size_t n = 0;
        for (const Taken& t : taken) n += t.sigNo() == sigNo ? 1 : 0;
        return n;
    }
    /// The newest of that number; nothing when there is none or its size is another.
    template <typename T>
    std::optional<T> last(SIGSELECT sigNo) const
    {
        for (auto t = taken.rbegin(); t != taken.rend(); ++t) {
            if (t->sigNo() != sigNo) continue;
            if (t->bytes.size() != sizeof(T)) return std::nullopt;
            T layout;
            std::memcpy(static_cast<void*>(&layout), t->bytes.data(), sizeof layout);
            return layout;
        }
        return std::nullopt;
    }
};

struct InciUnit {
    sim::Node node;
    Inbox manager;
    PROCESS managerPid = 0;

    static sim::NodeConfig config(const std::string& name, u32 apn, sim::SyncGroupConfig group)
    {
        sim::NodeConfig c;
        c.name = name;
        c.apn = apn;
        c.syncGroup = group;
        return IdleNode::withIdleProgram(c);
    }
    InciUnit(ose::World& world, const std::string& name, u32 apn, bool isMaster = false,
             sim::SyncGroupConfig group = {.present = true})
        : node(world, config(name, apn, group))
    {
        node.powerOn();
        managerPid = node.system().launch(*node.program(), "manager", 16, [this] { manager.collect(); });
        in([=, this] {
            node::traceSetProgramMask(0xFFFFFFFF);
            KvdLoz6TuMgr_setPids(managerPid, 0, 0);
            tuiif::state().ownPiuHwAddr_r.apn = apn;
            tuiif::state().savedBvqStatusData.masterSlaveMode = isMaster ? 1 : 0;
        });
    }
    void in(const std::function<void()>& body) { node.system().call(*node.program(), body); }
    void start() { in(KvdLoz6NgPduh_start); }
    void kill() { in(KvdLoz6NgPduh_kill); }
    PROCESS process() { return node.system().find(INCI_PROCESS); }

    /// A signal to the process in the manager's name.
    template <typename T>
    void order(const T& layout, std::size_t size = sizeof(T))
    {
        node.system().inject(asBytes(layout, size), process(), managerPid);
        node.world().runFor(ose::MS);
    }
    void establish(const std::string& prefix, u8 port, u32 sharedId, u32 subsumedUnitId = INCI_NO_UNIT)
    {
        KvdTuSocpriInciEstablishReq req{};
        req.sigNo = KVD_TUSOCPRI_INCI_ESTABLISH_REQ;
        std::memcpy(req.huntPathPrefix, prefix.data(), std::min<std::size_t>(prefix.size(), INCI_PATH_SIZE));
        req.cpriPortNo = port;
        req.sharedId = sharedId;
        req.subsumedUnitId = subsumedUnitId;
        order(req);
    }
    void release(u32 sharedId, u32 remove)
    {
        order(KvdTuSocpriInciReleaseReq{KVD_TUSOCPRI_INCI_RELEASE_REQ, 3, sharedId, remove});
    }
    std::size_t responses() const { return manager.count(KVD_TUSOCPRI_INCI_ESTABLISH_RSP); }
    KvdTuSocpriInciEstablishRsp response() const
    {
        const auto rsp = manager.last<KvdTuSocpriInciEstablishRsp>(KVD_TUSOCPRI_INCI_ESTABLISH_RSP);
        EXPECT_TRUE(rsp.has_value());
        return rsp.value_or(KvdTuSocpriInciEstablishRsp{});
    }
    std::size_t traces(const std::string& text) { return node.traces().count({text}); }
    std::string command(const std::string& line, int wanted = 0)
    {
        std::string output;
        EXPECT_EQ(node.shell().run(line, output), wanted);
        return output;
    }
};

/// The process of another unit, played by the test. It knows the unit's process once it has begun after it.
struct Peer {
    ose::System& system;
    Inbox inbox;
    PROCESS pid = 0;
    PROCESS unit = 0;                  // the unit's process, as this system knows it

    explicit Peer(ose::World& world, sim::Node& node, const std::string& name = "peer")
        : system(world.createSystem(name))
    {
        world.link(node.system(), name, system);
        world.link(system, "unit", node.system());
    }
    void start()
    {
        pid = system.spawn(INCI_PROCESS, 20, [this] {
            unit = ose::hunt("unit/PsxIwNgscInciServer", 0, nullptr, nullptr);
            inbox.collect();
        });
        system.world().runFor(ose::MS);
    }
    void die() { system.kill(pid); }
    void sendBytes(std::span<const std::byte> bytes)
    {
        system.inject(bytes, unit, pid);
        system.world().runFor(ose::MS);
    }
    template <typename T>
    void send(const T& layout, std::size_t size = sizeof(T)) { sendBytes(asBytes(layout, size)); }
};

/// One unit that runs its process, one peer that doesn't run yet.
struct InciBench {
    ose::World world{1};
    InciUnit unit;
    Peer peer;

    explicit InciBench(u32 apn = 1, bool isMaster = false, sim::SyncGroupConfig group = {.present = true})
        : unit((failOnMisuse(world), world), "tu", apn, isMaster, group), peer(world, unit.node)
    {
        unit.node.ngpduhif().broadcasts = false;
        unit.start();
        run(0.01);
    }
    void run(double seconds) { world.runFor(static_cast<ose::Time>(seconds * double{ose::SEC})); }
    sim::NgpduhifServer& group() { return unit.node.ngpduhif(); }
};

}  // namespace bench
