#include "app/manual.h"

#include <CLI/CLI.hpp>
#include <zlib.h>

#include <fstream>

namespace app {
namespace {

using Options = std::vector<const CLI::Option*>;
using Commands = std::vector<const CLI::App*>;

Options optionsOf(const CLI::App& app, bool positional)
{
    Options out;
    for (const CLI::Option* o : app.get_options({}))
        if (o->get_positional() == positional && !o->get_group().empty()) out.push_back(o);
    return out;
}

Commands commandsOf(const CLI::App& app)
{
    Commands out;
    for (const CLI::App* c : app.get_subcommands(std::function<bool(const CLI::App*)>{}))
        if (!c->get_group().empty()) out.push_back(c);
    return out;
}

/// "-h", "--help"
std::vector<std::string> namesOf(const CLI::Option& o)
{
    std::vector<std::string> names;
    for (const std::string& s : o.get_snames()) names.push_back("-" + s);
    for (const std::string& l : o.get_lnames()) names.push_back("--" + l);
    return names;
}

/// "FLOAT", without what it is checked for.
std::string typeOf(const CLI::Option& o)
{
    const std::string text = o.get_type_name();
    return text.substr(0, text.find(':'));
}

bool takesValue(const CLI::Option& o) { return o.get_items_expected_max() > 0; }

// ---- manual pages -------------------------------------------------------------------------------

/// A text as troff takes it to the letter.
std::string troff(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\\') out += "\\e";
        else if (c == '-') out += "\\-";
        else if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) (out += "\\&") += c;
        else out += c;
    }
    return out;
}

std::string optionText(const CLI::Option& o)
{
    std::string heading;
    for (const std::string& name : namesOf(o))
        heading += (heading.empty() ? "" : ", ") + ("\\fB" + troff(name) + "\\fR");
    if (o.get_positional()) heading = "\\fI" + troff(o.get_single_name()) + "\\fR";
    else if (takesValue(o)) heading += " \\fI" + troff(typeOf(o)) + "\\fR";
    return ".TP\n" + heading + "\n" + troff(o.get_description()) + "\n";
}

std::string synopsis(const CLI::App& app, const std::string& name)
{
    std::string text = ".SH SYNOPSIS\n.B " + troff(name) + "\n";
    if (!optionsOf(app, false).empty()) text += "[\\fIoption\\fR ...]\n";
    for (const CLI::Option* o : optionsOf(app, true))
        text += o->get_required() ? "\\fI" + troff(o->get_single_name()) + "\\fR\n"
                                  : "[\\fI" + troff(o->get_single_name()) + "\\fR]\n";
    if (!commandsOf(app).empty()) text += "\\fIcommand\\fR ...\n";
    return text;
}

std::string page(const CLI::App& app, const std::string& title, const std::string& name,
                 const std::string& version)
{
    std::string text = ".TH \"" + troff(title) + "\" 1 \"\" \"timing unit " + troff(version) + "\"\n";
    text += ".SH NAME\n" + troff(title) + " \\- " + troff(app.get_description()) + "\n" + synopsis(app, name);
    text += ".SH DESCRIPTION\n" + troff(app.get_description()) + ".\n";
    if (const std::string more = app.get_footer(); !more.empty()) text += ".PP\n" + troff(more) + "\n";
    const Options positional = optionsOf(app, true), named = optionsOf(app, false);
    if (!positional.empty()) text += ".SH ARGUMENTS\n";
    for (const CLI::Option* o : positional) text += optionText(*o);
    if (!named.empty()) text += ".SH OPTIONS\n";
    for (const CLI::Option* o : named) text += optionText(*o);
    const Commands commands = commandsOf(app);
    if (!commands.empty()) text += ".SH COMMANDS\n";
    for (const CLI::App* c : commands)
        text += ".TP\n\\fB" + troff(c->get_name()) + "\\fR\n" + troff(c->get_description()) + "; see \\fB" +
                troff(title + "-" + c->get_name()) + "\\fR(1).\n";
    text += ".SH EXIT STATUS\n0 when all holds, 1 when a check fails, 2 for input that can't be used, which "
            "is answered "
            "with one line.\n";
    return text;
}

bool writeZipped(const std::string& file, const std::string& text)
{
    const gzFile out = gzopen(file.c_str(), "wb9");
    if (out == nullptr) return false;
    const int wrote = gzwrite(out, text.data(), static_cast<unsigned>(text.size()));
    return gzclose(out) == Z_OK && wrote == static_cast<int>(text.size());
}

// ---- completions --------------------------------------------------------------------------------

std::string wordsOf(const CLI::App& app)
{
    std::string words;
    for (const CLI::App* c : commandsOf(app)) words += (words.empty() ? "" : " ") + c->get_name();
    for (const CLI::Option* o : optionsOf(app, false))
        for (const std::string& name : namesOf(*o)) words += (words.empty() ? "" : " ") + name;
    return words;
}

/// "--ptp-if) interfaces", for what isn't a file.
bool isInterface(const CLI::Option& o) { return o.check_lname("ptp-if"); }

std::string bash(const CLI::App& program)
{
    std::string text = "# bash completion of tu\n"
                       "_tu() {\n"
                       "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} words=\n"
                       "    case $prev in\n";
    for (const CLI::App* c : commandsOf(program))
        for (const CLI::Option* o : optionsOf(*c, false)) {
            if (!isInterface(*o)) continue;
            text +=
                "    --" + o->get_lnames().front()
                + ") COMPREPLY=($(compgen -W \"$(ls /sys/class/net 2>/dev/null)\" -- \"$cur\")); return ;;\n";
        }
    text += "    esac\n"
            "    case ${COMP_WORDS[1]-} in\n";
    for (const CLI::App* c : commandsOf(program))
        text += "    " + c->get_name() + ") words='" + wordsOf(*c) + "' ;;\n";
    text += "    esac\n"
            "    [ \"$COMP_CWORD\" -eq 1 ] && words='" + wordsOf(program) + "'\n"
            "    case $cur in\n"
            "    -*) COMPREPLY=($(compgen -W \"$words\" -- \"$cur\")) ;;\n"
            "    *)  if [ \"$COMP_CWORD\" -eq 1 ]; then COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
            "        else compopt -o default; COMPREPLY=(); fi ;;\n"
            "    esac\n"
            "}\n"
            "complete -F _tu tu\n";
    return text;
}

/// A description inside of single quotes and brackets.
std::string zshText(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\'') out += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\') (out += '\\') += c;
        else out += c;
    }
    return out;
}

std::string zsh(const CLI::App& program)
{
    std::string text = "#compdef tu\n_tu() {\n    local state\n    _arguments -C '1:command:->command' "
                       "'*::argument:->argument'\n"
                       "    if [[ $state == command ]]; then\n        local -a commands=(\n";
    for (const CLI::App* c : commandsOf(program))
        text += "            '" + c->get_name() + ":" + zshText(c->get_description()) + "'\n";
    text += "        )\n        _describe command commands\n        return\n    fi\n    case $words[1] in\n";
    for (const CLI::App* c : commandsOf(program)) {
        text += "    " + c->get_name() + ") _arguments";
        for (const CLI::Option* o : optionsOf(*c, false))
            for (const std::string& name : namesOf(*o))
                text += " \\\n        '" + name + "[" + zshText(o->get_description()) + "]" +
                        (!takesValue(*o)   ? ""
                         : isInterface(*o) ? ":interface:_net_interfaces"
                                           : ":value:_files") +
                        "'";
        if (!optionsOf(*c, true).empty()) text += " \\\n        '*:file:_files'";
        text += " ;;\n";
    }
    return text + "    esac\n}\n_tu \"$@\"\n";
}

}  // namespace

std::string writeManual(const CLI::App& program, const std::string& version, const std::string& folder)
{
    const std::string name = program.get_name();
    bool isWritten = writeZipped(folder + "/" + name + ".1.gz", page(program, name, name, version));
    for (const CLI::App* c : commandsOf(program)) {
        const std::string title = name + "-" + c->get_name();
        isWritten &= writeZipped(folder + "/" + title + ".1.gz",
                                 page(*c, title, name + " " + c->get_name(), version));
    }
    std::ofstream bashFile(folder + "/" + name + ".bash"), zshFile(folder + "/_" + name);
    bashFile << bash(program);
    zshFile << zsh(program);
    isWritten &= static_cast<bool>(bashFile.flush()) && static_cast<bool>(zshFile.flush());
    return isWritten ? "" : folder + ": the manual can't be written";
}

}  // namespace app
