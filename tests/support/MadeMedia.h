/// @file
/// Small media files of many kinds, drawn and encoded on the spot with FFmpeg: for the tests and for the
/// demo. Neither this nor its library uses the code under test; only the names of formats are the pipeline's.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace Quorva::Media {

/// A format name: one of the pipeline's constants, or, for formats it has none for, a demuxer's name; "" for
/// "not recognised".
class FormatName {
public:
    constexpr FormatName() = default;
    // NOLINTBEGIN(google-explicit-constructor): rows name formats
    constexpr FormatName(const std::string& constant) : constant(&constant) {}
    constexpr FormatName(const char* demuxer) : demuxer(demuxer) {}
    // NOLINTEND(google-explicit-constructor)

    constexpr bool IsSet() const { return constant || demuxer; }
    std::string Get() const { return constant ? *constant : demuxer; }

private:
    const std::string* constant = nullptr;  ///< the texts live in the host library
    const char* demuxer = nullptr;
};

/// How far a made file can be read.
enum class Reading {
    ToTheEnd,
    ToAnError,  ///< to the end, which FFmpeg's demuxer reports as an error
    NotAtAll,   ///< it is recognised so that nobody takes it for something else
};

/// One file to make, and what the pipeline has to say of it.
///
/// `video`, `audio` and `subtitle` are an encoder's name, a space and its options, as "libx264 crf=30:bf=0";
/// null means no such stream. Options that the source takes itself:
/// - video: source (a lavfi source, testsrc2), size (128x96), rate (25), frames (25), pix_fmt (the encoder's
///   nearest to the source), tag (four characters)
/// - audio: rate (44100), layout (stereo), sample_fmt (the encoder's nearest), seconds (1)
struct MediaRow {
    const char* file;   ///< unique, with the extension that such files have
    const char* muxer;  ///< FFmpeg's name
    const char* video;
    const char* audio;
    const char* subtitle;
    const char* options;  ///< the muxer's, as "key=value:key=value"; may be null

    FormatName format;     ///< detected from 64 KiB and the extension
    FormatName bare;       ///< detected from the bytes alone, without any name; not set: the same
    FormatName container;  ///< found in the opened file; not set: the same as `format`
    bool still = false;    ///< one image and nothing else
    Reading reading = Reading::ToTheEnd;
};

std::span<const MediaRow> MediaRows();

/// Why this build of FFmpeg cannot make the file, as "no encoder libx265"; empty when it can.
std::string Lacks(const MediaRow& row);

/// Makes the file: one second, small, the same bytes each time. FFmpeg's log level is the caller's.
/// @return its path
/// @throws std::runtime_error  naming the file, the step, and FFmpeg's reason; what was written is removed.
std::filesystem::path Make(const MediaRow& row, const std::filesystem::path& folder);

/// A folder of this process, removed with all that is in it when the process exits.
const std::filesystem::path& MadeFolder();

/// The row's file in MadeFolder(), made at the first call. One thread at a time.
/// @param file  MediaRow::file
/// @throws std::out_of_range   no such row
/// @throws std::runtime_error  as Make(), also when the build lacks something
std::filesystem::path MadeFile(std::string_view file);

}  // namespace Quorva::Media
