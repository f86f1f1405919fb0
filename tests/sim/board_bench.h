// board_bench.h - A board in a world of its own, its registers by address.
#pragma once
#include "ose/world.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"

#include <string>

namespace boardtest {

// Type 1 has one window, type 2 one for the shared block and one for the counters.
constexpr u32 A = 0xE0070000, B = 0xE1070000, C = 0xE2010000;

inline sim::BoardConfig configOf(u32 type, const std::string& revision = "R5A2")
{
    sim::BoardConfig config;
    config.type = type;
    config.revision = revision;
    config.counterStart_s = 0.0;
    return config;
}

struct Bench {
    ose::World world{1};
    sim::Board board;
    u32 interrupts = 0;

    explicit Bench(const sim::BoardConfig& config) : board(world, config)
    {
        board.irq = [this] { ++interrupts; };
        board.powerOn(false);
    }
    explicit Bench(u32 type) : Bench(configOf(type)) {}

    u32  read(u32 address) { return board.read(address); }
    void write(u32 address, u32 value) { board.write(address, value); }
    void run(ose::Time span) { world.runFor(span); }
    bool type1() const { return board.config().type == 1; }
    /// A register of the shared block.
    u32  shared(u32 offset) const { return (type1() ? A : B) + offset; }

    /// Divider words, made effective.
    void setDivider(u32 divisor, u32 kHigh, u32 kLow)
    {
        write(shared(0x48), divisor);
        write(shared(0x4C), 0);
        write(shared(0x50), 800'000'000);
        write(shared(0x54), kHigh);
        write(shared(0x58), kLow);
        write(shared(0x5C), 0);
        write(shared(0x5C), 0x80000000);
    }
    void setNominalDivider() { setDivider(705, 0, 69'791'666); }
};

}  // namespace boardtest
