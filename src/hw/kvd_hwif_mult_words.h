// kvd_hwif_mult_words.h - Programming words of the multiplicator and of the external PLL IC.
// Units   a word is IC address * 256 + value, in address order.
#pragma once
#include "ose/types.h"

#include <array>
#include <span>

namespace hwif {

/// Board without external phase detector: every address from 0 to 111.
constexpr std::array<u32, 112> MULTIPLICATOR_WORDS = {
        0,   256,   512,   768,  1024,  1535,  1584,  1792,  2171,  2427,  2683,  2939,
     3325,  3581,  3837,  4093,  4097,  4353,  4609,  4865,  5173,  5429,  5685,  5941,
     6176,  6432,  6688,  6944,  7296,  7488,  7680,  7936,  8192,  8448,  8704,  8960,
     9216,  9472,  9728,  9984, 10240, 10496, 10752, 11008, 11264, 11520, 11776, 12032,
    12288, 12544, 12800, 13056, 13558, 13783, 13824, 14080, 14336, 14592, 14848, 15104,
    15360, 15616, 15872, 16128, 16384, 16640, 16896, 17152, 17408, 17664, 17920, 18176,
    18432, 18688, 18944, 19200, 19456, 19896, 19968, 20224, 20480, 20920, 20992, 21248,
    21513, 21811, 22018, 22274, 22537, 22835, 23042, 23298, 23555, 23992, 24064, 24320,
    24576, 24832, 25088, 25344, 25600, 25856, 26112, 26368, 26624, 26880, 27136, 27392,
    27648, 27904, 28160, 28416,
};

/// Board with external phase detector: only the addresses that differ from the IC's own defaults.
constexpr std::array<u32, 53> MULTIPLICATOR_WORDS_EXT = {
        0,   256,   512,   768,  1024,  1535,  2107,  2363,  2619,  2875,  3325,  3581,
     3837,  4093,  4112,  4353,  4609,  4865,  5223,  5429,  5685,  5941,  6163,  6432,
     6688,  6944,  7296,  7488,  7680,  7936, 13553, 13783, 13824, 14080, 19896, 19968,
    20224, 20480, 20920, 20992, 21248, 21513, 21947, 22016, 22272, 22537, 22971, 23040,
    23296, 23555, 23992, 24064, 24320,
};

constexpr std::array<u32, 4> PLL_IC_WORDS = {32918, 4, 12345, 32914};

/// Indexes whose byte is compared when the IC is read back, with external phase detector.
constexpr std::array<u8, 11> CHECKED_INDEXES_EXT = {4, 5, 8, 9, 12, 13, 17, 21, 25, 32, 33};

constexpr std::span<const u32> multiplicatorWords(u32 extPhaseDetector)
{
    if (extPhaseDetector != 0) return MULTIPLICATOR_WORDS_EXT;
    return MULTIPLICATOR_WORDS;
}

/// Whether the byte read back for an index has to equal the table's: some addresses change by
/// themselves.
constexpr bool isCheckedIndex(u32 extPhaseDetector, u32 index)
{
    if (extPhaseDetector == 0) return index >= 4 && index <= 111 && index != 54 && index != 55;
    for (const u8 checked : CHECKED_INDEXES_EXT)
        if (checked == index) return true;
    return false;
}

constexpr bool inAddressOrder(std::span<const u32> words)
{
    for (std::size_t i = 1; i < words.size(); ++i)
        if (words[i] / 256 <= words[i - 1] / 256) return false;
    return true;
}
static_assert(inAddressOrder(MULTIPLICATOR_WORDS) && inAddressOrder(MULTIPLICATOR_WORDS_EXT));

}  // namespace hwif
