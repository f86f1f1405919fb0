// The simulated GPS receiver against a small reader of its own: what goes out on the line and as
// 1PPS, what commands and faults do.
#include "sim/refs/gps_receiver.h"

#include "gps/kvd_gps.h"
#include "sim/board/board.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using ose::MS;
using ose::SEC;
using sim::GpsFault;
using sim::GpsHealedBy;
using sim::GpsModel;
using sim::GpsProtocol;

struct Line {
    double at_s;
    std::string text;                       // between "$" and CR LF
    std::vector<std::string> fields;        // without the checksum
    std::string kind() const { return fields[0].size() == 4 ? fields[1] : fields[0]; }
};

std::vector<std::string> split(const std::string& text)
{
    std::vector<std::string> fields{""};
    for (const char c : text.substr(0, text.find('*'))) {
        if (c == ',') fields.emplace_back();
        else fields.back() += c;
    }
    return fields;
}

/// A receiver on an open line.
struct Bench {
    IdleNode idle;
    sim::GpsReceiver gps;
    u32 badSums = 0;

    explicit Bench(const sim::GpsReceiverConfig& config = {})
        : gps(idle.world, idle.node.serial(), config, 1, "gps")
    {
        idle.node.serial().open("UART", 99, nullptr, 0);
    }
    /// Runs to `t_s` in steps of 10 ms; the sentences that came.
    std::vector<Line> to(double t_s)
    {
        std::vector<Line> lines;
        const auto end = static_cast<ose::Time>(t_s * 1e12);
        while (idle.world.now() < end) {
            idle.world.runUntil(std::min(end, idle.world.now() + 10 * MS));
            u8 bytes[512];
            const std::size_t n = idle.node.serial().read("UART", bytes, sizeof bytes);
            text_.append(reinterpret_cast<const char*>(bytes), n);
            for (std::size_t cut; (cut = text_.find("\r\n")) != std::string::npos;
                 text_.erase(0, cut + 2))
                take(text_.substr(0, cut), lines);
        }
        return lines;
    }
    void send(const std::string& text)
    {
        idle.node.serial().write("UART", reinterpret_cast<const u8*>(text.data()), text.size());
        to(now() + 0.5);
    }
    double now() const { return static_cast<double>(idle.world.now()) / 1e12; }

private:
    void take(const std::string& text, std::vector<Line>& lines)
    {
        if (text.empty() || text[0] != '$') {
            ++badSums;
            return;
        }
        u8 sum = 0;
        std::size_t i = 1;
        for (; i < text.size() && text[i] != '*'; ++i) sum = static_cast<u8>(sum ^ text[i]);
        if (i < text.size() && std::strtoul(text.c_str() + i + 1, nullptr, 16) != sum)
            ++badSums;
        else lines.push_back({now(), text.substr(1), split(text.substr(1))});
    }
    std::string text_;
};

const Line* lastOf(const std::vector<Line>& lines, const std::string& kind)
{
    for (auto line = lines.rbegin(); line != lines.rend(); ++line)
        if (line->kind() == kind) return &*line;
    return nullptr;
}

TEST(GpsReceiver, EachModelSaysWhatItsReaderTakes)
{
    struct Length { std::size_t least, most; };
    const std::map<std::string, Length> LENGTHS = {
        {"GPppr", {35, 40}}, {"GPsts", {24, 80}}, {"GPver", {17, 77}}, {"GPavp", {49, 53}},
        {"GPanc", {56, 59}}, {"GPtps", {73, 76}}, {"GPGGA", {70, 79}}, {"GPGSA", {39, 66}},
        {"GPGSV", {12, 67}}, {"GLGSV", {12, 67}}};
    using Kinds = std::set<std::string>;
    struct Case {
        const char* what;
        GpsModel model;
        GpsProtocol protocol;
        bool checksums;
        Kinds kinds;
    };
    for (const Case& c : std::vector<Case>{
             {"gps01", GpsModel::Gps01, GpsProtocol::Furuno, false,
              {"GPtps", "GPanc", "GPGGA", "GPGSA", "GPGSV"}},
             {"gps02 furuno", GpsModel::Gps02, GpsProtocol::Furuno, true,
              {"GPtps", "GPanc", "GPsts", "GPver", "GPavp", "GPGGA", "GPGSA", "GPGSV", "GLGSV"}},
             {"gps03 combined", GpsModel::Gps03, GpsProtocol::Combined, false,
              {"GPppr", "GPsts", "GPver", "GPavp", "GPGGA", "GPGSA", "GPGSV", "GLGSV"}},
             {"norvane", GpsModel::Norvane, GpsProtocol::Combined, true,
              {"GPppr", "GPGGA", "GPGSA", "GPGSV", "GLGSV"}}}) {
        SCOPED_TRACE(c.what);
        Bench b({.model = c.model, .protocol = c.protocol, .checksums = c.checksums});
        const std::vector<Line> lines = b.to(140.0);
        Kinds kinds;
        u32 timing = 0;
        double latestTiming_s = 0.0;
        for (const Line& l : lines) {
            kinds.insert(l.kind());
            const Length length = LENGTHS.at(l.kind());
            EXPECT_GE(l.text.size(), length.least) << l.text;
            EXPECT_LE(l.text.size(), length.most) << l.text;
            if (l.kind() != "GPtps" && l.kind() != "GPppr") continue;
            ++timing;
            if (timing > 1) {
                EXPECT_NEAR(l.at_s - latestTiming_s, 1.0, 0.02);
            }
            latestTiming_s = l.at_s;
        }
        EXPECT_EQ(kinds, c.kinds);
        EXPECT_EQ(timing, 130u);             // silent for the first 10 s
        EXPECT_EQ(b.badSums, 0u);
    }
    // Without a checksum each field has one width alone.
    const std::map<std::string, std::vector<std::size_t>> WIDTHS = {
        {"GPtps", {4, 5, 12, 1, 1, 1, 12, 2, 2, 12, 4, 6}},
        {"GPanc", {4, 5, 12, 32}},
        {"GPGGA", {5, 6, 9, 1, 10, 1, 1, 2, 5, 8, 1, 6, 1, 0, 0}}};
    Bench plain({.model = GpsModel::Gps01, .checksums = false, .latitude = -33.5,
                 .longitude = -7.25, .altitude_m = -12.0});
    const std::vector<Line> lines = plain.to(140.0);
    for (const auto& [kind, widths] : WIDTHS) {
        const Line* const l = lastOf(lines, kind);
        ASSERT_NE(l, nullptr) << kind;
        std::vector<std::size_t> found;
        for (const std::string& f : l->fields) found.push_back(f.size());
        EXPECT_EQ(found, widths) << l->text;
    }
    const Line& gga = *lastOf(lines, "GPGGA");
    EXPECT_EQ(gga.fields[2] + gga.fields[3], "3330.0000S");
    EXPECT_EQ(gga.fields[4] + gga.fields[5], "00715.0000W");
    EXPECT_EQ(gga.fields[9], "-00012.0");
}

TEST(GpsReceiver, NamesTheSecondOfTheNextPulse)
{
    // 2024-01-01 00:00:00 UTC is second 86418 of GPS week 2295; week 2048 began 18 s before
    // 2019-04-07 00:00:00 UTC.
    constexpr i64 NEW_YEAR = 1'704'067'200, BEFORE_WEEK_2048 = 1'554'595'182 - 101;
    struct Case {
        const char* what;
        i64 start;
        i32 weekBase;
        double wrong_s;
        ose::Time delay;
        const char* week;
        const char* tow;
    };
    for (const Case& c : std::vector<Case>{
             {"after 400 ms", NEW_YEAR, -1, 0, 400 * MS, "02295", "086519"},
             {"after 500 ms", NEW_YEAR, -1, 0, 500 * MS, "02295", "086519"},
             {"after 1100 ms", NEW_YEAR, -1, 0, 1100 * MS, "02295", "086518"},
             {"a second late", NEW_YEAR, -1, 1, 400 * MS, "02295", "086520"},
             {"last of a week", BEFORE_WEEK_2048 - 1, 1024, 0, 400 * MS, "02047", "604799"},
             {"first of a week", BEFORE_WEEK_2048, -1, 0, 400 * MS, "02048", "000000"},
             {"rolled over", BEFORE_WEEK_2048, 1024, 0, 400 * MS, "01024", "000000"},
             {"counts 10 bits", NEW_YEAR, 0, 0, 400 * MS, "00247", "086519"}}) {
        SCOPED_TRACE(c.what);
        Bench b({.model = GpsModel::Combined, .protocol = GpsProtocol::Combined, .start = c.start,
                 .weekBase = c.weekBase, .sentenceDelay = c.delay});
        if (c.wrong_s != 0) b.gps.setFault({.fault = GpsFault::WrongSecond, .amount = c.wrong_s});
        const std::vector<Line> lines = b.to(101.0);
        const Line* const last = lastOf(lines, "GPppr");
        ASSERT_NE(last, nullptr);
        EXPECT_EQ(last->fields[3], c.week);
        EXPECT_EQ(last->fields[2], c.tow);
        EXPECT_EQ(last->fields[6], "0");
    }
}

TEST(GpsReceiver, BootsFindsSurveysAndHolds)
{
    Bench b({.firmware = "120510", .surveyTime = 60 * SEC});
    // GPtps: standard, 1PPS, mode; GPsts: state.
    struct Case { double at_s; bool fix; const char* timing; const char* state; };
    EXPECT_TRUE(b.to(9.9).empty());
    EXPECT_FALSE(b.gps.present());
    for (const Case& c : std::vector<Case>{{49.0, false, "101", "0"},
                                           {54.0, true, "211", "1"},
                                           {108.0, true, "211", "1"},
                                           {116.0, true, "212", "2"}}) {
        SCOPED_TRACE(c.at_s);
        const std::vector<Line> lines = b.to(c.at_s);
        const Line* const timing = lastOf(lines, "GPtps");
        const Line* const state = lastOf(lines, "GPsts");
        ASSERT_TRUE(timing != nullptr && state != nullptr);
        EXPECT_EQ(timing->fields[3] + timing->fields[4] + timing->fields[5], c.timing);
        EXPECT_EQ(state->fields[2], c.state);
        EXPECT_EQ(b.gps.present(), c.fix);
        EXPECT_EQ(b.gps.nextEdge(b.idle.world.now()) >= 0, c.fix);
    }
}

TEST(GpsReceiver, TakesTheCommandsOfItsFirmware)
{
    constexpr GpsModel GPS01 = GpsModel::Gps01, GPS02 = GpsModel::Gps02, GPS03 = GpsModel::Gps03;
    enum Effect { NOTHING, REFUSED, COMBINED, MODULE, UNIT, ANSWER };
    struct Case { GpsModel model; const char* firmware; std::string command; Effect effect;
                  std::string answer = ""; };
    for (const Case& c : std::vector<Case>{
             {GPS02, "120510", "$PNVX,GPper,1*51\r\n", COMBINED},
             {GPS02, "120510", "$PNVX,GPper,1*15\r\n", REFUSED},
             {GPS01, "", "$PNVX,GPper,1*51\r\n", REFUSED},
             {GPS01, "", "$PFEC,GPset,Z1\r\n$PFEC,GPclr,1\r\n", MODULE},
             {GPS02, "110624", "$PTNLSRT,C,0*20\r\n", MODULE},
             {GPS02, "110624", "$PNVX,GPdbg,g*01\r\n", NOTHING},
             {GPS02, "110624", "$PNVX,GPdbg,r,i\r\n$PNVX,GPdbg,r,o\r\n", REFUSED},
             {GPS02, "120510", "$PNVX,GPdbg,r,i\r\n", NOTHING},
             {GPS02, "120510", "$PNVX,GPdbg,r,o\r\n", REFUSED},
             {GPS02, "120510", "$PNVX,GPdbg,r,i\r\n$PNVX,GPdbg,r,o\r\n", MODULE},
             {GPS02, "120510", "$PNVX,GPdbg,r,s\r\n", UNIT},
             {GPS02, "120510", "$PNVX,GPrst,S,1\r\n", REFUSED},
             {GPS03, "131224", "$PNVX,GPrst,S,1\r\n", MODULE},
             {GPS03, "131224", "$PNVX,GPdbg,r,s\r\n", REFUSED},
             {GPS02, "120510", "$PTNLQBA\r\n", ANSWER, "PTNLRBA,1,0"},
             {GPS02, "120510", "$PTNLQBA*54\r\n", ANSWER, "PTNLRBA,0,1"},
             {GPS02, "120510", "$PTNLQVR,H\r\n", ANSWER, "PTNLRVR,H,3023,00,60412345,03,17,2011"},
             {GPS02, "120510", "$PTNLQVR,S\r\n", ANSWER, "PTNLRVR,S,01.05.10,05,10,2012"}}) {
        SCOPED_TRACE(std::string(c.firmware) + " " + c.command);
        Bench b({.model = c.model, .firmware = c.firmware});
        b.to(60.5);
        if (c.answer == "PTNLRBA,0,1") b.gps.setFault({.fault = GpsFault::AntennaOpen});
        b.idle.node.serial().write("UART", reinterpret_cast<const u8*>(c.command.data()),
                                   c.command.size());
        const std::vector<Line> lines = b.to(61.2);
        EXPECT_EQ(b.gps.refusedCommands() > 0, c.effect == REFUSED);
        EXPECT_EQ(b.gps.protocol() == GpsProtocol::Combined, c.effect == COMBINED);
        EXPECT_EQ(b.gps.moduleRestarts(), c.effect == MODULE || c.effect == UNIT ? 1u : 0u);
        EXPECT_EQ(b.gps.unitResets(), c.effect == UNIT ? 1u : 0u);
        if (c.effect == ANSWER) {
            const Line* const answer = lastOf(lines, c.answer.substr(0, 7));
            ASSERT_NE(answer, nullptr);
            EXPECT_EQ(answer->text.substr(0, c.answer.size()), c.answer);
        }
    }
}

TEST(GpsReceiver, AnAntennaFaultTakesFixAndPulses)
{
    Bench b({.model = GpsModel::Combined, .protocol = GpsProtocol::Combined,
             .ppsHoldover = 30 * SEC, .holdover_ppb = 1000.0,
             .pps = {}});
    b.to(100.5);
    b.gps.setFault({.fault = GpsFault::AntennaOpen, .lasts = 60 * SEC});
    EXPECT_FALSE(b.gps.hasFix());
    const std::vector<Line> held = b.to(110.5);
    EXPECT_EQ(lastOf(held, "GPppr")->fields[6], "1");
    EXPECT_EQ(lastOf(held, "GPsts")->fields[2], "0");
    // 1000 ppb fast since 100.5 s.
    const ose::Time edge = b.gps.nextEdge(b.idle.world.now());
    EXPECT_NEAR(static_cast<double>(edge - 111 * SEC) / 1e6, -10.5, 0.1);
    const std::vector<Line> gone = b.to(140.0);
    EXPECT_EQ(lastOf(gone, "GPppr")->fields[6], "3");
    EXPECT_EQ(lastOf(gone, "GPGSV")->text.substr(0, 12), "GPGSV,1,1,00");
    EXPECT_FALSE(b.gps.present());
    const std::vector<Line> back = b.to(180.0);        // ended by itself at 160.5 s
    EXPECT_EQ(lastOf(back, "GPppr")->fields[6], "0");
    EXPECT_EQ(b.gps.nextEdge(b.idle.world.now()), 181 * SEC);
}

TEST(GpsReceiver, FaultsAreHealedByWhatHealsThem)
{
    struct Case { GpsHealedBy by; u32 restarts; u32 modules, units; bool healed; };
    for (const Case& c : std::vector<Case>{{GpsHealedBy::Nothing, 1, 3, 3, false},
                                           {GpsHealedBy::Module, 1, 1, 0, true},
                                           {GpsHealedBy::Module, 2, 1, 0, false},
                                           {GpsHealedBy::Module, 2, 2, 0, true},
                                           {GpsHealedBy::Module, 1, 0, 1, true},
                                           {GpsHealedBy::Unit, 1, 5, 0, false},
                                           {GpsHealedBy::Unit, 1, 0, 1, true}}) {
        Bench b;
        b.gps.setFault({.fault = GpsFault::NoGpgsv, .healedBy = c.by, .restarts = c.restarts});
        for (u32 i = 0; i < c.modules; ++i) b.gps.restart(sim::GpsRestart::Module);
        for (u32 i = 0; i < c.units; ++i) b.gps.restart(sim::GpsRestart::Unit);
        EXPECT_EQ(b.gps.faulty(GpsFault::NoGpgsv), !c.healed)
            << static_cast<int>(c.by) << " " << c.restarts << " " << c.modules << " " << c.units;
    }
}

TEST(GpsReceiver, FaultsShowOnTheLine)
{
    Bench b({.firmware = "110624"});
    b.to(100.0);
    b.gps.setFault({.fault = GpsFault::NoElevation});
    const std::vector<Line> blind = b.to(120.0);
    const Line& page = *lastOf(blind, "GPGSV");
    u32 strong = 0;
    for (const Line& l : blind)
        for (std::size_t i = 4; l.kind() == "GPGSV" && i + 3 < l.fields.size(); i += 4) {
            EXPECT_EQ(l.fields[i + 1] + l.fields[i + 2], "");
            strong += std::atoi(l.fields[i + 3].c_str()) >= 40;
        }
    EXPECT_GT(strong, 0u) << page.text;
    EXPECT_EQ(lastOf(blind, "GPsts")->fields[2], "0");

    b.gps.setFault({.fault = GpsFault::NoElevation, .on = false});
    b.gps.setFault({.fault = GpsFault::NoGpgsv});
    b.gps.setFault({.fault = GpsFault::Jamming, .amount = 8.0});
    const std::vector<Line> weak = b.to(140.0);
    EXPECT_EQ(lastOf(weak, "GPGSV"), nullptr);
    EXPECT_NE(lastOf(weak, "GLGSV"), nullptr);
    EXPECT_TRUE(b.gps.hasFix());
    b.gps.setFault({.fault = GpsFault::Jamming, .amount = 30.0});
    EXPECT_FALSE(b.gps.hasFix());

    b.gps.setFault({.fault = GpsFault::Silence});
    EXPECT_TRUE(b.to(160.0).empty());
    b.gps.setFault({.fault = GpsFault::Silence, .on = false});
    b.gps.setFault({.fault = GpsFault::Garbled, .amount = 0.02});
    const u64 before = b.gps.sentences();
    const std::size_t good = b.to(360.0).size();
    EXPECT_GT(b.badSums, 20u);
    EXPECT_LT(good + 20, b.gps.sentences() - before);
    b.gps.setFault({.fault = GpsFault::Garbled, .on = false});

    // Its input buffer is cleared by 19 fillers of 82 bytes, no fewer.
    b.gps.setFault({.fault = GpsFault::Deaf});
    std::string filler = "$PNVX,x,x,x,";
    filler.append(65, '\0');
    filler += "*50\r\n";
    for (int i = 0; i < 18; ++i) b.send(filler);
    b.send("$PTNLSRT,C,0*20\r\n");
    EXPECT_EQ(b.gps.moduleRestarts(), 0u);
    b.send(filler);
    b.send("$PTNLSRT,C,0*20\r\n");
    EXPECT_EQ(b.gps.moduleRestarts(), 1u);
}

/// The unit's own reading, a moment before a pulse: the second that this pulse begins.
TEST(GpsReceiver, GivesTheUnitTheTimeOfEachPulse)
{
    struct Case { GpsModel model; GpsProtocol protocol; ose::Time delay; u32 status; double time; };
    for (const Case& c : std::to_array<Case>({
             // Second 86418 + 120 of week 2295.
             {GpsModel::Gps02, GpsProtocol::Furuno, 400 * MS, 7, 1'388'102'538.0},
             {GpsModel::Gps02, GpsProtocol::Furuno, 150 * MS, 7, 1'388'102'538.0},
             {GpsModel::Gps03, GpsProtocol::Combined, 900 * MS, 7, 1'388'102'538.0},
             // Its last byte comes 190 ms after the pulse: the reader's 800 ms are over.
             {GpsModel::Gps03, GpsProtocol::Combined, 150 * MS, 3, 0.0},
             {GpsModel::Gps03, GpsProtocol::Combined, 1100 * MS, 3, 0.0}})) {
        SCOPED_TRACE(c.delay / MS);
        sim::NodeConfig config;
        config.mainProcessor.references = {{.name = "gps", .refType = 6, .froClassNo = 3}};
        ose::World world{1};
        sim::Node node(world, config);
        sim::GpsReceiver gps(world, node.serial(), {.model = c.model, .protocol = c.protocol,
                                                    .sentenceDelay = c.delay}, 1, "gps");
        node.board().connect(sim::ReferenceInput::Pps, &gps);
        node.powerOn();
        world.runUntil(120 * SEC - MS);
        double time = -1.0;
        EXPECT_EQ(node.inProgram([&] { return KvdLoz6TuGps_time(time); }), c.status);
        EXPECT_EQ(time, c.time);
    }
}

TEST(GpsSky, SatellitesRiseAndSetOverTheDay)
{
    const sim::GpsSky sky(59.4, 17.9);
    std::set<u32> seen;
    for (i64 t = 0; t < 86'400; t += 900) {
        for (const bool glonass : {false, true}) {
            const auto view = glonass ? sky.glonass(t) : sky.gps(t);
            EXPECT_GE(view.size(), 5u) << t;
            EXPECT_LE(view.size(), glonass ? 8u : 12u) << t;
            for (const sim::SkySatellite& s : view) {
                seen.insert(s.number);
                EXPECT_TRUE(s.elevation >= 5 && s.elevation <= 90) << t;
                EXPECT_LT(s.azimuth, 360) << t;
                EXPECT_TRUE(s.snr > 30.0 && s.snr < 54.0) << t;
                // No orbit inclined by 55 degrees passes near the pole: the north stays empty.
                if (!glonass && s.azimuth < 5) {
                    EXPECT_TRUE(s.elevation < 40 || s.elevation > 70) << t << " " << int{s.number};
                }
            }
        }
    }
    EXPECT_EQ(seen.size(), 54u);
    // On the equator at 0 E a GPS satellite over its node stands overhead.
    const sim::SkySatellite first = sim::GpsSky(0.0, 0.0).gps(0).front();
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.elevation, 90);
    // After two turns and a sidereal day the sky is the same.
    const auto today = sky.gps(1'000), tomorrow = sky.gps(1'000 + 86'164);
    ASSERT_EQ(today.size(), tomorrow.size());
    EXPECT_EQ(today.front().number, tomorrow.front().number);
    EXPECT_NEAR(today.front().azimuth, tomorrow.front().azimuth, 2);
}

}  // namespace
