#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/Json.h"
#include "tools/support/Suggest.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace Quorva::Tool {

namespace {

struct FormatsOptions {
    std::vector<std::string> names;
    bool demuxers = false;
    bool json = false;
};

struct FormatRow {
    const AVInputFormat* input = nullptr;    ///< null: not read
    const AVOutputFormat* output = nullptr;  ///< null: not written
};

std::map<std::string, FormatRow> CollectFormats()
{
    std::map<std::string, FormatRow> formats;
    for (const auto& [name, demuxer] : Proc::GetFFMPEGSupportedInputFormats())
        formats[name].input = demuxer;
    for (const auto& [name, muxer] : Proc::GetFFMPEGSupportedOutputFormats())
        formats[name].output = muxer;
    return formats;
}

/// The demuxers of the catalogue, by name; null where this FFmpeg lacks one.
std::map<std::string, const AVInputFormat*> CollectDemuxers()
{
    std::map<std::string, const AVInputFormat*> demuxers;
    for (const std::string& name : Proc::GetFFMPEGKnownInputFormats())
        demuxers[name] = nullptr;
    void* position = nullptr;
    while (const AVInputFormat* demuxer = av_demuxer_iterate(&position))
        if (const auto found = demuxers.find(demuxer->name); found != demuxers.end())
            found->second = demuxer;
    return demuxers;
}

const char* NameOf(const auto* format) { return format ? format->name : nullptr; }
const char* LongNameOf(const auto* format) { return format ? format->long_name : nullptr; }

std::string TextOf(const char* text) { return text ? text : ""; }

Json FormatJson(const std::string& name, const FormatRow& row)
{
    return {
        {"name",        name                                                              },
        {"description", OrNull(row.input ? LongNameOf(row.input) : LongNameOf(row.output))},
        {"demuxer",     OrNull(NameOf(row.input))                                         },
        {"muxer",       OrNull(NameOf(row.output))                                        },
        {"mime_type",   OrNull(row.output ? row.output->mime_type : nullptr)              }
    };
}

void PrintJson(const std::map<std::string, FormatRow>& formats)
{
    Json document{
        {"schema", "tessadrin/formats/1"},
        {"tool",   ToolJson()           }
    };
    Json& list = document["formats"] = Json::array();
    for (const auto& [name, row] : formats)
        list.push_back(FormatJson(name, row));
    Json& known = document["demuxers"] = Json::array();
    for (const auto& [name, demuxer] : CollectDemuxers())
        known.push_back({
            {"name",        name                       },
            {"available",   demuxer != nullptr         },
            {"description", OrNull(LongNameOf(demuxer))}
        });
    fmt::print("{}\n", document.dump(1, ' ', false, Json::error_handler_t::replace));
}

void PrintFormats(const std::map<std::string, FormatRow>& formats)
{
    TextTable table({{"FORMAT"}, {"READ BY"}, {"WRITTEN BY"}, {"DESCRIPTION"}});
    for (const auto& [name, row] : formats)
        table.Add({name, TextOf(NameOf(row.input)), TextOf(NameOf(row.output)),
                   TextOf(row.input ? LongNameOf(row.input) : LongNameOf(row.output))});
    table.Print(stdout);
}

void PrintDemuxers()
{
    TextTable table({{"DEMUXER"}, {"DESCRIPTION"}});
    for (const auto& [name, demuxer] : CollectDemuxers())
        table.Add({name, demuxer ? TextOf(demuxer->long_name) : "(not in this FFmpeg)"});
    table.Print(stdout);
}

ExitCode RunFormats(const FormatsOptions& options, const Program&)
{
    std::map<std::string, FormatRow> formats = CollectFormats();
    if (!options.names.empty()) {
        std::vector<std::string> all;
        for (const auto& [name, row] : formats)
            all.push_back(name);
        for (const std::string& name : options.names)
            if (!formats.contains(name)) {
                WriteComplaint(fmt::format("tessadrin: no format '{}'{}", name, DidYouMean(name, all)));
                return EXIT_USAGE;
            }
        const std::set<std::string> wanted(options.names.begin(), options.names.end());
        std::erase_if(formats, [&](const auto& format) { return !wanted.contains(format.first); });
    }
    if (options.json)
        PrintJson(formats);
    else if (options.demuxers)
        PrintDemuxers();
    else
        PrintFormats(formats);
    return EXIT_ALL_WELL;
}

}  // namespace

void AddFormats(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<FormatsOptions>();
    CLI::App* command = app.add_subcommand("formats", "List the formats that can be read and written");
    command->add_option("FORMAT", options->names, "Only these")->type_name("");
    command->add_flag("--demuxers", options->demuxers, "List FFmpeg's demuxers in the catalogue instead");
    command->add_flag("--json", options->json, "Print one JSON document with all of it");
    command->footer(
        "Examples:\n"
        "  tessadrin formats                  every format, and who reads and writes it\n"
        "  tessadrin formats mp4 matroska     these two\n"
        "  tessadrin formats --json | jq .    for programs (formats.schema.json)");
    command->callback([options, &program] {
        program.command = [options](const Program& chosen) { return RunFormats(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
