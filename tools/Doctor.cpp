#include "tools/Doctor.h"

#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Details/SelectionRows.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tools/Command.h"
#include "tools/isolation/Sandbox.h"
#include "tools/support/Console.h"
#include "tools/support/Json.h"
#include "tools/support/Versions.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

namespace {

using Names = std::vector<std::string>;
using Proc::Details::SelectionRow;

struct Diagnosis {
    std::vector<LibraryVersion> versions;
    std::optional<std::string> failure;          ///< why the library can't be loaded
    Names decoders, encoders, demuxers, muxers;  ///< that the library names and this FFmpeg lacks
    Names hardware;                              ///< kinds of devices that this FFmpeg was built for
};

Names Sorted(const std::set<std::string>& names) { return {names.begin(), names.end()}; }

Names LackingCodecs(std::span<const SelectionRow> rows, const AVCodec* (*find)(const char*))
{
    std::set<std::string> lacking;
    for (const SelectionRow& row : rows)
        if (!find(row.name))
            lacking.insert(row.name);
    return Sorted(lacking);
}

/// @param known  by name
template <class Known, class Format>
Names LackingFormats(const Known& known, const std::vector<const Format*>& present)
{
    std::set<std::string> lacking;
    for (const auto& [name, entry] : known)
        if (std::ranges::none_of(present,
                                 [&](const Format* format) { return format->name && name == format->name; }))
            lacking.insert(std::string(name));
    return Sorted(lacking);
}

Names GetHardware()
{
    Names names;
    for (AVHWDeviceType type = AV_HWDEVICE_TYPE_NONE;
         (type = av_hwdevice_iterate_types(type)) != AV_HWDEVICE_TYPE_NONE;)
        if (const char* const name = av_hwdevice_get_type_name(type))
            names.emplace_back(name);
    return names;
}

Diagnosis Diagnose()
{
    using namespace Proc::Details;
    Diagnosis diagnosis{FFmpegVersions(), {}, {}, {}, {}, {}, GetHardware()};
    diagnosis.decoders = LackingCodecs(decoderRows, avcodec_find_decoder_by_name);
    diagnosis.encoders = LackingCodecs(encoderRows, avcodec_find_encoder_by_name);
    try {
        const Loaded loaded;  // the whole load sequence, dropped again
        diagnosis.demuxers = LackingFormats(loaded.inputs.known, AllDemuxers());
        diagnosis.muxers = LackingFormats(loaded.outputs.known, AllMuxers());
    } catch (...) {
        diagnosis.failure = DescribeLoadFailure();
    }
    return diagnosis;
}

std::string List(const Names& names)
{
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, " "));
}

/// What is given up before a file is read, and what this kernel can't take away.
void PrintSandbox()
{
    const SandboxAbilities abilities = GetSandboxAbilities();
    fmt::print("Sandbox for reading files: Landlock {}, seccomp {}\n",
               abilities.landlock > 0 ? fmt::format("ABI {}", abilities.landlock) : "missing",
               abilities.seccomp ? "present" : "missing");
    for (const std::string& clause : abilities.missing)
        fmt::print("  not prevented by this kernel: {}\n", clause);
    fmt::print("\n");
}

Json SandboxJson()
{
    const SandboxAbilities abilities = GetSandboxAbilities();
    return {
        {"landlock", abilities.landlock},
        {"seccomp",  abilities.seccomp },
        {"missing",  abilities.missing }
    };
}

void PrintText(const Diagnosis& diagnosis)
{
    fmt::print("tessadrin {}, FFmpeg {}\n", TESSADRIN_VERSION, av_version_info());
    for (const LibraryVersion& library : diagnosis.versions)
        fmt::print("  lib{:<11} built with {:<11} running {}\n", library.name, library.built,
                   library.running);
    fmt::print(
        "\nLacking in this FFmpeg, of what the library names:\n"
        "  decoders  {}\n  encoders  {}\n",
        List(diagnosis.decoders), List(diagnosis.encoders));
    if (!diagnosis.failure)
        fmt::print("  demuxers  {}\n  muxers    {}\n", List(diagnosis.demuxers), List(diagnosis.muxers));
    fmt::print("\nHardware that this FFmpeg was built for: {}\n\n", List(diagnosis.hardware));
    PrintSandbox();
    if (diagnosis.failure)
        fmt::print("The library can't be loaded: {}.\n", *diagnosis.failure);
    else
        fmt::print("The library can be loaded.\n");
}

void PrintJson(const Diagnosis& diagnosis)
{
    Json versions = Json::object();
    for (const LibraryVersion& library : diagnosis.versions)
        versions["lib" + library.name] = {
            {"built",   library.built  },
            {"running", library.running}
        };
    Json lacking = {
        {"decoders", diagnosis.decoders},
        {"encoders", diagnosis.encoders}
    };
    if (!diagnosis.failure) {
        lacking["demuxers"] = diagnosis.demuxers;
        lacking["muxers"] = diagnosis.muxers;
    }
    fmt::print("{}\n", JsonText({
                           {"schema",    "tessadrin/doctor/1"                                 },
                           {"tool",      ToolJson()                                           },
                           {"libraries", versions                                             },
                           {"loads",     !diagnosis.failure                                   },
                           {"failure",   diagnosis.failure ? Json(*diagnosis.failure) : Json()},
                           {"lacking",   lacking                                              },
                           {"hardware",  diagnosis.hardware                                   },
                           {"sandbox",   SandboxJson()                                        },
    }));
}

}  // namespace

bool IsDoctorWanted(int argc, char** argv)
{
    const auto* const word =
        std::find_if(argv + std::min(argc, 1), argv + argc, [](const char* text) { return text[0] != '-'; });
    return word != argv + argc && std::string_view(*word) == "doctor";
}

int RunDoctor(int argc, char** argv)
{
    Program program;
    CLI::App app("Media files as the pipeline sees them.", "tessadrin");
    app.require_subcommand(1);
    const auto json = AddDoctor(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        WriteComplaint(std::string("tessadrin: ") + error.what());
        return EXIT_USAGE;
    }
    av_log_set_level(AV_LOG_QUIET);
    const Diagnosis diagnosis = Diagnose();
    (*json ? PrintJson : PrintText)(diagnosis);
    return diagnosis.failure ? EXIT_SOME_FAILED : EXIT_ALL_WELL;
}

}  // namespace Quorva::Tool
