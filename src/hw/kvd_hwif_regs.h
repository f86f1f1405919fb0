// kvd_hwif_regs.h - The register map: which word of which FPGA stands behind a register id, on
// either board. Private to the hardware interface; nobody else knows an address.
// Units   byte offsets from a base address; registers are 32-bit words, big-endian inside a block
//         of bytes.
#pragma once
#include "ose/types.h"

#include <array>
#include <iterator>

enum RegisterId : u32 {
    REG_FPGA_REVISION = 0,      // four characters, the first in the upper bits
    REG_BOARD_CONTROL = 1,
    REG_BFN_IN_COUNTERS = 2,
    REG_BFN_IN_FLAGS = 3,       // there only when port A can interrupt
    REG_BFN_IN_WORD1 = 4,
    REG_BFN_IN_WORD2 = 5,
    REG_BFN_OUT_WORD1 = 6,
    REG_BFN_OUT_WORD2 = 7,
    REG_FSYNC = 8,
    REG_INT_ENABLE = 10,
    REG_INT_PENDING = 11,
    REG_LOAD_EXT_SFC = 12,
    REG_LOAD_FRAMES = 13,
    REG_LOAD_INCREMENTS = 14,
    REG_LOAD_CONTROL = 15,      // and FSYNC
    REG_LOAD_STATUS = 16,
    REG_SFC_FRAMES = 20,
    REG_SFC_INCREMENTS = 21,
    REG_LATCH_VALID = 22,
    REG_LATCH_FRAMES = 23,
    REG_LATCH_INCREMENTS = 24,
    REG_GPS_OUT_FRAMES = 25,
    REG_GPS_OUT_INCREMENTS = 26,
    REG_GPS_OUT_OFFSET = 27,
    REG_NTP_WORD1 = 43,
    REG_NTP_WORD2 = 44,
    REG_A1_REF = 45,
    REG_IDT_MULT = 46,
    REG_MULT_READ_CONTROL = 47,
    REG_MULT_READ_STATUS = 48,
    REG_MULT_READ_DATA = 49,    // the first of a run of words
    REG_TOGGLE_STATUS = 50,
    REG_HM = 51,
    REG_SELECT = 52,            // reference select, GPS output enable, external PLL enable
    REG_EEPROM_CONTROL = 53,
    REG_EEPROM_BASE = 54,       // version, serial number
    REG_EEPROM_PART_NUMBER = 55,
    REG_EEPROM_CHECKSUM = 56,
    REG_NOM_FREQ_HIGH = 57, REG_NOM_FREQ_LOW = 58,
    REG_COEF_A0_HIGH = 59, REG_COEF_A0_LOW = 60,
    REG_COEF_A1_HIGH = 61, REG_COEF_A1_LOW = 62,
    REG_COEF_A2_HIGH = 63, REG_COEF_A2_LOW = 64,
    REG_COEF_A3_HIGH = 65, REG_COEF_A3_LOW = 66,
    REG_MIN_TEMP_HIGH = 67, REG_MIN_TEMP_LOW = 68,
    REG_MAX_TEMP_HIGH = 69, REG_MAX_TEMP_LOW = 70,
    REG_CALIB_DATE = 71,
    REG_OCXO_TEMP = 72,
    REG_BB_CLK = 73,
    REG_SYNTH_STATUS = 74,
    REG_NOMINAL_DIVISOR = 75,
    REG_DS_M_HIGH = 76, REG_DS_M_LOW = 77,
    REG_DS_K_HIGH = 78, REG_DS_K_LOW = 79,
    REG_DS_ENABLE = 80,
    REG_SYNTH_C_DIVIDER = 81,
    REG_PLL_IC_SPI = 84,
};

constexpr u32 REGISTER_COUNT = 100;         // ids 0 to 99
constexpr u32 REGISTER_NONE = 0xFFFFFFFF;

/// Base of a register: A on the older board; B, C and D on the newer.
enum class Base : u8 { None, A, B, C };

constexpr u32 BASE_A_ADDRESS = 0xE0070000;
constexpr u32 BASE_B_OFFSET = 0x70000;      // of the timing part in its FPGA
constexpr u32 BASE_C_START = 0x28;          // word of base C written once at start
constexpr u32 BASE_D_TEST_BITS = 0x2040;    // word of base D that holds the test bits

struct RegisterPlace {
    RegisterId id;
    Base base1; u32 offset1;                // board type 1
    Base base2; u32 offset2;                // board type 2
};

constexpr RegisterPlace REGISTER_MAP[] = {
    // id                       type 1              type 2
    {REG_FPGA_REVISION,         Base::A, 0x7c,      Base::B, 0x7c},
    {REG_BOARD_CONTROL,         Base::None, 0,      Base::C, 0x40},
    {REG_BFN_IN_COUNTERS,       Base::A, 0x104,     Base::C, 0xd4},
    {REG_BFN_IN_FLAGS,          Base::A, 0x100,     Base::C, 0xd0},
    {REG_BFN_IN_WORD1,          Base::A, 0x108,     Base::C, 0xd8},
    {REG_BFN_IN_WORD2,          Base::A, 0x10c,     Base::C, 0xdc},
    {REG_BFN_OUT_WORD1,         Base::A, 0x110,     Base::C, 0xe0},
    {REG_BFN_OUT_WORD2,         Base::A, 0x114,     Base::C, 0xe4},
    {REG_FSYNC,                 Base::A, 0x70,      Base::None, 0},
    {REG_INT_ENABLE,            Base::A, 0x40,      Base::C, 0x8},
    {REG_INT_PENDING,           Base::A, 0x44,      Base::C, 0x4},
    {REG_LOAD_EXT_SFC,          Base::None, 0,      Base::C, 0x84},
    {REG_LOAD_FRAMES,           Base::A, 0x2c,      Base::C, 0x88},
    {REG_LOAD_INCREMENTS,       Base::A, 0x30,      Base::C, 0x8c},
    {REG_LOAD_CONTROL,          Base::None, 0,      Base::C, 0x90},
    {REG_LOAD_STATUS,           Base::None, 0,      Base::C, 0x94},
    {REG_SFC_FRAMES,            Base::A, 0x24,      Base::C, 0xc8},
    {REG_SFC_INCREMENTS,        Base::A, 0x28,      Base::C, 0xcc},
    {REG_LATCH_VALID,           Base::None, 0,      Base::C, 0xb4},
    {REG_LATCH_FRAMES,          Base::A, 0x34,      Base::C, 0xb8},
    {REG_LATCH_INCREMENTS,      Base::A, 0x38,      Base::C, 0xbc},
    {REG_GPS_OUT_FRAMES,        Base::A, 0x130,     Base::C, 0xf0},
    {REG_GPS_OUT_INCREMENTS,    Base::A, 0x134,     Base::C, 0xf4},
    {REG_GPS_OUT_OFFSET,        Base::A, 0x134,     Base::C, 0xf8},
    {REG_NTP_WORD1,             Base::A, 0x4,       Base::None, 0},
    {REG_NTP_WORD2,             Base::A, 0x8,       Base::None, 0},
    {REG_A1_REF,                Base::A, 0x128,     Base::B, 0x128},
    {REG_IDT_MULT,              Base::A, 0x120,     Base::B, 0x120},
    {REG_MULT_READ_CONTROL,     Base::A, 0x12c,     Base::B, 0x12c},
    {REG_MULT_READ_STATUS,      Base::A, 0x17c,     Base::B, 0x17c},
    {REG_MULT_READ_DATA,        Base::A, 0x180,     Base::B, 0x180},
    {REG_TOGGLE_STATUS,         Base::A, 0x18,      Base::B, 0x18},
    {REG_HM,                    Base::A, 0x74,      Base::B, 0x74},
    {REG_SELECT,                Base::A, 0x20,      Base::B, 0x20},
    {REG_EEPROM_CONTROL,        Base::A, 0x14,      Base::B, 0x14},
    {REG_EEPROM_BASE,           Base::A, 0x80,      Base::B, 0x80},
    {REG_EEPROM_PART_NUMBER,    Base::A, 0x91,      Base::B, 0x91},
    {REG_EEPROM_CHECKSUM,       Base::A, 0xfc,      Base::B, 0xfc},
    {REG_NOM_FREQ_HIGH,         Base::A, 0xa0,      Base::B, 0xa0},
    {REG_NOM_FREQ_LOW,          Base::A, 0xa4,      Base::B, 0xa4},
    {REG_COEF_A0_HIGH,          Base::A, 0xc0,      Base::B, 0xc0},
    {REG_COEF_A0_LOW,           Base::A, 0xc4,      Base::B, 0xc4},
    {REG_COEF_A1_HIGH,          Base::A, 0xb8,      Base::B, 0xb8},
    {REG_COEF_A1_LOW,           Base::A, 0xbc,      Base::B, 0xbc},
    {REG_COEF_A2_HIGH,          Base::A, 0xb0,      Base::B, 0xb0},
    {REG_COEF_A2_LOW,           Base::A, 0xb4,      Base::B, 0xb4},
    {REG_COEF_A3_HIGH,          Base::A, 0xa8,      Base::B, 0xa8},
    {REG_COEF_A3_LOW,           Base::A, 0xac,      Base::B, 0xac},
    {REG_MIN_TEMP_HIGH,         Base::A, 0xd0,      Base::B, 0xd0},
    {REG_MIN_TEMP_LOW,          Base::A, 0xd4,      Base::B, 0xd4},
    {REG_MAX_TEMP_HIGH,         Base::A, 0xc8,      Base::B, 0xc8},
    {REG_MAX_TEMP_LOW,          Base::A, 0xcc,      Base::B, 0xcc},
    {REG_CALIB_DATE,            Base::None, 0,      Base::B, 0xd8},
    {REG_OCXO_TEMP,             Base::A, 0x10,      Base::B, 0x10},
    {REG_BB_CLK,                Base::A, 0xc,       Base::B, 0xc},
    {REG_SYNTH_STATUS,          Base::A, 0x1c,      Base::B, 0x1c},
    {REG_NOMINAL_DIVISOR,       Base::A, 0x48,      Base::B, 0x48},
    {REG_DS_M_HIGH,             Base::A, 0x4c,      Base::B, 0x4c},
    {REG_DS_M_LOW,              Base::A, 0x50,      Base::B, 0x50},
    {REG_DS_K_HIGH,             Base::A, 0x54,      Base::B, 0x54},
    {REG_DS_K_LOW,              Base::A, 0x58,      Base::B, 0x58},
    {REG_DS_ENABLE,             Base::A, 0x5c,      Base::B, 0x5c},
    {REG_SYNTH_C_DIVIDER,       Base::A, 0x124,     Base::B, 0x124},
    {REG_PLL_IC_SPI,            Base::A, 0x200,     Base::B, 0x200},
};

/// Addresses by board type (row 0 is unused) and register id.
using RegisterTable = std::array<std::array<u32, REGISTER_COUNT>, 3>;

struct BaseAddresses { u32 A = 0, B = 0, C = 0, D = 0; };

constexpr u32 registerAddress(Base base, u32 offset, const BaseAddresses& bases)
{
    switch (base) {
    case Base::A: return bases.A + offset;
    case Base::B: return bases.B + offset;
    case Base::C: return bases.C + offset;
    default:      return REGISTER_NONE;
    }
}

/// Fills the row of a board type; the other rows, and ids that the map doesn't name, hold none.
constexpr RegisterTable buildRegisterTable(u32 boardType, const BaseAddresses& bases)
{
    RegisterTable table{};
    for (auto& row : table)
        for (u32& address : row) address = REGISTER_NONE;
    for (const RegisterPlace& place : REGISTER_MAP) {
        if (boardType == 1) table[1][place.id] = registerAddress(place.base1, place.offset1, bases);
        if (boardType == 2) table[2][place.id] = registerAddress(place.base2, place.offset2, bases);
    }
    return table;
}

constexpr bool eachRegisterOnce()
{
    for (std::size_t i = 1; i < std::size(REGISTER_MAP); ++i)
        if (REGISTER_MAP[i].id <= REGISTER_MAP[i - 1].id) return false;
    return true;
}
static_assert(eachRegisterOnce());
