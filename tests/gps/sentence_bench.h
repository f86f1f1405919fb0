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

/// Degrees, minutes, fraction and direction of latitude and longitude, and the altitude.
inline std::vector<double> flat(const GpsPosition& p)
{
    const GpsCoordinate &lat = p.latitude, &lon = p.longitude;
    return {1.0 * lat.deg, 1.0 * lat.min, 1.0 * lat.fractMin, 1.0 * lat.dir, 1.0 * lon.deg,
            1.0 * lon.min, 1.0 * lon.fractMin, 1.0 * lon.dir, p.altitude};
}

/// Taken whatever came before; it changes DOP and the used satellites alone.
inline const std::string GOOD = "GPGSA,A,3,04,05,,09,12,,,24,,,,,002.5,001.3,002.1";

struct SentenceBench : bench::IifBench {
    GpsSentenceType type;        // of the last sentence

    SentenceBench() { connect(); }

    /// Parses a sentence without its "$" and CR; the traces are those of this sentence. One that
    /// ends in "$" was cut there by the line and has no CR.
    int take(const std::string& text)
    {
        node.traces().clear();
        int result = -1;
        const std::string whole = text.ends_with('$') ? text : text + "\r";
        in([&] { result = KvdLoz6TuGps_parseSentence(whole.c_str(), type); });
        return result;
    }
    /// Refused and counted with this trace; the next good sentence is taken.
    void refuses(const std::string& text, const std::string& trace)
    {
        const GpsLastSentence before = look([] { return KvdLoz6TuGps_lastSentence(); });
        EXPECT_EQ(take(text), 0) << text;
        EXPECT_TRUE(told(trace)) << text << "\nisn't refused by: " << trace << "\n" << tellAll();
        const GpsSentenceType refused = type;
        EXPECT_EQ(take(GOOD), 1) << "after " << text;
        type = refused;
        const GpsLastSentence after = look([] { return KvdLoz6TuGps_lastSentence(); });
        EXPECT_EQ(after.refused, before.refused + 1);
        EXPECT_EQ(after.taken, before.taken + 1);
    }
    struct Refusal { std::string text, trace; };
    void refusesEach(const std::vector<Refusal>& sentences)
    {
        for (const Refusal& r : sentences) refuses(r.text, r.trace);
    }
    /// A field with the name that its trace has; an empty name isn't tested.
    struct WidthField { std::string label, value; };
    /// Each field a character too long and too short refuses the sentence, which is filled up to
    /// the shortest length that is looked into, or gets a good checksum.
    void refusesOddWidths(const std::string& head, const std::vector<WidthField>& fields,
                          std::size_t shortest, bool withChecksum = false)
    {
        for (std::size_t n = 0; n < fields.size(); ++n) {
            if (fields[n].label.empty()) continue;
            for (const bool longer : {false, true}) {
                std::string text = head, odd = fields[n].value;
                if (longer) odd += '0';
                else odd.pop_back();
                for (std::size_t i = 0; i < fields.size(); ++i)
                    text += "," + (i == n ? odd : fields[i].value);
                while (text.size() < shortest) text += ',';
                refuses(withChecksum ? summed(text) : text,
                        fields[n].label + " field is " + std::to_string(odd.size()) + " bytes");
            }
        }
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

}  // namespace gpstest
