// What a scenario may ask of the GPS reference, on a recording made by hand.
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
