#include "pktsync/tupktsync_ptp_quality.h"

#include "base/trace_groups.h"
#include "node/trace.h"

#include <algorithm>

namespace {

enum class Flag : u8 { No, Yes, Any };
enum class Accuracy : u8 { Equal, Above, Below, Other, Any };

struct QualityRow {
    i16 clockClass;                   // -1 any
    Flag frequency, time;
    Accuracy accuracy;
    u8 value;                         // that the accuracy is held against
};

constexpr i16 ANY_CLASS = -1;
constexpr Flag NO = Flag::No, YES = Flag::Yes, ANY = Flag::Any;
constexpr Accuracy EQUAL = Accuracy::Equal, ABOVE = Accuracy::Above, BELOW = Accuracy::Below,
                   OTHER = Accuracy::Other, ANY_ACCURACY = Accuracy::Any;
constexpr u8 WITHIN_100ns = 0x21, UNKNOWN = 0xFE;   // IEEE 1588-2008 table 6

// Classes of ITU-T G.8275.1 table 2 and G.8265.1; the first row that matches.
constexpr QualityRow QUALITY[] = {
    {6, YES, YES, EQUAL, WITHIN_100ns},                                  // 0
    {6, YES, YES, ABOVE, WITHIN_100ns},  {6, YES, YES, BELOW, WITHIN_100ns},
    {6, YES, NO, EQUAL, WITHIN_100ns},   {6, NO, YES, EQUAL, WITHIN_100ns},
    {6, NO, NO, EQUAL, WITHIN_100ns},                                    // 5
    {6, NO, NO, ABOVE, WITHIN_100ns},    {6, NO, NO, BELOW, WITHIN_100ns},
    {7, ANY, YES, EQUAL, UNKNOWN},       {7, ANY, YES, OTHER, UNKNOWN},
    {7, ANY, NO, EQUAL, UNKNOWN},                                        // 10
    {7, ANY, NO, OTHER, UNKNOWN},        {52, NO, NO, EQUAL, UNKNOWN},
    {52, NO, NO, OTHER, UNKNOWN},        {52, YES, NO, ANY_ACCURACY, 0},
    {52, NO, YES, ANY_ACCURACY, 0},                                      // 15
    {135, ANY, YES, EQUAL, UNKNOWN},     {135, ANY, YES, OTHER, UNKNOWN},
    {135, ANY, NO, EQUAL, UNKNOWN},      {135, ANY, NO, OTHER, UNKNOWN},
    {140, YES, NO, EQUAL, UNKNOWN},                                      // 20
    {140, YES, YES, ANY_ACCURACY, 0},    {140, YES, NO, OTHER, UNKNOWN},
    {140, NO, NO, EQUAL, UNKNOWN},       {140, NO, YES, ANY_ACCURACY, 0},
    {150, NO, NO, EQUAL, UNKNOWN},                                       // 25
    {150, NO, NO, OTHER, UNKNOWN},       {150, YES, NO, ANY_ACCURACY, 0},
    {150, YES, YES, ANY_ACCURACY, 0},    {150, NO, YES, ANY_ACCURACY, 0},
    {160, NO, NO, EQUAL, UNKNOWN},                                       // 30
    {160, NO, NO, OTHER, UNKNOWN},       {160, YES, NO, ANY_ACCURACY, 0},
    {160, YES, YES, ANY_ACCURACY, 0},    {160, NO, YES, ANY_ACCURACY, 0},
    {165, YES, NO, EQUAL, UNKNOWN},                                      // 35
    {165, NO, NO, EQUAL, UNKNOWN},       {165, ANY, NO, OTHER, UNKNOWN},
    {165, ANY, YES, ANY_ACCURACY, 0},    {187, YES, NO, EQUAL, UNKNOWN},
    {187, NO, NO, EQUAL, UNKNOWN},                                       // 40
    {187, ANY, NO, OTHER, UNKNOWN},      {187, ANY, YES, ANY_ACCURACY, 0},
    {248, YES, NO, EQUAL, UNKNOWN},      {248, NO, NO, EQUAL, UNKNOWN},
    {248, ANY, YES, ANY_ACCURACY, 0},                                    // 45
    {248, ANY, NO, OTHER, UNKNOWN},      {ANY_CLASS, ANY, YES, ANY_ACCURACY, 0},
    {ANY_CLASS, ANY, NO, ANY_ACCURACY, 0},
};

bool matches(Flag wanted, bool is) { return wanted == ANY || (wanted == YES) == is; }

bool matches(const QualityRow& row, u8 accuracy)
{
    switch (row.accuracy) {
    case Accuracy::Equal: return accuracy == row.value;
    case Accuracy::Above: return accuracy > row.value;
    case Accuracy::Below: return accuracy < row.value;
    case Accuracy::Other: return accuracy != row.value;
    case Accuracy::Any:   break;
    }
    return true;
}

/// Bit i of a set of QualityLevelIndex values.
constexpr u64 bitsOf(std::initializer_list<u8> indices)
{
    u64 bits = 0;
    for (const u8 i : indices) bits |= 1ull << i;
    return bits;
}
constexpr u64 span(u8 from, u8 to) { return (2ull << to) - (1ull << from); }

constexpr u64 CLASS_FAULTS = span(12, 15) | span(20, 48);
constexpr u64 ACCURACY_FAULTS = bitsOf({1, 6});
constexpr u64 TIME_FAULTS = bitsOf({3, 5, 6, 7, 22, 23, 43, 44, 46, 48}) | span(10, 14) | span(18, 20)
                            | span(25, 27) | span(30, 32) | span(35, 37) | span(39, 41);
constexpr u64 FREQUENCY_FAULTS = span(4, 7) | span(23, 24);
constexpr u64 CONSISTENT = bitsOf(
    {0, 1, 3, 4, 5, 6, 8, 10, 12, 16, 18, 20, 23, 25, 30, 35, 36, 39, 40, 43, 44, 47, 48});

u32 with(u32 faults, u32 fault, bool raised, const char* text)
{
    if (!raised) return faults & ~fault;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_3, "%s", text);
    return faults | fault;
}

}  // namespace

u8 ptpQualityLevelIndex(const PtpTraceability& t)
{
    for (const QualityRow& row : QUALITY)
        if ((row.clockClass == ANY_CLASS || row.clockClass == t.clockClass)
            && matches(row.frequency, t.frequencyTraceable) && matches(row.time, t.timeTraceable)
            && matches(row, t.clockAccuracy))
            return static_cast<u8>(&row - QUALITY);
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "Unexpected QL mapping");
    return std::size(QUALITY) - 1;
}

u32 ptpFaultsG82751(u8 qualityLevelIndex, u32 faults)
{
    struct Check { u64 raisedFor; u32 fault; const char* text; };
    constexpr Check CHECKS[] = {
        {CLASS_FAULTS, FAULT_CLOCK_CLASS, "Raising FAULT_CLOCK_CLASS for G82751 PROFILE."},
        {ACCURACY_FAULTS, FAULT_CLOCK_ACCURACY, "Raising FAULT_CLOCK_ACCURACY for G82751 PROFILE."},
        {TIME_FAULTS, FAULT_TIME_NOT_TRACEABLE, "Raising FAULT_TIME_NOT_TRACEABLE for G82751 PROFILE."},
        {FREQUENCY_FAULTS, FAULT_FREQ_NOT_TRACEABLE, "Raising FAULT_FREQ_NOT_TRACEABLE for G82751 PROFILE."},
        {~CONSISTENT, FAULT_TRACEABLILITY_INCONSISTENT,
         "Raising FAULT_TRACEABLILITY_INCONSISTENT for G82751 PROFILE."},
    };
    for (const Check& c : CHECKS)
        faults = with(faults, c.fault, (c.raisedFor >> qualityLevelIndex & 1) != 0, c.text);
    return faults;
}

u32 ptpFaultsJ3(const PtpRequirement& required, const PtpTraceability& t, bool ptpTimescale, u32 faults)
{
    const auto& classes = required.freqClockClassG8265_1;
    if (!required.isFrequency && !ptpTimescale) {
        faults = with(faults, FAULT_CLOCK_CLASS, true,
                      "Raising FAULT_CLOCK_CLASS. A pktTimeRef requires PTP server that generates "
                      "ptpTimescale");
    } else {
        const bool isListed = required.isFrequency
                              && std::find(classes.begin(), classes.end(), t.clockClass) != classes.end();
        faults = with(faults, FAULT_CLOCK_CLASS, !isListed && t.clockClass > required.clockClass,
                      "Raising FAULT_CLOCK_CLASS. PTP server does not have supported PTP class");
    }
    faults &= ~u32{FAULT_CLOCK_ACCURACY};
    if (t.clockAccuracy > required.clockAccuracy) faults |= FAULT_CLOCK_ACCURACY;
    if (required.isFrequency) return faults;
    faults &= ~u32{FAULT_TIME_NOT_TRACEABLE};
    return t.timeTraceable ? faults : faults | FAULT_TIME_NOT_TRACEABLE;
}
