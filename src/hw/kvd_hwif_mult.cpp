// kvd_hwif_mult.cpp - Programs the multiplicator IC and the external PLL IC, and reads the first
// back.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_mult_words.h"
#include "hw/kvd_hwif_priv.h"

#include "base/trace_groups.h"
#include "node/mmio.h"
#include "node/trace.h"
#include "ose/ose.h"

using namespace hwif;

namespace {

constexpr OSTIME WRITE_SETTLE_ms = 3;
constexpr OSTIME WRITE_POLL_ms = 1;
constexpr int WRITE_POLLS = 1000;
constexpr OSTIME READ_SETTLE_ms = 50;
constexpr OSTIME READ_POLL_ms = 10;
constexpr int READ_POLLS = 500;
constexpr OSTIME FEEDBACK_SETTLE_ms = 100;
constexpr u32 ATTEMPTS = 3;

constexpr u32 READ_DATA_VALID = 0x2;      // of the read control register
constexpr u32 READ_CRC_ERROR = 1u << 18;  // of the read status register
constexpr u32 IC_IDENTITY = 0x10;         // first byte of a read
constexpr u32 FIRST_READ_INDEX = 3;       // table index behind the first word
constexpr u32 FEEDBACK_30_72_MHZ = 0x8;   // of the synthesiser status
constexpr u32 A1_REF_MASK = 0x7FF;

/// Writes a word and waits until bit 31 reads `taken`.
bool writeIcWord(u32 address, u32 word, bool taken)
{
    node::mmioWrite(address, word);
    ose::delay(WRITE_SETTLE_ms);
    for (int poll = 0; poll < WRITE_POLLS; ++poll) {
        if (((node::mmioRead(address) & BIT31) != 0) == taken) return true;
        ose::delay(WRITE_POLL_ms);
    }
    return false;
}

bool waitForReadData(u32 control)
{
    for (int poll = 0; poll < READ_POLLS; ++poll) {
        if ((node::mmioRead(control) & READ_DATA_VALID) != 0) return true;
        ose::delay(READ_POLL_ms);
    }
    return false;
}

/// Holds the bytes that were read against the table: the first word has the identity, three bytes
/// that don't count, and from there on a byte an index.
bool compareReadData(u32 data)
{
    const u32 ext = extPhaseDetector();
    const std::span<const u32> words = multiplicatorWords(ext);
    const u32 identity = node::mmioRead(data) >> 24;
    if (identity != IC_IDENTITY) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "IDT MULT data read from fpga differs, expected %x read %x ",
                  IC_IDENTITY, identity);
        return false;
    }
    for (u32 index = FIRST_READ_INDEX; index < words.size(); ++index) {
        if (!isCheckedIndex(ext, index)) continue;
        const u32 position = index - FIRST_READ_INDEX;
        const u32 word = node::mmioRead(data + 4 * (1 + position / 4));
        const u32 read = (word >> (24 - 8 * (position % 4))) & 0xFF;
        const u32 expected = words[index] & 0xFF;
        if (read != expected) {
            KVD_TRACE(
                TRACE_TUHWIF, TRACE_ERROR,
                "IDT MULT data read from fpga differs, expected %x read %x for IDT address %x",
                expected, read, index);
            return false;
        }
    }
    return true;
}

/// True when the 30,72 MHz comes back; a miss is told with the attempt's number.
bool isFeedbackThere(u32 attempt)
{
    if ((tuHwIf_readSynthStatus() & FEEDBACK_30_72_MHZ) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "SYNTH C: Feedback check on 30,72 MHz successfull");
        return true;
    }
    const u32 low = getBoardType() == BVQ3 ? 1173 : 1251;
    const u32 high = low + 2;
    const u32 count = readA1Ref();
    if (count < low || count > high)
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR,
                  "Error (%u): SYNTH C: Feedback is missing on 30,72 MHz. A1_REF=%u. Expected "
                  "between %u and %u",
                  attempt, count, low, high);
    else
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR,
                  "Error (%u): SYNTH C: Feedback is missing on 30,72 MHz. A1_REF=%u.", attempt, count);
    return false;
}

}  // namespace

namespace hwif {

bool tuHwIf_writeMultiplicator()
{
    const u32 type = extPhaseDetector();
    const std::span<const u32> words = multiplicatorWords(type);
    const auto address = findRegister(REG_IDT_MULT);
    if (!address) return false;
    for (u32 elem = 0; elem < words.size(); ++elem) {
        if (writeIcWord(*address, words[elem], true)) continue;
        const u32 word = node::mmioRead(*address);
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR,
                  "Unable to write multiplicator values to FPGA, BVF_IDT_MULT_REG = 0x%08x, type = "
                  "%d, elem = %u",
                  word, static_cast<int>(type), elem);
        return false;
    }
    return true;
}

bool tuHwIf_writeExternalPllIC()
{
    const u32 type = extPhaseDetector();
    const auto address = findRegister(REG_PLL_IC_SPI);
    if (!address) return false;
    for (u32 elem = 0; elem < PLL_IC_WORDS.size(); ++elem) {
        if (writeIcWord(*address, PLL_IC_WORDS[elem], false)) continue;
        const u32 word = node::mmioRead(*address);
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR,
                  "Unable to write PLL IC values to FPGA, BVF_PLL_IC_SPI_REG = 0x%08x, type = %d, "
                  "elem = %u",
                  word, static_cast<int>(type), elem);
        return false;
    }
    return true;
}

bool readAndCheckMultiplicator()
{
    const auto control = findRegister(REG_MULT_READ_CONTROL);
    if (!control) return false;
    node::mmioWrite(*control, 1);
    ose::delay(READ_SETTLE_ms);
    if (!waitForReadData(*control)) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unable to read IDT MULT data (data valid never set).");
        return false;
    }
    const u32 crc = readRegisterOr0(REG_MULT_READ_STATUS);
    if ((crc & READ_CRC_ERROR) != 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "IDT CRC error, expected 0 read %x ", crc);
        return false;
    }
    const auto data = findRegister(REG_MULT_READ_DATA);
    return data && compareReadData(*data);
}

bool writeAndCheckMultiplicator()
{
    for (u32 attempt = 1; attempt <= ATTEMPTS; ++attempt) {
        if (!tuHwIf_writeMultiplicator()) {   // an IC that takes no word isn't tried again
            KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Error while writing multiplicator values");
            return false;
        }
        if (!readAndCheckMultiplicator()) continue;
        ose::delay(FEEDBACK_SETTLE_ms);
        if (isFeedbackThere(attempt)) return true;
    }
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Error while writing and checking multiplicator values");
    return false;
}

void enableExternalPll() { updateRegister(REG_SELECT, 0, BIT31); }

u32 readA1Ref() { return readRegisterOr0(REG_A1_REF) & A1_REF_MASK; }

}  // namespace hwif
