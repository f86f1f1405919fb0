// What a scenario may ask of a reference, on a recording made by hand.
#include "app/checks.h"

#include <gtest/gtest.h>

namespace {

using sim::CheckKind;

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

TEST(GpsChecks, HoldOnBothSidesOfEachMoment)
{
    struct Case {
        const char* what;
        CheckKind kind;
        double from, to;
        u8 state;
        const char* text;
        u64 least, most;
        bool pass;
    };
    constexpr u64 ANY = UINT64_MAX;
    sim::Scenario scenario;
    const Case cases[] = {
        {"state before the change", CheckKind::GpsState, 51.9, 51.9, 3, "", 1, ANY, true},
        {"state at the change", CheckKind::GpsState, 52, 52, 7, "", 1, ANY, true},
        {"no state yet", CheckKind::GpsState, 9, 9, 3, "", 1, ANY, false},
        {"state reached too late", CheckKind::GpsReaches, 0, 51, 7, "", 1, ANY, false},
        {"state reached", CheckKind::GpsReaches, 0, 52, 7, "", 1, ANY, true},
        {"type before another", CheckKind::GpsType, 89, 89, 6, "", 1, ANY, true},
        {"type after", CheckKind::GpsType, 91, 91, 6, "", 1, ANY, false},
        {"status", CheckKind::GpsStatus, 69, 69, 0, "OK", 1, ANY, true},
        {"status since changed", CheckKind::GpsStatus, 70, 70, 0, "OK", 1, ANY, false},
        {"told twice in all", CheckKind::GpsTold, 0, 100, 0, "Loss of signal", 2, 2, true},
        {"told once later", CheckKind::GpsTold, 1, 100, 0, "Loss of signal", 2, 2, false},
        {"printed", CheckKind::Command, 80, 80, 0, "restarts : 1", 2, 2, true},
        {"not printed", CheckKind::Command, 80, 80, 0, "restarts : 2", 1, ANY, false},
        {"another moment", CheckKind::Command, 81, 81, 0, "restarts : 1", 1, ANY, false},
    };
    for (const Case& c : cases) {
        sim::CheckSpec check;
        check.kind = c.kind;
        check.name = c.what;
        check.unit = "tu1";
        check.from_s = c.from;
        check.to_s = c.to;
        check.states = {c.state};
        check.text = c.text;
        check.line = "gpsstatus";
        check.least = c.least;
        check.most = c.most;
        scenario.checks.push_back(check);
    }
    const std::vector<app::CheckResult> results = app::evaluateChecks(
        scenario, recorded(), [](const std::string&, const std::string&) { return u64{0}; });
    ASSERT_EQ(results.size(), std::size(cases));
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i].pass, cases[i].pass) << cases[i].what << ": " << results[i].detail;
}

TEST(RadioLinkChecks, CountTheAnswersThatAreMeantAndKeepThePrintoutsOrder)
{
    constexpr u32 SCAN = 0x9C067, ALIGN = 0x9C06D;
    app::Recording recording = recorded();
    recording.units[0].socpriReports = {
        {10.0, SCAN, 1, 1}, {20.0, SCAN, 2, 5}, {30.0, SCAN, 1, 4}, {40.0, ALIGN, 0, 1}};
    struct Case {
        const char* what;
        const char* words;
        bool pass;
    };
    const Case cases[] = {
        {"any port", "answer = \"scan\"\nleast = 3\nmost = 3", true},
        {"one port", "answer = \"scan\"\nport = 1\nleast = 2\nmost = 2", true},
        {"one status", "answer = \"scan\"\nport = 1\nstatus = 4", true},
        {"another status", "answer = \"scan\"\nport = 2\nstatus = 1", false},
        {"before", "answer = \"scan\"\nto = 9.9", false},
        {"at the moment", "answer = \"scan\"\nto = 10\nmost = 1", true},
        {"another answer", "answer = \"align\"\nstatus = 1\nmost = 1", true},
        {"never told", "answer = \"select\"\nleast = 0\nmost = 0", true},
    };
    std::string text = "duration = \"100s\"\n[[unit]]\nname = \"tu1\"\n";
    for (const Case& c : cases) text += std::string("[[check]]\ncheck = \"socpri_told\"\n") + c.words + "\n";
    const std::string printout = "[[check]]\ncheck = \"command\"\nat = 80\nline = \"gpsstatus\"\nin_order = ";
    text += printout + "[\"restarts : 1\", \"restarts : 12\"]\n";
    text += printout + "[\"restarts : 12\", \"restarts : 1\"]\n";
    text += printout + "[\"restarts : 12\", \"restarts : 12\"]\n";
    const sim::Scenario scenario = sim::readScenarioText(text, "checks");
    const std::vector<app::CheckResult> results = app::evaluateChecks(
        scenario, recording, [](const std::string&, const std::string&) { return u64{0}; });
    ASSERT_EQ(results.size(), std::size(cases) + 3);
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(results[i].pass, cases[i].pass) << cases[i].what << ": " << results[i].detail;
    EXPECT_TRUE(results[std::size(cases)].pass);
    EXPECT_FALSE(results[std::size(cases) + 1].pass);
    EXPECT_FALSE(results[std::size(cases) + 2].pass) << "one place counts once";
}

TEST(TimeErrorAboutTheMean, LeavesTheConstantPartOut)
{
    sim::Scenario scenario;
    for (const double limit : {9.9, 10.1}) {        // a ramp of 20 ns over the span
        sim::CheckSpec check;
        check.kind = CheckKind::AboutMean;
        check.unit = "tu1";
        check.from_s = 20;
        check.to_s = 40;
        check.limit = limit;
        scenario.checks.push_back(check);
    }
    const std::vector<app::CheckResult> results = app::evaluateChecks(
        scenario, recorded(), [](const std::string&, const std::string&) { return u64{0}; });
    EXPECT_FALSE(results.at(0).pass) << results.at(0).detail;
    EXPECT_TRUE(results.at(1).pass) << results.at(1).detail;
}

}  // namespace
