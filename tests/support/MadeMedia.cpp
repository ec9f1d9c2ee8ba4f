#include "tests/support/MadeMedia.h"

#include "tests/support/MadeMedia.Encoding.h"
#include "tests/support/MadeMedia.Rows.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace Quorva::Media {
namespace {

std::string EncoderOf(std::string_view spec) { return std::string(spec.substr(0, spec.find(' '))); }

/// Encoders and muxers tell nothing but errors.
class Quiet {
public:
    Quiet() { av_log_set_level(AV_LOG_ERROR); }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
    ~Quiet() { av_log_set_level(before); }

private:
    int before = av_log_get_level();
};

}  // namespace

std::span<const MediaRow> MediaRows() { return mediaRows; }

std::string Lacks(const MediaRow& row)
{
    if (!av_guess_format(row.muxer, nullptr, nullptr))
        return std::string("no muxer ") + row.muxer;
    for (const char* spec : {row.video, row.audio, row.subtitle})
        if (spec && !avcodec_find_encoder_by_name(EncoderOf(spec).c_str()))
            return "no encoder " + EncoderOf(spec);
    return {};
}

std::filesystem::path Make(const MediaRow& row, const std::filesystem::path& folder)
{
    const std::filesystem::path path = folder / row.file;
    try {
        Writer writer(path, row.muxer);
        if (row.video)
            writer.AddVideo(row.video);
        if (row.audio)
            writer.AddAudio(row.audio);
        if (row.subtitle)
            writer.AddSubtitle(row.subtitle);
        writer.Write(row.options);
    } catch (const std::exception& e) {
        std::error_code ignored;  // the first failure is the one to report
        std::filesystem::remove(path, ignored);
        throw std::runtime_error(std::string(row.file) + ": " + e.what());
    }
    return path;
}

const std::filesystem::path& MadeFolder()
{
    static const TemporaryFolder folder;
    return folder.path;
}

std::filesystem::path MadeFile(std::string_view file)
{
    static std::map<std::string_view, std::filesystem::path> made;
    const auto row = std::ranges::find(mediaRows, file, &MediaRow::file);
    if (row == std::end(mediaRows))
        throw std::out_of_range("no such media file: " + std::string(file));
    std::filesystem::path& path = made[row->file];
    if (path.empty()) {
        const Quiet quiet;
        if (const std::string lacks = Lacks(*row); !lacks.empty())
            throw std::runtime_error(std::string(row->file) + ": this FFmpeg has " + lacks);
        path = Make(*row, MadeFolder());
    }
    return path;
}

}  // namespace Quorva::Media
