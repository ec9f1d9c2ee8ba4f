// What detection says of files that other people's programs made, compared with a list written beforehand.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Failure.h"
#include "tests/support/MediaFiles.h"

#include <string_view>

namespace Quorva::Proc {
namespace {

using Conf::IFormatFile;

/// What the list says, with the text of a format in place of its constant's name.
std::string Plain(const std::string& listed)
{
    static const std::map<std::string, std::string> constants = {
#define FORMAT(name, text) {"FORMAT_" #name, text},
#include "host/Rows/Formats.inc"
#undef FORMAT
    };
    const std::string name = listed.substr(0, listed.find(' '));
    if (name.starts_with("FORMAT_"))
        return constants.at(name) + listed.substr(name.size());
    return name.starts_with('"') ? name.substr(1, name.size() - 2) + listed.substr(name.size()) : listed;
}

/// Format and score, THROW(demuxer) and score, or (none).
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
    return fmt::format("{} {}", result.format, result.score);
}

TEST(RealMedia, IsDetectedAsListed)
{
    SKIP_WITHOUT_MEDIA_FILES();
    const struct {
        const char* column;
        size_t size;
    } sizes[] = {
        {"expect_128", 128     },
        {"expect_2k",  2 << 10 },
        {"expect_64k", 64 << 10},
        {"expect_1M",  1 << 20 },
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
            EXPECT_EQ(Detect(probe), Plain(row.at(column))) << column;
        }
        if (row.at("ext_candidates").empty())
            continue;
        const std::string& expected = row.at("expect_ext");
        EXPECT_EQ(Detect(*MovieProbe::Create(path.string(), bytes)),
                  Plain(expected.substr(0, expected.rfind(" via"))));
    }
}

TEST(RealMedia, OpenedFilesAreNamedByWhatTheirBytesSay)
{
    SKIP_WITHOUT_MEDIA_FILES();
    const std::map<std::string, std::string> explained = {
        {"64bit.mp4",                        IFormatFile::FORMAT_MP4     }, // no brand: by the extension
        {"syntax_num_frames_zero.png",       IFormatFile::FORMAT_PNG     }, // animated, with 0 frames
        {"Elephants_Dream-360p-Stereo.webm", IFormatFile::FORMAT_MATROSKA}, // written by "libmatroska"
    };
    int opened = 0;
    for (const auto& row : ReadTable(MediaFolder() / "MANIFEST.tsv")) {
        const std::filesystem::path path = MediaFolder() / row.at("file");
        const std::string& listed = row.at("by_hand_format");
        AVFormatContext* context = nullptr;
        if (!listed.starts_with("FORMAT_") ||
            avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0)
            continue;
        const auto differs = explained.find(path.filename().string());
        EXPECT_EQ(GetContainerFormat(context),
                  differs == explained.end() ? Plain(listed.substr(0, listed.find(' '))) : differs->second)
            << path;
        avformat_close_input(&context);
        ++opened;
    }
    EXPECT_GT(opened, 250);
}

}  // namespace
}  // namespace Quorva::Proc
