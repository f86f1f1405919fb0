#include "app/console.h"

#include "app/summary.h"
#include "app/unit_status_text.h"

#include <editline/readline.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <map>
#include <mutex>
#include <termios.h>
#include <unistd.h>

namespace app {
namespace {

// The line editor calls back without a context, so what it completes over stands here.
std::mutex completionMutex;
std::vector<std::string> completionWords;                        // commands
std::map<std::string, std::vector<std::string>> completionMore;  // what may stand behind one
const sim::Scenario* completionScenario = nullptr;
std::vector<std::string> offers;

struct OwnWord { const char* word; const char* usage; const char* help; };
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

const OwnWord* ownWord(const std::string& word)
{
    for (const OwnWord& w : OWN_WORDS)
        if (word == w.word) return &w;
    return nullptr;
}

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

/// First line of a help text, cut to fit beside its command.
std::string firstLine(const std::string& help)
{
    constexpr std::size_t ROOM = 70;
    std::string line = help.substr(0, help.find('\n'));
    if (line.size() > ROOM) line.replace(ROOM - 3, std::string::npos, "...");
    return line;
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

void fillCompletion(const std::vector<node::ShellCommand>& commands, const std::vector<Recorder*>& units)
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
    for (const Recorder* const r : units) completionMore["unit"].push_back(r->recording.name);
    std::ranges::sort(completionWords);
    completionWords.erase(std::unique(completionWords.begin(), completionWords.end()), completionWords.end());
}

/// One line of input; false at its end.
bool readOne(bool interactive, const std::string& prompt, std::string& line)
{
    if (!interactive) return static_cast<bool>(std::getline(std::cin, line));
    char* const typed = readline(prompt.c_str());
    if (typed == nullptr) return false;
    line = typed;
    if (!line.empty()) add_history(typed);
    std::free(typed);
    return true;
}

/// "file:line: event: what" without where it stands.
std::string reasonOf(const std::runtime_error& e)
{
    const std::string text = e.what();
    const std::size_t at = text.find(": ");
    return at == std::string::npos ? text : text.substr(at + 2);
}

/// The run is over before it has answered.
struct RunIsOver {};

}  // namespace

struct Console::State {
    explicit State(ConsoleRun r) : run(std::move(r)) {}

    ConsoleRun run;
    std::mutex mutex;
    bool open = true;                      // the run can be asked
    bool interactive = isatty(STDIN_FILENO) != 0;
    bool hasTerminal = false;
    termios terminal{};                    // as it was found
    std::size_t unit = 0;                  // whose commands are typed
    bool follows = false;                  // events are shown; the world's

    Recorder& recorder() { return *run.units[unit]; }
    sim::Node& node() { return recorder().unit().node(); }
    double now() const { return static_cast<double>(run.world.now()) / static_cast<double>(ose::SEC); }

    void post(std::function<void()> work)
    {
        const std::scoped_lock lock(mutex);
        if (!open) throw RunIsOver{};
        run.world.post(std::move(work));
    }

    template <typename T>
    T await(std::future<T> answer)
    {
        try {
            return answer.get();
        } catch (const std::future_error&) {
            throw RunIsOver{};
        }
    }

    /// Asks the world and waits for its answer.
    std::string onWorld(std::function<std::string()> question)
    {
        auto answer = std::make_shared<std::promise<std::string>>();
        std::future<std::string> ready = answer->get_future();
        post([answer = std::move(answer), question = std::move(question)] { answer->set_value(question()); });
        return await(std::move(ready));
    }

    void readLines();
    bool takeLine(const std::string& line);
    void takeOwn(const std::string& word, const std::vector<std::string>& words, const std::string& line);
    void runCommand(const std::string& line);
    void help(const std::string& name);
    void letHappen(const std::string& line);
    void setSpeed(const std::string& argument);
    void advance(const std::string& word, const std::string& argument);
    void setPaused(bool paused);
    void chooseUnit(const std::string& name);
    void setTrace(const std::string& argument);
    void events(const std::string& argument);
    StatusJson status() { return toJson(readUnitStatus(recorder().unit(), recorder().recording, now())); }
};

Console::Console(ConsoleRun run) : state_(std::make_shared<State>(std::move(run)))
{
    state_->hasTerminal = state_->interactive && tcgetattr(STDIN_FILENO, &state_->terminal) == 0;
}

Console::~Console()
{
    {
        const std::scoped_lock lock(state_->mutex);
        state_->open = false;
    }
    if (state_->hasTerminal) tcsetattr(STDIN_FILENO, TCSANOW, &state_->terminal);
}

void Console::start()
{
    std::thread([state = state_] {
        try {
            state->readLines();
        } catch (const RunIsOver&) {
            // Nobody to answer any more.
        }
    }).detach();   // it may be waiting for the terminal when the run is over
}

void Console::tell(const std::string& line)
{
    std::printf("%s%s\n", state_->interactive ? "\r\033[K" : "", line.c_str());
    std::fflush(stdout);
}

void Console::show(const std::string& unit, const UnitEvent& event)
{
    if (!state_->follows) return;
    char head[64];
    std::snprintf(head, sizeof head, "%10s  %s%-11s", clockText(event.t).c_str(),
                  state_->run.units.size() > 1 ? (unit + "  ").c_str() : "", event.kind.c_str());
    tell(head + event.text);
}

void Console::State::readLines()
{
    {
        const std::scoped_lock lock(completionMutex);
        completionScenario = &run.scenario;
    }
    rl_attempted_completion_function = complete;
    rl_basic_word_break_characters = " \t\n";          // what libedit looks at; the other is documented
    rl_completer_word_break_characters = const_cast<char*>(" \t\n");
    if (interactive)
        std::printf(
            "The unit runs while you type. 'why' says how it is, 'help' lists the commands, 'quit' ends the "
            "run.\n");
    std::string line;
    for (;;) {
        onWorld([this] {
            fillCompletion(node().shell().commands(), run.units);
            return std::string();
        });
        if (!readOne(interactive, node().name() + "> ", line)) break;
        if (!takeLine(line)) break;
        std::fflush(stdout);
    }
    post([this] { run.control.quit(); });
}

/// False when the operator leaves.
bool Console::State::takeLine(const std::string& line)
{
    const std::vector<std::string> words = sim::splitCommandLine(line);
    if (words.empty()) return true;
    if (words[0] == "quit" || words[0] == "exit") return false;
    if (ownWord(words[0]) != nullptr) takeOwn(words[0], words, line);
    else                              runCommand(line);
    return true;
}

void Console::State::takeOwn(const std::string& word, const std::vector<std::string>& words,
                             const std::string& line)
{
    const std::string argument = words.size() > 1 ? words[1] : "";
    if (word == "help" || word == "man") help(argument);
    else if (word == "why") std::printf("%s", onWorld([this] { return whyText(status()); }).c_str());
    else if (word == "sources")
        std::printf("%s", onWorld([this] { return sourcesText(status()) + run.heard(); }).c_str());
    else if (word == "do") letHappen(line);
    else if (word == "events") events(argument);
    else if (word == "until" || word == "step") advance(word, argument);
    else if (word == "pause" || word == "go") setPaused(word == "pause");
    else if (word == "speed") setSpeed(argument);
    else if (word == "trace") setTrace(argument);
    else if (word == "unit") chooseUnit(argument);
    else if (word == "state")
        std::printf("%s\n", onWorld([this] {
            sim::MainProcessor& mp = node().mainProcessor();
            return clockText(now()) + "  " + sim::clockStateName(mp.clockState()) + "  reference " +
                   sim::refTypeName(mp.selectedRefType()) + (run.control.paused() ? "  paused" : "");
        }).c_str());
}

void Console::State::letHappen(const std::string& line)
{
    try {
        const std::string rest = line.substr(line.find("do") + 2);
        auto event = std::make_shared<sim::EventSpec>(sim::readEventLine(rest, run.scenario));
        onWorld([this, event] { run.happen(*event); return std::string(); });
    } catch (const std::runtime_error& e) {          // of the scenario, or of a recorded series that it names
        std::printf("%s\n", reasonOf(e).c_str());
    }
}

void Console::State::setSpeed(const std::string& argument)
{
    char* end = nullptr;
    const double speed = std::strtod(argument.c_str(), &end);
    if (!run.hasSpeed)
        std::printf("on a network interface the unit keeps the host's time\n");
    else if (argument.empty() || *end != '\0' || !(speed >= 0.0) || !std::isfinite(speed))
        std::printf("speed <factor>: times real time, 0 as fast as it goes\n");
    else
        onWorld([this, speed] { run.control.setSpeed(speed); return std::string(); });
}

/// Waits until the time is there, so that what is typed next finds it so.
void Console::State::advance(const std::string& word, const std::string& argument)
{
    const std::optional<double> wanted_s = sim::parseDuration(argument);
    constexpr double WORLD_ENDS_s = 100 * 86400.0;
    if (!run.hasSpeed) {
        std::printf("on a network interface the unit keeps the host's time\n");
        return;
    }
    if (!wanted_s || *wanted_s > WORLD_ENDS_s) {
        std::printf("%s <time>: such as 10, 90s or 1h30m\n", word.c_str());
        return;
    }
    auto answer = std::make_shared<std::promise<std::string>>();
    std::future<std::string> ready = answer->get_future();
    post([this, answer = std::move(answer), s = *wanted_s, isSpan = word == "step"] {
        const double target_s = isSpan ? now() + s : s;
        if (target_s < now()) return answer->set_value("it is " + clockText(now()) + " already\n");
        run.control.runTo(std::llround(target_s * 1e12),
                          [this, answer] { answer->set_value(clockText(now()) + "\n"); });
    });
    std::printf("%s", await(std::move(ready)).c_str());
}

void Console::State::setPaused(bool paused)
{
    if (!run.hasSpeed) {
        std::printf("on a network interface the unit keeps the host's time\n");
        return;
    }
    std::printf("%s", onWorld([this, paused] {
        if (paused) run.control.pause();
        else        run.control.go();
        if (!paused && run.control.atEnd()) return std::string();   // the run itself tells it
        return clockText(now()) + (paused ? "  paused\n" : "\n");
    }).c_str());
}

void Console::State::setTrace(const std::string& argument)
{
    if (argument != "on" && argument != "off")
        std::printf("trace on|off: the unit's traces on this console\n");
    else
        onWorld([this, on = argument == "on"] {
            node().traces().toStream(on ? stdout : nullptr);
            return std::string();
        });
}

void Console::State::chooseUnit(const std::string& name)
{
    const auto named =
        std::ranges::find_if(run.units, [&](Recorder* r) { return r->unit().name() == name; });
    if (named == run.units.end()) std::printf("unit <name>: there is none named '%s'\n", name.c_str());
    else                          unit = static_cast<std::size_t>(named - run.units.begin());
}

void Console::State::events(const std::string& argument)
{
    if (argument == "on" || argument == "off") {
        onWorld([this, on = argument == "on"] { follows = on; return std::string(); });
        return;
    }
    std::printf("%s", onWorld([this] {
        constexpr std::size_t SHOWN = 20;
        const std::vector<UnitEvent>& all = recorder().recording.events;
        std::string out;
        for (std::size_t i = all.size() - std::min(SHOWN, all.size()); i < all.size(); ++i) {
            char head[32];
            std::snprintf(head, sizeof head, "%10s  %-11s", clockText(all[i].t).c_str(), all[i].kind.c_str());
            out += head + all[i].text + "\n";
        }
        return out;
    }).c_str());
}

void Console::State::runCommand(const std::string& line)
{
    struct Result { int code = 0; std::string output; };
    auto answer = std::make_shared<std::promise<Result>>();
    std::future<Result> ready = answer->get_future();
    post([this, line, answer = std::move(answer)] {
        node().shell().submit(line, [answer](int code, const std::string& output) {
            answer->set_value({code, output});
        });
    });
    // A few commands wait for the manager, which needs time to pass.
    constexpr auto PATIENCE = std::chrono::seconds(2);
    if (ready.wait_for(PATIENCE) != std::future_status::ready
        && onWorld([this] { return std::string(run.control.paused() ? "paused" : ""); }) == "paused") {
        std::printf("it waits for time to pass: 'go', or 'step 1'\n");
        return;
    }
    const Result result = await(std::move(ready));
    std::fputs(result.output.c_str(), stdout);
    if (!result.output.empty() && result.output.back() != '\n') std::fputc('\n', stdout);
    if (result.code == sim::SHELL_UNKNOWN_COMMAND)
        std::printf("unknown command, 'help' lists them\n");
    else if (result.code == sim::SHELL_NO_PROGRAM)
        std::printf("the unit's program isn't loaded\n");
    else if (result.code != 0)
        std::printf("result %d\n", result.code);
}

void Console::State::help(const std::string& name)
{
    const OwnWord* const own = ownWord(name);
    if (own != nullptr) {
        std::printf("usage: %s\n%s\n", own->usage, own->help);
        return;
    }
    const std::string text = onWorld([this, name] {
        std::string out;
        for (const node::ShellCommand& c : node().shell().commands()) {
            if (name.empty()) {
                char row[96];
                std::snprintf(row, sizeof row, "  %-18s %s\n", c.name, firstLine(c.help).c_str());
                out += row;
            } else if (name == c.name) {
                out += pageOf(c);
            }
        }
        return out;
    });
    if (!name.empty()) {
        std::printf("%s", text.empty() ? "no such command, 'help' lists them\n" : text.c_str());
        return;
    }
    std::printf("commands of the unit\n%sof this console\n", text.c_str());
    for (const OwnWord& w : OWN_WORDS) std::printf("  %-26s %s\n", w.usage, w.help);
}

}  // namespace app
