#include "tools/Help.h"

#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/Suggest.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Quorva::Tool {

namespace {

using Form = std::string (*)(const CLI::App&);

struct HelpOptions {
    std::string topic;
    std::string form;
};

class HelpFormat final : public CLI::Formatter {
    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string value = ValueOf(*option);
        return (value.empty() ? "" : " " + value) +
               (option->get_positional() && option->get_expected_max() > 1 ? "..." : "");
    }
    std::string make_option_desc(const CLI::Option* option) const override
    {
        constexpr size_t columns = 80;
        std::string text = option->get_description();
        const size_t width = columns - get_column_width();
        for (size_t begin = 0; text.size() - begin > width;) {
            size_t end = text.rfind(' ', begin + width);
            if (end == std::string::npos || end <= begin)
                end = text.find(' ', begin + width);
            if (end == std::string::npos)
                break;
            text[end] = '\n';
            begin = end + 1;
        }
        return text;
    }
};

ExitCode PrintTopic(CLI::App& app, const std::string& topic)
{
    if (topic.empty()) {
        // app.help() would be that of `help`, the command that was chosen
        fmt::print("{}", app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        return EXIT_ALL_WELL;
    }
    std::vector<std::string> names;
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_name() == topic) {
            fmt::print("{}", command->help(app.get_name()));
            return EXIT_ALL_WELL;
        }
        names.push_back(command->get_name());
    }
    WriteComplaint(fmt::format("tessadrin: no command '{}'{}", topic, DidYouMean(topic, names)));
    return EXIT_USAGE;
}

}  // namespace

std::shared_ptr<CLI::Formatter> MakeHelpFormat()
{
    auto format = std::make_shared<HelpFormat>();
    format->label("SUBCOMMAND", "COMMAND");
    format->label("Subcommands", "Commands");
    return format;
}

void AddHelp(CLI::App& app, Program& program)
{
    static const std::vector<std::pair<std::string, Form>> forms = {
        {"man",  ManPage       },
        {"bash", BashCompletion},
        {"zsh",  ZshCompletion },
        {"fish", FishCompletion},
    };
    const auto options = std::make_shared<HelpOptions>();
    CLI::App* command = app.add_subcommand("help", "Explain a command");
    command->add_option("COMMAND", options->topic, "Which; without it, what commands there are")
        ->type_name("");
    std::vector<std::string> names;
    for (const auto& [name, form] : forms)
        names.push_back(name);
    command
        ->add_option("--as", options->form,
                     "Print all commands as a manual page or for a shell's completion: man, bash, zsh, fish")
        ->check(CLI::IsMember(names))
        ->type_name("FORM");
    command->footer(
        "Examples:\n"
        "  tessadrin help convert                 the same as tessadrin convert --help\n"
        "  source <(tessadrin help --as bash)     completion in this shell");
    command->callback([options, &app, &program] {
        program.command = [options, &app](const Program&) {
            for (const auto& [name, form] : forms)
                if (name == options->form) {
                    fmt::print("{}", form(app));
                    return EXIT_ALL_WELL;
                }
            return PrintTopic(app, options->topic);
        };
    });
}

}  // namespace Quorva::Tool
