// Signals of any number, size and content to a running unit's manager: it lives on, serves the operator, and
// uses no buffer wrongly.
#include "fuzz/fuzz.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"

namespace {

using fuzz::require;

/// A unit that serves many inputs; after so many it begins anew.
struct Target {
    ose::World world{1};
    sim::Node node{world, config()};

    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.inrsi.present = true;
        c.inrsi.links = {{.port = 1, .unit = 11}, {.port = 3, .unit = 33}};
        return c;
    }
    Target()
    {
        fuzz::watch(world, node);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 200;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    sim::Node& node = target.node;
    const PROCESS peer = node.mainProcessor().pid();

    // An input is a row of signals: range, number (2), length, content.
    fuzz::Input rest(data, size);
    while (rest.size() >= 4) {
        const SIGSELECT sigNo = numberOf(rest[0], static_cast<u16>(rest[1] << 8 | rest[2]));
        const std::size_t length = std::min<std::size_t>(rest[3] % 140, rest.size() - 4);
        const fuzz::Bytes signal = fuzz::signalOf(sigNo, rest.subspan(4, length));
        rest = rest.subspan(4 + length);
        if (!makesDeaf(sigNo)) fuzz::inject(node, fuzz::MANAGER, signal, peer);
    }
    target.world.runFor(50 * ose::MS);
    require(node.programEnds().empty(), "the program ended");
    return 0;
}
