// Scenarios as files: what is read, and what is refused with file, line and reason.
#include "app/checks.h"
#include "sim/clock/series.h"
#include "sim/scenario/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using testing::HasSubstr;

/// A folder of its own, gone with the test.
struct Folder {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("tu-scenario-" + std::to_string(::getpid()));
    Folder() { std::filesystem::create_directories(path); }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path / name) << content;
        return (path / name).string();
    }
};

constexpr const char* MINIMAL = "duration = \"1h\"\n"
                                "[[unit]]\n"
                                "name = \"tu1\"\n";

std::string refusalOf(const std::string& content)
{
    const Folder folder;
    const std::string file = folder.write("bad.toml", content);
    try {
        app::readChecks(sim::readScenario(file));
    } catch (const sim::ScenarioError& e) {
        const std::string line = e.what();
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        return line.substr(line.find("bad.toml"));
    }
    return "accepted";
}

TEST(Scenario, IsRefusedWithLineAndReason)
{
    struct Case { const char* what; std::string content; const char* refusal; };
    const std::string minimal = MINIMAL;
    const std::string event = minimal + "[[event]]\nat = '1m'\ndo = ";
    const std::string check = minimal + "[[check]]\ncheck = ";
    const std::string two = minimal + "[[unit]]\nname = 'tu2'\n";
    const std::string row = "[[unit.reference]]\ntype = 'IDL1_REF'\nfro_id = 1\n";
    const std::string link = "[[link]]\ntype = 'idl1'\nfrom = 'tu1'\nto = ";
    const std::string idl1 = minimal + row + "[[unit]]\nname = 'tu2'\n" + row + link + "'tu2'\n";
    for (const Case& c : std::vector<Case>{
             {"no TOML", "duration = = 3\n", "bad.toml:1: "},
             {"no duration", "[[unit]]\nname = 'a'\n", "scenario: 'duration' is missing"},
             {"no unit", "duration = '1h'\n", "scenario: a scenario has at least one [[unit]]"},
             {"unknown key", minimal + "colour = 'red'\n", "bad.toml:4: unit: unknown key 'colour'"},
             {"wrong type", minimal + "board_type = 'two'\n",
              "bad.toml:4: unit: board_type: a whole number is expected"},
             {"out of range", minimal + "board_type = 3\n",
              "bad.toml:4: unit: board_type: 3 is outside 1 to 2"},
             {"negative time", minimal + "start = -1\n", "bad.toml:4: unit: start: a time is not negative"},
             {"no such word", minimal + "role = 'boss'\n",
              "bad.toml:4: unit: role: 'boss' is none of master, slave"},
             {"no such input", minimal + "[[unit.input]]\nat = 'usb'\n",
              "bad.toml:5: input: at: 'usb' is no input; pps, external, pdh1 to pdh4, sdh, eth_a to eth_c"},
             {"late event", minimal + "[[event]]\nat = '2h'\ndo = 'mp.die'\n",
              "bad.toml:5: event: at: the run is over by then"},
             {"nothing happens", event + "'mp.dance'\n",
              "bad.toml:6: event: do: 'mp.dance' is nothing that can happen"},
             {"event on a missing input", event + "'input.off'\ninput = 'pps'\n",
              "bad.toml:7: event: input: the unit has no input 'pps'"},
             {"NTP too far away", minimal + "[unit.ntp]\nfro_id = 7\nup_us = 2e6\n",
              "bad.toml:6: ntp: up_us: 0 to 1000000"},
             {"NTP event without NTP", event + "'ntp.off'\n",
              "bad.toml:6: event: do: the unit has no IP sync service"},
             {"link to nowhere", two + link + "'tu3'\n", "bad.toml:9: link: to: there is no unit 'tu3'"},
             {"fault of another link's type", idl1 + "[[event]]\nat = '1m'\ndo = 'link.fault'\n"
              "fault = 'no_pulse'\n",
              "event: fault: the link 'tu1-tu2' is of a type that doesn't have this fault"},
             {"link that its leader doesn't listen to", two + row + link + "'tu2'\n",
              "link: from: 'tu1' wouldn't listen to it without a reference of type IDL1_REF"},
             {"link to itself", two + link + "'tu1'\n", "bad.toml:9: link: to: a link has two ends"},
             {"link at a taken input", two + "[unit.gps]\ntype = 'gps03'\n[[link]]\n"
              "type = 'gps_out'\nfrom = 'tu1'\nto = 'tu2'\n",
              "link: to: the input 'pps' of 'tu2' has another signal"},
             {"time source beside a receiver", minimal + "[unit.gps]\ntype = 'gps03'\n[unit.cmcc]\n",
              "unit: cmcc: its 1PPS takes the input 'pps'"},
             {"amount of none", minimal + "[unit.cmcc]\n[[event]]\nat = '1m'\ndo = 'cmcc.fault'\n"
              "fault = 'silence'\namount = 1\n",
              "event: amount: this fault has none"},
             {"amount too large", minimal + "[unit.cmcc]\n[[event]]\nat = '1m'\ndo = 'cmcc.fault'\n"
              "fault = 'late'\namount = 2000\n",
              "event: amount: out of range"},
             {"event on a missing link", two + "[[event]]\nat = '1m'\ndo = 'link.down'\n", "event: link: "},
             {"turn of a link that has none", two + "[[link]]\ntype = 'inci'\nfrom = 'tu1'\n"
              "to = 'tu2'\n[[event]]\nat = '1m'\ndo = 'link.turn'\n",
              "event: link: only a link of type idl1 or idl2 can turn"},
             {"two peers at a port", minimal + "[[unit.esmc]]\nat = 'eth_a'\n[[unit.esmc]]\nat = 'eth_a'\n",
              "esmc: at: the same port twice"},
             {"event of a missing peer", event + "'esmc.silent'\nport = 'eth_b'\n",
              "bad.toml:7: event: port: the unit has no [[unit.esmc]] there"},
             {"wander faster than edges tell", minimal + "[[unit.input]]\nat = 'eth_a'\n"
              "wander_ns = 5\nwander_period = 0.5\n",
              "input: wander_period: 1 s at least"},
             {"check of no state", check + "'clock'\nat = '1m'\nis = 'FINE'\n",
              "bad.toml:7: check: is: 'FINE' is no known name"},
             {"check with a key too many", check + "'mask'\nmask = 'G.811'\nat = '1m'\n",
              "bad.toml:7: check: unknown key 'at'"},
             {"a typo before what it makes missing", "duraton = '1h'\n[[unit]]\nname = 'a'\n",
              "bad.toml:1: scenario: unknown key 'duraton'; 'duration' is missing"},
             {"a typo of a check's word", minimal + "[[check]]\nchekc = 'mask'\nmask = 'G.811'\n",
              "bad.toml:5: check: unknown key 'chekc'; 'check' is missing"},
             {"a heading nobody knows", minimal + "[[lnk]]\nname = 'l'\n[[event]]\nat = 1\ndo = 'link.down'\n",
              "bad.toml:4: scenario: unknown key 'lnk'"},
             {"seed that is no number", "seed = 'one'\n" + minimal,
              "bad.toml:1: scenario: seed: a whole number is expected"},
             {"negative seed", "seed = -1\n" + minimal,
              "bad.toml:1: scenario: seed: -1 is outside 0 to"},
             {"two units of a name", minimal + "[[unit]]\nname = 'tu1'\n",
              "bad.toml:5: unit: name: there is another unit 'tu1'"},
             {"negative noise", minimal + "[[unit.input]]\nat = 'pps'\nwhite_ns = -6\n",
              "bad.toml:6: input: white_ns: not negative"},
             {"negative noise of the oscillator", minimal + "[unit.oscillator]\nwhite_fm = -2e-12\n",
              "bad.toml:5: oscillator: white_fm: not negative"},
             {"no nominal frequency", minimal + "[unit.oscillator]\nnominal_hz = 0\n",
              "bad.toml:5: oscillator: nominal_hz: above 0"},
             {"GPS without a receiver", minimal + "[[unit.reference]]\ntype = 'GPS_REF'\nfro_id = 0\n",
              "bad.toml:5: reference: type: 'tu1' has no [unit.gps]"},
             {"no such series", minimal + "[unit.oscillator]\nseries = 'gone.txt'\nseries_kind = 'hz'\n",
              "bad.toml:5: oscillator: series: "},
             {"no such mask", minimal + "[[check]]\ncheck = 'mask'\nmask = 'G.999'\n",
              "bad.toml:6: check: mask: there is no mask 'G.999'; G.811, "},
             {"no such check", minimal + "[[check]]\ncheck = 'beauty'\n",
              "bad.toml:5: check: check: 'beauty' is none of clock, "},
             {"following nobody", two + "[[check]]\ncheck = 'following'\nunit = 'tu2'\nmax_ns = 1\n",
              "check: 'tu2' follows no other unit"},
             {"following by the one who leads", idl1 + "[[check]]\ncheck = 'following'\nunit = 'tu1'\nmax_ns = 1\n",
              "check: 'tu1' follows no other unit"},
         }) {
        SCOPED_TRACE(c.what);
        EXPECT_THAT(refusalOf(c.content), HasSubstr(c.refusal));
    }
}

TEST(Scenario, RefusesWhatItsPacketNetworkCantBe)
{
    struct Case { const char* when; std::string content; const char* refusal; };
    const std::string net = std::string(MINIMAL) + "[[master]]\nname = 'gm1'\n"
                            "[[path]]\nfrom = 'gm1'\nto = 'tu1'\n";
    const std::string event = net + "[[event]]\nat = 1\ndo = ";
    for (const Case& c : std::vector<Case>{
             {"two masters of a name", net + "[[master]]\nname = 'gm1'\n", "there is another master 'gm1'"},
             {"no such host", net + "[[path]]\nfrom = 'gm2'\nto = 'tu1'\n", "no unit or master 'gm2'"},
             {"a share above all", net + "loss = 1.5\n", "a share lies between 0 and 1"},
             {"a rate that isn't", net + "[[master]]\nname = 'gm2'\nlog_sync = 20\n", "outside -10 to 13"},
             {"no such address", net + "[[master]]\nname = 'gm2'\naddress = '1.2.3'\n", "an address of IP"},
             {"no such master", event + "'master.step'\nmaster = 'gm9'\nns = 1\n", "no master 'gm9'"},
             {"a step of nothing", event + "'master.step'\n", "'ns' is missing"},
             {"a frequency of nothing", event + "'master.frequency'\n", "'ppb' is missing"},
             {"nothing changes", event + "'master.set'\n", "nothing of 'gm1' is named that changes"},
             {"no word of a master", event + "'master.dance'\n", "'master.dance' is nothing that can happen"},
             {"no way", event + "'path.down'\nfrom = 'gm1'\nto = 'b'\n", "no unit or master 'b'"},
             {"a row of nothing", event + "'mp.set_packet_reference'\nfro_id = 1\n", "'type' is missing"},
             {"no profile", event + "'mp.set_packet_reference'\nfro_id = 1\ntype = 'ethernet_time'\n"
                                    "profile = 'J4'\n", "'J4' is none of IEEE_1588_J3, ITU_T_G_8275_1"},
             {"no direction", event + "'node.pdv_file'\ndirection = 'up'\nus = 1\n",
              "'up' is none of uplink, downlink"},
         }) {
        SCOPED_TRACE(c.when);
        EXPECT_THAT(refusalOf(c.content), HasSubstr(c.refusal));
    }
    EXPECT_EQ(refusalOf(event + "'master.step'\nns = 1\n"), "accepted");
}

TEST(Scenario, ThatIsNotThereIsRefused)
{
    EXPECT_THROW(sim::readScenario("/nowhere/at-all.toml"), sim::ScenarioError);
}

TEST(Scenario, ReadsWhatItSays)
{
    const Folder folder;
    folder.write("f.txt", "# hertz\n10000000.1\n10000000.3\n");
    const sim::Scenario s = sim::readScenario(folder.write(
        "good.toml", std::string(MINIMAL) +
                         "board_type = 1\n"
                         "[unit.oscillator]\noffset_ppb = 3\nseries = \"f.txt\"\nseries_kind = \"hz\"\n"
                         "[[unit.input]]\nat = \"pps\"\nwhite_ns = 5\n"
                         "[unit.ntp]\nfro_id = 7\ninterval = \"500ms\"\nnoise = \"gaussian\"\ndown_us = 900\n"
                         "[[unit.reference]]\ntype = \"TU_REF\"\nfro_id = 5\n"
                         "[[event]]\nat = \"2m\"\ndo = \"input.on\"\ninput = \"pps\"\n"
                         "[[event]]\nat = \"1m\"\ndo = \"input.off\"\ninput = \"pps\"\n"));
    EXPECT_EQ(s.name, "good");
    EXPECT_DOUBLE_EQ(s.duration_s, 3600.0);
    ASSERT_EQ(s.units.size(), 1u);
    EXPECT_EQ(s.units[0].node.boardType, 1u);
    EXPECT_NEAR(s.units[0].node.board.oscillator.series.at(1), 3e-8, 1e-15);
    EXPECT_DOUBLE_EQ(s.units[0].inputs.at(sim::ReferenceInput::Pps).noise.white_s, 5e-9);
    const sim::NtpConfig& ntp = s.units[0].node.ntp;
    EXPECT_TRUE(ntp.present && ntp.froId == 7 && ntp.interval_ms == 500);
    EXPECT_TRUE(ntp.noise == sim::DelayNoise::Gaussian && ntp.answers);
    EXPECT_DOUBLE_EQ(ntp.down.delay_s, 9e-4);
    EXPECT_EQ(s.units[0].node.mainProcessor.references.at(0).refType, 2);
    ASSERT_EQ(s.events.size(), 2u);
    EXPECT_EQ(s.events[0].what, "input.off pps");   // in order of time
}

TEST(Duration, IsReadInItsUnits)
{
    struct Case { const char* text; double seconds; };
    for (const Case& c : {Case{"90s", 90}, Case{"1h30m", 5400}, Case{"2d", 172800}, Case{"500ms", 0.5},
                          Case{"12", 12}, Case{"1.5h", 5400}}) {
        ASSERT_TRUE(sim::parseDuration(c.text)) << c.text;
        EXPECT_DOUBLE_EQ(*sim::parseDuration(c.text), c.seconds) << c.text;
    }
    for (const char* text : {"", "h", "1x", "1h30", "-5s", "nan", "inf", "5 minutes"})
        EXPECT_FALSE(sim::parseDuration(text)) << text;
}

TEST(RecordedSeries, IsRefusedAtItsBadLine)
{
    struct Case { const char* content; const char* refusal; };
    for (const Case& c : {Case{"1.0\n2.0\nthree\n", "f.txt:3: 'three' isn't a number"},
                          Case{"1.0\nnan\n", "f.txt:2: "}, Case{"# nothing\n\n", "no number in the file"}}) {
        SCOPED_TRACE(c.content);
        const Folder folder;
        folder.write("f.txt", c.content);
        const std::string file = folder.write(
            "s.toml", std::string(MINIMAL) + "[unit.oscillator]\nseries = \"f.txt\"\nseries_kind = \"hz\"\n");
        try {
            sim::readScenario(file);
            FAIL() << "accepted";
        } catch (const sim::ScenarioError& e) {
            EXPECT_THAT(e.what(), HasSubstr(c.refusal));
        }
    }
}

}  // namespace
