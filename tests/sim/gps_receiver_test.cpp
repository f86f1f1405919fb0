// The simulated GPS receiver against a small reader of its own: what goes out on the line and as
// 1PPS, what commands and faults do.
#include "sim/refs/gps_receiver.h"

#include "sim/board/board.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

}  // namespace
