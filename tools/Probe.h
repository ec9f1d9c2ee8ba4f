/// @file
/// What `tessadrin probe` finds out about a file, and the ways it is shown.
#pragma once

#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"
#include "tools/Command.h"
#include "tools/InputOptions.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/support/Failure.h"
#include "tools/support/FileList.h"
#include "tools/support/OpenedInput.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quorva::Tool {

/// Metadata: keys and values in the file's order, as UTF-8.
using Texts = std::vector<std::pair<std::string, std::string>>;

struct PacketCount {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

/// A colour by its CIE 1931 coordinates.
struct Chromaticity {
    double x = 0;
    double y = 0;
};

/// The display that the pictures were graded on.
struct MasteringDisplay {
    struct Primaries {
        Chromaticity red, green, blue, white;
    };
    struct Luminance {  ///< cd/m2
        double min = 0;
        double max = 0;
    };
    std::optional<Primaries> primaries;
    std::optional<Luminance> luminance;
};

/// The brightest pixel and the brightest picture on average, both in cd/m2.
struct ContentLight {
    unsigned maxCll = 0;
    unsigned maxFall = 0;
};

struct DolbyVision {
    int profile = 0;
    int level = 0;
    int compatibilityID = 0;  ///< what the base layer is for players without Dolby Vision; 0: nothing
    bool baseLayer = false;
    bool enhancementLayer = false;
    bool metadata = false;  ///< the RPU
};

struct Stereo3D {
    const char* layout = nullptr;  ///< FFmpeg's names, as in "side by side", "packed"
    const char* view = nullptr;
    bool inverted = false;  ///< right before left, or below above
};

/// Angles in degrees.
struct Spherical {
    const char* projection = nullptr;  ///< FFmpeg's name
    double yaw = 0;
    double pitch = 0;
    double roll = 0;
};

struct IccProfile {
    size_t size = 0;          ///< bytes
    std::string description;  ///< UTF-8; empty when there is none
};

struct VideoReport {
    int width = 0;  ///< pixels
    int height = 0;
    const char* pixelFormat = nullptr;  ///< the pipeline's name; null when unknown
    AVRational pixelAspect{0, 1};       ///< 0: unknown
    AVRational frameRate{0, 1};         ///< frames per second; 0: unknown, a still image, or it varies
    AVRational averageRate{0, 1};       ///< frames per second; 0: unknown or a still image
    const char* fieldOrder = nullptr;   ///< "progressive", or fields as coded and shown, as in "tb"
    const char* primaries = nullptr;    ///< null when unspecified, these five
    const char* transfer = nullptr;
    const char* matrix = nullptr;
    const char* range = nullptr;
    const char* chromaLocation = nullptr;
    std::optional<Conf::FrameCropping> crop;
    std::optional<int> rotation;  ///< degrees to turn clockwise for display
    bool mirrored = false;        ///< after the turn, left and right are to be swapped
    std::optional<MasteringDisplay> mastering;
    std::optional<ContentLight> light;
    std::optional<DolbyVision> dolbyVision;
    std::optional<Stereo3D> stereo3D;
    std::optional<Spherical> spherical;
    std::optional<IccProfile> icc;
};

/// For a track and its album: gains in dB, peaks as parts of full scale.
struct ReplayGain {
    std::optional<double> trackGain;
    std::optional<double> trackPeak;
    std::optional<double> albumGain;
    std::optional<double> albumPeak;
};

struct AudioReport {
    int sampleRate = 0;
    int channels = 0;
    std::string layout;  ///< empty when unknown
    const Conf::SampleFormatRecord* format = nullptr;
    int bits = 0;  ///< per sample of lossless sound; 0: unknown, or lossy
    std::optional<ReplayGain> replayGain;
};

struct Level {
    int number = 0;    ///< FFmpeg's
    std::string name;  ///< in the codec's own notation
};

struct StreamReport {
    int index = 0;
    std::string kind;       ///< FFmpeg's name of the media type; "other" for none of them
    std::string codecID;    ///< the pipeline's identifier; empty: not in its catalogue
    std::string codecName;  ///< FFmpeg's
    std::string tag;        ///< empty when there is none
    const char* profile = nullptr;
    std::optional<Level> level;
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

/// A service of a transport stream, or a variant of a playlist.
struct ProgramReport {
    int id = 0;
    int number = 0;
    std::optional<int> pmtPid;  ///< of its map in a transport stream
    std::optional<int> pcrPid;
    Texts metadata;
    std::vector<unsigned> streams;  ///< their indices

    /// "service_name" of the metadata; null when there is none.
    const std::string* GetName() const;
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
    std::optional<AVRational> animationRate;  ///< of an animation: ReadAnimationRate()
    std::optional<int64_t> duration;          ///< microseconds
    std::optional<int64_t> start;
    std::optional<int64_t> bitRate;
    Texts metadata;
    std::vector<ChapterReport> chapters;
    std::vector<StreamReport> streams;
    std::vector<ProgramReport> programs;
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

/// Adds what the container tells of a stream beside its parameters: light, depth, projection, loudness.
void DescribeSideData(const AVCodecParameters& parameters, StreamReport& report);
/// The level in the codec's own notation, as "5.1" for HEVC's 153; nothing when unknown.
std::optional<Level> DescribeLevel(const AVCodecParameters& parameters);
/// Bits of a sample before it was coded; 0: unknown, or the coding is lossy and there is no such number.
int LosslessBits(const AVCodecParameters& parameters);
/// "progressive", "tt", "bb", "tb" or "bt"; null when unknown.
const char* FieldOrderName(AVFieldOrder order);
/// Frames per second as the container or, where that has no time stamps, the stream declares it; 0/1:
/// unknown.
AVRational DeclaredRate(AVFormatContext* context, AVStream* stream);
/// Frames per second on average; 0/1: unknown.
AVRational AverageRate(const AVFormatContext& context, const AVStream& stream);
/// Whether each frame says for itself how long it is shown, and nothing else does: GIF and APNG.
bool IsAnimation(const AVFormatContext& context);
/// Reads an animation to its end, or to where it can't be read. Returns frames per second where all frames
/// but the last are shown equally long, else 0/1.
AVRational ReadAnimationRate(OpenedInput& input);

/// What Probe's text has to say about a stream's pictures and sound beyond format and size, a line for each.
std::vector<std::string> DetailLines(const StreamReport& stream);
/// What makes a file special in a few words, as "interlaced, Dolby Vision 8.1, 2 programs"; may be empty.
std::string Highlights(const FileReport& report);

/// A way to show files, on standard output. One half of it runs where a file is read, which may be a worker
/// process: what that half keeps in the object is lost for the other one, to which it sends records. The
/// calls of each half come in the order of declaration, those for a file once for each.
class ProbeOutput {
public:
    virtual ~ProbeOutput() = default;

    // where the file is read
    /// Before the packets of a file that could be opened.
    virtual void BeginPackets(const FileReport&) {}
    virtual void Packet(const PacketReport&) {}
    virtual void File(const FileReport&) = 0;

    // where the output is put together
    virtual void Begin() {}
    /// A record from the other half, about the file at `path`.
    virtual void Record(const std::string& path, std::string_view record);
    /// The file has ended, for a reason that the other half doesn't know of where there is one.
    virtual void EndFile(const std::string& path, const Failure* failure);
    virtual void End() {}

    /// Whether failures are shown there, so that standard error need not.
    virtual bool ShowsFailures() const { return false; }
};

/// @param packets  whether packets are shown one by one
std::unique_ptr<ProbeOutput> MakeTextOutput(bool packets);
/// One row for each file, when all are done.
std::unique_ptr<ProbeOutput> MakeTableOutput();
/// @param lines    a line for each file, instead of one document
/// @param details  failures with their place and call stack
std::unique_ptr<ProbeOutput> MakeJsonOutput(bool lines, bool details);

struct ProbeOptions {
    FileListOptions files;
    bool packets = false;
    bool count = false;
    bool json = false;
    bool jsonLines = false;
    bool table = false;
    InputOptions input;
    IsolationOptions isolation;
};

/// Carries the command out.
ExitCode RunProbe(const ProbeOptions& options, const Program& program);

}  // namespace Quorva::Tool
