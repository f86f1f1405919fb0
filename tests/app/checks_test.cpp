// What a scenario may ask of a reference, on a recording made by hand.
#include "app/checks.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

app::Recording recorded()
{
    app::UnitRecording unit;
    unit.name = "tu1";
    unit.gpsStates = {{10.0, 3, "WAIT_FOR_ANY_MSG"}, {52.0, 7, "OPERATIONAL_WITH_VALID_TIME"}};
    unit.gpsTypes = {{12.0, 6, "FURUNO_GPS02"}, {90.0, 2, "NORVANE_COMBINED"}};
    unit.gpsStatuses = {{0.0, 2, "Loss of signal"}, {60.0, 1, "OK"}, {70.0, 2, "Loss of signal"}};
    unit.outputs = {{80.0, "gpsstatus", 0, "restarts : 1\nrestarts : 12\n"}};
    for (int i = 0; i <= 100; ++i) {
        app::Sample s;
        s.t = i;
        s.timeError_ns = 500.0 + i;
        unit.samples.push_back(s);
    }
    app::Recording recording;
    recording.units = {unit};
    return recording;
}

/// Each [[check]] of the text against the recording.
std::vector<app::CheckResult> judged(const std::string& checks, const app::Recording& recording)
{
    const sim::Scenario scenario =
        sim::readScenarioText("duration = \"2000s\"\n[[unit]]\nname = \"tu1\"\n" + checks, "checks");
    return app::evaluateChecks(app::readChecks(scenario), recording);
}

struct Case { const char* what; std::string words; bool pass; };

void expectEach(const std::vector<Case>& cases, const std::string& head, const app::Recording& recording)
{
    std::string text;
    for (const Case& c : cases) text += "[[check]]\n" + head + c.words + "\n";
    const std::vector<app::CheckResult> results = judged(text, recording);
    ASSERT_EQ(results.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(results[i].pass, cases[i].pass) << cases[i].what << ": " << results[i].detail;
}

TEST(GpsChecks, HoldOnBothSidesOfEachMoment)
{
    const std::string state = "check = \"gps_state\"\n", type = "check = \"gps_type\"\n",
                      reaches = "check = \"gps_reaches\"\nstate = \"OPERATIONAL_WITH_VALID_TIME\"\n",
                      status = "check = \"gps_status\"\nis = \"OK\"\n",
                      told = "check = \"gps_told\"\ntext = \"Loss of signal\"\nleast = 2\nmost = 2\n",
                      printed = "check = \"command\"\nline = \"gpsstatus\"\n";
    expectEach({{"state before the change", state + "at = 51.9\nis = \"WAIT_FOR_ANY_MSG\"", true},
                {"state at the change", state + "at = 52\nis = \"OPERATIONAL_WITH_VALID_TIME\"", true},
                {"no state yet", state + "at = 9\nis = \"WAIT_FOR_ANY_MSG\"", false},
                {"state reached too late", reaches + "to = 51", false},
                {"state reached", reaches + "to = 52", true},
                {"type after", type + "at = 91\nis = \"FURUNO_GPS02\"", false},
                {"status", status + "at = 69", true},
                {"status since changed", status + "at = 70", false},
                {"told twice in all", told + "to = 100", true},
                {"told once later", told + "from = 1\nto = 100", false},
                {"printed", printed + "at = 80\ntext = \"restarts : 1\"\nleast = 2\nmost = 2", true},
                {"not printed", printed + "at = 80\ntext = \"restarts : 2\"", false},
                {"another moment", printed + "at = 81\ntext = \"restarts : 1\"", false}},
               "", recorded());
}

TEST(RadioLinkChecks, CountTheAnswersThatAreMeantAndKeepThePrintoutsOrder)
{
    constexpr u32 SCAN = 0x9C067, ALIGN = 0x9C06D;
    app::Recording recording = recorded();
    recording.units[0].socpriReports = {
        {10.0, SCAN, 1, 1}, {20.0, SCAN, 2, 5}, {30.0, SCAN, 1, 4}, {40.0, ALIGN, 0, 1}};
    expectEach({{"any port", "answer = \"scan\"\nleast = 3\nmost = 3", true},
                {"one port", "answer = \"scan\"\nport = 1\nleast = 2\nmost = 2", true},
                {"another status", "answer = \"scan\"\nport = 2\nstatus = 1", false},
                {"at the moment", "answer = \"scan\"\nto = 10\nmost = 1", true},
                {"never told", "answer = \"select\"\nleast = 0\nmost = 0", true}},
               "check = \"socpri_told\"\n", recording);
    expectEach({{"in order", "in_order = [\"restarts : 1\", \"restarts : 12\"]", true},
                {"not in order", "in_order = [\"restarts : 12\", \"restarts : 1\"]", false},
                {"one place counts once", "in_order = [\"restarts : 12\", \"restarts : 12\"]", false}},
               "check = \"command\"\nat = 80\nline = \"gpsstatus\"\n", recording);
}

TEST(TimeErrorAboutTheMean, LeavesTheConstantPartOut)
{
    expectEach({{"a ramp of 20 ns", "max_ns = 9.9", false}, {"its half", "max_ns = 10.1", true}},
               "check = \"time_error_about_mean\"\nfrom = 20\nto = 40\n", recorded());
}

/// Locked from 100 s on, and moving by 1 us from 500 to 510 s.
TEST(MaskCheck, LeavesOutTheLocksBeginningAndNotItsWindows)
{
    app::Recording recording;
    recording.units.resize(1);
    recording.units[0].name = "tu1";
    for (int i = 0; i <= 2000; ++i) {
        app::Sample s;
        s.t = i;
        s.radioClockState = i < 100 ? u8{1} : u8{3};
        s.timeError_ns = 100.0 * std::clamp(i - 500, 0, 10);
        recording.units[0].samples.push_back(s);
    }
    expectEach({{"the whole run", "", false},
                {"the window begins just before", "from = 499", false},
                {"after it", "from = 511", true},
                {"before it", "to = 499", true},
                {"a window that ends before the lock has settled", "to = 399", false}},
               "check = \"mask\"\nmask = \"G.811\"\n", recording);
    const auto result = judged("[[check]]\ncheck = \"mask\"\nmask = \"G.811\"\n", recording).at(0);
    EXPECT_GT(result.value.value_or(0), result.most.value_or(1e9));
}

}  // namespace
