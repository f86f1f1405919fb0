// The time input's whole way: bytes in pieces on the serial line, frames whole and damaged, time that passes,
// a 1PPS that comes and goes, in a running unit that supervises and selects the input. What is counted is
// what a plain reading of the whole stream gives; the state stays one of the known, the program lives on, and
// good frames bring the time back.
#include "base/tu_common.h"
#include "fuzz/fuzz.h"
#include "refs/kvd_hptsi_int.h"
#include "sig/ref_types.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"

#include <cmath>

namespace {

using fuzz::require;

using Bytes = std::vector<u8>;

sim::NodeConfig config()
{
    sim::NodeConfig c;
    c.mainProcessor.references.push_back({"input", HPTSI_REF, 0, 6});
    return c;
}

/// The rule said in another way: outside of a frame a "C" and an "M" next to each other begin one, which has
/// 20 bytes whatever they are. Its last byte may be the "C" of the next.
struct Model {
    u32 bytes = 0, infos = 0, states = 0;
    Bytes frame;
    u8 last = 0;

    void take(std::span<const u8> piece)
    {
        for (const u8 byte : piece) {
            ++bytes;
            if (!frame.empty()) frame.push_back(byte);
            else if (last == 'C' && byte == 'M') frame = {'C', 'M'};
            last = byte;
            if (frame.size() < 20) continue;
            infos += frame[3] == 0x20 ? 1 : 0;
            states += frame[3] == 3 ? 1 : 0;
            frame.clear();
        }
    }
};

/// A unit that serves many inputs; after so many it begins anew.
struct Target {
    ose::World world{1};
    sim::Node node{world, config()};
    sim::LineSource pps{world, sim::LineConfig{}, sim::PPS_RATE_Hz, 1, "pps"};
    Model model;
    u32 tow = 0;

    Target()
    {
        fuzz::watch(world, node);
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.powerOn();
        world.runFor(5 * ose::SEC);
    }
    void feed(std::span<const u8> bytes)
    {
        node.serial().feed(bytes.data(), bytes.size());
        model.take(bytes);
    }
    hptsi::State state()
    {
        return node.inProgram([] { return hptsi::state(); });
    }
};

/// The bytes of an input, zeros behind its end.
struct Input {
    std::span<const u8> rest;
    bool empty() const { return rest.empty(); }
    u8 next()
    {
        if (rest.empty()) return 0;
        const u8 byte = rest[0];
        rest = rest.subspan(1);
        return byte;
    }
};

Bytes frameOf(bool isInfo, u32 tow, u8 word)
{
    Bytes frame(23);
    frame[0] = 'C', frame[1] = 'M', frame[2] = 1, frame[3] = isInfo ? 0x20 : 3, frame[5] = 16;
    for (u32 i = 0; isInfo && i < 4; ++i) frame[6 + i] = static_cast<u8>(tow >> (24 - 8 * i));
    if (isInfo) frame[14] = 8, frame[17] = word;
    else        frame[6] = 1, frame[8] = word;
    frame[22] = TuCommon_crc8(&frame[2], 20);
    return frame;
}

/// With up to three bytes put in, taken out or replaced.
void feedDamaged(Target& t, Input& in, u8 choice)
{
    Bytes frame = frameOf((choice & 1) != 0, ++t.tow, in.next() & 0x85);
    for (u32 n = choice >> 1 & 3; n > 0; --n) {
        const long at = in.next() % static_cast<long>(frame.size());
        const u8 byte = in.next();
        switch (in.next() % 3) {
        case 0:  frame.insert(frame.begin() + at, byte); break;
        case 1:  frame.erase(frame.begin() + at);        break;
        default: frame[static_cast<std::size_t>(at)] = byte; break;
        }
    }
    t.feed(frame);
}

void feedRaw(Target& t, Input& in)
{
    const std::size_t wanted = in.next();
    const std::size_t count = std::min(wanted, in.rest.size());
    t.feed(in.rest.first(count));
    in.rest = in.rest.subspan(count);
}

void check(Target& t)
{
    const hptsi::State s = t.state();
    require(s.hptsiState >= hptsi::WAIT_FOR_FRAMES && s.hptsiState <= hptsi::OPERATIONAL_WITH_VALID_TIME,
            "hptsiState is none of the known");
    require(s.nextFrame <= hptsi::NEXT_COMPLETE, "next frame is none of the known");
    require(std::isfinite(s.hptsiCurrentTime) && s.hptsiCurrentTime >= 0.0, "the time is no time");
    require(s.numberOfTimeInfoMsg == t.model.infos, "count of time info frames");
    require(s.numberOfTimeStateMsg == t.model.states, "count of time state frames");
    require(t.node.inProgram(KvdLoz6TuHptsi_numberOfBytesRec) == t.model.bytes, "count of bytes");
}

void step(Target& t, Input& in)
{
    const u8 op = in.next();
    switch (op & 7) {
    case 0:  feedRaw(t, in);                          break;
    case 1:  t.pps.setPresent((op & 8) != 0);         break;
    case 2:  t.world.runFor((in.next() & 15) * 500 * ose::MS); break;
    default: feedDamaged(t, in, op >> 3);             break;
    }
    t.world.runFor((1 + (op >> 3) * 40) * ose::MS);
    check(t);
}

/// A healthy source; a frame that was begun takes its first one.
void recover(Target& t)
{
    for (u32 n = 0; n < 5; ++n) {
        t.feed(frameOf(true, ++t.tow, 0));
        t.world.runFor(200 * ose::MS);
        t.feed(frameOf(false, 0, 5));
        t.world.runFor(700 * ose::MS);
        check(t);
    }
    require(t.state().hptsiState == hptsi::OPERATIONAL_WITH_VALID_TIME,
            "good frames don't bring the time back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr u32 INPUTS_A_UNIT = 1000;
    Target& target = fuzz::serving<Target>(INPUTS_A_UNIT);
    Input in{{data, size}};
    while (!in.empty()) step(target, in);
    recover(target);
    require(target.node.programEnds().empty(), "the program ended");
    return 0;
}
