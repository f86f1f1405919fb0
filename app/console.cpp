#include "app/console.h"

#include "app/summary.h"

#include <editline/readline.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <mutex>
#include <unistd.h>

namespace app {
namespace {

// The line editor calls back without a context, so what it completes over stands here.
std::mutex completionMutex;
std::vector<std::string> completionWords;

constexpr const char* CONSOLE_WORDS[] = {"help", "quit", "state", "speed", "unit", "trace"};

// The words of kvdinfo and kvdhist, the two commands with sections to choose from.
std::vector<std::string> sectionsOf(const std::string& usage)
{
    std::vector<std::string> words;
    const std::size_t open = usage.find('[');
    if (open == std::string::npos) return words;
    std::string word;
    for (const char c : usage.substr(open)) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_') {
            word += c;
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
    }
    return words;
}

/// First line of a help text, cut to fit beside its command.
std::string firstLine(const std::string& help)
{
    constexpr std::size_t ROOM = 70;
    const std::string line = help.substr(0, help.find('\n'));
    return line.size() <= ROOM ? line : line.substr(0, ROOM - 3) + "...";
}

char* nextCompletion(const char* text, int state)
{
    static std::size_t at;
    if (state == 0) at = 0;
    const std::scoped_lock lock(completionMutex);
    while (at < completionWords.size()) {
        const std::string& word = completionWords[at++];
        if (word.starts_with(text)) return strdup(word.c_str());
    }
    return nullptr;
}

char** complete(const char* text, int, int) { return rl_completion_matches(text, nextCompletion); }

void fillCompletion(const std::vector<node::ShellCommand>& commands)
{
    const std::scoped_lock lock(completionMutex);
    completionWords.assign(std::begin(CONSOLE_WORDS), std::end(CONSOLE_WORDS));
    for (const node::ShellCommand& c : commands) {
        completionWords.emplace_back(c.name);
        for (const std::string& word : sectionsOf(c.usage)) completionWords.push_back(word);
    }
    std::sort(completionWords.begin(), completionWords.end());
    completionWords.erase(std::unique(completionWords.begin(), completionWords.end()),
                          completionWords.end());
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

}  // namespace

Console::Console(ose::World& world, std::vector<sim::Node*> nodes, bool hasSpeed)
    : world_(world), nodes_(std::move(nodes)), hasSpeed_(hasSpeed)
{
}

Console::~Console()
{
    if (reader_.joinable()) reader_.detach();   // it may be waiting for the terminal
}

void Console::start()
{
    reader_ = std::thread([this] { readLines(); });
}

/// Asks the world and waits for its answer.
std::string Console::onWorld(std::function<std::string()> question)
{
    auto answer = std::make_shared<std::promise<std::string>>();
    std::future<std::string> ready = answer->get_future();
    world_.post([answer, question = std::move(question)] { answer->set_value(question()); });
    return ready.get();
}

void Console::readLines()
{
    const bool interactive = isatty(STDIN_FILENO) != 0;
    rl_attempted_completion_function = complete;
    if (interactive)
        std::printf("The unit runs while you type. 'help' lists the commands, 'quit' ends the run.\n");
    std::string line;
    for (;;) {
        onWorld([this] { fillCompletion(nodes_[unit_]->shell().commands()); return std::string(); });
        if (!readOne(interactive, nodes_[unit_]->name() + "> ", line)) break;
        if (!takeLine(line)) break;
        std::fflush(stdout);
    }
    ended_ = true;
    world_.post([this] { world_.stop(); });
}

/// False when the operator leaves.
bool Console::takeLine(const std::string& line)
{
    const std::vector<std::string> words = sim::splitCommandLine(line);
    if (words.empty()) return true;
    const std::string argument = words.size() > 1 ? words[1] : "";
    if (words[0] == "quit" || words[0] == "exit") return false;
    if (words[0] == "help") {
        help(argument);
    } else if (words[0] == "state") {
        std::printf("%s\n", onWorld([this] {
            const double t = static_cast<double>(world_.now()) / static_cast<double>(ose::SEC);
            sim::MainProcessor& mp = nodes_[unit_]->mainProcessor();
            return clockText(t) + "  " + sim::clockStateName(mp.clockState()) + "  reference " +
                   sim::refTypeName(mp.selectedRefType());
        }).c_str());
    } else if (words[0] == "speed") {
        char* end = nullptr;
        const double speed = std::strtod(argument.c_str(), &end);
        if (!hasSpeed_)
            std::printf("on a network interface the unit keeps the host's time\n");
        else if (argument.empty() || *end != '\0' || !(speed >= 0.0))
            std::printf("speed <factor>: times real time, 0 as fast as it goes\n");
        else
            onWorld([this, speed] { world_.setPace(speed); return std::string(); });
    } else if (words[0] == "trace") {
        if (argument != "on" && argument != "off")
            std::printf("trace on|off: the unit's traces on this console\n");
        else
            onWorld([this, on = argument == "on"] {
                nodes_[unit_]->traces().toStream(on ? stdout : nullptr);
                return std::string();
            });
    } else if (words[0] == "unit") {
        const auto named = std::find_if(nodes_.begin(), nodes_.end(),
                                        [&](sim::Node* n) { return n->name() == argument; });
        if (named == nodes_.end())
            std::printf("unit <name>: there is none named '%s'\n", argument.c_str());
        else
            unit_ = static_cast<std::size_t>(named - nodes_.begin());
    } else {
        runCommand(line);
    }
    return true;
}

void Console::runCommand(const std::string& line)
{
    struct Result { int code; std::string output; };
    auto answer = std::make_shared<std::promise<Result>>();
    std::future<Result> ready = answer->get_future();
    world_.post([this, line, answer] {
        nodes_[unit_]->shell().submit(line, [answer](int code, const std::string& output) {
            answer->set_value({code, output});
        });
    });
    const Result result = ready.get();
    std::fputs(result.output.c_str(), stdout);
    if (!result.output.empty() && result.output.back() != '\n') std::fputc('\n', stdout);
    if (result.code == sim::SHELL_UNKNOWN_COMMAND)
        std::printf("unknown command, 'help' lists them\n");
    else if (result.code == sim::SHELL_NO_PROGRAM)
        std::printf("the unit's program isn't loaded\n");
    else if (result.code != 0)
        std::printf("result %d\n", result.code);
}

void Console::help(const std::string& name)
{
    const std::string text = onWorld([this, name] {
        std::string out;
        for (const node::ShellCommand& c : nodes_[unit_]->shell().commands()) {
            if (name.empty()) {
                char row[96];
                std::snprintf(row, sizeof row, "  %-18s %s\n", c.name, firstLine(c.help).c_str());
                out += row;
            } else if (name == c.name) {
                out += "usage: " + std::string(c.usage) + "\n" + c.help + "\n";
            }
        }
        return out;
    });
    if (!name.empty()) {
        std::printf("%s", text.empty() ? "no such command, 'help' lists them\n" : text.c_str());
        return;
    }
    std::printf("commands of the unit\n%s"
                "of this console\n"
                "  help [command]     this list, or a command's usage and help\n"
                "  state              time, clock state, selected reference\n"
                "  speed <factor>     times real time, 0 as fast as it goes\n"
                "  trace on|off       the unit's traces on this console\n"
                "  unit <name>        whose commands are typed\n"
                "  quit               ends the run\n",
                text.c_str());
}

}  // namespace app
