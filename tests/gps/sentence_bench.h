// sentence_bench.h - Sentence parsers in a connected unit's manager process, one sentence at a
// time.
#pragma once
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_receiver.h"
#include "tests/iif/iif_bench.h"

#include <cstdio>

namespace gpstest {

/// The body with its checksum.
inline std::string summed(const std::string& body)
{
    u8 sum = 0;
    for (const char c : body) sum ^= static_cast<u8>(c);
    char text[4];
    std::snprintf(text, sizeof text, "*%02X", sum);
    return body + text;
}

struct SentenceBench : bench::IifBench {
    GpsSentenceType type;        // of the last sentence

    SentenceBench() { connect(); }

    /// Parses a sentence without its "$" and CR; the traces are those of this sentence.
    int take(const std::string& text)
    {
        node.traces().clear();
        int result = -1;
        in([&] { result = KvdLoz6TuGps_parseSentence((text + "\r").c_str(), type); });
        return result;
    }
    /// The traces hold this one, whole.
    bool told(const std::string& text)
    {
        for (const sim::TraceLine& line : node.traces().find({text}))
            if (line.text == text) return true;
        return false;
    }
    std::string tellAll()
    {
        std::string all;
        for (const sim::TraceLine& line : node.traces().lines()) all += line.text + "\n";
        return all;
    }
    GpsReceiver receiver() { return look([] { return KvdLoz6TuGps_receiver(); }); }
    void setType(u32 gpssType) { in([=] { KvdLoz6TuGps_setGpssType(gpssType); }); }

    struct Quality { std::size_t count; u32 clockQuality; };
    /// Quality levels that went out since the last look, and the latest one's value.
    Quality quality()
    {
        const std::size_t count = sent(KVD_TUIIF_QUALITY_LEVEL_IND);
        const auto ind = take_<KvdTuiifQualityLevelInd>();
        if (!ind) return {0, 0};
        EXPECT_EQ(ind->froId, 0u);
        EXPECT_EQ(ind->froClassNo, 3u);
        EXPECT_EQ(ind->tcuDetected, 0u);
        return {count, ind->clockQuality};
    }

private:
    template <typename T>
    std::optional<T> take_() { return IifBench::take<T>(KVD_TUIIF_QUALITY_LEVEL_IND); }
};

/// A sentence that is refused or taken, and a trace that tells why.
struct Case {
    const char* what;
    std::string text;
    int result;
    const char* trace = "";
};
template <typename Bench, typename Cases>
void check(Bench& bench, const Cases& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(bench.take(c.text), c.result) << c.text;
        EXPECT_TRUE(*c.trace == '\0' || bench.told(c.trace)) << c.trace << "\n" << bench.tellAll();
    }
}

/// Fields of a sentence without checksum with their widths' names; empty names aren't tested.
struct WidthField { const char* label; std::string value; };
/// Each field a character too long and too short refuses the sentence.
template <typename Bench>
void checkWidths(Bench& bench, const std::string& head, const std::vector<WidthField>& fields)
{
    for (std::size_t n = 0; n < fields.size(); ++n) {
        if (*fields[n].label == '\0') continue;
        for (const int change : {-1, 1}) {
            std::string text = head;
            std::size_t width = fields[n].value.size();
            for (std::size_t i = 0; i < fields.size(); ++i) {
                std::string value = fields[i].value;
                if (i == n && change < 0) value.pop_back();
                if (i == n && change > 0) value += '0';
                if (i == n) width = value.size();
                text += "," + value;
            }
            EXPECT_EQ(bench.take(text), 0) << text;
            const std::string told = " field is " + std::to_string(width) + " bytes";
            EXPECT_TRUE(bench.told(fields[n].label + told))
                << text << "\n" << bench.tellAll();
        }
    }
}

}  // namespace gpstest
