/// @file
/// What `tessadrin probe` finds out about a file, and the ways it is shown.
#pragma once

#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"
#include "tools/support/Failure.h"
#include "tools/support/OpenedInput.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Quorva::Tool {

/// Metadata: keys and values in the file's order, as UTF-8.
using Texts = std::vector<std::pair<std::string, std::string>>;

struct PacketCount {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

struct VideoReport {
    int width = 0;  ///< pixels
    int height = 0;
    const char* pixelFormat = nullptr;  ///< the pipeline's name; null when unknown
    AVRational pixelAspect{0, 1};       ///< 0: unknown
    AVRational frameRate{0, 1};         ///< frames per second; 0: unknown or a still image
    const char* primaries = nullptr;    ///< null when unspecified, these four
    const char* transfer = nullptr;
    const char* matrix = nullptr;
    const char* range = nullptr;
    std::optional<Conf::FrameCropping> crop;
    std::optional<int> rotation;  ///< degrees to turn clockwise for display
    bool mirrored = false;        ///< after the turn, left and right are to be swapped
};

struct AudioReport {
    int sampleRate = 0;
    int channels = 0;
    std::string layout;  ///< empty when unknown
    const Conf::SampleFormatRecord* format = nullptr;
    int bits = 0;  ///< per sample; 0: unknown
};

struct StreamReport {
    int index = 0;
    AVMediaType kind = AVMEDIA_TYPE_UNKNOWN;
    std::string codecID;    ///< the pipeline's identifier; empty: not in its catalogue
    std::string codecName;  ///< FFmpeg's
    std::string tag;        ///< empty when there is none
    const char* profile = nullptr;
    const char* decoder = nullptr;  ///< what FindDecoder picks for the plain implementation
    std::string decoderLongName;
    AVRational timeBase{0, 1};
    std::optional<int64_t> start;     ///< microseconds
    std::optional<int64_t> duration;  ///< microseconds
    std::optional<int64_t> bitRate;   ///< per second
    std::optional<int64_t> frames;
    std::vector<std::string> disposition;
    Texts metadata;
    std::optional<VideoReport> video;
    std::optional<AudioReport> audio;
    PacketCount count;  ///< what was read of it
};

struct ChapterReport {
    std::optional<int64_t> start;  ///< microseconds
    std::optional<int64_t> end;
    Texts metadata;
};

struct FileReport {
    std::string path;
    bool detected = false;  ///< size and result are known
    bool opened = false;    ///< and so is all that follows them
    uint64_t size = 0;
    Proc::ProbeResult result;
    std::string container;
    std::string demuxer;
    bool singleImage = false;
    std::optional<int64_t> duration;  ///< microseconds
    std::optional<int64_t> start;
    std::optional<int64_t> bitRate;
    Texts metadata;
    std::vector<ChapterReport> chapters;
    std::vector<StreamReport> streams;
    std::vector<std::string> warnings;
    std::optional<PacketCount> count;  ///< when packets were read
    std::optional<Failure> failure;    ///< may come after packets

    /// "h264 aac": the streams' codecs by the pipeline's identifier, or FFmpeg's name.
    std::string StreamsText() const;
};

/// One packet with the pipeline's time stamps.
struct PacketReport {
    int stream = 0;
    std::optional<int64_t> pts;  ///< microseconds, these three
    std::optional<int64_t> dts;
    std::optional<int64_t> duration;
    int size = 0;
    std::optional<int64_t> position;  ///< byte in the file
    bool key = false;
    bool corrupt = false;
    bool discard = false;
};

/// Fills in all that the opened file tells without its packets.
void DescribeFile(const OpenedInput& input, FileReport& report);
/// Describes streams that came up since, as they do in files without a header.
void DescribeNewStreams(const OpenedInput& input, FileReport& report);
PacketReport DescribePacket(const OpenedInput& input, const AVPacket& packet);

/// A way to show files, on standard output. The calls come in the order of declaration, those for a file once
/// for each.
class ProbeOutput {
public:
    virtual ~ProbeOutput() = default;
    virtual void Begin() {}
    /// Before the packets of a file that could be opened.
    virtual void BeginPackets(const FileReport&) {}
    virtual void Packet(const PacketReport&) {}
    virtual void File(const FileReport&) = 0;
    virtual void End() {}
    /// Whether File() shows a failure, so that standard error need not.
    virtual bool ShowsFailures() const { return false; }
};

/// @param packets  whether packets are shown one by one
std::unique_ptr<ProbeOutput> MakeTextOutput(bool packets);
/// One row for each file, when all are done.
std::unique_ptr<ProbeOutput> MakeTableOutput();
/// @param details  failures with their place and call stack
std::unique_ptr<ProbeOutput> MakeJsonOutput(bool details);

}  // namespace Quorva::Tool
