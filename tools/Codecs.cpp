#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "host/MediaDescription.h"
#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/Json.h"
#include "tools/support/Suggest.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <set>

namespace Quorva::Tool {

namespace {

struct CodecsOptions {
    std::vector<std::string> names;
    bool decoders = false;
    bool encoders = false;
    bool json = false;
};

using Find = const AVCodec* (*)(AVCodecID, const std::string&);

/// A codec of the catalogue: the smallest of FFmpeg's identifiers that carry its name.
struct CodecRow {
    std::string name;
    AVCodecID id;
};

std::vector<CodecRow> CollectCodecs(const std::vector<std::string>& names)
{
    const std::set<std::string> wanted(names.begin(), names.end());
    std::vector<CodecRow> rows;
    std::set<std::string> seen;
    for (const auto& [id, name] : GetFFCodecsMap())
        if (seen.insert(name).second && (wanted.empty() || wanted.contains(name)))
            rows.push_back({name, id});
    std::ranges::sort(rows, {}, &CodecRow::name);
    return rows;
}

std::string KindOf(AVCodecID id) { return Proc::GetMediaTypeName(avcodec_get_type(id)); }

const std::vector<std::string>& Implementations()
{
    using Proc::ImplNames;
    static const std::vector<std::string> names = {
        ImplNames::FFMPEG, ImplNames::FFMPEG_FDK, ImplNames::NVDEC, ImplNames::DIRECTX,
        ImplNames::QSV,    ImplNames::NVENC,      ImplNames::AMF};
    return names;
}

/// What is taken where nobody asks for an implementation. The plain one may name a codec that this FFmpeg
/// lacks; the next one may not.
std::string PlainText(Find find, AVCodecID id)
{
    for (const std::string& implementation : {Proc::ImplNames::FFMPEG, Proc::ImplNames::FFMPEG_FDK})
        if (const AVCodec* codec = find(id, implementation))
            return codec->name;
    return "-";
}

/// Whether `implementation` answers for itself: by a row of its own, or because it demands hardware frames.
/// Others give FFmpeg's default, which says nothing about them.
bool AnswersItself(const std::vector<std::pair<AVCodecID, std::string>>& rows, AVCodecID id,
                   const std::string& implementation)
{
    return std::ranges::find(rows, std::pair(id, implementation)) != rows.end();
}

/// "nvdec:h264 directx:h264": what the implementations beside the plain one find.
std::string OthersText(Find find, const std::vector<std::pair<AVCodecID, std::string>>& rows, AVCodecID id,
                       bool decoders)
{
    std::string text;
    for (const std::string& implementation : Implementations()) {
        const bool hardware = decoders && (implementation == Proc::ImplNames::NVDEC ||
                                           implementation == Proc::ImplNames::DIRECTX);
        if (implementation == Proc::ImplNames::FFMPEG ||
            !(hardware || AnswersItself(rows, id, implementation)))
            continue;
        if (const AVCodec* codec = find(id, implementation))
            text.append(text.empty() ? "" : " ").append(implementation).append(":").append(codec->name);
    }
    return text;
}

void PrintCodecs(const std::vector<CodecRow>& rows)
{
    const auto decoders = Proc::GetCustomFFDecodersList();
    const auto encoders = Proc::GetCustomFFEncodersList();
    TextTable table(
        {{"CODEC"}, {"KIND"}, {"FFMPEG"}, {"DECODER"}, {"ENCODER"}, {"OTHER DECODERS"}, {"OTHER ENCODERS"}});
    for (const auto& [name, id] : rows)
        table.Add({name, KindOf(id), avcodec_get_name(id), PlainText(Proc::FindDecoder, id),
                   PlainText(Proc::FindEncoder, id), OthersText(Proc::FindDecoder, decoders, id, true),
                   OthersText(Proc::FindEncoder, encoders, id, false)});
    table.Print(stdout);
}

Json FoundJson(Find find, AVCodecID id)
{
    Json json = Json::object();
    for (const std::string& implementation : Implementations()) {
        const AVCodec* codec = find(id, implementation);
        json[implementation] = OrNull(codec ? codec->name : nullptr);
    }
    return json;
}

void PrintJson(const std::vector<CodecRow>& rows)
{
    Json document{
        {"schema", "tessadrin/codecs/1"},
        {"tool",   ToolJson()          }
    };
    Json& list = document["codecs"] = Json::array();
    for (const auto& [name, id] : rows)
        list.push_back({
            {"id", name},
            {"kind", KindOf(id)},
            {"ffmpeg", avcodec_get_name(id)},
            {"number", static_cast<int>(id)},
            {"decoders", FoundJson(Proc::FindDecoder, id)},
            {"encoders", FoundJson(Proc::FindEncoder, id)}
        });
    fmt::print("{}\n", document.dump(1, ' ', false, Json::error_handler_t::replace));
}

ExitCode RunCodecs(const CodecsOptions& options, const Program&)
{
    if (options.decoders || options.encoders) {
        fmt::print("{}", Proc::TraceFFCodecs(options.decoders, options.encoders));
        return EXIT_ALL_WELL;
    }
    const std::vector<CodecRow> rows = CollectCodecs(options.names);
    for (const std::string& name : options.names)
        if (std::ranges::find(rows, name, &CodecRow::name) == rows.end()) {
            std::vector<std::string> all;
            for (const CodecRow& row : CollectCodecs({}))
                all.push_back(row.name);
            WriteComplaint(fmt::format("tessadrin: no codec '{}'{}", name, DidYouMean(name, all)));
            return EXIT_USAGE;
        }
    if (options.json)
        PrintJson(rows);
    else
        PrintCodecs(rows);
    return EXIT_ALL_WELL;
}

}  // namespace

void AddCodecs(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<CodecsOptions>();
    CLI::App* command =
        app.add_subcommand("codecs", "List the codecs, and what decodes and encodes them here");
    CLI::Option* names = command->add_option("CODEC", options->names, "Only these")->type_name("");
    CLI::Option* json = command->add_flag("--json", options->json, "Print one JSON document");
    for (CLI::Option* trace :
         {command->add_flag("--decoders", options->decoders, "List every decoder of this FFmpeg instead"),
          command->add_flag("--encoders", options->encoders, "List every encoder of this FFmpeg instead")})
        trace->excludes(names)->excludes(json);
    command->footer(
        "Examples:\n"
        "  tessadrin codecs                   every codec, what decodes it and what encodes it\n"
        "  tessadrin codecs h264 aac          these two\n"
        "  tessadrin codecs --encoders        all that this FFmpeg can encode with");
    command->callback([options, &program] {
        program.command = [options](const Program& chosen) { return RunCodecs(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
