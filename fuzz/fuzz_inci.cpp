// Signals of any number, size and content to the process that exchanges sync data with other units, many with
// references that it gave out itself: it lives on, prints its tables, and uses no buffer wrongly.
#include "fuzz/fuzz.h"
#include "sig/inci_sig.h"
#include "sig/tuiif_sig.h"
#include "socpri/kvd_ngpduh_proc.h"

namespace {

using fuzz::require;

sim::NodeConfig unitConfig()
{
    sim::NodeConfig config;
    config.syncGroup.present = true;
    return config;
}

/// A unit with its process and another unit's end; after so many inputs it begins anew.
struct Target {
    ose::World world{1};
    sim::Node node{world, unitConfig()};
    ose::System& other = world.createSystem("other");
    PROCESS peer = 0, unit = 0;        // the unit's process as the peer knows it
    std::vector<u32> refs;             // seen by the peer

    Target()
    {
        fuzz::watch(world, node);
        world.link(node.system(), "other", other);
        world.link(other, "unit", node.system());
        node.powerOn();
        world.runFor(5 * ose::SEC);
        node.system().call(*node.program(), KvdLoz6NgPduh_start);
        peer = other.spawn(INCI_PROCESS, 20, [this] {
            unit = ose::hunt("unit/PsxIwNgscInciServer", 0, nullptr, nullptr);
            for (;;) take();
        });
        world.runFor(10 * ose::MS);
    }
    void take()
    {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        if (ose::sigsize(&sig) >= sizeof(InciRefs)) {
            const auto* r = reinterpret_cast<const InciRefs*>(sig);
            constexpr std::size_t KEPT = 8;
            if (refs.size() >= KEPT) refs.erase(refs.begin(), refs.begin() + 2);
            refs.push_back(r->procedureRef);
            refs.push_back(r->connectionRef);
        }
        ose::free_buf(&sig);
    }
    PROCESS process() { return node.system().find(INCI_PROCESS); }
};

constexpr SIGSELECT RANGES[][2] = {
    {PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ, 11},
    {KVD_TUSOCPRI_INCI_ESTABLISH_REQ, 8},
    {KVD_NGPDUHIF_CONN_ESTABLISH_REQ, 14},
    {NGSC_INCI_CLIENT_DOWN_IND, 3},
    {KVD_COMM_ONS_HUNT, 4},
};

/// Whether the other unit sends it, or one of this one.
bool isFromPeer(u8 range) { return range == 0; }

/// Puts a reference that was given out at a place where one is meant.
void putReference(fuzz::Bytes& signal, const std::vector<u32>& refs, u8 choice)
{
    if (refs.empty() || (choice & 1) == 0) return;
    const u32 ref = refs[(choice >> 2) % refs.size()];
    const std::size_t at = (choice & 2) != 0 ? 8 : 4;
    if (signal.size() >= at + sizeof ref) std::memcpy(&signal[at], &ref, sizeof ref);
}

/// A path that leads to the peer, more often than chance.
void putPath(fuzz::Bytes& signal, u8 choice)
{
    static constexpr char PATH[] = "other";
    if (choice < 128 || signal.size() < sizeof(KvdTuSocpriInciEstablishReq)) return;
    std::memcpy(&signal[offsetof(KvdTuSocpriInciEstablishReq, huntPathPrefix)], PATH, sizeof PATH);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 200;
    Target& t = fuzz::serving<Target>(INPUTS_A_UNIT);
    // An input is a row of signals: range, number, choice of reference and path, length, content.
    fuzz::Input rest(data, size);
    while (rest.size() >= 4) {
        const u8 range = static_cast<u8>(rest[0] % std::size(RANGES));
        const SIGSELECT sigNo = RANGES[range][0] + rest[1] % RANGES[range][1];
        const u8 choice = rest[2];
        const std::size_t length = std::min<std::size_t>(rest[3] % 140, rest.size() - 4);
        fuzz::Bytes signal = fuzz::signalOf(sigNo, rest.subspan(4, length));
        rest = rest.subspan(4 + length);
        putReference(signal, t.refs, choice);
        if (sigNo == KVD_TUSOCPRI_INCI_ESTABLISH_REQ) putPath(signal, choice);
        require(t.process() != 0, "the process is gone");
        if (isFromPeer(range)) t.other.inject(signal, t.unit, t.peer);
        else t.node.system().inject(signal, t.process(), t.node.ngpduhif().pid());
        t.world.runFor(5 * ose::MS);
    }
    t.world.runFor(50 * ose::MS);
    require(t.node.programEnds().empty(), "the program ended");
    std::string output;
    require(t.node.shell().run("kvdngpduh all", output) == 0, "the command failed");
    return 0;
}
