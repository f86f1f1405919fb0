// MTIE of a packet reference against its mask: the check values of an independent model, and windows
// by hand.
#include "reg/kvd_reg_mtie.h"
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

#include <gtest/gtest.h>

namespace {

using vectors::json;

TEST(MtieMask, IsExceededByAStepThatStaysAndHealsWithANewRate)
{
    IdleNode b;
    b.in([] {
        MtieMask* const mask = KvdLoz6TuReg_openMtieMask();
        constexpr u16 RATE = 8;
        for (u32 i = 0; i < 40; ++i) EXPECT_EQ(KvdLoz6TuReg_addMtieMask(mask, 0.0, RATE), 0u);
        // The filter takes 1.24 % of a step at each sample: 124 ns, then 247 ns, above 212.5 ns.
        u32 first = 0;
        for (u32 i = 1; i <= 12 && first == 0; ++i)
            if (KvdLoz6TuReg_addMtieMask(mask, 1e-5, RATE) == 1) first = i;
        EXPECT_EQ(first, 2u);
        for (u32 i = 0; i < 4000; ++i) KvdLoz6TuReg_addMtieMask(mask, 1e-5, RATE);
        EXPECT_EQ(KvdLoz6TuReg_addMtieMask(mask, 1e-5, RATE), 1u);       // never falls by itself
        EXPECT_EQ(KvdLoz6TuReg_addMtieMask(mask, 1e-5, RATE + 1), 0u);
        EXPECT_EQ(KvdLoz6TuReg_addMtieMask(nullptr, 1.0, RATE), 0u);
    });
}

TEST(MtieCheckValues, Mask)
{
    TU_LOAD_VECTORS(document, "o01_mtie.json");
    IdleNode b;
    b.in([&document] {
        for (const json& group : document["groups"]) {
            if (group["name"] == "mtieLimit") {
                for (const json& v : group["vectors"])
                    EXPECT_NEAR(mtie::mtieLimit(v["in"]["tau"]), v["out"]["limit"].get<double>(), 1e-22);
            }
            if (group["name"] != "mask") continue;
            for (const json& v : group["vectors"]) {
                SCOPED_TRACE(v["in"]["name"].get<std::string>());
                MtieMask* const mask = KvdLoz6TuReg_openMtieMask();
                json exceeded = json::array();
                u16 rate = 0;
                for (u32 i = 0; i < v["in"]["z_int"].size(); ++i) {
                    for (const json& change : v["in"]["rates"])
                        if (change[0] == i) rate = change[1];
                    const double z = v["in"]["z_int"][i].get<double>() * v["in"]["z_scale"].get<double>();
                    if (KvdLoz6TuReg_addMtieMask(mask, z, rate) == 0) continue;
                    if (!exceeded.empty() && exceeded.back()[1] == i - 1) exceeded.back()[1] = i;
                    else exceeded.push_back({i, i});
                }
                EXPECT_EQ(exceeded, v["out"]["exceeded"]);
            }
        }
    });
}

TEST(MtieCheckValues, Window)
{
    TU_LOAD_VECTORS(document, "o01_mtie.json");
    IdleNode b;
    b.in([&document] {
        for (const json& group : document["groups"]) {
            if (group["name"] != "mtieAdd") continue;
            for (const json& v : group["vectors"]) {
                SCOPED_TRACE(v["in"]["name"].get<std::string>());
                mtie::TauRecord record;
                record.rate = v["in"]["rate"];
                record.tau = v["in"]["tau"];
                constexpr u32 ROOM = 64;
                double lows[ROOM] = {}, highs[ROOM] = {};
                std::vector<double> samples;
                for (u32 i = 0; i < v["in"]["x_int"].size(); ++i) {
                    const double x = v["in"]["x_int"][i].get<double>() * 1e-9;
                    const double leaving =
                        record.samples > 0 ? samples[samples.size() - record.samples] : 0.0;
                    EXPECT_NEAR(mtie::mtieAdd(record, x, leaving, lows, highs, ROOM),
                                v["out"]["mtie"][i].get<double>(), 1e-20);
                    samples.push_back(x);
                }
                EXPECT_EQ(record.samples, v["out"]["count"].get<u32>());
                EXPECT_EQ(record.minList.count, v["out"]["minList"].size());
                EXPECT_EQ(record.maxList.count, v["out"]["maxList"].size());
            }
        }
    });
}

}  // namespace
