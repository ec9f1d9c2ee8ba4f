// The manual page and the shells' completions, made of what the command-line parser knows.
#include "tools/Help.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <ranges>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

namespace {

std::vector<const CLI::App*> CommandsOf(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

/// With their dashes, short ones first.
std::vector<std::string> NamesOf(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

std::string Replaced(std::string text, std::string_view what, std::string_view by)
{
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

// --- roff -------------------------------------------------------------------------------------------------

std::string Roff(const std::string& text)
{
    std::string escaped = Replaced(Replaced(text, "\\", "\\e"), "-", "\\-");
    escaped = Replaced(escaped, "'", "\\(aq");
    return escaped.starts_with('.') ? "\\&" + escaped : escaped;
}

/// Indented lines stand as they are; blank lines part paragraphs.
std::string RoffText(const std::string& text)
{
    std::string result;
    std::istringstream lines(text);
    bool verbatim = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("  ") != verbatim && !line.empty()) {
            result += verbatim ? ".fi\n.RE\n" : ".RS 2\n.nf\n";
            verbatim = !verbatim;
        }
        result += line.empty() ? (verbatim ? "\n" : ".PP\n") : Roff(line.substr(verbatim ? 2 : 0)) + "\n";
    }
    return result + (verbatim ? ".fi\n.RE\n" : "");
}

std::string RoffOptions(const CLI::App& app)
{
    std::string text;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty())
            continue;
        text += ".TP\n";
        if (option->get_positional()) {
            text += fmt::format(".I {}\n", Roff(option->get_name(true)));
        } else {
            std::string names;
            for (const std::string& name : NamesOf(*option))
                names += (names.empty() ? "\\fB" : "\\fR, \\fB") + Roff(name);
            text += names + "\\fR";
            if (const std::string value = ValueOf(*option); !value.empty())
                text += " \\fI" + Roff(value) + "\\fR";
            text += "\n";
        }
        text += RoffText(option->get_description());
    }
    return text;
}

// --- shells -----------------------------------------------------------------------------------------------

/// Inside single quotes.
std::string Quoted(const std::string& text) { return "'" + Replaced(text, "'", "'\\''") + "'"; }

/// What follows the option, one of few words; empty where it can be anything.
std::vector<std::string> ChoicesOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();  // TEXT:{line,json}
    const size_t begin = type.find('{'), end = type.find('}');
    std::vector<std::string> words;
    if (begin == std::string::npos || end == std::string::npos)
        return words;
    std::istringstream list(type.substr(begin + 1, end - begin - 1));
    for (std::string word; std::getline(list, word, ',');)
        words.push_back(word);
    return words;
}

/// The program's own lists, where they are what a value comes from.
std::string ListedBy(const CLI::Option& option)
{
    const std::string value = ValueOf(option);
    const auto names = [](std::string_view command) {
        return fmt::format("tessadrin {} 2>/dev/null | awk \"NR > 1 && \\$1 !~ /,/ {{ print \\$1 }}\"",
                           command);
    };
    return value == "CODEC"    ? "echo copy none; " + names("codecs")
           : value == "FORMAT" ? names("formats")
                               : "";
}

}  // namespace

std::string ValueOf(const CLI::Option& option)
{
    if (!TakesValue(option))
        return {};
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

std::string ManPage(const CLI::App& app)
{
    std::string text = ".TH TESSADRIN 1 \"\" \"tessadrin " TESSADRIN_VERSION
                       "\" \"User Commands\"\n"
                       ".SH NAME\ntessadrin \\- look into media files and convert them\n"
                       ".SH SYNOPSIS\n.B tessadrin\n[\\fIOPTIONS\\fR] \\fICOMMAND\\fR ...\n"
                       ".SH DESCRIPTION\n";
    text += RoffText(app.get_description()) + ".SH OPTIONS\nOf all commands:\n" + RoffOptions(app);
    text += ".SH COMMANDS\n";
    for (const CLI::App* command : CommandsOf(app)) {
        text += fmt::format(".SS tessadrin {}\n{}", Roff(command->get_name()),
                            RoffText(command->get_description() + "."));
        text += RoffOptions(*command);
        if (!command->get_footer().empty())
            text += ".PP\n" + RoffText(command->get_footer());
    }
    const std::string footer = app.get_footer();
    const size_t examples = footer.find("Examples:\n");
    text += ".SH EXIT STATUS\n" + RoffText(footer.substr(0, footer.find("\n\n")));
    text += ".SH EXAMPLES\n" + RoffText(footer.substr(footer.find('\n', examples) + 1));
    text += ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nNo colours, wherever the output goes.\n";
    return text + ".SH SEE ALSO\n.BR ffmpeg (1),\n.BR ffprobe (1)\n";
}

std::string BashCompletion(const CLI::App& app)
{
    std::string commands, cases, choices;
    std::set<std::string> general;
    for (const CLI::Option* option : OptionsOf(app))
        for (const std::string& name : NamesOf(*option))
            general.insert(name);
    const auto words = [&](const CLI::App& of) {
        std::string list;
        for (const CLI::Option* option : OptionsOf(of))
            for (const std::string& name : NamesOf(*option))
                if (&of == &app || !general.contains(name))
                    list += (list.empty() ? "" : " ") + name;
        return list;
    };
    std::set<std::string> withValue;
    const auto look = [&](const CLI::App& of) {
        for (const CLI::Option* option : OptionsOf(of)) {
            if (!TakesValue(*option))
                continue;
            const std::string names = fmt::format("{}", fmt::join(NamesOf(*option), "|"));
            if (const std::string list = ListedBy(*option); !list.empty() && withValue.insert(names).second)
                choices += fmt::format(
                    "        {}) COMPREPLY=($(compgen -W \"$({})\" -- \"$word\")); return ;;\n", names, list);
            if (const auto known = ChoicesOf(*option); !known.empty() && withValue.insert(names).second)
                choices += fmt::format("        {}) COMPREPLY=($(compgen -W '{}' -- \"$word\")); return ;;\n",
                                       names, fmt::join(known, " "));
        }
    };
    for (const CLI::App* command : CommandsOf(app)) {
        commands += (commands.empty() ? "" : " ") + command->get_name();
        cases += fmt::format("        {}) options='{}' ;;\n", command->get_name(), words(*command));
        look(*command);
    }
    return fmt::format(R"SH(# bash completion for tessadrin
_tessadrin() {{
    local word=$2 previous=$3 command='' options='' i
    local commands='{0}'
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ " $commands " == *" ${{COMP_WORDS[i]}} "* ]]; then
            command=${{COMP_WORDS[i]}}
            break
        fi
    done
    case $previous in
{3}    esac
    case $command in
{2}    esac
    if [[ -z $command || $command == help ]]; then
        options+=" $commands"
    fi
    if [[ $word == -* || -z $command || $command == help ]]; then
        COMPREPLY=($(compgen -W "$options {1}" -- "$word"))
    elif [[ $command == codecs || $command == formats ]]; then
        COMPREPLY=($(compgen -W "$(tessadrin $command 2>/dev/null | awk 'NR > 1 {{ print $1 }}')" -- "$word"))
    elif [[ $command != doctor ]]; then
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -f -- "$word"))
    fi
}}
complete -F _tessadrin tessadrin
)SH",
                       commands, words(app), cases, choices);
}

std::string ZshCompletion(const CLI::App& app)
{
    // _arguments wants NAME[DESCRIPTION]:WHAT:HOW, brackets and colons escaped
    const auto specifications = [](const CLI::App& of, std::string_view indent) {
        std::string text;
        for (const CLI::Option* option : OptionsOf(of))
            for (const std::string& name : NamesOf(*option)) {
                std::string how;
                if (TakesValue(*option)) {
                    const auto choices = ChoicesOf(*option);
                    how = fmt::format(":{}:{}", "value",
                                      choices.empty() ? "" : fmt::format("({})", fmt::join(choices, " ")));
                }
                std::string description = option->get_description();
                for (const char* special : {"[", "]", ":"})
                    description = Replaced(description, special, std::string("\\") + special);
                text += fmt::format("{}{} \\\n", indent,
                                    Quoted(fmt::format("*{}[{}]{}", name, description, how)));
            }
        return text;
    };
    std::string commands, cases;
    for (const CLI::App* command : CommandsOf(app)) {
        commands += "        " + Quoted(command->get_name() + ":" + command->get_description()) + "\n";
        cases += fmt::format(
            "        {})\n            _arguments \\\n{}                '*:file:_files'\n            ;;\n",
            command->get_name(), specifications(*command, "                "));
    }
    return fmt::format(R"SH(#compdef tessadrin
local -a commands
local context state state_descr line
typeset -A opt_args
_arguments -C \
{0}    '1:command:->command' \
    '*::argument:->arguments'
case $state in
    command)
        commands=(
{1}        )
        _describe command commands
        ;;
    arguments)
        case $line[1] in
{2}        esac
        ;;
esac
)SH",
                       specifications(app, "    "), commands, cases);
}

std::string FishCompletion(const CLI::App& app)
{
    std::string text = "# fish completion for tessadrin\n";
    const auto add = [&](const CLI::App& of, const std::string& condition) {
        for (const CLI::Option* option : OptionsOf(of)) {
            text += "complete -c tessadrin" + condition;
            for (const std::string& name : option->get_snames())
                text += " -s " + name;
            for (const std::string& name : option->get_lnames())
                text += " -l " + name;
            if (TakesValue(*option)) {
                const auto choices = ChoicesOf(*option);
                const std::string list = ListedBy(*option);
                text += !list.empty()     ? fmt::format(" -x -a '({})'", list)
                        : choices.empty() ? " -r"
                                          : fmt::format(" -x -a '{}'", fmt::join(choices, " "));
            }
            text += " -d " + Quoted(option->get_description()) + "\n";
        }
    };
    add(app, "");
    for (const CLI::App* command : CommandsOf(app)) {
        text += fmt::format("complete -c tessadrin -n __fish_use_subcommand -f -a {} -d {}\n",
                            command->get_name(), Quoted(command->get_description()));
        add(*command, fmt::format(" -n '__fish_seen_subcommand_from {}'", command->get_name()));
    }
    return text;
}

}  // namespace Quorva::Tool
