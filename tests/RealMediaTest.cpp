// What detection says of files that other people's programs made, compared with a list written beforehand.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Failure.h"
#include "tests/support/MediaFiles.h"

#include <string_view>

namespace Quorva::Proc {
namespace {

/// As the list writes it: FORMAT_PNG, or "lrc" for a format without a constant of its own.
std::string NameOf(const std::string& format)
{
    static const std::map<std::string, std::string> constants = {
#define FORMAT(name, text) {text, "FORMAT_" #name},
#include "host/Rows/Formats.inc"
#undef FORMAT
    };
    const auto found = constants.find(format);
    return found == constants.end() ? '"' + format + '"' : found->second;
}

/// As the list writes it: format and score, THROW(demuxer) and score, or (none).
std::string Detect(const MovieProbe& probe)
{
    ProbeResult result;
    try {
        DetectFileInputFormat(probe, result);
    } catch (const ProcException& e) {
        EXPECT_STREQ(e.what(), "Unknown file format");
        AVProbeData data{probe.fileName.c_str(), const_cast<uint8_t*>(probe.buffer),
                         static_cast<int>(probe.size), nullptr};
        int score = 0;
        return fmt::format("THROW({}) {}", av_probe_input_format3(&data, 1, &score)->name, result.score);
    }
    if (result.format.empty())
        return "(none)";
    EXPECT_EQ(result.implementation, ImplNames::FFMPEG);
    return fmt::format("{} {}", NameOf(result.format), result.score);
}

TEST(RealMedia, IsDetectedAsListed)
{
    SKIP_WITHOUT_MEDIA_FILES();
    const struct {
        const char* column;
        size_t size;
    } sizes[] = {
        {"expect_128", 128},
        {"expect_2k",  2 << 10},
        {"expect_64k", 64 << 10},
        {"expect_1M",  1 << 20},
    };
    const auto rows = ReadTable(MediaFolder() / "MANIFEST.tsv");
    EXPECT_FALSE(rows.empty());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.at("file"));
        const std::filesystem::path path = MediaFolder() / row.at("file");
        const std::vector<uint8_t> bytes = ReadStart(path, 1 << 20);
        for (const auto& [column, size] : sizes) {
            std::vector<uint8_t> padded(bytes.begin(), bytes.begin() + std::min(size, bytes.size()));
            MovieProbe probe;
            probe.fileName = path.string();
            probe.size = padded.size();
            padded.resize(padded.size() + MovieProbe::PADDING);
            probe.buffer = padded.data();
            EXPECT_EQ(Detect(probe), row.at(column)) << column;
        }
        if (row.at("ext_candidates").empty())
            continue;
        const std::string& expected = row.at("expect_ext");
        EXPECT_EQ(Detect(*MovieProbe::Create(path.string(), bytes)), expected.substr(0, expected.rfind(" via")));
    }
}

}  // namespace
}  // namespace Quorva::Proc
