#include "sim/node/shell.h"

#include "sim/node/node.h"

#include <cctype>

namespace sim {

namespace {

constexpr const char* COMMAND_PROCESS = "ose_shelld_cmd";
constexpr u32 PRIORITY = 24;                       // below the manager, above the dump process
constexpr ose::Time RUN_LIMIT = 3600 * ose::SEC;

}  // namespace

std::vector<std::string> splitCommandLine(const std::string& line)
{
    std::vector<std::string> words;
    bool inWord = false;
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c == '"') {
            quoted = !quoted;
            if (!inWord) words.emplace_back();
            inWord = true;
            continue;
        }
        if (!quoted && std::isspace(static_cast<unsigned char>(c)) != 0) {
            inWord = false;
            continue;
        }
        if (c == '\\' && i + 1 < line.size()) c = line[++i];
        if (!inWord) words.emplace_back();
        inWord = true;
        words.back() += c;
    }
    return words;
}

Shell::Shell(Node& node) : Server(node, "ose_shelld", PRIORITY) {}

int Shell::registerCommand(const node::ShellCommand& command)
{
    if (command.name == nullptr || command.handler == nullptr || find(command.name) != nullptr) return 1;
    commands_.push_back(command);
    return 0;
}

const node::ShellCommand* Shell::find(const std::string& name) const
{
    for (const node::ShellCommand& c : commands_)
        if (name == c.name) return &c;
    return nullptr;
}

int Shell::run(const std::string& line, std::string& output)
{
    bool ended = false;
    int result = SHELL_NO_PROGRAM;
    submit(line, [&](int r, const std::string& text) {
        ended = true;
        result = r;
        output = text;
    });
    node_.world().runUntilTrue([&] { return ended; }, RUN_LIMIT);
    return result;
}

void Shell::submit(const std::string& line, Done done)
{
    jobs_.push_back({line, std::move(done)});
    startNext();
}

void Shell::print(const char* text)
{
    if (command_ != 0) output_ += text;
    else if (stray_) stray_(text);
}

void Shell::programGone()
{
    commands_.clear();
    // A command that runs is a process of the program and gone with it.
    if (command_ != 0) finish(SHELL_NO_PROGRAM);
}

void Shell::onSignal(Signal*, PROCESS) {}   // nobody talks to the shell by signals

void Shell::startNext()
{
    if (starting_ || command_ != 0 || jobs_.empty()) return;
    starting_ = true;
    node_.after(0, [this] {
        starting_ = false;
        if (command_ != 0 || jobs_.empty()) return;
        output_.clear();
        std::vector<std::string> words = splitCommandLine(jobs_.front().line);
        if (words.empty()) return finish(0);
        if (node_.program() == nullptr || !alive()) return finish(SHELL_NO_PROGRAM);
        const node::ShellCommand* command = find(words.front());
        if (command == nullptr) return finish(SHELL_UNKNOWN_COMMAND);
        command_ = node_.system().launch(
            *node_.program(), COMMAND_PROCESS, PRIORITY,
            [this, handler = command->handler, words = std::move(words)]() mutable {
                std::vector<char*> argv;
                for (std::string& w : words) argv.push_back(w.data());
                argv.push_back(nullptr);
                const int result = handler(static_cast<int>(words.size()), argv.data());
                const PROCESS self = command_;
                node_.after(0, [this, self, result] {
                    if (command_ == self) finish(result);
                });
            });
        if (command_ == 0) finish(SHELL_NO_PROGRAM);
    });
}

void Shell::finish(int result)
{
    command_ = 0;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    if (job.done) job.done(result, output_);
    startNext();
}

}  // namespace sim
