// Words of a scenario about radio links, sync groups and the paths between units that can't be meant.
#include "sim/scenario/scenario.h"

#include <gtest/gtest.h>

namespace {

TEST(SocpriScenario, BadWordsAreRefused)
{
    const std::string units = "duration = \"10s\"\n[[unit]]\nname = \"mdu\"\n[unit.inrsi]\n"
                              "[unit.sync_group]\n[[unit]]\nname = \"sdu\"\nrole = \"slave\"\n"
                              "[unit.inrsi]\n[[unit.inrsi.link]]\nport = 1\nid = 71\n"
                              "[[link]]\ntype = \"sdu\"\nfrom = \"mdu\"\nto = \"sdu\"\n";
    const std::string inci = "[[link]]\ntype = \"inci\"\nname = \"p\"\nfrom = \"mdu\"\nto = \"sdu\"\n";
    const std::string event = "[[event]]\nat = \"1s\"\n";
    const std::string other = "[[unit]]\nname = \"c\"\n";
    ASSERT_NO_THROW(sim::readScenarioText(units + inci, "good"));
    for (const std::string& words :
         {event + "do = \"link.focus\"\nport = 8\n", inci + event + "do = \"link.focus\"\nlink = \"p\"\n",
          event + "unit = \"sdu\"\ndo = \"inrsi.measure\"\nid = 71\nanswers = \"wrong\"\n",
          event + "unit = \"mdu\"\ndo = \"mp.socpri_align\"\nport = 7\nturns_ahead = 25\n",
          event + "unit = \"mdu\"\ndo = \"sync_group.answer\"\nanswer = \"busy\"\n",
          other + "[[link]]\ntype = \"sdu\"\nname = \"q\"\nfrom = \"mdu\"\nto = \"c\"\n",
          other + "[unit.sync_group]\npriority = 70000\n", other + "[unit.sync_group]\nperiod = \"0s\"\n",
          other + "[unit.sync_group]\nrank = 1\n"}) {
        SCOPED_TRACE(words);
        EXPECT_THROW(sim::readScenarioText(units + words, "bad"), sim::ScenarioError);
    }
}

}  // namespace
