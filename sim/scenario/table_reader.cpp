#include "sim/scenario/table_reader.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace sim {
namespace {

u32 lineOf(const toml::node& node) { return static_cast<u32>(node.source().begin.line); }

struct Unit { const char* name; double seconds; };
constexpr Unit UNITS[] = {{"ms", 1e-3}, {"d", 86400.0}, {"h", 3600.0}, {"m", 60.0}, {"s", 1.0}};

const Unit* unitAt(const char* text)
{
    for (const Unit& u : UNITS)
        if (std::string(text).starts_with(u.name)) return &u;
    return nullptr;
}

/// Letters to change, add, drop or swap with their neighbour to get from one word to the other.
std::size_t lettersApart(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

thread_local ReadNotes* notes = nullptr;

void noteKey(const char* key)
{
    if (notes != nullptr && std::ranges::find(notes->keys, key) == notes->keys.end())
        notes->keys.emplace_back(key);
}

}  // namespace

ReadNotes::ReadNotes() { notes = this; }
ReadNotes::~ReadNotes() { notes = nullptr; }

void TableReader::noteWord(const char* key, const char* word)
{
    if (notes != nullptr) notes->words.emplace_back(key, word);
}

bool TableReader::has(const char* key) const
{
    noteKey(key);
    return table_.contains(key);
}

std::optional<double> parseDuration(const std::string& text)
{
    const char* at = text.c_str();
    double total = 0.0;
    bool any = false;
    while (*at != '\0') {
        char* end = nullptr;
        const double value = std::strtod(at, &end);
        if (end == at || !(value >= 0.0) || !std::isfinite(value)) return std::nullopt;
        if (*end == '\0' && !any) return value;
        const Unit* const unit = unitAt(end);
        if (unit == nullptr) return std::nullopt;
        total += value * unit->seconds;
        at = end + std::string(unit->name).size();
        any = true;
    }
    return any ? std::optional(total) : std::nullopt;
}

TableReader::TableReader(const toml::table& table, std::string file, std::string what)
    : table_(table), file_(std::move(file)), what_(std::move(what)), line_(std::max(1u, lineOf(table)))
{
}

void TableReader::fail(const std::string& reason) const
{
    throw ScenarioError(file_, line_, what_ + ": " + reason);
}

void TableReader::fail(const char* key, const std::string& reason) const
{
    const toml::node* const node = table_.get(key);
    throw ScenarioError(file_, node != nullptr ? lineOf(*node) : line_, what_ + ": " + key + ": " + reason);
}

const toml::node* TableReader::take(const char* key)
{
    noteKey(key);
    taken_.insert(key);
    return table_.get(key);
}

const toml::node& TableReader::need(const char* key)
{
    const toml::node* const node = take(key);
    if (node == nullptr) {
        refuseTypoOf(key);
        fail(std::string("'") + key + "' is missing");
    }
    return *node;
}

void TableReader::refuseTypoOf(const std::string& key) const
{
    const std::size_t most = key.size() > 4 ? 2 : 1;
    for (const auto& [there, node] : table_) {
        const std::string name(there.str());
        if (!taken_.contains(name) && lettersApart(name, key) <= most)
            throw ScenarioError(file_, lineOf(node),
                                what_ + ": unknown key '" + name + "'; '" + key + "' is missing");
    }
}

std::string TableReader::text(const char* key)
{
    const toml::node& node = need(key);
    if (!node.is_string()) fail(key, "a text is expected");
    return **node.as_string();
}

std::string TableReader::text(const char* key, const std::string& fallback)
{
    return has(key) ? text(key) : fallback;
}

double TableReader::number(const char* key)
{
    const toml::node& node = need(key);
    if (!node.is_number()) fail(key, "a number is expected");
    const double value = node.value<double>().value_or(0.0);
    if (!std::isfinite(value)) fail(key, "a finite number is expected");
    return value;
}

double TableReader::notNegative(const char* key, double fallback)
{
    const double value = number(key, fallback);
    if (!(value >= 0.0)) fail(key, "not negative");
    return value;
}

double TableReader::number(const char* key, double fallback) { return has(key) ? number(key) : fallback; }

i64 TableReader::integer(const char* key, i64 lowest, i64 highest)
{
    const toml::node& node = need(key);
    if (!node.is_integer()) fail(key, "a whole number is expected");
    const i64 value = **node.as_integer();
    if (value < lowest || value > highest)
        fail(key, std::to_string(value) + " is outside " + std::to_string(lowest) + " to "
                      + std::to_string(highest));
    return value;
}

i64 TableReader::integer(const char* key, i64 lowest, i64 highest, i64 fallback)
{
    return has(key) ? integer(key, lowest, highest) : fallback;
}

bool TableReader::boolean(const char* key, bool fallback)
{
    for (const char* const word : {"true", "false"}) noteWord(key, word);
    if (!has(key)) return fallback;
    const toml::node& node = need(key);
    if (!node.is_boolean()) fail(key, "true or false is expected");
    return **node.as_boolean();
}

double TableReader::seconds(const char* key)
{
    const toml::node& node = need(key);
    if (node.is_number()) {
        const double value = number(key);
        if (!(value >= 0.0)) fail(key, "a time is not negative");
        return value;
    }
    if (!node.is_string()) fail(key, "a time is expected, such as \"90s\" or \"1h30m\"");
    const std::optional<double> value = parseDuration(**node.as_string());
    if (!value) fail(key, "'" + **node.as_string() + "' is no time; write it as \"90s\" or \"1h30m\"");
    return *value;
}

double TableReader::seconds(const char* key, double fallback) { return has(key) ? seconds(key) : fallback; }

std::vector<std::string> TableReader::texts(const char* key)
{
    std::vector<std::string> values;
    if (!has(key)) return values;
    const toml::node& node = need(key);
    if (!node.is_array()) fail(key, "an array of texts is expected");
    for (const toml::node& element : *node.as_array()) {
        if (!element.is_string()) fail(key, "an array of texts is expected");
        values.push_back(**element.as_string());
    }
    return values;
}

std::vector<double> TableReader::numbers(const char* key)
{
    std::vector<double> values;
    if (!has(key)) return values;
    const toml::node& node = need(key);
    if (!node.is_array()) fail(key, "an array of numbers is expected");
    for (const toml::node& element : *node.as_array()) {
        if (!element.is_number()) fail(key, "an array of numbers is expected");
        values.push_back(element.value<double>().value_or(0.0));
    }
    return values;
}

const toml::table* TableReader::table(const char* key)
{
    const toml::node* const node = take(key);
    if (node == nullptr) return nullptr;
    if (!node->is_table()) fail(key, "a table is expected");
    return node->as_table();
}

const toml::array* TableReader::tables(const char* key)
{
    const toml::node* const node = take(key);
    if (node == nullptr) return nullptr;
    if (!node->is_array_of_tables())
        fail(key, "tables are expected, each headed [[" + std::string(key) + "]]");
    return node->as_array();
}

toml::date_time TableReader::dateTime(const char* key, const toml::date_time& fallback)
{
    const toml::node* const node = take(key);
    if (node == nullptr) return fallback;
    if (!node->is_date_time()) fail(key, "a date and time is expected, such as 2024-01-01T00:00:00");
    return **node->as_date_time();
}

void TableReader::finish() const
{
    for (const auto& [key, node] : table_) {
        if (taken_.contains(std::string(key.str()))) continue;
        throw ScenarioError(file_, lineOf(node), what_ + ": unknown key '" + std::string(key.str()) + "'");
    }
}

}  // namespace sim
