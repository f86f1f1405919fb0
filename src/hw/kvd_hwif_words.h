// kvd_hwif_words.h - Packing and unpacking of the FPGA's words, by board type.
// Owner   stateless, values in and out; private to the hardware interface and its tests.
// Units   counters as triples (mfn 0 to 24, sfn 0 to 4095, inc 0 to 1228799).
// Errors  a field wider than its place in a word is cut to it; ranges are checked by checkSfc.
#pragma once
#include "base/frame_counter.h"
#include "hw/kvd_hwif.h"
#include "sig/ref_types.h"

#include <optional>

namespace hwif {

constexpr u32 BIT31 = 0x80000000;

// ---- frame counter triples --------------------------------------------------------------------

struct Sfc { u16 mfn; u16 sfn; u32 inc; };

enum class SfcFault : u8 { None, Sfc, Mfc, Increment };
constexpr SfcFault checkSfc(const Sfc& c)
{
    if (c.sfn > SFN_LAST) return SfcFault::Sfc;
    if (c.mfn > MFN_LAST) return SfcFault::Mfc;
    if (c.inc > INC_LAST) return SfcFault::Increment;
    return SfcFault::None;
}

constexpr double increments(const Sfc& c) { return (c.mfn * 4096.0 + c.sfn) * INCREMENTS_PER_FRAME + c.inc; }

/// Running counter and 1PPS latch: mfn 16..12, sfn 11..0; inc 20..0, or 21..1 above a half
/// increment.
constexpr Sfc unpackCounter(u32 board, u32 frames, u32 incs)
{
    return {static_cast<u16>((frames >> 12) & 0x1F), static_cast<u16>(frames & 0xFFF),
            (board == BVQ3 ? incs >> 1 : incs) & 0x1FFFFF};
}

/// GPS output counter: mfn 9..5, upper five bits of sfn 4..0; inc, and above it lower seven bits of
/// sfn.
constexpr Sfc unpackGpsOut(u32 board, u32 frames, u32 incs)
{
    const u32 low = board == BVQ3 ? incs >> 1 : incs;
    return {static_cast<u16>((frames >> 5) & 0x1F),
            static_cast<u16>(((frames & 0x1F) << 7) | ((low >> 21) & 0x7F)), low & 0x1FFFFF};
}

constexpr u32 packStepFrames(u16 mfn, u16 sfn) { return (mfn & 0x1Fu) << 12 | (sfn & 0xFFFu); }
constexpr u32 packStepIncrements(u32 board, u32 inc)
{
    return board == BVQ3 ? (inc << 1) & 0x3FFFFF : inc & 0x1FFFFF;
}
constexpr u32 packGpsOutOffset(u32 board, u32 frames, u32 inc)
{
    return board == BVQ3 ? frames << 22 | inc << 1 : frames << 21 | inc;
}

// ---- BFN link ---------------------------------------------------------------------------------

struct BfnInWords {
    u32 valid, parityError, extended;
    Sfc local;
    u16 remoteMfn, remoteSfn;
};
constexpr BfnInWords unpackBfnIn(u32 board, u32 counters, u32 flags)
{
    return {flags >> 31, (flags >> 30) & 1, (flags >> 29) & 1,
            {static_cast<u16>((counters >> 5) & 0x1F), static_cast<u16>((flags >> 12) & 0xFFF),
             (board == BVQ3 ? counters >> 11 : counters >> 10) & 0x1FFFFF},
            static_cast<u16>(counters & 0x1F), static_cast<u16>(flags & 0xFFF)};
}

struct BfnExtended { u32 inc_diff, e_sfc, rc_state, coldRestartFlag_tmp, jump, ms_flag; };
constexpr BfnExtended unpackBfnExtended(u32 word1, u32 word2)
{
    return {word1 & 0x3FFFFF,  word2 & 0x3FFFFF,  (word2 >> 22) & 0xF,
            (word2 >> 26) & 1, (word2 >> 27) & 1, (word2 >> 28) & 1};
}
struct BfnOutWords { u32 word1, word2; };
constexpr BfnOutWords packBfnExtended(const BfnExtended& e)
{
    return {e.inc_diff & 0x3FFFFF, (e.e_sfc & 0x3FFFFF) | (e.rc_state & 0xF) << 22
                                       | (e.coldRestartFlag_tmp & 1) << 26 | (e.jump & 1) << 27
                                       | (e.ms_flag & 1) << 28};
}

// ---- delta-sigma words: 33 bits, two's complement ---------------------------------------------

constexpr u32 deltaSigmaHigh(i64 value) { return static_cast<u32>(static_cast<u64>(value) >> 32) & 1; }
constexpr u32 deltaSigmaLow(i64 value) { return static_cast<u32>(static_cast<u64>(value)); }
constexpr i64 deltaSigmaValue(u32 high, u32 low)
{
    return (high & 1) != 0 ? static_cast<i64>(low) - 0x100000000 : static_cast<i64>(low);
}

// ---- references -------------------------------------------------------------------------------

/// Toggle detectors' word as the logic sees it.
constexpr u32 toggleWord(u32 board, u32 raw)
{
    u32 word = raw & 0x1F;                                   // PDH 1 to 4, SDH
    const u32 mode = raw & 0x300;                            // of the common input
    if ((raw & 0x80) != 0) word |= 0x20;
    else if ((raw & 0x20) != 0 && (mode == 0x100 || mode == 0x200)) word |= 0x40;
    if ((raw & 0x20) != 0) word |= 0x80;
    if (board == BVQ3) word |= (raw & 0x1C00) >> 2;          // Ethernet A, B, C
    else if ((raw & 0x400) != 0) word |= 0x200;              // Ethernet B
    return word;
}

constexpr u32 SELECT_FIELD = 0x318F;
constexpr u32 SELECT_ALWAYS_TYPE2 = 0x800;
constexpr u32 SELECT_GPS_OUT = 0x40;
constexpr u32 SELECT_NONE = 0xFFFFFFFF; // selector that this board doesn't have

struct SelectRow { u32 selector; u32 type1; u32 type2; };
constexpr SelectRow SELECT_TABLE[] = {
    {HALI_NO_HW_SYNC_REF,  0x008, 0x008},
    {HALI_PDH_REF_1,       0x108, 0x108},
    {HALI_PDH_REF_2,       0x109, 0x109},
    {HALI_PDH_REF_3,       0x10A, 0x10A},
    {HALI_PDH_REF_4,       0x10B, 0x10B},
    {HALI_SDH_REF,         0x10C, 0x10C},
    {HALI_GPS_HW_SYNC_REF, 0x000, 0x000},
    {HALI_EXT_HW_SYNC_REF, 0x10D, 0x10D},
    {HALI_ETH_REF_A,       SELECT_NONE, 0x1108},
    {HALI_ETH_REF_B,       0x10E, 0x2108},
    {HALI_ETH_REF_C,       SELECT_NONE, 0x3108},
};
/// Field of the selector on this board, SELECT_NONE when it has none.
constexpr u32 selectField(u32 board, u32 selector)
{
    for (const SelectRow& row : SELECT_TABLE)
        if (row.selector == selector)
            return board == BVQ1 ? row.type1 : board == BVQ3 ? row.type2 : SELECT_NONE;
    return SELECT_NONE;
}
constexpr u32 selectWord(u32 board, u32 field, u32 old)
{
    return (old & ~SELECT_FIELD) | field | (board == BVQ3 ? SELECT_ALWAYS_TYPE2 : 0);
}

// ---- interrupts -------------------------------------------------------------------------------

struct InterruptRow { u32 bit; u32 type1; u32 type2; };
constexpr InterruptRow INTERRUPT_TABLE[] = {
    {TU_BFN_IN_INT,      0x4, 0x2},
    {TU_100MS_INT,       0x1, 0x8},
    {TU_INT_REF_CLK_INT, 0x2, 0x4},
    {TU_GPS_OUT_INT,     0x8, 0x1},
};
constexpr u32 interruptsToBoard(u32 board, u32 mask)
{
    u32 word = 0;
    for (const InterruptRow& row : INTERRUPT_TABLE)
        if ((mask & row.bit) != 0) word |= board == BVQ3 ? row.type2 : row.type1;
    return word;
}
constexpr u32 interruptsFromBoard(u32 board, u32 word)
{
    u32 mask = 0;
    for (const InterruptRow& row : INTERRUPT_TABLE)
        if ((word & (board == BVQ3 ? row.type2 : row.type1)) != 0) mask |= row.bit;
    return mask;
}

// ---- FSYNC, synthesiser, oscillator -----------------------------------------------------------

constexpr u32 fsyncInterval(u32 interval, u32 old)
{
    const u32 bits = interval == 40 ? 0x80 : interval == 60 ? 0x40 : interval == 10 ? 0xC0 : 0;
    return (old & ~0xC0u) | bits;
}
constexpr u32 fsyncPattern(u32 bfn, u32 old) { return (old & ~0x300u) | (bfn == 1 ? 0x100 : 0x300); }
constexpr u32 fsyncAlignment(u32 rising, u32 old) { return (old & ~0x20u) | (rising == 1 ? 0x20 : 0); }
constexpr u32 fsyncOn(u32 old) { return (old & ~0xC0u) | 0x80; }
constexpr u32 fsyncOff(u32 old) { return old & ~0x3E0u; }

constexpr u32 synthStatus(u32 raw)
{
    return (raw & 0x8) | (raw & 0x2) | ((raw & 0x4) != 0 ? 0x1 : 0) | ((raw & 0x1) != 0 ? 0x4 : 0);
}

/// Characters of the revision word, 0 to 3 from the upper bits down.
constexpr u8 revisionCharacter(u32 word, u32 index) { return static_cast<u8>(word >> (24 - 8 * index)); }
constexpr bool isRevision3(u32 word) { return revisionCharacter(word, 1) == '3'; }
/// From revision 42 on the multiplicator can be read back.
constexpr bool hasMultiplicatorReadBack(u32 word)
{
    const u8 major = revisionCharacter(word, 1);
    return major > '4' || (major == '4' && revisionCharacter(word, 2) > '1');
}

/// 64-bit two's complement with 32 fraction bits.
constexpr double coefficient(u32 high, u32 low)
{
    return static_cast<double>(static_cast<i64>(static_cast<u64>(high) << 32 | low)) * 0x1p-32;
}

/// 0 good, 2 out of range, 3 no data.
constexpr int temperatureVolts(u32 word, bool rev3, double& volts)
{
    if ((word & BIT31) == 0) return 3;
    const u32 n = word & 0x1FFFF;
    if (!rev3) {
        volts = n * 0x1p-15;
        return 0;
    }
    if (n < 32768 || n > 98304) return 2;
    volts = n * 0x1p-14 - 2.0;
    return 0;
}

/// Word of the hardware monitor with one detector in another mode; nothing for a mode or detector it
/// doesn't have.
constexpr std::optional<u32> hmWord(u32 hm, u32 mode, u32 old)
{
    constexpr u32 VALUES[] = {0, 1, 2, 4, 5, 6};
    if (hm > 6 || mode > 5 || (hm == 6 && (mode == 2 || mode == 5))) return std::nullopt;
    return (old & ~(7u << (3 * hm))) | VALUES[mode] << (3 * hm);
}

}  // namespace hwif
