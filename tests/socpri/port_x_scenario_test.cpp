// A scenario's words for the two units of a node at synchronisation over radio links: the main
// processor's part between them, and what becomes of a server's answers.
#include "app/socpri_reports.h"
#include "iif/tuiif_sig.h"
#include "sim/scenario/link.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"
#include "tests/support/unit_bench.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* TEXT = R"(
duration = "120s"
[[unit]]
name = "mdu"
apn = 1
[unit.temperature]
cold_volts = 2.0
[unit.inrsi]
[[unit]]
name = "sdu"
apn = 2
role = "slave"
[unit.temperature]
cold_volts = 2.0
[unit.inrsi]
[[unit.inrsi.link]]
port = 1
id = 71
[[unit.inrsi.link]]
port = 2
id = 72
[[link]]
type = "sdu"
from = "mdu"
to = "sdu"
)";

constexpr u8 PORT_X = 7;

struct TwoUnits {
    ose::World world{1};
    sim::Scenario scenario;
    std::vector<std::unique_ptr<sim::Unit>> units;
    std::vector<std::unique_ptr<sim::Link>> links;

    explicit TwoUnits(const std::string& events) : scenario(sim::readScenarioText(TEXT + events, "port-x"))
    {
        bench::failOnMisuse(world);
        for (const sim::UnitSpec& spec : scenario.units)
            units.push_back(std::make_unique<sim::Unit>(world, spec));
        links = sim::makeLinks(world, scenario, units);
        for (const sim::EventSpec& e : scenario.events)
            world.at(static_cast<ose::Time>(e.at_s * 1e12), [this, &e] {
                if (e.linkAction) return e.linkAction(*links.front());
                e.action(*units[e.unit == "mdu" ? 0 : 1]);
            });
        world.runUntil(120 * ose::SEC);
    }
    sim::Node& node(u32 i) { return units[i]->node(); }
    /// Answers to scans, in order: "1 5 3".
    std::string scans()
    {
        std::string all;
        for (const sim::MpRecord& r : node(0).mainProcessor().all(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP)) {
            const auto report = app::socpriReport(r);
            EXPECT_TRUE(report && report->port == PORT_X);
            all += (all.empty() ? "" : " ") + std::to_string(report->status);
        }
        return all;
    }
};

std::string event(const char* at, const char* unit, const char* what, const std::string& words = "")
{
    const std::string who = *unit ? std::string("unit = \"") + unit + "\"\n" : "";
    return "[[event]]\nat = \"" + std::string(at) + "\"\n" + who + "do = \"" + what + "\"\n" + words + "\n";
}
std::string started()
{
    return event("5s", "sdu", "mp.socpri_start") +
           event("6s", "sdu", "mp.socpri_supervise", "ports = \"AB\"");
}
std::string scan(const char* at) { return event(at, "mdu", "mp.socpri_scan", "port = 7"); }
std::string focus(const char* at, const char* port)
{
    return event(at, "", "link.focus", std::string("port = ") + port);
}
std::string answers(const char* at, const char* how)
{
    return event(at, "sdu", "inrsi.measure", std::string("id = 71\nanswers = \"") + how + "\"");
}

TEST(PortXScenario, TheMasterMeasuresWhatTheFocusIsOn)
{
    struct Case { const char* what; std::string events; const char* scans; u32 of71, of72; };
    const Case cases[] = {
        {"no focus", scan("20s"), "5", 0, 0},
        {"focus", focus("19s", "1") + scan("20s"), "1", 3, 0},
        {"on another port", focus("18s", "1") + focus("19s", "2") + scan("20s"), "1", 0, 3},
        {"given up", focus("18s", "1") + focus("19s", "0") + scan("20s"), "5", 0, 0},
        {"before the link is told", focus("4s", "1") + scan("20s"), "1", 3, 0},
        {"the units can't reach each other",
         focus("18s", "1") + event("19s", "", "link.down") + scan("20s") + event("21s", "", "link.up") +
             scan("22s"),
         "5 1", 3, 0},
        {"void, refused and unanswered",
         focus("18s", "1") + answers("19s", "invalid") + scan("20s") + answers("29s", "rejected") +
             scan("30s") + answers("39s", "silent") + scan("40s") + answers("49s", "measured") + scan("50s"),
         "4 5 5 1", 15 + 1 + 1 + 3, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TwoUnits run(started() + c.events);
        EXPECT_EQ(run.scans(), c.scans);
        // A port that isn't in focus is asked for phases only.
        EXPECT_EQ(run.node(1).inrsi().frequencyRequests(71), c.of71);
        EXPECT_EQ(run.node(1).inrsi().frequencyRequests(72), c.of72);
        for (u32 i = 0; i < 2; ++i) EXPECT_TRUE(run.node(i).programEnds().empty());
    }
}

TEST(PortXScenario, BadWordsAreRefused)
{
    const std::string inci = "[[link]]\ntype = \"inci\"\nname = \"p\"\nfrom = \"mdu\"\nto = \"sdu\"\n";
    for (const std::string& words :
         {focus("1s", "8"), inci + event("1s", "", "link.focus", "link = \"p\""), answers("1s", "wrong"),
          event("1s", "mdu", "mp.socpri_align", "port = 7\nturns_ahead = 25"),
          std::string("[[check]]\ncheck = \"socpri_told\"\nanswer = \"jump\"\n"),
          std::string("[[check]]\ncheck = \"socpri_told\"\nanswer = \"scan\"\nport = 8\n"),
          std::string("[[unit]]\nname = \"c\"\n"
                      "[[link]]\ntype = \"sdu\"\nname = \"q\"\nfrom = \"mdu\"\nto = \"c\"\n")}) {
        SCOPED_TRACE(words);
        EXPECT_THROW(sim::readScenarioText(TEXT + words, "bad"), sim::ScenarioError);
    }
}

}  // namespace
