#include "app/compare.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <vector>

namespace app {
namespace {

using Json = nlohmann::ordered_json;
using Leaves = std::vector<std::pair<std::string, Json>>;

/// An element of an array by what it is called, where that is told; else by its place.
std::string placeOf(const Json& element, std::size_t index)
{
    if (element.is_array() && element.size() == 2 && element[0].is_number() && element[1].is_number())
        return element[0].dump() + " s";             // a value at an observation interval
    for (const char* const key : {"name", "scenario"})
        if (element.is_object() && element.contains(key) && element[key].is_string()
            && !element.contains("t"))
            return element[key].get<std::string>();
    return std::to_string(index);
}

bool isNoise(const std::string& key) { return key == "wall_seconds" || key == "detail" || key == "title"; }

void collect(const Json& json, const std::string& path, Leaves& leaves)
{
    if (json.is_object()) {
        for (const auto& [key, value] : json.items())
            if (!isNoise(key)) collect(value, path.empty() ? key : path + "." + key, leaves);
    } else if (json.is_array()) {
        for (std::size_t i = 0; i < json.size(); ++i) {
            const bool isPair = json[i].is_array() && json[i].size() == 2 && json[i][0].is_number();
            const std::string at = path + "[" + placeOf(json[i], i) + "]";
            if (isPair) leaves.emplace_back(at, json[i][1]);
            else        collect(json[i], at, leaves);
        }
    } else {
        leaves.emplace_back(path, json);
    }
}

Leaves leavesOf(const std::string& file)
{
    std::ifstream in(file);
    if (!in) throw CompareError(file + ": the file can't be opened");
    try {
        const Json json = Json::parse(in);
        if (!json.is_object() || !json.contains("version"))
            throw CompareError(file + ": it is no summary of a run");
        Leaves leaves;
        collect(json, "", leaves);
        return leaves;
    } catch (const Json::exception&) {
        throw CompareError(file + ": it isn't JSON");
    }
}

/// Each leaf once by its path; of several elements of one name the later ones are numbered.
std::map<std::string, Json> byPath(const Leaves& leaves, std::vector<std::string>& order)
{
    std::map<std::string, Json> found;
    for (const auto& [path, value] : leaves) {
        std::string name = path;
        for (int again = 2; found.contains(name); ++again) name = path + " #" + std::to_string(again);
        found.emplace(name, value);
        order.push_back(name);
    }
    return found;
}

bool within(double a, double b, const Tolerance& t)
{
    const double apart = std::abs(a - b);
    return apart <= t.absolute || apart <= t.relative * std::max(std::abs(a), std::abs(b));
}

std::string text(const Json* value) { return value == nullptr ? "nothing" : value->dump(); }

}  // namespace

std::size_t compareSummaries(const std::string& before, const std::string& after, const Tolerance& tolerance,
                             std::FILE* out)
{
    std::vector<std::string> order;
    const std::map<std::string, Json> a = byPath(leavesOf(before), order);
    const std::map<std::string, Json> b = byPath(leavesOf(after), order);
    std::size_t beyond = 0, differ = 0;
    std::map<std::string, bool> seen;
    for (const std::string& path : order) {
        if (seen[path]) continue;
        seen[path] = true;
        const Json* const was = a.contains(path) ? &a.at(path) : nullptr;
        const Json* const is = b.contains(path) ? &b.at(path) : nullptr;
        if (was != nullptr && is != nullptr && *was == *is) continue;
        const bool numbers = was != nullptr && is != nullptr && was->is_number() && is->is_number();
        const bool isBeyond = !numbers || !within(was->get<double>(), is->get<double>(), tolerance);
        ++differ;
        if (isBeyond) ++beyond;
        std::fprintf(out, "%s %s: %s -> %s", isBeyond ? "!" : " ", path.c_str(), text(was).c_str(),
                     text(is).c_str());
        if (numbers) {
            const double from = was->get<double>(), to = is->get<double>();
            std::fprintf(out, " (%+.4g", to - from);
            if (from != 0.0) std::fprintf(out, ", %+.2f %%", (to / from - 1.0) * 100.0);
            std::fprintf(out, ")");
        }
        std::fprintf(out, "\n");
    }
    std::fprintf(out, "%zu of %zu values differ, %zu beyond the tolerance\n", differ, seen.size(), beyond);
    return beyond;
}

}  // namespace app
