#include "app/console_words.h"

#include <editline/readline.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <mutex>

namespace app {
namespace {

constexpr OwnWord OWN_WORDS[] = {
    {"help", "help [command]", "this list, or a command's usage and help"},
    {"man", "man <command>", "a command's usage and help"},
    {"why", "why", "clock state, why it is so, what comes next; estimate, alarms, last events"},
    {"sources", "sources", "every reference: state, age, noise, and why it isn't selected"},
    {"state", "state", "time, clock state, selected reference"},
    {"do", "do <event> [key=value ...]", "lets an event of the scenario's kinds happen now"},
    {"events", "events [on|off]", "the last events, or each as it happens"},
    {"until", "until <time>", "as fast as it goes to that time of the run, 40h or 2h30m, then paused"},
    {"step", "step <time>", "the same for a span from now, 10 for seconds"},
    {"pause", "pause", "time stands still"},
    {"go", "go", "time goes on"},
    {"speed", "speed <factor>", "times real time, 0 as fast as it goes"},
    {"trace", "trace [on|off]", "the unit's traces on this console"},
    {"unit", "unit <name>", "whose commands are typed"},
    {"quit", "quit", "ends the run"},
};

/// Pages of the commands that point to one.
struct ManPage { const char* command; const char* forms; };
constexpr ManPage MAN_PAGES[] = {
    {"gpsprot",
     "gpsprot chprot Norcomb     the receiver speaks Norvane Combined\n"
     "gpsprot chprot Furuno      the receiver speaks Furuno"},
    {"gpscapture",
     "gpscapture start                    100 sentences of both directions\n"
     "gpscapture start <1-100>            so many\n"
     "gpscapture start -tx|-rx [<1-100>]  sent, or received, alone\n"
     "gpscapture display                  what was caught"},
    {"gps01reset", "gps01reset execute         resets a GPS01 receiver and clears its positions"},
    {"gps02reset",
     "gps02reset all             clears the receiver's buffer and resets it\n"
     "gps02reset module          resets it\n"
     "gps02reset buffer          clears its buffer"},
    {"gpsstatus",
     "gpsstatus                  the receiver's status\n"
     "gpsstatus <n>              and the n newest entries of its state history"},
    {"gpssend",
     "gpssend nmea <sentence>    80 characters at most, a quoted one may begin with $; a checksum is\n"
     "                           added unless it has one"},
    {"gpsskyview",
     "gpsskyview start           collects for 24 hours at most\n"
     "gpsskyview stop            ends it and writes the file"},
};

// The line editor calls back without a context, so what it completes over stands here.
std::mutex completionMutex;
std::vector<std::string> completionWords;                        // commands
std::map<std::string, std::vector<std::string>> completionMore;  // what may stand behind one
const sim::Scenario* completionScenario = nullptr;
std::vector<std::string> offers;

// The words that a usage has in brackets to choose from.
std::vector<std::string> sectionsOf(const std::string& usage)
{
    std::vector<std::string> words;
    const std::size_t open = usage.find('[');
    if (open == std::string::npos) return words;
    std::string word;
    bool isPlace = false;              // <entry>: something else stands there
    for (const char c : usage.substr(open)) {
        if (c == '<' || c == '>') {
            isPlace = c == '<';
        } else if (isPlace) {
            continue;
        } else if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_') {
            word += c;
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
    }
    return words;
}

char* nextOf(const std::vector<std::string>& words, const char* text, int state)
{
    static std::size_t at;
    if (state == 0) at = 0;
    while (at < words.size()) {
        const std::string& word = words[at++];
        if (word.starts_with(text)) return strdup(word.c_str());
    }
    return nullptr;
}

char* nextOffer(const char* text, int state) { return nextOf(offers, text, state); }

/// Behind "do" the scenario's reader says what can stand, behind a command its sections.
std::vector<std::string> offersFor(const std::string& line)
{
    const std::scoped_lock lock(completionMutex);
    const std::size_t end = line.find(' ');
    const std::string first = line.substr(0, end);
    if (end == std::string::npos || first == "help" || first == "man") return completionWords;
    if (first == "do" && completionScenario != nullptr)
        return sim::completeEvent(line.substr(end + 1), *completionScenario);
    return completionMore.contains(first) ? completionMore.at(first) : std::vector<std::string>{};
}

char** complete(const char* text, int, int)
{
    offers = offersFor(std::string(rl_line_buffer, static_cast<std::size_t>(rl_point)));
    const bool isKey = std::ranges::any_of(offers, [](const std::string& w) { return w.ends_with("="); });
    rl_completion_append_character = isKey ? '\0' : ' ';
    rl_attempted_completion_over = 1;                 // no names of files
    return rl_completion_matches(text, nextOffer);
}

}  // namespace

std::span<const OwnWord> ownWords() { return OWN_WORDS; }

const OwnWord* ownWord(const std::string& word)
{
    for (const OwnWord& w : OWN_WORDS)
        if (word == w.word) return &w;
    return nullptr;
}

std::string pageOf(const node::ShellCommand& c)
{
    for (const ManPage& page : MAN_PAGES)
        if (c.name == std::string(page.command)) return std::string(c.help) + "\n" + page.forms + "\n";
    std::string page = "usage: " + std::string(c.usage) + "\n" + c.help + "\n";
    // Its text gives it the name of another system's shell.
    if (page.find("kvd" + std::string(c.name)) != std::string::npos)
        page += "(here it is typed '" + std::string(c.name) + "')\n";
    return page;
}

std::string firstLine(const std::string& help)
{
    constexpr std::size_t ROOM = 70;
    std::string line = help.substr(0, help.find('\n'));
    if (line.size() > ROOM) line.replace(ROOM - 3, std::string::npos, "...");
    return line;
}

void beginCompletion(const sim::Scenario& scenario)
{
    {
        const std::scoped_lock lock(completionMutex);
        completionScenario = &scenario;
    }
    rl_attempted_completion_function = complete;
    rl_basic_word_break_characters = " \t\n";          // what libedit looks at; the other is documented
    rl_completer_word_break_characters = const_cast<char*>(" \t\n");
}

void fillCompletion(const std::vector<node::ShellCommand>& commands, const std::vector<std::string>& units)
{
    const std::scoped_lock lock(completionMutex);
    completionWords.clear();
    completionMore.clear();
    const auto add = [](const char* name, const char* usage) {
        completionWords.emplace_back(name);
        if (const auto more = sectionsOf(usage); !more.empty()) completionMore[name] = more;
    };
    for (const OwnWord& w : OWN_WORDS) add(w.word, w.usage);
    for (const node::ShellCommand& c : commands) add(c.name, c.usage);
    completionMore["unit"] = units;
    std::ranges::sort(completionWords);
    completionWords.erase(std::unique(completionWords.begin(), completionWords.end()), completionWords.end());
}

}  // namespace app
