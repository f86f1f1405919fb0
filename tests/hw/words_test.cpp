// Words that no check values hold: the hardware monitor's, and which of a multiplicator's are compared.
#include "hw/kvd_hwif_mult_words.h"
#include "hw/kvd_hwif_priv.h"

#include <gtest/gtest.h>

#include <array>

using namespace hwif;

TEST(Words, HardwareMonitorTakesThreeBitsADetector)
{
    u32 word = 0;
    EXPECT_TRUE(hmWord(0, 4, 0xFFFFFFFF, word));
    EXPECT_EQ(word, 0xFFFFFFFDu);
    EXPECT_TRUE(hmWord(5, 2, 0, word));
    EXPECT_EQ(word, 0x00010000u);
    EXPECT_TRUE(hmWord(6, 3, 0, word));
    EXPECT_EQ(word, 0x00100000u);
    EXPECT_FALSE(hmWord(6, 2, 0, word));
    EXPECT_FALSE(hmWord(6, 5, 0, word));
    EXPECT_FALSE(hmWord(7, 0, 0, word));
    EXPECT_FALSE(hmWord(0, 6, 0, word));
}

TEST(Words, OfTheMultiplicatorAreComparedWhereTheIcHoldsStill)
{
    struct Case { u32 ext; u32 index; bool checked; };
    for (const Case& c : std::to_array<Case>({{0, 3, false},
                                              {0, 4, true},
                                              {0, 53, true},
                                              {0, 54, false},
                                              {0, 55, false},
                                              {0, 56, true},
                                              {0, 111, true},
                                              {0, 112, false},
                                              {1, 4, true},
                                              {1, 6, false},
                                              {1, 33, true},
                                              {1, 34, false}}))
        EXPECT_EQ(isCheckedIndex(c.ext, c.index), c.checked) << c.ext << " " << c.index;
}
