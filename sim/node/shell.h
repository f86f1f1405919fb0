// shell.h - The node's command shell "ose_shelld": commands of the loaded program, run one at a
// time.
#pragma once
#include "node/platform.h"
#include "sim/node/server.h"

#include <deque>
#include <functional>
#include <vector>

namespace sim {

/// Words of a command line: blanks separate, double quotes keep blanks together and are taken off,
/// a backslash takes the next character as it is.
std::vector<std::string> splitCommandLine(const std::string& line);

constexpr int SHELL_UNKNOWN_COMMAND = -1;
constexpr int SHELL_NO_PROGRAM = -2;       // the program isn't loaded, or ended under the command

class Shell : public Server {
public:
    explicit Shell(Node& node);

    int  registerCommand(const node::ShellCommand& command);
    const std::vector<node::ShellCommand>& commands() const { return commands_; }
    const node::ShellCommand* find(const std::string& name) const;

    /// Runs a line and waits for its end (virtual time may pass, the world is run). From outside of
    /// the world's run only. Answers the handler's result or one of the SHELL_ codes.
    int run(const std::string& line, std::string& output);
    /// The same for use within a run: `done` is called with result and output when the command
    /// ended.
    using Done = std::function<void(int result, const std::string& output)>;
    void submit(const std::string& line, Done done);

    /// Text printed by the running command; what no command prints goes to the stray observer.
    void print(const char* text);
    void onStray(std::function<void(const std::string&)> observer) { stray_ = std::move(observer); }

    /// The program is gone: no commands, the running one ends.
    void programGone();

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    struct Job {
        std::string line;
        Done done;
    };
    void startNext();
    void finish(int result);

    std::vector<node::ShellCommand> commands_;
    std::deque<Job> jobs_;
    bool starting_ = false;        // the next job's start is on its way
    PROCESS command_ = 0;          // process of the running command, of the program's block
    std::string output_;
    std::function<void(const std::string&)> stray_;
};

}  // namespace sim
