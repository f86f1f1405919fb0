// Scenarios as files: what is read, and what is refused with file, line and reason.
#include "app/checks.h"
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
    std::filesystem::path path = std::filesystem::temp_directory_path()
                                 / ("tu-scenario-" + std::to_string(::getpid()));
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
    const std::string minimal = MINIMAL;
    const std::string event = minimal + "[[event]]\nat = '1m'\ndo = ";
    const std::string check = minimal + "[[check]]\ncheck = ";
    const std::string two = minimal + "[[unit]]\nname = 'tu2'\n";
    const std::string row = "[[unit.reference]]\ntype = 'IDL1_REF'\nfro_id = 1\n";
    const std::string link = "[[link]]\ntype = 'idl1'\nfrom = 'tu1'\nto = ";
    const std::string idl1 = minimal + row + "[[unit]]\nname = 'tu2'\n" + row + link + "'tu2'\n";
    const std::string net = minimal + "[[master]]\nname = 'gm1'\n[[path]]\nfrom = 'gm1'\nto = 'tu1'\n";
    const std::string change = net + "[[event]]\nat = 1\ndo = ";
    struct Case { std::string content; const char* refusal; };
    for (const Case& c : std::vector<Case>{
             {"duration = = 3\n", "bad.toml:1: "},
             {"[[unit]]\nname = 'a'\n", "scenario: 'duration' is missing"},
             {"duration = '1h'\n", "scenario: a scenario has at least one [[unit]]"},
             {minimal + "colour = 'red'\n", "bad.toml:4: unit: unknown key 'colour'"},
             {minimal + "board_type = 'two'\n", "bad.toml:4: unit: board_type: a whole number is expected"},
             {minimal + "board_type = 3\n", "bad.toml:4: unit: board_type: 3 is outside 1 to 2"},
             {minimal + "start = -1\n", "bad.toml:4: unit: start: a time is not negative"},
             {minimal + "role = 'boss'\n", "bad.toml:4: unit: role: 'boss' is none of master, slave"},
             {minimal + "[[unit.input]]\nat = 'usb'\n",
              "bad.toml:5: input: at: 'usb' is no input; pps, external, pdh1 to pdh4, sdh, eth_a to eth_c"},
             {minimal + "[[event]]\nat = '2h'\ndo = 'mp.die'\n",
              "bad.toml:5: event: at: the run is over by then"},
             {event + "'mp.dance'\n", "bad.toml:6: event: do: 'mp.dance' is nothing that can happen"},
             {event + "'input.off'\ninput = 'pps'\n",
              "bad.toml:7: event: input: the unit has no input 'pps'"},
             {minimal + "[unit.ntp]\nfro_id = 7\nup_us = 2e6\n", "bad.toml:6: ntp: up_us: 0 to 1000000"},
             {two + link + "'tu3'\n", "bad.toml:9: link: to: there is no unit 'tu3'"},
             {idl1 + "[[event]]\nat = '1m'\ndo = 'link.fault'\nfault = 'no_pulse'\n",
              "event: fault: the link 'tu1-tu2' is of a type that doesn't have this fault"},
             {two + row + link + "'tu2'\n",
              "link: from: 'tu1' wouldn't listen to it without a reference of type IDL1_REF"},
             {two + "[unit.gps]\ntype = 'gps03'\n[[link]]\ntype = 'gps_out'\nfrom = 'tu1'\nto = 'tu2'\n",
              "link: to: the input 'pps' of 'tu2' has another signal"},
             {minimal + "[unit.gps]\ntype = 'gps03'\n[unit.cmcc]\n",
              "unit: cmcc: its 1PPS takes the input 'pps'"},
             {minimal + "[unit.cmcc]\n[[event]]\nat = '1m'\ndo = 'cmcc.fault'\nfault = 'silence'\n"
              "amount = 1\n",
              "event: amount: this fault has none"},
             {two + "[[link]]\ntype = 'inci'\nfrom = 'tu1'\nto = 'tu2'\n[[event]]\nat = '1m'\n"
              "do = 'link.turn'\n",
              "event: link: only a link of type idl1 or idl2 can turn"},
             {minimal + "[[unit.esmc]]\nat = 'eth_a'\n[[unit.esmc]]\nat = 'eth_a'\n",
              "esmc: at: the same port twice"},
             {minimal + "[[unit.input]]\nat = 'eth_a'\nwander_ns = 5\nwander_period = 0.5\n",
              "input: wander_period: 1 s at least"},
             {check + "'clock'\nat = '1m'\nis = 'FINE'\n", "bad.toml:7: check: is: 'FINE' is no known name"},
             {check + "'mask'\nmask = 'G.811'\nat = '1m'\n", "bad.toml:7: check: unknown key 'at'"},
             {"duraton = '1h'\n[[unit]]\nname = 'a'\n",
              "bad.toml:1: scenario: unknown key 'duraton'; 'duration' is missing"},
             {"seed = -1\n" + minimal, "bad.toml:1: scenario: seed: -1 is outside 0 to"},
             {minimal + "[[unit]]\nname = 'tu1'\n", "bad.toml:5: unit: name: there is another unit 'tu1'"},
             {minimal + "[unit.oscillator]\nwhite_fm = -2e-12\n",
              "bad.toml:5: oscillator: white_fm: not negative"},
             {minimal + "[unit.oscillator]\nnominal_hz = 0\n", "bad.toml:5: oscillator: nominal_hz: above 0"},
             {minimal + "[[unit.reference]]\ntype = 'GPS_REF'\nfro_id = 0\n",
              "bad.toml:5: reference: type: 'tu1' has no [unit.gps]"},
             {minimal + "[unit.oscillator]\nseries = 'gone.txt'\nseries_kind = 'hz'\n",
              "bad.toml:5: oscillator: series: "},
             {minimal + "[[check]]\ncheck = 'mask'\nmask = 'G.999'\n",
              "bad.toml:6: check: mask: there is no mask 'G.999'; G.811, "},
             {idl1 + "[[check]]\ncheck = 'following'\nunit = 'tu1'\nmax_ns = 1\n",
              "check: 'tu1' follows no other unit"},
             {net + "[[path]]\nfrom = 'gm2'\nto = 'tu1'\n", "no unit or master 'gm2'"},
             {net + "loss = 1.5\n", "a share lies between 0 and 1"},
             {net + "[[master]]\nname = 'gm2'\nlog_sync = 20\n", "outside -10 to 13"},
             {net + "[[master]]\nname = 'gm2'\naddress = '1.2.3'\n", "an address of IP"},
             {change + "'master.step'\nmaster = 'gm9'\nns = 1\n", "no master 'gm9'"},
             {change + "'master.frequency'\n", "'ppb' is missing"},
             {change + "'master.set'\n", "nothing of 'gm1' is named that changes"},
             {change + "'mp.set_packet_reference'\nfro_id = 1\n", "'type' is missing"},
             {change + "'mp.set_packet_reference'\nfro_id = 1\ntype = 'ethernet_time'\nprofile = 'J4'\n",
              "'J4' is none of IEEE_1588_J3, ITU_T_G_8275_1"},
             {change + "'node.pdv_file'\ndirection = 'up'\nus = 1\n", "'up' is none of uplink, downlink"},
         })
        EXPECT_THAT(refusalOf(c.content), HasSubstr(c.refusal)) << c.content;
    EXPECT_EQ(refusalOf(change + "'master.step'\nns = 1\n"), "accepted");
    EXPECT_THROW(sim::readScenario("/nowhere/at-all.toml"), sim::ScenarioError);
}

TEST(Scenario, ReadsWhatItSays)
{
    const Folder folder;
    folder.write("f.txt", "# hertz\n10000000.1\n10000000.3\n");
    const sim::Scenario s = sim::readScenario(folder.write(
        "good.toml", std::string(MINIMAL) +
                         "[unit.oscillator]\noffset_ppb = 3\nseries = \"f.txt\"\nseries_kind = \"hz\"\n"
                         "[[unit.input]]\nat = \"pps\"\n"
                         "[[event]]\nat = \"2m\"\ndo = \"input.on\"\ninput = \"pps\"\n"
                         "[[event]]\nat = \"1m\"\ndo = \"input.off\"\ninput = \"pps\"\n"));
    EXPECT_EQ(s.name, "good");
    ASSERT_EQ(s.units.size(), 1u);
    EXPECT_NEAR(s.units[0].node.board.oscillator.series.at(1), 3e-8, 1e-15);   // beside the scenario
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

}  // namespace
