// Series of GPGSV and GLGSV: when a table changes, its order, the twelve for the client, and what
// becomes of a system that falls silent.
#include "gps/kvd_gps_nmea.h"
#include "sig/gps_sig.h"
#include "tests/gps/sentence_bench.h"

namespace {

using gpstest::SentenceBench;
using gpstest::summed;

struct Sat { u32 SVno, SNR; };

/// A whole series, four satellites a sentence.
std::vector<std::string> series(const std::string& name, const std::vector<Sat>& satellites)
{
    const std::size_t pages = std::max<std::size_t>(1, (satellites.size() + 3) / 4);
    std::vector<std::string> sentences;
    for (std::size_t page = 0; page < pages; ++page) {
        char part[40];
        std::snprintf(part, sizeof part, ",%u,%u,%02u", static_cast<u32>(pages),
                      static_cast<u32>(page + 1), static_cast<u32>(satellites.size()));
        std::string body = name + part;
        for (std::size_t i = page * 4; i < std::min(satellites.size(), page * 4 + 4); ++i) {
            std::snprintf(part, sizeof part, ",%02u,10,020,%02u", satellites[i].SVno,
                          satellites[i].SNR);
            body += part;
        }
        sentences.push_back(summed(body));
    }
    return sentences;
}

struct SatelliteBench : SentenceBench {
    void takeAll(const std::vector<std::string>& sentences)
    {
        for (const std::string& text : sentences) EXPECT_EQ(take(text), 1) << text;
    }
    template <typename F>
    std::vector<u32> numbers(F table)
    {
        return look([&] {
            std::vector<u32> found;
            for (const GpsSatellite& sat : table()) found.push_back(sat.SVno);
            while (!found.empty() && found.back() == 0) found.pop_back();
            return found;
        });
    }
    std::vector<u32> gps() { return numbers(KvdLoz6TuGps_gpsSatellites); }
    std::vector<u32> glonass() { return numbers(KvdLoz6TuGps_glonassSatellites); }
    std::vector<u32> best() { return numbers(KvdLoz6TuGps_bestSatellites); }
    u8 fillIndex() { return look(KvdLoz6TuGps_gpgsvFillIndex); }
};

using List = std::vector<u32>;

/// `count` satellites from `first` on, each a dB weaker than the one before.
std::vector<Sat> falling(u32 first, u32 count, u32 strongest)
{
    std::vector<Sat> satellites;
    for (u32 i = 0; i < count; ++i) satellites.push_back({first + i, strongest - i});
    return satellites;
}

}  // namespace

TEST(SatelliteSeries, ShowsWithItsLastSentence)
{
    SatelliteBench b;
    const auto sentences = series("GPGSV", {{1, 20}, {2, 45}, {3, 30}, {4, 30}, {5, 50}, {6, 30},
                                            {7, 10}, {8, 44}, {9, 30}, {10, 0}, {11, 31},
                                            {12, 46}});
    EXPECT_EQ(b.take(sentences[0]), 1);
    EXPECT_EQ(b.take(sentences[1]), 1);
    EXPECT_EQ(b.gps(), List{});
    EXPECT_EQ(b.fillIndex(), 8);
    EXPECT_EQ(b.take(sentences[2]), 1);
    EXPECT_EQ(b.fillIndex(), 0);
    EXPECT_EQ(b.gps(), (List{5, 12, 2, 8, 11, 3, 4, 6, 9, 1, 7, 10})) << "equals keep their order";
    EXPECT_EQ(b.look(KvdLoz6TuGps_gpsInView), 12);

    // The next series starts from nothing; what was left of the last doesn't show.
    b.takeAll(series("GPGSV", {{7, 33}}));
    EXPECT_EQ(b.gps(), List{7});
    const GpsSatellite sat = b.look([] { return KvdLoz6TuGps_gpsSatellites()[0]; });
    EXPECT_EQ(sat.elevation, 10);
    EXPECT_EQ(sat.azimuth, 20);
    EXPECT_EQ(sat.SNR, 33);
}

TEST(SatelliteSeries, IsRefusedWithTheReason)
{
    const std::string one = "GPGSV,1,1,04,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45";
    const std::string part = summed("GPGSV,2,1,08,01,40,083,46");
    SatelliteBench b;
    EXPECT_EQ(b.take(one), 1);
    const auto leaves = [&](u8 fillIndex, const std::string& text, const std::string& trace) {
        while (b.fillIndex() == 0) EXPECT_EQ(b.take(part), 1);
        b.refuses(text, trace);
        EXPECT_EQ(b.fillIndex(), fillIndex) << text;
        EXPECT_EQ(b.gps(), (List{1, 14, 2, 12})) << text;
    };
    leaves(0, "GPGSV,0,1,01", "GPGSV Total number of messages out of range: 0");
    leaves(0, summed("GPGSV,10,1,01"), "GPGSV Total number of messages out of range: 10");
    leaves(0, summed("GPGSV,3,9,12,01,40,083,46"), "GPGSV message number too large: 9");
    leaves(4, "GPGSV,1,1,1", "GPGSV: Sentence length error: 11 chars");
    leaves(4, summed(one + "0"), "GPGSV: Sentence length error: 68 chars");
    leaves(4, one + "*00", "KvdLoz6TuGps_parseGPGSV: Checksum incorrect or missing");
    leaves(4, "GPGSV,2,2,05,01,40,083", "NMEA parse error: End of sentence reached");
    leaves(4, summed("GPGSV,2,2,05,01,,,,01,,,,01,,,,01,,,,01,,,"),
           "GPGSV message not fully parsed (parsed 37 of 45 chars)");
    b.refusesOddWidths("GPGSV", {
        {"GPGSV total number of messages", "2"}, {"GPGSV message number", "2"},
        {"GPGSV satellites in view", "05"}, {"GPGSV SVno", "01"}, {"GPGSV elevation", "40"},
        {"GPGSV azimuth", "083"}, {"GPGSV SNR", "46"}}, 12);
    EXPECT_EQ(b.look(KvdLoz6TuGps_nmeaCounters).numberOfGPGSV, 27u) << "counted as they come";
    EXPECT_EQ(b.take(summed("GPGSV,2,2,08,01,40,083,46")), 1) << "ends the series";
    EXPECT_EQ(b.gps(), (List{1, 1}));
}

TEST(SatelliteSeries, OddOnesUnderAGoodChecksumAreTaken)
{
    SatelliteBench b;
    EXPECT_EQ(b.take(summed("GPGSV,1,1,200,1,4,8,6,,,,,3,,,7")), 1);
    EXPECT_EQ(b.look(KvdLoz6TuGps_gpsInView), 200);
    EXPECT_EQ(b.gps(), (List{3, 1}));
    // A tenth page of nine can't be told from a tenth slot: the last slot takes them all.
    for (int page = 1; page <= 8; ++page) b.take(summed("GPGSV,9," + std::to_string(page) + ",36"));
    EXPECT_EQ(b.fillIndex(), 32);
    b.take(summed("GPGSV,9,8,36,31,10,020,40"));
    EXPECT_EQ(b.fillIndex(), 32);
    EXPECT_EQ(b.take(summed("GPGSV,9,9,36,32,10,020,41")), 1);
    EXPECT_EQ(b.gps(), List{32});
}

TEST(BestSatellites, HoldOneOfEachSystem)
{
    SatelliteBench b;
    b.takeAll(series("GPGSV", falling(1, 13, 60)));
    EXPECT_EQ(b.best(), (List{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    b.takeAll(series("GLGSV", {{65, 20}, {66, 30}}));
    EXPECT_EQ(b.best(), (List{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 66}));
    EXPECT_EQ(b.numbers(KvdLoz6TuGps_mergedSatellites).at(11), 12u)
        << "the merged table keeps its order";
    EXPECT_EQ(b.look(KvdLoz6TuGps_noOfSatellitesInView), 15);

    b.takeAll(series("GLGSV", falling(65, 13, 90)));
    EXPECT_EQ(b.best(), (List{65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 1}));
    b.takeAll(series("GPGSV", {}));
    EXPECT_EQ(b.best().back(), 76u) << "no GPS satellite, none to put in";

    b.in([] { KvdLoz6TuGps_resetSatellites(); });
    EXPECT_EQ(b.best(), List{});
    EXPECT_EQ(b.glonass(), List{});
    EXPECT_EQ(b.look(KvdLoz6TuGps_noOfSatellitesInView), 0);
}

TEST(SilentSystem, IsForgottenAfterAMinute)
{
    SatelliteBench b;
    b.node.system().call(*b.node.program(), [] {
        const auto take = [](const std::string& text) {
            GpsSentenceType type;
            EXPECT_EQ(KvdLoz6TuGps_parseSentence((text + "\r").c_str(), type), 1);
        };
        for (const std::string& text : series("GLGSV", {{65, 40}})) take(text);
        EXPECT_EQ(ose::receive_w_tmo(30'000, ose::ANY_SIGNAL), nullptr);
        for (const std::string& text : series("GPGSV", {{1, 30}, {2, 20}})) take(text);
        EXPECT_EQ(ose::receive_w_tmo(29'999, ose::ANY_SIGNAL), nullptr);
        Signal* sig = ose::receive_w_tmo(1, ose::ANY_SIGNAL);
        ASSERT_NE(sig, nullptr);
        EXPECT_EQ(sig->sigNo, KVD_TUGPS_RESET_GLONASS_SATELLITES);
        ose::free_buf(&sig);
        KvdLoz6TuGps_onResetGlonassSatellites();
        // Half a series keeps its system, too.
        take(summed("GPGSV,2,1,05,01,10,020,30"));
        EXPECT_EQ(ose::receive_w_tmo(59'999, ose::ANY_SIGNAL), nullptr);
        sig = ose::receive_w_tmo(1, ose::ANY_SIGNAL);
        ASSERT_NE(sig, nullptr);
        EXPECT_EQ(sig->sigNo, KVD_TUGPS_RESET_GPS_SATELLITES);
        ose::free_buf(&sig);
        EXPECT_EQ(KvdLoz6TuGps_bestSatellites()[0].SVno, 1) << "GLONASS alone is gone";
        EXPECT_EQ(KvdLoz6TuGps_noOfSatellitesInView(), 2);
        KvdLoz6TuGps_onResetGpsSatellites();
        EXPECT_EQ(KvdLoz6TuGps_bestSatellites()[0].SVno, 0);
        EXPECT_EQ(KvdLoz6TuGps_noOfSatellitesInView(), 0);
        take(summed("GLGSV,1,1,01,65,10,020,30"));
        KvdLoz6TuGps_cancelSatelliteTimers();
        EXPECT_EQ(ose::receive_w_tmo(120'000, ose::ANY_SIGNAL), nullptr);
    }, 15, "silence");
    b.node.system().faults().refuseTimers = 1;
    EXPECT_EQ(b.take(series("GLGSV", {{65, 40}})[0]), 1);
    EXPECT_TRUE(b.told("Unable to start reset glonass satellites timer!"));
    EXPECT_EQ(b.glonass(), List{65});
}
