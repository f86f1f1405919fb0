// MTIE of a packet reference against its mask: the check values of an independent model, and windows
// by hand.
#include "reg/kvd_reg_mtie.h"
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <span>

namespace {

using vectors::json;
using vectors::Value;

// ---- check values -----------------------------------------------------------------------------------------

double num(const Value& v) { return vectors::number(v); }

void limit(const Value& v, const Value& group)
{
    vectors::expectNear("limit", mtie::mtieLimit(num(v["in"]["tau"])), num(v["out"]["limit"]),
                        vectors::toleranceOf({v, group}));
}

/// The mask after one sample of those that the model shows.
void expectMask(const MtieMask& mask, const Value& check, int result, vectors::Tolerance tolerance)
{
    // At rate 0 the low pass has no number; the mask takes the sample itself.
    if (std::isnan(num(check["filtered"]))) {
        EXPECT_EQ(mask.rate, 0);
        check.read();
        return;
    }
    vectors::expectNear("filtered", mask.filtered, num(check["filtered"]), tolerance);
    for (u32 tau = 0; tau < mtie::INTERVALS; ++tau) {
        vectors::expectNear("mtie", mask.tauRecord[tau].mtie, num(check["mtie"][tau]), tolerance);
        EXPECT_EQ(mask.tauRecord[tau].samples, check["counts"][tau].get<u32>());
    }
    EXPECT_EQ(result, check["result"].get<int>());
}

void maskRun(const Value& v, const Value& group)
{
    const Value in = v["in"], out = v["out"];
    SCOPED_TRACE(in["name"].get<std::string>());
    MtieMask* const mask = KvdLoz6TuReg_openMtieMask();
    std::map<u32, Value> checks;
    for (const Value check : out["checks"]) checks.emplace(check["i"].get<u32>(), check);
    std::map<u32, u16> rates;
    for (const Value change : in["rates"]) rates[change[0].get<u32>()] = change[1].get<u16>();
    json exceeded = json::array();
    u16 rate = 0;
    for (u32 i = 0; i < in["z_int"].size(); ++i) {
        SCOPED_TRACE(i);
        if (rates.contains(i)) rate = rates[i];
        const int result = static_cast<int>(KvdLoz6TuReg_addMtieMask(mask, num(in["z_int"][i]) * num(in["z_scale"]), rate));
        const auto check = checks.find(i);
        if (check != checks.end()) expectMask(*mask, check->second, result, vectors::toleranceOf({v, group}));
        if (result == 0) continue;
        if (!exceeded.empty() && exceeded.back()[1] == i - 1) exceeded.back()[1] = i;
        else exceeded.push_back({i, i});
    }
    EXPECT_EQ(out["exceeded"], exceeded);
    if (v.contains("literalQuirk")) v["literalQuirk"].read();
    if (out.contains("literalQuirk")) out["literalQuirk"].read();
    if (in.contains("literalQuirk")) in["literalQuirk"].read();
}

/// The values that a list keeps, oldest first.
void expectList(const char* what, const mtie::Queue& list, std::span<const double> values, const Value& wanted)
{
    ASSERT_EQ(list.count, wanted.size()) << what;
    for (u32 i = 0; i < list.count; ++i)
        vectors::expectNear(what, values[(list.first + i) % values.size()], num(wanted[i]), {1e-12, 1e-22});
}

void window(const Value& v, const Value& group)
{
    const Value in = v["in"], out = v["out"];
    SCOPED_TRACE(in["name"].get<std::string>());
    mtie::TauRecord record;
    record.rate = in["rate"].get<u16>();
    record.tau = num(in["tau"]);
    constexpr u32 ROOM = 64;
    std::array<double, ROOM> lows{}, highs{};
    std::vector<double> samples;
    for (u32 i = 0; i < in["x_int"].size(); ++i) {
        const double x = num(in["x_int"][i]) * 1e-9;
        const double leaving = record.samples > 0 ? samples[samples.size() - record.samples] : 0.0;
        vectors::expectNear("mtie", mtie::mtieAdd(record, x, leaving, lows.data(), highs.data(), ROOM),
                            num(out["mtie"][i]), vectors::toleranceOf({v, group}));
        samples.push_back(x);
    }
    in["n"].read(), out["range"].read();         // what a true sliding maximum would give
    EXPECT_EQ(record.samples, out["count"].get<u32>());
    expectList("minList", record.minList, lows, out["minList"]);
    expectList("maxList", record.maxList, highs, out["maxList"]);
}

void handle(const Value& v, const Value&)
{
    MtieMask other{};
    const std::map<std::string, MtieMask*> HANDLES = {{"null", nullptr}, {"other", &other}};
    KvdLoz6TuReg_openMtieMask();
    EXPECT_EQ(KvdLoz6TuReg_addMtieMask(HANDLES.at(v["in"]["handle"].get<std::string>()), 1e-6, 8),
              v["out"]["result"].get<u32>());
}

TEST(MtieCheckValues, AreMet)
{
    const auto inNode = [](void (*body)(const Value&, const Value&)) {
        return [body](const Value& v, const Value& group) {
            IdleNode b;
            b.in([&] { body(v, group); });
        };
    };
    vectors::Document document("o01_mtie.json");
    vectors::eachGroup(document["groups"], {{"mtieLimit", inNode(limit)}, {"mask", inNode(maskRun)},
                                            {"mtieAdd", inNode(window)}, {"handles", inNode(handle)}});
}

}  // namespace
