// values_bench.h - What the replays of the hardware interface share: a row is a call on a board, and what
// came of it, under the words of the file.
#pragma once
#include "hw/fake_bus.h"
#include "support/vectors.h"

namespace hwtest {

using namespace hwif;
using nlohmann::json;
using vectors::Tolerance;
using vectors::Value;

inline u32 u(const Value& v) { return static_cast<u32>(v.get<i64>()); }
inline u16 u16Of(const Value& v) { return static_cast<u16>(u(v)); }
inline double num(const Value& v) { return vectors::number(v); }

inline const json UNSEEN = "unseen";            // a result of the file that shows elsewhere, or nowhere
inline const json NOTHING = json::object();     // of a call whose effects alone are compared

/// A board; "case" of the file names one by its nominal values.
struct Board : Bench {
    NominalValues nominal{};

    Board(const std::string& name, u32 type) : Bench(name.empty() ? type : name == "type1" ? 1 : 2)
    {
        static const std::map<std::string, NominalValues> NOMINALS = {
            {"", {}}, {"isRev3", NOMINAL_REV3}, {"ext", NOMINAL_EXT_PHASE}, {"type2", NOMINAL_TYPE2},
            {"type1", NOMINAL_TYPE1}};
        nominal = vectors::rowOf(NOMINALS, name);
        if (name.empty()) return;
        in([&] { setRev3(name == "isRev3" ? 1 : 0); });
        in([&] { setExtPhaseDetector(name == "ext" ? 1 : 0); });
    }
    FrequencyWords words(double rel, double wander = 0) const { return frequencyWords(nominal, rel, wander); }
};

inline u32 addressOf(u32 id) { return static_cast<u32>(tuHwIf_lookupRegister(id)); }
/// What a register holds; within the program.
inline u32& reg(Bench& b, u32 id) { return b.bus.memory[addressOf(id)]; }

/// The word that went to that register and nowhere else, null when nothing was written.
inline json written(Bench& b, u32 id)
{
    if (b.bus.writes.empty()) return nullptr;
    const auto& [address, word] = b.bus.writes[0];
    return b.bus.writes.size() > 1 || address != addressOf(id) ? json("other") : json(word);
}

/// The word of increments holds their double.
inline void expectWrites(Bench& b, const Value& wanted, u32 slack)
{
    const auto writes = b.takeWrites();
    ASSERT_EQ(writes.size(), wanted.size());
    for (std::size_t i = 0; i < writes.size(); ++i) {
        const u32 id = u(wanted[i][0]);
        EXPECT_EQ(writes[i].first, addressOf(id));
        EXPECT_NEAR(writes[i].second, u(wanted[i][1]), id == 14 ? 2 * slack : 0);
    }
}

inline std::string upTo(const std::string& text, char end) { return text.substr(0, text.find(end)); }

/// A text of the file, up to its first number, was traced as often as it stands there; a flag tells whether
/// the row's own text was.
inline void expectTrace(Bench& b, const Value& wanted, const char* own)
{
    if (wanted.is_boolean()) { EXPECT_EQ(b.bus.countOf(own) != 0, wanted.get<bool>()); }
    const json texts = wanted.is_array() ? wanted.read() : json::array({wanted.read()});
    for (const json& text : texts)
        if (text.is_string()) {
            EXPECT_EQ(b.bus.countOf(upTo(text, '%')), std::ranges::count(texts, text)) << text;
        } else if (!text.is_null() && !text.is_boolean()) ADD_FAILURE() << "no trace " << text;
}

inline void compare(Bench& b, const json& got, const Value& wanted, const json& slack, Tolerance tolerance,
             const char* own)
{
    for (const auto& [key, value] : wanted.items()) {
        SCOPED_TRACE(key);
        const json is = got.value(key, json("not told"));
        if (is == UNSEEN) value.read();
        else if (got.contains(key))
            vectors::expect(key, is, value, slack.contains(key) ? Tolerance{0, slack[key]} : tolerance);
        else if (key == "writes") expectWrites(b, value, slack.value("inc", 0u));
        else if (key.starts_with("trace")) expectTrace(b, value, own);
        else ADD_FAILURE() << "no such result";
    }
}

/// Of two readings of the file the one that is nearer; both count as read.
inline Value readingOf(const Value& step, const json& got)
{
    const Value out = step["out"];
    if (!step.contains("alt") || !step["alt"].is_object()) return out;
    bool isNearer = true;
    for (const auto& [key, value] : step["alt"].items()) {
        const json is = got.value(key, UNSEEN), here = value.read(), there = out[key].read();
        if (!is.is_number() || !here.is_number() || !there.is_number()) continue;
        const double x = is;
        isNearer = isNearer && std::fabs(x - here.get<double>()) <= std::fabs(x - there.get<double>());
    }
    return isNearer ? step["alt"] : out;
}

using Call = std::function<json(Board&, const Value& in, const Value& step)>;
using Row = std::function<void(const Value&, const Value&)>;

/// Runs the call on a board, for one input or for a row of steps. `type` is of files that name no board.
inline Row on(u32 type, Call call, const char* ownTrace = "")
{
    return [=](const Value& v, const Value& g) {
        const Value init = v[v.contains("steps") ? "init" : "in"];
        const bool isNamed = init.contains("case") && !init["case"].is_null();
        Board board(isNamed ? init["case"].get<std::string>() : "",
                    init.contains("board") ? u(init["board"]) : type);
        if (v.contains("steps")) init.skip({"ready", "region"});         // each step tells its own
        for (const char* atRest : {"active", "index", "offset"})         // of the generator of wander
            if (v.contains("steps") && init.contains(atRest)) vectors::expect(atRest, 0, init[atRest]);
        const auto run = [&](const Value& step) {
            SCOPED_TRACE(testing::Message() << step["in"]);
            for (const auto& [key, value] : step["in"].items())
                if (std::isdigit(static_cast<unsigned char>(key[0])) != 0 && !value.is_null())
                    reg(board, static_cast<u32>(std::stoul(key))) = u(value);
            board.bus.traces.clear();
            const json got = call(board, step["in"], step);
            step.skip({"margin", "exact", "exact_half", "edge"});            // words on the vector
            json slack = json::object();
            if (step.contains("tol_int"))
                for (const auto& [key, value] : step["tol_int"].items())
                    if (step["out"].contains(key)) slack[key] = value.read();
            compare(board, got, readingOf(step, got), slack, vectors::toleranceOf({step, v, g}), ownTrace);
        };
        board.in([&] {
            if (!v.contains("steps")) return run(v);
            for (const Value step : v["steps"]) run(step);
        });
    };
}

/// A call that needs no more than its input.
inline Call of(json (*call)(const Value& in))
{
    return [call](Board&, const Value& in, const Value&) { return call(in); };
}

/// The numbers from 1 to 4 of which a trace tells.
inline json numbersTraced(Bench& b, const std::string& before, const std::string& after)
{
    json all = json::array();
    for (u32 n = 1; n <= 4; ++n)
        if (b.bus.countOf(before + std::to_string(n) + after) == 1) all.push_back(n);
    return all;
}

inline void replay(const char* file, const vectors::Groups& rows, const std::set<std::string>& elsewhere = {})
{
    vectors::Document document(file);
    vectors::eachGroup(document["groups"], rows, elsewhere);
}

}  // namespace hwtest
