#include "app/console.h"

#include "app/console_words.h"
#include "app/summary.h"
#include "app/unit_status_text.h"

#include <editline/readline.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <mutex>
#include <termios.h>
#include <unistd.h>

namespace app {
namespace {

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
    beginCompletion(run.scenario);
    if (interactive)
        std::printf(
            "The unit runs while you type. 'why' says how it is, 'help' lists the commands, 'quit' ends the "
            "run.\n");
    std::string line;
    for (;;) {
        onWorld([this] {
            std::vector<std::string> units;
            for (const Recorder* const r : run.units) units.push_back(r->recording.name);
            fillCompletion(node().shell().commands(), units);
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
    for (const OwnWord& w : ownWords()) std::printf("  %-26s %s\n", w.usage, w.help);
}

}  // namespace app
