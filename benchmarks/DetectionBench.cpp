// Detection of files from their first bytes, beside FFmpeg's general probe of the same bytes.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"
#include "tests/support/MadeMedia.h"
#include "tests/support/MediaFiles.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace Benchmarks {

using namespace Quorva;
namespace fs = std::filesystem;

namespace {

using Probes = std::vector<std::shared_ptr<const Proc::MovieProbe>>;

/// Files of others where they are at hand, else made ones.
std::vector<fs::path> Files()
{
    std::vector<fs::path> files;
    if (const fs::path others = MediaFolder(); !others.empty())
        for (const auto& entry : fs::recursive_directory_iterator(others / "files"))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    if (files.size() < 85)
        for (const Media::MediaRow& row : Media::MediaRows())
            if (Media::Lacks(row).empty())
                files.push_back(Media::MadeFile(row.file));
    std::ranges::sort(files);
    return files;
}

std::string Detect(const Proc::MovieProbe& probe)
{
    Proc::ProbeResult result;
    try {
        Proc::DetectFileInputFormat(probe, result);
    } catch (const Proc::ProcException&) {
        // of no format that the pipeline knows
    }
    return result.format;
}

/// Whether the extension's own formats have the answer, so that nobody else is asked.
bool IsConfirmed(const Proc::MovieProbe& probe)
{
    const std::string found = Detect(probe);
    const auto& candidates = Conf::GetFormatsByExtension(probe.extension);
    return !found.empty() && std::ranges::find(candidates, found) != candidates.end();
}

void AddRow(const std::string& name, const Probes& probes, double limit)
{
    Add({.name = name,
         .peer = "av_probe_input_format3",
         .ours =
             [probes](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     for (const auto& probe : probes)
                         benchmark::DoNotOptimize(Detect(*probe));
             },
         .peers =
             [probes](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     for (const auto& probe : probes) {
                         AVProbeData data{};
                         data.filename = probe->fileName.c_str();  // matched with what demuxers claim
                         data.buf = const_cast<uint8_t*>(probe->buffer);
                         data.buf_size = static_cast<int>(probe->size);
                         int score = 0;
                         benchmark::DoNotOptimize(av_probe_input_format3(&data, 1, &score));
                     }
             },
         .limit = limit,
         .seconds = 0.02});
}

}  // namespace

void AddDetection()
{
    const std::vector<fs::path> files = Files();
    for (const auto& [size, text] : {
             std::pair(128, "128 B"), {2048,  "2 KiB" },
               {65536, "64 KiB"}
    }) {
        Probes confirmed, others, all;
        for (const fs::path& path : files) {
            std::ifstream file(path, std::ios::binary);
            std::vector<uint8_t> bytes(static_cast<size_t>(size));
            file.read(reinterpret_cast<char*>(bytes.data()), size);
            bytes.resize(static_cast<size_t>(file.gcount()));
            std::shared_ptr<const Proc::MovieProbe> probe = Proc::MovieProbe::Create(path.filename(), bytes);
            all.push_back(probe);
            (IsConfirmed(*probe) ? confirmed : others).push_back(probe);
        }
        AddRow(fmt::format("detection, {}, {} files confirmed by extension", text, confirmed.size()),
               confirmed, 0.05);
        AddRow(fmt::format("detection, {}, {} other files", text, others.size()), others, 1.10);
        AddRow(fmt::format("detection, {}, all files", text), all, 0.35);
    }
}

}  // namespace Benchmarks
