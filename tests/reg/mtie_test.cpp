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

void limit(const Value& v, const Value& group)
{
    const json is = {{"limit", mtie::mtieLimit(v["in"]["tau"])}};
    vectors::expectAll(is, v["out"], vectors::toleranceOf({v, group}));
}

/// The mask after one sample of those that the model shows.
void expectMask(const MtieMask& mask, const Value& check, bool result, vectors::Tolerance tolerance)
{
    // At rate 0 the low pass has no number; the mask takes the sample itself.
    if (std::isnan(double{check["filtered"]})) {
        EXPECT_EQ(mask.rate, 0);
        check.read();
        return;
    }
    json mtie = json::array(), counts = json::array();
    for (const mtie::TauRecord& record : mask.tauRecord) {
        mtie.push_back(record.mtie);
        counts.push_back(record.samples);
    }
    vectors::expectAll({{"filtered", mask.filtered}, {"mtie", mtie}}, check, tolerance);
    vectors::expectAll({{"counts", counts}, {"result", result}}, check);
}

void maskRun(const Value& v, const Value& group)
{
    const Value in = v["in"], out = v["out"];
    SCOPED_TRACE(in["name"].get<std::string>());
    MtieMask* const mask = KvdLoz6TuReg_openMtieMask();
    std::map<u32, Value> checks;
    for (const Value check : out["checks"]) checks.emplace(check["i"], check);
    std::map<u32, u16> rates;
    for (const Value change : in["rates"]) rates[change[0]] = change[1];
    json exceeded = json::array();
    u16 rate = 0;
    for (u32 i = 0; i < in["z_int"].size(); ++i) {
        SCOPED_TRACE(i);
        if (rates.contains(i)) rate = rates[i];
        const double z = double{in["z_int"][i]} * double{in["z_scale"]};
        const bool result = KvdLoz6TuReg_addMtieMask(mask, z, rate) != 0;
        const auto check = checks.find(i);
        if (check != checks.end()) expectMask(*mask, check->second, result, vectors::toleranceOf({v, group}));
        if (!result) continue;
        if (!exceeded.empty() && exceeded.back()[1] == i - 1) exceeded.back()[1] = i;
        else exceeded.push_back({i, i});
    }
    EXPECT_EQ(out["exceeded"], exceeded);
    for (const Value& part : {v, in, out})
        if (part.contains("literalQuirk")) part["literalQuirk"].read();
}

/// The values that a list keeps, oldest first.
json listOf(const mtie::Queue& list, std::span<const double> values)
{
    json kept = json::array();
    for (u32 i = 0; i < list.count; ++i) kept.push_back(values[(list.first + i) % values.size()]);
    return kept;
}

void window(const Value& v, const Value& group)
{
    const Value in = v["in"], out = v["out"];
    SCOPED_TRACE(in["name"].get<std::string>());
    mtie::TauRecord record;
    record.rate = in["rate"];
    record.tau = in["tau"];
    constexpr u32 ROOM = 64;
    std::array<double, ROOM> lows{}, highs{};
    std::vector<double> samples;
    json mtie = json::array();
    for (const Value x_int : in["x_int"]) {
        const double x = double{x_int} * 1e-9;
        const double leaving = record.samples > 0 ? samples[samples.size() - record.samples] : 0.0;
        mtie.push_back(mtie::mtieAdd(record, x, leaving, lows.data(), highs.data(), ROOM));
        samples.push_back(x);
    }
    in["n"].read(), out["range"].read();         // what a true sliding maximum would give
    vectors::expectAll({{"mtie", mtie}, {"count", record.samples}}, out, vectors::toleranceOf({v, group}));
    vectors::expectAll({{"minList", listOf(record.minList, lows)},
                        {"maxList", listOf(record.maxList, highs)}}, out, {1e-12, 1e-22});
}

void handle(const Value& v, const Value&)
{
    MtieMask other{};
    const std::map<std::string, MtieMask*> HANDLES = {{"null", nullptr}, {"other", &other}};
    KvdLoz6TuReg_openMtieMask();
    const std::string name = v["in"]["handle"].get<std::string>();
    vectors::expectAll({{"result", KvdLoz6TuReg_addMtieMask(vectors::rowOf(HANDLES, name), 1e-6, 8)}},
                       v["out"]);
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
