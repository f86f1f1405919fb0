// The board's detectors, reference multiplexer, interrupts, BFN input and temperature sensor.
#include "sim/board/board.h"

#include <cmath>

namespace sim {
namespace {

// Raw toggle register.
constexpr u32 RAW_COMMON = 0x20, RAW_1PPS = 0x80, RAW_MODE_SHIFT = 8;
constexpr u32 RAW_ETH[] = {0x400, 0x800, 0x1000};

// Modes of the hardware monitor, three bits a detector: the lower two choose the input, the third
// cuts off.
constexpr u32 MONITOR_REFERENCE = 1, MONITOR_CLOCK = 2;
constexpr u32 COMMON_DETECTOR = 5;

struct InterruptBit { u32 abstract, type1, type2; };
constexpr InterruptBit INTERRUPTS[] = {
    {1, 0x4, 0x2},   // port A
    {2, 0x1, 0x8},   // 100 ms
    {4, 0x2, 0x4},   // reference clock
    {8, 0x8, 0x1},   // GPS output
};

// Field of the select register that routes a reference.
constexpr u32 SELECT_FIELD = 0x318F;

struct SelectRow { u32 field; ReferenceInput input; bool type1, type2; };
constexpr SelectRow SELECTS[] = {
    {0x000, ReferenceInput::Pps, true, true},
    {0x108, ReferenceInput::Pdh1, true, true},
    {0x109, ReferenceInput::Pdh2, true, true},
    {0x10A, ReferenceInput::Pdh3, true, true},
    {0x10B, ReferenceInput::Pdh4, true, true},
    {0x10C, ReferenceInput::Sdh, true, true},
    {0x10D, ReferenceInput::ExternalFrequency, true, true},
    {0x10E, ReferenceInput::EthernetB, true, false},
    {0x1108, ReferenceInput::EthernetA, false, true},
    {0x2108, ReferenceInput::EthernetB, false, true},
    {0x3108, ReferenceInput::EthernetC, false, true},
};

}  // namespace

// ---- toggle detectors ---------------------------------------------------------------------------

bool Board::sees(ReferenceInput input) const
{
    const EdgeSource* const source = sources_[static_cast<u32>(input)];
    return source != nullptr && source->present();
}

u32 Board::toggleWord() const
{
    const auto monitored = [this](u32 detector, bool input) {
        const u32 mode = common_[MONITOR / 4] >> (3 * detector) & 0x7;
        return mode == MONITOR_REFERENCE ? input : mode == MONITOR_CLOCK;
    };
    const bool pps = sees(ReferenceInput::Pps);
    const bool external = sees(ReferenceInput::ExternalFrequency);
    u32 raw = 0;
    for (u32 line = 0; line < COMMON_DETECTOR; ++line)
        if (monitored(line, sees(static_cast<ReferenceInput>(line)))) raw |= 1u << line;
    if (monitored(COMMON_DETECTOR, pps || external)) raw |= RAW_COMMON;
    if (pps) raw |= RAW_1PPS;
    raw |= commonMode_.value_or(external ? 1 : 0) << RAW_MODE_SHIFT;
    if (config_.type == 2) {
        if (sees(ReferenceInput::EthernetA)) raw |= RAW_ETH[0];
        if (sees(ReferenceInput::EthernetB)) raw |= RAW_ETH[1];
        if (sees(ReferenceInput::EthernetC)) raw |= RAW_ETH[2];
    } else if (sees(ReferenceInput::EthernetB)) {
        raw |= RAW_ETH[0];
    }
    return (raw | faults.toggleStuckOn) & ~faults.toggleStuckOff;
}

// ---- temperature --------------------------------------------------------------------------------

u32 Board::temperatureWord() const
{
    constexpr u32 VALID = 1u << 31, MASK = 0x1FFFF;
    if (faults.temperatureInvalid) return 0;
    if (faults.temperatureRaw >= 0) return VALID | (static_cast<u32>(faults.temperatureRaw) & MASK);
    const double volts = temperature_.volts(world_.now());
    const double counts = config_.isRev3() ? (volts + 2.0) * 16384.0 : volts * 32768.0;
    return VALID | static_cast<u32>(std::llround(std::fmin(std::fmax(0.0, counts), MASK)));
}

// ---- interrupts ---------------------------------------------------------------------------------

u32 Board::toType(u32 abstract) const
{
    u32 bits = 0;
    for (const InterruptBit& b : INTERRUPTS)
        if ((abstract & b.abstract) != 0) bits |= config_.type == 1 ? b.type1 : b.type2;
    return bits;
}

u32 Board::fromType(u32 bits) const
{
    u32 abstract = 0;
    for (const InterruptBit& b : INTERRUPTS)
        if ((bits & (config_.type == 1 ? b.type1 : b.type2)) != 0) abstract |= b.abstract;
    return abstract;
}

u32 Board::readPending()
{
    const u32 bits = toType(pending_);
    if (config_.type == 1) pending_ = 0;   // the read clears
    return bits;
}

void Board::raise(u32 abstract)
{
    pending_ |= abstract;
    if ((enabled_ & abstract) != 0 && irq) irq();
}

void Board::writeEnable(u32 value)
{
    const u32 before = enabled_;
    enabled_ = fromType(value);
    const u32 opened = enabled_ & ~before;
    if ((opened & TICK_100MS) != 0) armTick();
    if ((opened & GPS_OUTPUT) != 0) armOutput();
    // What waited behind the mask raises the line, after this access.
    if ((opened & pending_) == 0 || lineEvent_ != 0) return;
    lineEvent_ = world_.after(0, [this] {
        lineEvent_ = 0;
        if (interruptPending() && irq) irq();
    });
}

void Board::armTick()
{
    if (tickEvent_ != 0 || !powered_) return;
    constexpr ose::Time TICK = 100 * ose::MS;
    tickEvent_ = world_.at((world_.now() / TICK + 1) * TICK, [this] {
        tickEvent_ = 0;
        if ((enabled_ & TICK_100MS) == 0) return;
        armTick();
        raise(TICK_100MS);
    });
}

// ---- references ---------------------------------------------------------------------------------

void Board::connect(ReferenceInput input, EdgeSource* source)
{
    EdgeSource*& place = sources_[static_cast<u32>(input)];
    if (place != nullptr) {
        place->changed = nullptr;
        place->gone = nullptr;
    }
    place = source;
    if (source != nullptr) {
        source->changed = [this, input] { sourceChanged(input); };
        source->gone = [this, input] {
            sources_[static_cast<u32>(input)] = nullptr;
            sourceChanged(input);
        };
    }
    sourceChanged(input);
}

void Board::sourceChanged(ReferenceInput input)
{
    if (selectedInput() == input) armEdge();
}

void Board::select(u32 value)
{
    const u32 before = common_[SELECT / 4];
    common_[SELECT / 4] = value;
    if ((value & SELECT_FIELD) != (before & SELECT_FIELD)) armEdge();
}

std::optional<ReferenceInput> Board::selectedInput() const
{
    const u32 field = common_[SELECT / 4] & SELECT_FIELD;
    for (const SelectRow& row : SELECTS)
        if (row.field == field && (config_.type == 1 ? row.type1 : row.type2)) return row.input;
    return std::nullopt;
}

/// Only the selected reference costs an event an edge.
void Board::armEdge()
{
    if (edgeEvent_ != 0) world_.cancel(edgeEvent_);
    const std::optional<ReferenceInput> input = selectedInput();
    if (!input || !powered_) return;
    EdgeSource* const source = sources_[static_cast<u32>(*input)];
    if (source == nullptr) return;
    const ose::Time edge = source->nextEdge(world_.now());
    if (edge < 0) return;
    // The common input's edge takes its way from the connector to the latch.
    const bool common = *input == ReferenceInput::Pps || *input == ReferenceInput::ExternalFrequency;
    const ose::Time way = common ? static_cast<ose::Time>(config_.latchDelay_ns * 1e3) : 0;
    edgeEvent_ = world_.at(edge + way, [this] {
        edgeEvent_ = 0;
        latch();
        armEdge();
        raise(REFERENCE_EDGE);
    });
}

// ---- BFN input ----------------------------------------------------------------------------------

void Board::bfnReceived(const BfnInput& in)
{
    if (!powered_) return;
    const CounterTriple c = counter();
    const u32 mfn = in.localMfn >= 0 ? static_cast<u32>(in.localMfn) & 0x1F : c.mfn;
    const u32 inc = in.localInc >= 0 ? static_cast<u32>(in.localInc) & 0x1FFFFF : c.inc;
    const u32 shift = config_.type == 1 ? 10 : 11;
    timeWords_[BFN_COUNTERS] = inc << shift | mfn << 5 | (in.remoteMfn & 0x1Fu);
    timeWords_[BFN_EXT1] = in.word1;
    timeWords_[BFN_EXT2] = in.word2;
    timeWords_[BFN_FLAGS] = (in.valid ? 1u << 31 : 0) | (in.parityError ? 1u << 30 : 0)
                            | (in.extended ? 1u << 29 : 0) | static_cast<u32>(c.sfn) << 12
                            | (in.remoteSfn & 0xFFFu);
    raise(PORT_A);
}

}  // namespace sim
