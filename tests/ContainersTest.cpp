// Every container FFmpeg can make is recognised, opened over a host stream and read to its end, packet for
// packet as FFmpeg reads it by itself.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tests/support/MadeMedia.h"
#include "tests/support/MediaFiles.h"

extern "C" {
#include <libavutil/adler32.h>
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ostream>
#include <vector>

namespace Quorva::Media {

/// Found by GoogleTest, which would print a row's bytes.
static void PrintTo(const MediaRow& row, std::ostream* stream) { *stream << row.file; }

}  // namespace Quorva::Media

namespace Quorva::Proc {
namespace {

namespace fs = std::filesystem;
using Conf::IFormatFile;

constexpr uint64_t probeSize = 64 * 1024;
constexpr int packetLimit = 20000;  ///< for files of others: some are damaged

ProbeResult Detect(const MovieProbe& probe)
{
    ProbeResult result;
    DetectFileInputFormat(probe, result);
    EXPECT_EQ(result.implementation, result.format.empty() ? "" : ImplNames::FFMPEG);
    return result;
}

std::unique_ptr<const MovieProbe> ProbeOf(const fs::path& path)
{
    return MovieProbe::Create(Core::DataInputFile::Create(ioPath(path.c_str())), probeSize);
}

int RefuseToOpen(AVFormatContext* context, AVIOContext**, const char* url, int, AVDictionary**)
{
    ADD_FAILURE() << context->iformat->name << " opens " << url << " by itself";
    return AVERROR(EPERM);
}

/// An opened input; over a host stream, or with FFmpeg's own file access.
class Opened {
public:
    static Opened OverStream(const fs::path& path, const AVInputFormat* demuxer)
    {
        Opened opened;
        opened.input = Core::DataInputFile::Create(ioPath(path.c_str()));
        constexpr int bufferSize = 32 * 1024;
        opened.io = avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 0,
                                       opened.input.get(), FFReadCallback, nullptr, FFSeekRCallback);
        opened.context = avformat_alloc_context();
        opened.context->pb = opened.io;
        opened.context->io_open = RefuseToOpen;
        opened.Open(path, demuxer);
        return opened;
    }
    static Opened ByFFmpeg(const fs::path& path, const AVInputFormat* demuxer)
    {
        Opened opened;
        opened.Open(path, demuxer);
        return opened;
    }
    Opened(Opened&& other) noexcept
        : result(other.result),
          context(std::exchange(other.context, nullptr)),
          io(std::exchange(other.io, nullptr)),
          input(std::move(other.input))
    {
    }
    ~Opened()
    {
        avformat_close_input(&context);
        if (io)
            av_freep(&io->buffer);
        avio_context_free(&io);
    }

    AVFormatContext* Get() const { return context; }

    int result = 0;  ///< of opening

private:
    Opened() = default;
    void Open(const fs::path& path, const AVInputFormat* demuxer)
    {
        result = avformat_open_input(&context, path.c_str(), demuxer, nullptr);
    }

    AVFormatContext* context = nullptr;
    AVIOContext* io = nullptr;  ///< used by `context`, freed after it
    boost::intrusive_ptr<Core::IDataInput> input;
};

/// What was read of one stream. Tests print it, so it says all that is compared.
struct StreamContent {
    int64_t packets = 0;
    int64_t bytes = 0;
    AVAdler checksum = 1;  ///< of the bytes and of where and when they stand

    bool operator==(const StreamContent&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const StreamContent& content)
    {
        return stream << content.packets << " packets, " << content.bytes << " bytes, " << std::hex
                      << content.checksum << std::dec;
    }
};

struct Content {
    std::vector<StreamContent> streams;
    int end = 0;  ///< why reading stopped

    bool operator==(const Content&) const = default;
};

template <class ReadFrame>
Content ReadAll(AVFormatContext* context, ReadFrame readFrame, int limit)
{
    Content content;
    AVPacket* packet = av_packet_alloc();
    for (int i = 0; i < limit && (content.end = readFrame(context, packet)) >= 0; ++i) {
        const auto index = static_cast<size_t>(packet->stream_index);
        content.streams.resize(std::max<size_t>(content.streams.size(), index + 1));
        StreamContent& stream = content.streams[index];
        ++stream.packets;
        stream.bytes += packet->size;
        const int64_t place[] = {packet->pts, packet->dts, packet->duration, packet->pos, packet->flags};
        stream.checksum = av_adler32_update(stream.checksum, packet->data, static_cast<size_t>(packet->size));
        stream.checksum =
            av_adler32_update(stream.checksum, reinterpret_cast<const uint8_t*>(place), sizeof place);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    return content;
}

/// The demuxer for a format over a host stream. "image2" looks for files by itself, so its likeness for
/// streams stands in: told the file's name, it chooses the codec by the extension in the same way.
const AVInputFormat* StreamDemuxer(const std::string& format)
{
    const auto& supported = GetFFMPEGSupportedInputFormats();
    const auto found = supported.find(format);
    if (found == supported.end())
        return nullptr;
    return found->second->flags & AVFMT_NOFILE && format == IFormatFile::FORMAT_IMAGE2
               ? supported.at(IFormatFile::FORMAT_IMAGE2PIPE)
               : found->second;
}

class Containers : public testing::TestWithParam<Media::MediaRow> {
protected:
    static void SetUpTestSuite()
    {
        av_log_set_level(AV_LOG_FATAL);  // encoders remark on small pictures
        setenv("SVT_LOG", "1", 0);       // and libsvtav1 does so on its own
    }
};

TEST_P(Containers, AreDetectedAndReadToTheEnd)
{
    const Media::MediaRow& row = GetParam();
    if (const std::string lacks = Media::Lacks(row); !lacks.empty())
        GTEST_SKIP() << row.file << ": this FFmpeg has " << lacks;
    const fs::path path = Media::MadeFile(row.file);
    const std::string format = row.format.Get();

    const auto probe = ProbeOf(path);
    EXPECT_EQ(Detect(*probe).format, format);
    MovieProbe unnamed;
    unnamed.buffer = probe->buffer;
    unnamed.size = probe->size;
    EXPECT_EQ(Detect(unnamed).format, row.bare.IsSet() ? row.bare.Get() : format);
    unnamed.fileName = probe->fileName;  // FFmpeg's own probes look at its end too
    EXPECT_EQ(Detect(unnamed).format, format) << "without an extension";

    const AVInputFormat* demuxer = StreamDemuxer(format);
    ASSERT_EQ(demuxer == nullptr, row.reading == Media::Reading::NotAtAll);
    if (!demuxer)
        return;
    const Opened opened = Opened::OverStream(path, demuxer);
    ASSERT_EQ(opened.result, 0) << GetErrorDescriptionFFMPEG(opened.result);
    ASSERT_GE(avformat_find_stream_info(opened.Get(), nullptr), 0);
    const std::string container = GetContainerFormat(opened.Get());
    EXPECT_EQ(container, row.container.IsSet() ? row.container.Get() : format);
    EXPECT_EQ(IsSingleImageContainer(container, opened.Get()), row.still);

    // FFmpeg by itself
    const Opened peer = Opened::ByFFmpeg(path, demuxer);
    ASSERT_EQ(peer.result, 0) << GetErrorDescriptionFFMPEG(peer.result);
    ASSERT_GE(avformat_find_stream_info(peer.Get(), nullptr), 0);

    const Content content = ReadAll(opened.Get(), av_read_frame_fixed, INT_MAX);
    const Content expected = ReadAll(peer.Get(), av_read_frame, INT_MAX);
    EXPECT_EQ(content.end, expected.end);
    EXPECT_EQ(content.end == AVERROR_EOF, row.reading == Media::Reading::ToTheEnd);
    EXPECT_THAT(content.streams, testing::ElementsAreArray(expected.streams));

    // and what was put in is there
    const auto packetsOf = [&](AVMediaType kind) {
        int64_t packets = 0;
        for (size_t i = 0; i < content.streams.size(); ++i)
            if (opened.Get()->streams[i]->codecpar->codec_type == kind)
                packets += content.streams[i].packets;
        return packets;
    };
    EXPECT_EQ(packetsOf(AVMEDIA_TYPE_VIDEO) > 0, row.video != nullptr);
    EXPECT_EQ(packetsOf(AVMEDIA_TYPE_AUDIO) > 0, row.audio != nullptr);
    EXPECT_EQ(packetsOf(AVMEDIA_TYPE_SUBTITLE) > 0, row.subtitle != nullptr);
}

std::string NameOf(const testing::TestParamInfo<Media::MediaRow>& row)
{
    std::string name = row.param.file;
    std::ranges::replace_if(name, [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Made, Containers, testing::ValuesIn(Media::MediaRows()), NameOf);

// Files that nobody made for this test, some of them broken: whatever FFmpeg makes of one by itself, it makes
// of it through the callbacks. Nothing is decoded, so a codec's trouble with damage is not met here.
TEST(ContainersOfOthers, ReadAlikeThroughTheCallbacks)
{
    SKIP_WITHOUT_MEDIA_FILES();
    av_log_set_level(AV_LOG_QUIET);
    int opens = 0;
    for (const auto& entry : fs::recursive_directory_iterator(MediaFolder() / "files")) {
        if (!entry.is_regular_file())
            continue;
        SCOPED_TRACE(entry.path());
        ProbeResult result;
        try {
            result = Detect(*ProbeOf(entry.path()));
        } catch (const ProcException&) {
            continue;  // a demuxer outside the catalogue
        }
        const AVInputFormat* demuxer = StreamDemuxer(result.format);
        if (!demuxer || demuxer->flags & AVFMT_NOFILE || result.format == "hls" || result.format == "sdp")
            continue;  // these name other files
        const Opened opened = Opened::OverStream(entry.path(), demuxer);
        const Opened peer = Opened::ByFFmpeg(entry.path(), demuxer);
        EXPECT_EQ(opened.result, peer.result);
        if (opened.result < 0 || peer.result < 0)
            continue;
        ++opens;
        const Content content = ReadAll(opened.Get(), av_read_frame, packetLimit);
        const Content expected = ReadAll(peer.Get(), av_read_frame, packetLimit);
        EXPECT_EQ(content.end, expected.end);
        EXPECT_THAT(content.streams, testing::ElementsAreArray(expected.streams));
    }
    EXPECT_GT(opens, 0);
}

}  // namespace
}  // namespace Quorva::Proc
