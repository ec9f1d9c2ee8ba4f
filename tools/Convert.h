/// @file
/// What `tessadrin convert` is asked to do, and what it decides to do before it reads the first packet.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "host/CodecDescriptions.h"
#include "tools/InputOptions.h"
#include "tools/support/OpenedInput.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Quorva::Tool {

inline constexpr const char* COPY = "copy";  ///< in place of a codec: the stream goes over as it is
inline constexpr const char* NONE = "none";  ///< in place of a codec: no such stream

/// The command line asks for something that can't be. Nothing was written.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The command line. Texts are empty, and numbers absent, where nothing was asked for.
struct ConvertOptions {
    std::string input;
    std::string output;  ///< "-": standard output; with %d or %04d: a file for each picture
    std::string format;  ///< the pipeline's name

    std::string videoCodec;  ///< text identifier, COPY or NONE; the next likewise
    std::string audioCodec;
    std::string subtitleCodec;
    std::string decoderImplementation;
    std::string encoderImplementation;
    std::vector<std::string> map;  ///< "2", "v", "a:1"

    std::optional<FrameSize> size;  ///< one side may be 0: as the picture's shape demands
    std::string pixelFormat;
    AVRational frameRate{0, 1};
    std::optional<int> sampleRate;
    std::string channels;  ///< a number or a layout's name

    std::optional<int> quality;  ///< the pipeline's scale: 1 is best, 100 smallest
    std::optional<int> audioQuality;
    std::optional<int64_t> bitrate;  ///< bits per second
    std::optional<int64_t> audioBitrate;
    std::vector<std::pair<std::string, std::string>> encoderOptions;
    bool twoPass = false;

    std::optional<int64_t> start;     ///< microseconds from the input's beginning
    std::optional<int64_t> duration;  ///< microseconds
    /// Jumps of all times beyond that are closed up, microseconds; nothing: none is.
    std::optional<int64_t> maxGap = 10'000'000;
    int threads = 0;  ///< 0: as many as there are cores
    bool overwrite = false;
    bool keepPartial = false;
    bool progressJson = false;
    InputOptions inputOptions;
};

/// Entries of an FFmpeg dictionary, owned.
class OptionSet {
public:
    OptionSet() = default;
    /// Entries that memory doesn't suffice for are missing in the copy.
    OptionSet(const OptionSet& other) { av_dict_copy(&entries, other.entries, 0); }
    OptionSet(OptionSet&& other) noexcept : entries(std::exchange(other.entries, nullptr)) {}
    OptionSet& operator=(OptionSet other) noexcept
    {
        std::swap(entries, other.entries);
        return *this;
    }
    ~OptionSet() { av_dict_free(&entries); }

    AVDictionary** operator&() noexcept { return &entries; }
    bool Has(const char* name) const { return av_dict_get(entries, name, nullptr, 0) != nullptr; }
    /// The name of some entry; empty when there is none.
    std::string First() const
    {
        const AVDictionaryEntry* entry = av_dict_iterate(entries, nullptr);
        return entry ? entry->key : "";
    }

private:
    AVDictionary* entries = nullptr;
};

/// What becomes of one input stream.
struct StreamPlan {
    enum class Treatment {
        Copy,
        Video,     ///< decoded, encoded
        Audio,     ///< decoded, encoded
        Subtitle,  ///< text; decoded, encoded
        Attach,    ///< a cover picture becomes an attached file
    };

    int input = 0;  ///< index among the input's streams
    Treatment treatment = Treatment::Copy;
    const AVCodec* decoder = nullptr;               ///< null for copies
    std::optional<Proc::SafeEncoderCodec> encoder;  ///< nothing for copies
    const AVCodec* subtitleEncoder = nullptr;       ///< in place of `encoder` for text subtitles
    OptionSet options;                              ///< the encoder's
    std::optional<int64_t> bitrate;
    std::optional<int> quality;  ///< the pipeline's scale

    boost::intrusive_ptr<Conf::VideoCodecDescription> video;  ///< of the result
    AVRational frameRate{0, 1};
    bool onlyOne = false;       ///< the first picture is the whole output
    bool constantRate = false;  ///< pictures are repeated or left out to keep the rate
    bool retimed = false;       ///< and the rate isn't the input's
    bool applyCrop = false;     ///< the container's cropping is carried out, not carried on
    bool fullRange = false;     ///< of the result's colours
    bool twoPass = false;

    boost::intrusive_ptr<Conf::AudioCodecDescription> audio;  ///< of the result
    bool keepsGaps = false;                                   ///< long ones; they get no silence

    std::string name;    ///< "stream 0: video h264"
    std::string result;  ///< of encoding, for people: "1280x720 yuv420p, 25 pictures per second"
    std::string text;    ///< for people: "stream 0: video h264 encoded as av1 by libsvtav1, ..."
};

/// Everything that is decided before the first packet is read.
struct Plan {
    std::string format;
    const AVOutputFormat* muxer = nullptr;
    bool images = false;    ///< each packet is a file
    bool oneImage = false;  ///< and the first is the only one
    bool still = false;     ///< a single picture, to which no rate and no duration apply
    bool isPart = false;    ///< not everything from the beginning to the end of the input
    std::vector<StreamPlan> streams;
    std::vector<std::string> leftOut;  ///< streams that stay behind, and why
    std::vector<std::string> notes;    ///< what else doesn't survive, or isn't as asked
    int64_t origin = 0;                ///< the input's time that is 0 in the output, microseconds
    std::optional<int64_t> end;        ///< the output's time to stop at, microseconds
    bool isReordered = false;          ///< a picture is stored before one that is shown at the beginning
};

/// Decides. Reads nothing. `origin` is that of the packets stored first. Within an FFmpegErrors object that
/// also covers opening the input, FFmpeg's words say why something isn't known of a stream.
/// @throws UsageError         the options contradict the input or one another
/// @throws Quorva::Exception  something is asked for that this FFmpeg lacks or the container refuses
Plan MakePlan(const OpenedInput& input, const ConvertOptions& options);

/// Does it, all passes, and puts the output in its place. Says what it does on standard error.
/// @param quiet  says nothing
/// @return       false after a signal to stop: the output ends there, or was not begun. Where
///               Interruption::IsOverdue(), threads may still be at work, which end with the process only.
/// @throws Quorva::Exception  it failed; the output's place is as it was before
/// @throws UsageError         as MakePlan()
bool CarryOut(const ConvertOptions& options, bool quiet);

/// Throws a ProcException of FailureKind::Unsupported.
[[noreturn]] void ThrowRefused(const std::string& what);
[[noreturn]] void ThrowUsage(const std::string& what);

/// The pipeline's name of a codec, or FFmpeg's where it has none.
std::string CodecName(AVCodecID id);

}  // namespace Quorva::Tool
