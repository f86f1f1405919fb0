// Delay variation generator: its files, its command, the stamps that it changes.
#include "reg/kvd_reg_pdv_gen.h"
#include "support/unit_bench.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

constexpr const char* UPLINK = "/d/genPdvUplink.txt";
constexpr const char* DOWNLINK = "/d/genPdvDownlink.txt";

/// `first` and then `rest`, `lines` in all.
std::string table(const std::string& first, const std::string& rest, u32 lines)
{
    std::string text = first + "\n";
    for (u32 i = 1; i < lines; ++i) text += rest + "\n";
    return text;
}

struct Generator : bench::Unit {
    Generator() { node.powerOn(), run(1); }
    int type(const std::string& line)
    {
        std::string output;
        const int result = command(line, output);
        run(0.1);                          // the manager takes the order
        return result;
    }
    /// T2 and T4 of the next message in ns, both 2 s before.
    std::pair<i64, i64> next()
    {
        PktTimeMsg msg{};
        msg.T1_s = msg.T2_s = msg.T3_s = msg.T4_s = 2;
        node.system().call(*node.program(), [&] { KvdLoz6TuReg_addPdv(msg); });
        EXPECT_TRUE(msg.T1_s == 2 && msg.T1_ns == 0 && msg.T3_s == 2 && msg.T3_ns == 0);
        return {msg.T2_s * 1000000000 + msg.T2_ns, msg.T4_s * 1000000000 + msg.T4_ns};
    }
};

using Stamps = std::pair<i64, i64>;
constexpr Stamps UNTOUCHED = {2000000000, 2000000000};

}  // namespace

TEST(PdvGenerator, NeedsAThousandValuesOfItsFile)
{
    struct Case { const char* what; std::string content; Stamps stamps; };
    for (const Case& c : std::initializer_list<Case>{
             {"no file",        "",                                       UNTOUCHED},
             {"999 lines",      table("0.5", "0.001", 999),               UNTOUCHED},
             {"1000 lines",     table("0.5", "0.001", 1000),              {2000000000, 2500000000}},
             {"1001 lines",     table("1.25", "0.001", 1001),             {2000000000, 3250000000}},
             {"a word inside",  table("0.5", "0", 500) + "x\n" + table("1", "1", 600), UNTOUCHED},
             {"a negative one", table("-0.5", "0.001", 1000),             UNTOUCHED},
             {"beyond 32 bits", table("1", "4294967296", 1000),           UNTOUCHED},
             {"not a number",   table("nan", "0.001", 1000),              UNTOUCHED}}) {
        SCOPED_TRACE(c.what);
        Generator g;
        if (!c.content.empty()) g.node.volumes().write(UPLINK, c.content);
        EXPECT_EQ(g.type("genpdv ptp_t uplink enable"), 0);
        EXPECT_EQ(g.next(), c.stamps);
        EXPECT_EQ(g.traced("generating pdv (sum= 1.499000, mean=0.001499, dev=0.015772) on type= PTP_TIME"),
                  c.stamps.second == 2500000000);
    }
}

TEST(PdvGenerator, DirectionsTypeAndTurnOfTheTable)
{
    Generator g;
    g.node.volumes().write(UPLINK, table("0.5", "0.001", 1000));
    g.node.volumes().write(DOWNLINK, table("0.25", "0.002", 1000));
    g.type("genpdv ptp_f uplink enable");
    EXPECT_EQ(g.next(), UNTOUCHED) << "time messages are changed by their own type alone";
    g.type("genpdv ptp_t uplink enable");
    EXPECT_EQ(g.next(), (Stamps{2000000000, 2500000000}));
    for (u32 i = 1; i < 1000; ++i) ASSERT_EQ(g.next(), (Stamps{2000000000, 2001000000})) << i;
    EXPECT_EQ(g.next(), (Stamps{2000000000, 2500000000})) << "the table begins again";
    g.type("genpdv ptp_t downlink enable");
    EXPECT_EQ(g.next(), (Stamps{2002000000, 2002000000})) << "the downlink's file serves both";
    g.type("genpdv ptp_t uplink disable");
    EXPECT_EQ(g.next(), (Stamps{2002000000, 2000000000}));
    g.type("genpdv ptp_t downlink disable");
    EXPECT_EQ(g.next(), UNTOUCHED);

    g.node.restartWarm();
    g.run(1);
    EXPECT_EQ(g.next(), UNTOUCHED) << "a restart ends it";
    g.node.volumes().write("/d/genPdvAutomatic", "");
    g.node.restartWarm();
    g.run(1);
    EXPECT_EQ(g.next(), (Stamps{2250000000, 2250000000})) << "unless the volume asks for it";
}
