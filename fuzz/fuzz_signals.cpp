// Signals of any number, size and content to a running unit's manager: it lives on, serves the operator, and
// uses no buffer wrongly.
#include "iif/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/node/node.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace {

/// A unit that serves many inputs; after so many it begins anew.
struct Target {
    ose::World world{1};
    sim::Node node{world, config()};
    u32 served = 0;

    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.inrsi.present = true;
        c.inrsi.links = {{.port = 1, .unit = 11}, {.port = 3, .unit = 33}};
        return c;
    }
    Target()
    {
        world.onMisuse([](const ose::Misuse& misuse) {
            std::fprintf(stderr, "\nkernel misuse: %s\n", misuse.text().c_str());
            std::abort();
        });
        node.traces().setCapacity(0);
        node.powerOn();
        world.runFor(5 * ose::SEC);
    }
};

struct NumberRange { SIGSELECT first, count; };
constexpr NumberRange RANGES[] = {
    {0x9C000, 0x82},   // the main processor's interface
    {0x9C620, 0x12},   // reference management
    {0x9C640, 0x12},   // hardware interface
    {0x9C680, 0x0C},   // regulator
    {0x60250, 8},      // test service
    {0x60300, 8},      // own identity
    {0x9DF00, 0x12},   // the simpler timing function
    {0x190C70, 0x0C},  // slow protocol service
    {0x9C6C0, 2},      // its client's timers
    {0x9C6D0, 0x12},   // synchronisation over CPRI
    {0x1019400, 0x19}, // the radio links' measurement server
    {0x0, 0xFFFF},     // strangers
};

SIGSELECT numberOf(u8 range, u16 index)
{
    const NumberRange& r = RANGES[range % std::size(RANGES)];
    return r.first + index % r.count;
}

/// These make the unit deaf until its peer dies, by design, so that nothing after them would be seen.
bool makesDeaf(SIGSELECT sigNo)
{
    return sigNo == KVD_TUIIF_INITIATE_SERVICE_SUS || sigNo == KVD_TUIIF_INITIATE_SERVICE_REJ;
}

void require(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "\n%s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static std::unique_ptr<Target> target;
    constexpr u32 INPUTS_A_UNIT = 200;
    if (!target || target->served == INPUTS_A_UNIT) target = std::make_unique<Target>();
    ++target->served;
    sim::Node& node = target->node;
    const PROCESS peer = node.mainProcessor().pid();

    // An input is a row of signals: range, number (2), length, content.
    std::span<const unsigned char> rest(data, size);
    while (rest.size() >= 4) {
        const SIGSELECT sigNo = numberOf(rest[0], static_cast<u16>(rest[1] << 8 | rest[2]));
        const std::size_t length = std::min<std::size_t>(rest[3] % 140, rest.size() - 4);
        std::vector<std::byte> signal(sizeof sigNo + length);
        std::memcpy(signal.data(), &sigNo, sizeof sigNo);
        if (length > 0) std::memcpy(signal.data() + sizeof sigNo, rest.data() + 4, length);
        rest = rest.subspan(4 + length);
        const PROCESS manager = node.system().find("Kvd_loz6_tumgr_proc");
        require(manager != 0, "the manager is gone");
        if (!makesDeaf(sigNo)) node.system().inject(signal, manager, peer);
    }
    target->world.runFor(50 * ose::MS);
    require(node.programEnds().empty(), "the program ended");
    return 0;
}
