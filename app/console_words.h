// console_words.h - What can be typed at the operator's console: its own words, the pages of the unit's
// commands, and what the line editor offers.
#pragma once
#include "node/platform.h"
#include "sim/scenario/scenario.h"

#include <span>
#include <string>
#include <vector>

namespace app {

struct OwnWord { const char* word; const char* usage; const char* help; };
std::span<const OwnWord> ownWords();
const OwnWord* ownWord(const std::string& word);
/// Usage and help of a command, or the page that its help points to.
std::string pageOf(const node::ShellCommand& command);
/// First line of a help text, cut to fit beside its command.
std::string firstLine(const std::string& help);

/// The editor completes over the scenario, which outlives it.
void beginCompletion(const sim::Scenario& scenario);
/// It offers the console's own words and these.
void fillCompletion(const std::vector<node::ShellCommand>& commands, const std::vector<std::string>& units);

}  // namespace app
