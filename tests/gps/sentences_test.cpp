// Sentences beyond the check values: lengths on both sides of each limit, a good one after a refused one,
// systems that fall silent, and the questions to a receiver's module.
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_trimble.h"
#include "sig/gps_sig.h"
#include "tests/gps/gps_replay.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_process.h"

namespace {

using bench::sentence;

/// Taken whatever came before; it changes DOP and the used satellites alone.
const std::string GOOD = "GPGSA,A,3,04,05,,09,12,,,24,,,,,002.5,001.3,002.1";

int parse(const std::string& text)
{
    GpsSentenceType type;
    return KvdLoz6TuGps_parseSentence(text.c_str(), type);
}

struct Sentences : bench::GpsReplay {
    /// With its CR; the traces are those of this sentence.
    int take(const std::string& text)
    {
        node.traces().clear();
        int result = -1;
        in([&] { result = parse(text); });
        return result;
    }
    /// Refused with this trace and counted; the next good one is taken.
    void refuses(const std::string& text, const std::string& trace)
    {
        const GpsLastSentence before = look([] { return KvdLoz6TuGps_lastSentence(); });
        EXPECT_EQ(take(text), 0) << text;
        EXPECT_TRUE(node.traces().has(trace)) << text << "isn't refused by: " << trace;
        EXPECT_EQ(take(GOOD + "\r"), 1) << "after " << text;
        const GpsLastSentence after = look([] { return KvdLoz6TuGps_lastSentence(); });
        EXPECT_EQ(after.refused, before.refused + 1);
        EXPECT_EQ(after.taken, before.taken + 1);
    }
};

TEST(Sentences, BothSidesOfTheirLengths)
{
    struct Row { std::string shortest, longest; u32 tooShort, tooLong; };
    Sentences b;
    for (const Row& r : std::to_array<Row>({
             {"PNVX,GPppr,12,01234,00000,00,0,0", "PNVX,GPppr,0123456,01234,00000,00,0,0", 34, 41},
             {"PNVX,GPsts,1,1,0,0000", "PNVX,GPsts,1,1,0," + std::string(60, '0'), 23, 81},
             {"PNVX,GPver,,,,", "PNVX,GPver,0123456789abcdef,0123456789abcdef,0123456789abcd,"
                                "01234567890123", 16, 78},
             {"PNVX,GPavp,4807.0380,N,01131.0000,E,00545.4,00",
              "PNVX,GPavp,4807.0380,N,01131.0000,E,0000545.4,0000", 48, 54},
             {"PNVX,GPout,05,0,0,0,0", "PNVX,GPout,005,001,1,0,0", 23, 28}})) {
        const std::string length = r.shortest.substr(5, 5) + ": Sentence length error: ";
        EXPECT_EQ(b.take(sentence(r.shortest)), 1) << r.shortest;
        EXPECT_EQ(b.take(sentence(r.longest)), 1) << r.longest;
        b.refuses(sentence(r.shortest.substr(0, r.shortest.size() - 1)), length + std::to_string(r.tooShort));
        b.refuses(sentence(r.longest + "0"), length + std::to_string(r.tooLong));
    }
    EXPECT_EQ(b.take(sentence("PNVX,GPout,05,-1,0,0,0")), 1);
    EXPECT_TRUE(b.node.traces().has("remoteJumpIndication in GPout message : 4294967295"));
    const std::string gga = "GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,,";
    b.refuses(gga + "00,1234,00\r", "GPGGA: Sentence length error: 80 chars");
    b.refuses(sentence(gga + "," + std::string(179, 'x')), "(parsed 71 of 253 chars)");   // a whole line
    b.refuses(GOOD.substr(0, 30) + std::string(1, '\0') + "0\r", "GPGSA: Sentence length error: 30 chars");
    b.refuses("PNVX,GPver,GPS02,KDU123,R1A,1205p0*2\r", "GPver: Checksum incorrect or missing");
    b.refuses("PTNLRBA\r", "PTNLRBA: Sentence length error: 7 chars");
    b.refuses("PTNLRBA,1,00001\r", "PTNLRBA: Sentence length error: 15 chars");
    b.refuses("PFEC,GPanc,230115123456," + std::string(36, '9') + "\r", "GPanc: Sentence length error: 60");
}

TEST(Sentences, AWrittenOneNeedsRoomForItsEnd)
{
    char out[32];
    EXPECT_EQ(KvdLoz6TuGps_frameSentence(out, 17, "PTNLSRT,C,0", NMEA_CHECKSUM), 0u) << "no room for the NUL";
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KvdLoz6TuGps_frameSentence(out, 18, "PTNLSRT,C,0", NMEA_CHECKSUM), 17u);
    EXPECT_STREQ(out, "$PTNLSRT,C,0*20\r\n");
}

/// The digits of the checksum are the last field, but for GPppr. What stands behind them keeps the length.
TEST(Sentences, WithoutAllTheirFieldsAreNoWord)
{
    constexpr const char* END = "NMEA parse error: End of sentence reached";
    Sentences b;
    for (const std::string whole :
         {"PNVX,GPsts,2,001,000", "PNVX,GPver,GPS02,KDU123,R1A", "PNVX,GPout,005,0,1,0",
          "PNVX,GPavp,4807.0380,N,01131.0000,E,0000545.4", "PNVX,GPppr,123456,01234,00000,00,1,0"})
        for (std::size_t end = whole.size(); (end = whole.rfind(',', end - 1)) > 4;) {
            std::string cut = sentence(whole.substr(0, end));
            cut.insert(cut.size() - 1, whole.size() + 5 - cut.size(), 'x');
            const bool isDirection = cut[cut.find('*') - 5] == '.';
            b.refuses(cut, isDirection ? "tude direction value" : END);
        }
    b.refuses("PTNLRVR,H*34xx\r", END);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_receiver().gpsTow; }), 123456u) << "stored as it is read";
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().gpssStatus; }), 0xFF);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gppprCount; }), 0);
    EXPECT_EQ(b.mp().count(KVD_TUIIF_QUALITY_LEVEL_IND), 0u);
}

TEST(Sentences, ASeriesKeepsToItsTable)
{
    Sentences b;
    b.refuses("GPGSV,2,1,05,1\r", "GPGSV SVno field is 1 bytes");
    for (int page = 1; page <= 8; ++page) b.take(sentence("GPGSV,9," + std::to_string(page) + ",36"));
    b.take(sentence("GPGSV,9,8,36,31,10,020,40"));            // one more than there is room for
    EXPECT_EQ(b.look(KvdLoz6TuGps_gpgsvFillIndex), 32);
    EXPECT_EQ(b.take(sentence("GPGSV,9,9,36,32,10,020,41")), 1);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_gpsSatellites()[0].SVno; }), 32);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_gpsSatellites()[1].SVno; }), 0) << "the last takes all";
    b.take(sentence("GLGSV,1,1,01,96,10,020,10"));
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_bestSatellites().back().SVno; }), 0) << "both are there";
    for (int page = 1; page <= 3; ++page)
        b.take(sentence("GPGSV,3," + std::to_string(page)
                        + ",12,01,10,020,40,02,10,020,40,03,10,020,40,04,10,020,40"));
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_bestSatellites().back().SVno; }), 96) << "one of each system";
}

TEST(Sentences, ASystemThatFallsSilentIsForgottenAfterAMinute)
{
    Sentences b;
    b.node.system().call(*b.node.program(), [] {
        const auto take = [](const std::string& text) { EXPECT_EQ(parse(sentence(text)), 1); };
        const auto nextIs = [](OSTIME ms, SIGSELECT sigNo) {
            EXPECT_EQ(ose::receive_w_tmo(ms - 1, ose::ANY_SIGNAL), nullptr);
            Signal* sig = ose::receive_w_tmo(1, ose::ANY_SIGNAL);
            ASSERT_NE(sig, nullptr);
            EXPECT_EQ(sig->sigNo, sigNo);
            ose::free_buf(&sig);
        };
        take("GLGSV,1,1,01,65,10,020,40");
        EXPECT_EQ(ose::receive_w_tmo(30'000, ose::ANY_SIGNAL), nullptr);
        take("GPGSV,1,1,02,01,10,020,30,02,10,020,20");
        nextIs(30'000, KVD_TUGPS_RESET_GLONASS_SATELLITES);
        KvdLoz6TuGps_onResetGlonassSatellites();
        take("GPGSV,2,1,05,01,10,020,30");                    // half a series keeps its system, too
        nextIs(60'000, KVD_TUGPS_RESET_GPS_SATELLITES);
        EXPECT_EQ(KvdLoz6TuGps_bestSatellites()[0].SVno, 1) << "GLONASS alone is gone";
        EXPECT_EQ(KvdLoz6TuGps_noOfSatellitesInView(), 2);
        KvdLoz6TuGps_onResetGpsSatellites();
        EXPECT_EQ(KvdLoz6TuGps_noOfSatellitesInView(), 0);
        take("GLGSV,1,1,01,65,10,020,30");
        KvdLoz6TuGps_cancelSatelliteTimers();
        EXPECT_EQ(ose::receive_w_tmo(120'000, ose::ANY_SIGNAL), nullptr);
    }, 15, "silence");
    b.node.system().faults().refuseTimers = 1;
    EXPECT_EQ(b.take(sentence("GLGSV,1,1,01,65,10,020,30")), 1);
    EXPECT_TRUE(b.node.traces().has("Unable to start reset glonass satellites timer!"));
}

/// A receiver's front end in a manager process of its own, and answers that come after a time.
struct Query : Sentences {
    explicit Query(u32 gpssType)
    {
        const PROCESS manager = node.system().launch(*node.program(), "front_end", 16, [] {
            bench::serve([](Signal* sig) { KvdLoz6TuGps_dispatch(sig); return false; });
        });
        in([=] {
            KvdLoz6TuMgr_setPids(manager, 0, 0);
            KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_VALID_MSG);
            KvdLoz6TuGps_setGpssType(gpssType);
        });
    }
    void answerAfter(OSTIME span_ms, const std::string& text)
    {
        node.system().launch(*node.program(), "answer", 15, [=] {
            ose::delay(span_ms);
            EXPECT_EQ(parse(sentence(text)), 1);
        });
    }
    /// Runs a question to its end, in a process of its own; how long it waited, ms.
    u32 ask(const std::function<void()>& question)
    {
        u32 waited = 0;
        node.system().call(*node.program(), [&] {
            const u32 begin = ose::get_ticks();
            question();
            waited = (ose::get_ticks() - begin) * ose::system_tick() / 1000;
        }, 20, "operator");
        return waited;
    }
};

TEST(ModuleQueries, EndWithTheAnswerOrAfterTwoSeconds)
{
    Query b(2);
    GpsModule module;
    const char* feedline = nullptr;
    const auto chipset = [&] { module = KvdLoz6TuGps_queryChipset(); };
    const auto antenna = [&] { feedline = KvdLoz6TuGps_queryAntenna(); };
    b.answerAfter(300, "PTNLRVR,H,ABCD,x,12345678,01,31,2010");
    b.answerAfter(500, "PTNLRVR,S,01.02.03,04,05,2010");
    EXPECT_LE(b.ask(chipset), 510u);
    EXPECT_STREQ(module.hardwareId, "ABCD");
    EXPECT_STREQ(module.firmwareVersion, "01.02.03");

    // The firmware comes too late: it isn't shown, and doesn't answer the next question.
    b.answerAfter(300, "PTNLRVR,H,EFGH,x,12345678,01,31,2010");
    b.answerAfter(2500, "PTNLRVR,S,01.02.04,04,05,2010");
    EXPECT_GE(b.ask(chipset), 2000u);
    EXPECT_STREQ(module.hardwareId, "EFGH");
    EXPECT_STREQ(module.firmwareVersion, "Unknown");

    b.answerAfter(100, "PTNLRBA,1,1");
    EXPECT_LE(b.ask(antenna), 110u);
    EXPECT_STREQ(feedline, "Open Circuit");
    EXPECT_GE(b.ask(antenna), 2000u);
    EXPECT_STREQ(feedline, "Unknown");
}

}  // namespace
