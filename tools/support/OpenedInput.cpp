#include "tools/support/OpenedInput.h"

#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/ReportProgress.h"
#include "tools/isolation/Worker.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/OffsetInput.h"
#include "tools/support/SpooledInput.h"

#include <fmt/format.h>
#include <boost/exception/get_error_info.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace Quorva::Tool {

namespace {

/// The one demuxer that opens files by name and still reads from a given stream, when told the right name.
constexpr std::string_view NAMED_IMAGES = "image2";

/// The one that reads playlists.
constexpr std::string_view PLAYLISTS = "hls";

/// Demuxers that open further files on their own, past io_open: none of these would be opened.
constexpr std::string_view selfOpeningDemuxers[] = {"concat", "sdp", "vobsub"};

/// Demuxers that go by positions from the start of the file: a tag ahead of it displaces everything. All
/// others read on behind an ID3v2 tag, and have its texts and its cover.
constexpr std::string_view positionalDemuxers[] = {
    "aa", "dsf", "ico", "image2", "mov,mp4,m4a,3gp,3g2,mj2", "mxf",
};

constexpr uint64_t longestLook = 1 << 20;  // bytes that detection examines at most

class Dictionary {
public:
    Dictionary() = default;
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;
    ~Dictionary() { av_dict_free(&entries); }
    AVDictionary** operator&() noexcept { return &entries; }

private:
    AVDictionary* entries = nullptr;
};

[[noreturn]] void ThrowUnknownFormat(const std::string& reason)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(fmt::format("not a known media format ({})", reason))
                         << TagFailureKind(FailureKind::UnknownFormat));
}

[[noreturn]] void ThrowUnrecognised(const DetectedInput& input)
{
    const uint64_t examined = std::min(input.size - input.mediaStart, longestLook);
    ThrowUnknownFormat(input.mediaStart > 0
                           ? fmt::format("first {} bytes behind the tag match nothing", examined)
                           : fmt::format("first {} bytes match nothing", examined));
}

[[noreturn]] void ThrowUnsupported(const std::string& format)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(fmt::format("recognised as {}, which is not read here", format))
                         << TagFailureKind(FailureKind::Unsupported));
}

[[noreturn]] void ThrowNoMemory(const char* what, uint64_t size)
{
    Proc::Details::Raise(Core::MemoryException(fmt::format("Unable to allocate memory for {}", what), size));
}

[[noreturn]] void ThrowEndless(uint64_t packets)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(
                                fmt::format("gave up after {} packets, more than it has bytes", packets))
                         << TagFailureKind(FailureKind::InvalidData));
}

[[noreturn]] void ThrowLosses(const ReadLosses& losses)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(fmt::format("{} bytes can't be read and count as zeros: {}",
                                                       losses.bytes, losses.reason))
                         << TagFailureKind(FailureKind::Unreadable));
}

/// @param count  files that were not opened
[[noreturn]] void ThrowNotOpened(const Failure& first, size_t count)
{
    // The file that is the subject of the message was found.
    const FailureKind kind = first.kind == FailureKind::NotFound ? FailureKind::Unreadable : first.kind;
    const std::string others = count == 1 ? "" : fmt::format(" (and {} more)", count - 1);
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(first.description + others) << TagFailureKind(kind));
}

[[noreturn]] void ThrowSelfOpening(const std::string& format)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(fmt::format("recognised as {}, which is not read here: FFmpeg "
                                                       "would open the files that it names unchecked",
                                                       format))
                         << TagFailureKind(FailureKind::Unsupported));
}

boost::intrusive_ptr<Core::IDataInput> OpenPlain(Descriptor descriptor, const std::string& path)
{
    try {
        return Core::DataInputFile::Create(descriptor.Release(), path == "-" ? "/dev/stdin" : path);
    } catch (Core::IOException& e) {
        e << TagFailureKind(FailureKind::Unreadable);
        throw;
    }
}

/// Whether the tag that the stream begins with is one that FFmpeg skips.
bool BeginsWithID3(Core::IDataInput& stream)
{
    uint8_t start[3] = {};
    stream.MoveTo(0);
    return stream.Read(start, sizeof start) == sizeof start && std::memcmp(start, "ID3", sizeof start) == 0;
}

/// Detects the format of what there is of the stream.
void Detect(DetectedInput& input)
{
    input.size = input.stream->GetSize();
    if (input.size == 0)
        ThrowUnknownFormat("the file is empty");
    ReadLosses losses;
    input.result = {};
    try {
        input.mediaStart =
            Proc::DetectInputFormat(MakeRefCounted<SteadyInput>(input.stream, losses), input.result);
    } catch (Proc::ProcException& e) {  // FFmpeg knows a demuxer for it that the pipeline doesn't
        e << TagDescription("not a known media format (FFmpeg's demuxer for it is not in the catalogue)")
          << TagFailureKind(FailureKind::UnknownFormat);
        throw;
    }
    if (input.result.format.empty() && losses.bytes > 0)
        ThrowLosses(losses);
}

/// The local path that `url` stands for; empty for a protocol.
std::string_view LocalPath(std::string_view url)
{
    if (url.starts_with("file:"))
        return url.substr(5);
    return url.substr(0, url.find('/')).find(':') == std::string_view::npos ? url : std::string_view();
}

[[noreturn]] void ThrowNetwork(std::string_view url)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(fmt::format(
                                "'{}' was not opened: only files are, never network addresses", url))
                         << TagFailureKind(FailureKind::Unsupported));
}

}  // namespace

DetectedInput DetectInput(const std::string& path)
{
    Descriptor descriptor = RequestInput(path);
    std::optional<SpooledInput> spooled;
    if (SpooledInput::IsNeeded(descriptor.Get()))
        spooled.emplace(std::move(descriptor), RequestSpool(path), path == "-" ? "standard input " : "");
    DetectedInput input{path, spooled ? spooled->Open() : OpenPlain(std::move(descriptor), path), 0, {}, 0};
    if (spooled)
        spooled->Fill(longestLook);
    Detect(input);
    if (spooled && input.mediaStart > 0) {
        spooled->Fill(input.mediaStart + longestLook);
        Detect(input);
    }
    if (input.mediaStart >= input.size)
        input.mediaStart = 0;  // a tag that claims more than there is
    if (input.result.format.empty())
        ThrowUnrecognised(input);
    if (spooled) {  // not before something is known to read it: a device may be endless
        spooled->FillAll();
        input.size = input.stream->GetSize();
    }
    return input;
}

std::unique_ptr<Proc::GuardedIO> OpenedInput::MakeSource(boost::intrusive_ptr<Core::IDataInput> stream)
{
    stream->MoveTo(0);
    bytes += stream->GetSize();
    return std::make_unique<Proc::GuardedIO>(MakeRefCounted<SteadyInput>(std::move(stream), losses),
                                             Proc::GuardedIO::SIZE, failure, Interruption::GetCancellation());
}

/// Of a playlist, what FFmpeg is to see of it; any other stream as it is.
boost::intrusive_ptr<Core::IDataInput> OpenedInput::ForDemuxer(boost::intrusive_ptr<Core::IDataInput> stream,
                                                               bool nested)
{
    if (!readsPlaylists || !Playlists::IsPlaylist(*stream))
        return stream;
    return playlists.Read(*stream, nested);
}

/// Keeps why a file was not opened, where it is the input that names it: other demuxers than that of
/// playlists try names that they make up.
void OpenedInput::KeepRefusal(const std::string& url, const Failure& refusal)
{
    if (!readsPlaylists || notOpened.size() >= 1000 || !notOpened.insert(url).second)
        return;
    if (notOpened.size() == 1)
        firstRefusal = refusal;
}

int OpenedInput::OpenFurther(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                             AVDictionary**)
{
    OpenedInput& self = *static_cast<OpenedInput*>(context->opaque);
    if (flags & AVIO_FLAG_WRITE)
        return AVERROR(EACCES);
    try {
        const std::string path(LocalPath(url));
        if (path.empty())
            ThrowNetwork(url);
        auto stream = Core::DataInputFile::Create(RequestFurther(self.further, path).Release(), path);
        *io = self.MakeSource(self.ForDemuxer(std::move(stream), true)).release()->Get();
        return 0;
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);
    } catch (const Core::MemoryException&) {
        return AVERROR(ENOMEM);
    } catch (...) {
        self.KeepRefusal(url, CurrentFailure({}));
        return AVERROR(ENOENT);
    }
}

int OpenedInput::CloseFurther(AVFormatContext*, AVIOContext* io)
{
    if (io)
        delete &Proc::GuardedIO::Of(io);
    return 0;
}

OpenedInput::OpenedInput(const DetectedInput& input) : further(input.path), stream(input.stream)
{
    const auto& supported = Proc::GetFFMPEGSupportedInputFormats();
    const auto found = supported.find(input.result.format);
    if (found == supported.end())
        ThrowUnsupported(input.result.format);
    const AVInputFormat& demuxer = *found->second;
    if (demuxer.flags & AVFMT_NOFILE && demuxer.name != NAMED_IMAGES)
        ThrowUnsupported(input.result.format);
    if (std::ranges::find(selfOpeningDemuxers, demuxer.name) != std::end(selfOpeningDemuxers))
        ThrowSelfOpening(input.result.format);

    const bool displaced = input.mediaStart > 0 && (std::ranges::find(positionalDemuxers, demuxer.name) !=
                                                        std::end(positionalDemuxers) ||
                                                    !BeginsWithID3(*input.stream));
    const int opened = Open(input, demuxer, displaced ? input.mediaStart : 0);
    if (opened < 0) {
        CheckStreams();  // which may be the reason
        if (Interruption::IsWanted())
            ThrowFFmpegFailure("not read to its end", AVERROR_EXIT);
        ThrowFFmpegFailure(fmt::format("can't be opened as {}", input.result.format), opened);
    }
    // A failure leaves the streams less well described, not unreadable.
    const int informed = avformat_find_stream_info(context.get(), nullptr);
    if (Interruption::IsWanted())
        ThrowFFmpegFailure("not read to its end", AVERROR_EXIT);
    if (informed < 0)
        streamsWarning = "stream information is incomplete: " + FFmpegReason(informed);
}

/// @param start  position at which the file begins for the demuxer
int OpenedInput::Open(const DetectedInput& input, const AVInputFormat& demuxer, uint64_t start)
{
    readsPlaylists = demuxer.name == PLAYLISTS;
    const auto stream = start > 0 ? MakeRefCounted<OffsetInput>(input.stream, start) : input.stream;
    file = MakeSource(ForDemuxer(stream, false));
    AVFormatContext* fresh = avformat_alloc_context();
    if (!fresh)
        ThrowNoMemory("the format context", sizeof(AVFormatContext));
    fresh->pb = file->Get();
    fresh->opaque = this;
    fresh->io_open = OpenFurther;
    fresh->io_close2 = CloseFurther;
    fresh->interrupt_callback = Interruption::GetCancellation().GetInterruptCallback();
    Dictionary options;
    // Some demuxers open further files on their own, past io_open: no protocol is called that.
    Proc::PutMetadata(&options, "protocol_whitelist", "none");
    if (demuxer.name == NAMED_IMAGES)
        Proc::PutMetadata(&options, "pattern_type", "none");  // a '%' or '*' in a name is just that
    // The name lets recognisers look at the file again and playlists find their pieces.
    const int opened = avformat_open_input(&fresh, input.stream->GetName().c_str(), &demuxer, &options);
    context.reset(fresh);  // null when that failed
    return opened;
}

OpenedInput::~OpenedInput() = default;

std::string OpenedInput::GetContainer() const
{
    constexpr uint64_t firstBytes = 128;  // FFmpeg's name for the file may be none that can be opened here
    return Proc::GetContainerFormat(context.get(), *Proc::MovieProbe::Create(stream, firstBytes));
}

void OpenedInput::CheckStreams() const
{
    failure.Check();
    if (losses.bytes > 0)
        ThrowLosses(losses);
    if (!notOpened.empty())
        ThrowNotOpened(firstRefusal, notOpened.size());
}

bool OpenedInput::ReadPacket(AVPacket* packet)
{
    const int result = Proc::av_read_frame_fixed(context.get(), packet);
    if (result >= 0) {
        ReportProgress();
        // Every packet stands for at least one byte of the input; the allowance is for tiny ones.
        if (++packets > bytes + 1024)
            ThrowEndless(packets);
        return true;
    }
    if (result == AVERROR_EOF || result == AVERROR_EXIT)
        return false;
    failure.Check();
    ThrowFFmpegFailure(fmt::format("reading stopped after {} packet{}", packets, packets == 1 ? "" : "s"),
                       result);
}

}  // namespace Quorva::Tool
