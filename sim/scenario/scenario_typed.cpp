// Events as an operator types them, and what could stand behind an unfinished line. Both go through the
// scenario's own readers.
#include "sim/node/shell.h"
#include "sim/scenario/scenario.h"

#include <toml++/toml.h>

#include <algorithm>
#include <sstream>

namespace sim {
namespace {

constexpr const char* TYPED = "typed";

/// A bare word is a text; numbers, true, false, arrays and quoted texts stand as they are.
std::string literalOf(const std::string& value)
{
    try {
        const toml::table literal = toml::parse("v = " + value);
        return literal.size() == 1 ? value : "";
    } catch (const toml::parse_error&) {
        // A bare word.
    }
    std::string quoted = "\"";
    for (const char c : value) quoted += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
    return quoted + "\"";
}

toml::table tableOf(const std::vector<std::string>& words)
{
    std::string text = "at = 0\n";
    if (!words.empty()) text += "do = " + literalOf('"' + words.front() + '"') + "\n";
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (equals == std::string::npos || equals == 0)
            throw ScenarioError(TYPED, 1, "'" + words[i] + "' isn't key=value");
        text += words[i].substr(0, equals) + " = " + literalOf(words[i].substr(equals + 1)) + "\n";
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& e) {
        throw ScenarioError(TYPED, 1, std::string(e.description()));
    }
}

/// Things of the scenario that a key can name.
std::vector<std::string> namesFor(const std::string& key, const Scenario& scenario)
{
    std::vector<std::string> names;
    const bool isHost = key == "from" || key == "to";
    if (key == "link")
        for (const LinkSpec& l : scenario.links) names.push_back(l.name);
    if (key == "master" || isHost)
        for (const PtpMasterConfig& m : scenario.masters) names.push_back(m.name);
    for (const UnitSpec& u : scenario.units) {
        if (key == "unit" || isHost) names.push_back(u.node.name);
        if (key == "reference")
            for (const MpReference& r : u.node.mainProcessor.references) names.push_back(r.name);
    }
    return names;
}

}  // namespace

std::vector<std::string> eventWords()
{
    std::vector<std::string> words;
    UnitSpec unit;
    unit.gps.emplace();
    unit.cmcc.emplace();
    unit.node.ntp.present = true;
    // Some readers look at the first part of a word before they ask for more.
    for (const char* const start : {"", "gps.", "cmcc.", "ntp."}) {
        const EventWord word(start, &words);
        const toml::table nothing;
        TableReader t(nothing, TYPED, "event");
        readUnitEvent(word, t, unit);
        readLinkEvent(word, t, LinkSpec{});
        readNetEvent(word, t, Scenario{});
    }
    std::ranges::sort(words);
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}

EventSpec readEventLine(const std::string& line, const Scenario& scenario)
{
    const std::vector<std::string> words = splitCommandLine(line);
    if (words.empty()) throw ScenarioError(TYPED, 1, "what is to happen?");
    return readEvent(tableOf(words), TYPED, scenario);
}

std::vector<std::string> completeEvent(const std::string& line, const Scenario& scenario)
{
    std::vector<std::string> words = splitCommandLine(line);
    const bool isNewWord = line.empty() || line.back() == ' ';
    if (words.empty() || (words.size() == 1 && !isNewWord)) return eventWords();
    const std::string unfinished = isNewWord ? "" : words.back();
    if (!isNewWord) words.pop_back();
    const std::size_t equals = unfinished.find('=');
    const std::string key = unfinished.substr(0, equals);
    ReadNotes notes;
    try {
        const toml::table table = tableOf(words);
        readEvent(table, TYPED, scenario);
    } catch (const std::runtime_error&) {
        // What was asked before is what can be offered.
    }
    std::vector<std::string> offers;
    if (equals != std::string::npos) {
        for (const auto& [ofKey, word] : notes.words)
            if (ofKey == key) offers.push_back(key + "=" + word);
        for (const std::string& name : namesFor(key, scenario)) offers.push_back(key + "=" + name);
        return offers;
    }
    for (const std::string& k : notes.keys)
        if (k != "at" && k != "do"
            && std::ranges::none_of(words, [&](const std::string& w) { return w.starts_with(k + "="); }))
            offers.push_back(k + "=");
    return offers;
}

}  // namespace sim
