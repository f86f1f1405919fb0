// The ICs behind the board's registers: EEPROM, multiplicator, external PLL. They take words, and
// give back what they took.
#include "sim/board/board.h"

#include <cmath>

namespace sim {

// ---- EEPROM -------------------------------------------------------------------------------------

void Board::loadEeprom()
{
    constexpr ose::Time LOAD_TIME = 30 * ose::MS;
    constexpr u32 LOADED = 2;
    common_[EEPROM_CONTROL / 4] &= ~LOADED;
    if (!powered_ || faults.eepromNeverLoads || eepromEvent_ != 0) return;
    eepromEvent_ = world_.after(LOAD_TIME, [this] {
        eepromEvent_ = 0;
        fillEeprom();
        common_[EEPROM_CONTROL / 4] |= LOADED;
    });
}

void Board::fillEeprom()
{
    eeprom_.fill(0);
    if (faults.eepromZero) return;
    const EepromConfig& e = config_.eeprom;
    const OscillatorConfig& o = config_.oscillator;
    const auto text = [this](std::size_t at, const std::string& value, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i)
            eeprom_[at + i] = i < value.size() ? static_cast<u8>(value[i]) : ' ';
    };
    const auto fixed = [this](std::size_t at, double value) {   // signed, 32 fraction bits
        const u64 bits = static_cast<u64>(std::llround(value * 4294967296.0));
        for (std::size_t i = 0; i < 8; ++i) eeprom_[at + i] = static_cast<u8>(bits >> (56 - 8 * i));
    };
    eeprom_[0] = e.version;
    text(1, e.serial, 16);
    text(17, e.partNumber, 11);
    fixed(32, o.nominal_Hz);
    fixed(40, o.a[3]);
    fixed(48, o.a[2]);
    fixed(56, o.a[1]);
    fixed(64, o.a[0]);
    fixed(72, e.tempMax_V);
    fixed(80, e.tempMin_V);
    if (config_.type == 2 && !e.calibrationDate.empty()) text(88, e.calibrationDate, 10);
    u32 sum = 0;
    for (std::size_t i = 0; i < 125; ++i) sum += eeprom_[i];
    if (faults.eepromBadSum) ++sum;
    eeprom_[126] = static_cast<u8>(sum >> 8);
    eeprom_[127] = static_cast<u8>(sum);
}

u32 Board::eepromWord(u32 offset) const
{
    return static_cast<u32>(eeprom_[offset]) << 24 | static_cast<u32>(eeprom_[offset + 1]) << 16
           | static_cast<u32>(eeprom_[offset + 2]) << 8 | eeprom_[offset + 3];
}

// ---- multiplicator, external PLL ----------------------------------------------------------------

void Board::writeMultiplicator(u32 value)
{
    constexpr u32 TAKEN = 1u << 31;
    const u32 word = value & ~TAKEN;
    if ((word >> 8) == 0) {            // the burst begins at the IC's first address
        multiplicator_.clear();
        multiplicatorCount_ = 0;
    }
    const bool taken = multiplicatorCount_ != faults.multiplicatorTimeoutAt;
    ++multiplicatorCount_;
    if (taken && multiplicator_.size() < multiplicator_.capacity()) multiplicator_.push_back(word);
    common_[MULTIPLICATOR / 4] = taken ? word | TAKEN : word;
}

/// Read-back: the first word begins with the IC's identity, then a byte for each written word from
/// the fourth on.
u32 Board::multiplicatorData(u32 offset) const
{
    constexpr u32 IDENTITY = 0x10;
    constexpr u32 FIRST_INDEX = 3;
    if (offset < 4) return IDENTITY << 24;
    u32 word = 0;
    for (u32 i = 0; i < 4; ++i) {
        const u32 index = FIRST_INDEX + (offset / 4 - 1) * 4 + i;
        u32 byte = index < multiplicator_.size() ? multiplicator_[index] & 0xFF : 0;
        if (index == faults.multiplicatorDiffersAt) byte ^= 0xFF;
        word = word << 8 | byte;
    }
    return word;
}

void Board::writePllIc(u32 value)
{
    constexpr u32 BUSY = 1u << 31;
    common_[PLL_IC / 4] = faults.pllIcTimeout ? value | BUSY : value & ~BUSY;
    if (!faults.pllIcTimeout && pllIc_.size() < pllIc_.capacity()) pllIc_.push_back(value);
}

u32 Board::readBack(u32 offset)
{
    if (faults.readBackStuck > 0) {
        --faults.readBackStuck;
        return 0;
    }
    return common_[offset / 4];
}

}  // namespace sim
