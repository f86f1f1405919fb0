// manual.h - Manual pages and shells' completions of the program, made from the table of its options that
// --help prints too.
#pragma once
#include <string>

namespace CLI {
class App;
}

namespace app {

/// Writes tu.1.gz, tu-<subcommand>.1.gz, tu.bash and _tu (zsh) to the folder; why it can't, or nothing.
std::string writeManual(const CLI::App& program, const std::string& version, const std::string& folder);

}  // namespace app
