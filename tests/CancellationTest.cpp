#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "tests/support/MemoryStreams.h"
#include "tests/support/Muxed.h"
#include "tests/support/Owned.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <string_view>

namespace Quorva::Proc {
namespace {

constexpr int bufferSize = 4096;
constinit Cancellation cancelledBySignal;  // which also shows that no initialisation at run time is needed

/// The same bytes over and over: its length is one that no reader gets to.
class RepeatingInput final : public RefCounted<Core::IDataInput> {
public:
    RepeatingInput(std::vector<uint8_t> bytes, std::function<void()> beforeRead)
        : bytes(std::move(bytes)), beforeRead(std::move(beforeRead))
    {
    }
    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        beforeRead();
        for (uint64_t i = 0; i < size; ++i)
            buffer[i] = bytes[position++ % bytes.size()];
        return size;
    }
    uint64_t GetSize() override { return uint64_t{1} << 60; }
    uint64_t MoveBy(int64_t offset) override { return position += static_cast<uint64_t>(offset); }
    void MoveTo(uint64_t target) override { position = target; }
    const std::string& GetName() const noexcept override { return name; }

private:
    const std::vector<uint8_t> bytes;
    const std::function<void()> beforeRead;
    const std::string name;
    uint64_t position = 0;
};

/// A live playlist: its one piece is read, and then FFmpeg polls the list for more, and sleeps in between.
struct LivePlaylist {
    explicit LivePlaylist(const Cancellation& cancellation) : context(avformat_alloc_context())
    {
        list = Open("live.m3u8");
        context->pb = list->Get();
        context->opaque = this;
        context->io_open = [](AVFormatContext* self, AVIOContext** io, const char* url, int, AVDictionary**) {
            *io = static_cast<LivePlaylist*>(self->opaque)->Open(url).release()->Get();
            return 0;
        };
        context->io_close2 = [](AVFormatContext*, AVIOContext* io) {
            delete &GuardedIO::Of(io);
            return 0;
        };
        context->interrupt_callback = cancellation.GetInterruptCallback();
    }
    ~LivePlaylist() { avformat_close_input(&context); }

    std::unique_ptr<GuardedIO> Open(std::string_view url)
    {
        static constexpr std::string_view text = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\npiece.ts\n";
        const bool isList = url.ends_with("m3u8");
        if (isList && ++opened > 1)
            onPoll();
        return std::make_unique<GuardedIO>(
            Core::DataInputMemory::Create(isList ? std::vector<uint8_t>(text.begin(), text.end())
                                                 : Mux("mpegts", "mpeg2video", 20, 400'000)),
            bufferSize, failure);
    }

    /// Packets up to `result`, which the last call gave.
    int ReadToTheEnd(int& result)
    {
        result = avformat_open_input(&context, "live.m3u8", av_find_input_format("hls"), nullptr);
        const Owned<AVPacket> packet(av_packet_alloc());
        int packets = 0;
        for (; result >= 0 && (result = av_read_frame_fixed(context, packet.get())) >= 0; ++packets)
            av_packet_unref(packet.get());
        return packets;
    }

    StreamFailure failure;
    std::function<void()> onPoll = [] {};
    int opened = 0;
    std::unique_ptr<GuardedIO> list;
    AVFormatContext* context;
};

TEST(Cancellation, EndsThePollingOfALivePlaylist)
{
    Cancellation cancellation;
    const struct {
        const char* name;
        const Cancellation& used;
        std::function<void()> onPoll;
    } rows[] = {
        {"flag",     cancellation,      [&] { cancellation.RequestStop(); }                             },
        {"deadline", cancellation,      [&] { cancellation.SetDeadline(std::chrono::milliseconds(20)); }},
        {"signal",   cancelledBySignal, [] { std::raise(SIGUSR1); }                                     },
    };
    std::signal(SIGUSR1, [](int) { cancelledBySignal.RequestStop(); });
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        cancellation.Reset();
        LivePlaylist playlist(row.used);
        playlist.onPoll = row.onPoll;
        int result = 0;
        EXPECT_EQ(playlist.ReadToTheEnd(result), 20) << "what was there is read first";
        EXPECT_EQ(result, AVERROR_EXIT);
    }
    std::signal(SIGUSR1, SIG_DFL);
}

TEST(Cancellation, EndsAnEndlessStreamAndDisturbsNoOther)
{
    const struct {
        const char* muxer;
        const char* encoder;
    } rows[] = {
        {"mpegts", "mpeg2video"},
        {"mp3",    "libmp3lame"},
        {"flac",   "flac"      },
        {"ogg",    "flac"      },
        {"avi",    "mpeg4"     },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.muxer);
        const std::vector<uint8_t> bytes = Mux(row.muxer, row.encoder, 50, 400'000);
        const auto read = [&](boost::intrusive_ptr<Core::IDataInput> stream, const Cancellation& used,
                              int& packets) {
            StreamFailure failure;
            const GuardedIO io(std::move(stream), bufferSize, failure, used);
            AVFormatContext* opening = avformat_alloc_context();
            opening->pb = io.Get();
            int result = avformat_open_input(&opening, "", av_find_input_format(row.muxer), nullptr);
            if (result < 0)
                return result;
            const Owned<AVFormatContext> context(opening);
            const Owned<AVPacket> packet(av_packet_alloc());
            for (; (result = av_read_frame_fixed(context.get(), packet.get())) >= 0; ++packets)
                av_packet_unref(packet.get());
            failure.Check();
            return result;
        };
        Cancellation cancellation;
        int reads = 0, packets = 0;
        const auto endless = MakeRefCounted<RepeatingInput>(bytes, [&] {
            if (++reads == 40)
                cancellation.RequestStop();
        });
        EXPECT_EQ(read(endless, cancellation, packets), AVERROR_EXIT);
        EXPECT_EQ(reads, 40) << "nothing reaches the stream afterwards";

        packets = 0;
        cancellation.Reset();
        cancellation.SetDeadline(std::chrono::hours(1));
        EXPECT_EQ(read(Core::DataInputMemory::Create(bytes), cancellation, packets), AVERROR_EOF);
        EXPECT_GE(packets, 48);  // codecs hold some back
    }
}

TEST(Cancellation, EndsWritingWithoutAFailureOfTheStream)
{
    Cancellation cancellation;
    StreamFailure failure;
    const auto stream = MakeRefCounted<MemoryOutput>();
    const GuardedIO io(stream, true, bufferSize, failure, cancellation);
    const auto write = [&] {
        avio_w8(io.Get(), 'x');
        avio_flush(io.Get());
        return io->error;
    };
    EXPECT_EQ(write(), 0);
    cancellation.SetDeadline(Cancellation::Clock::now() - std::chrono::seconds(1));
    EXPECT_EQ(write(), AVERROR_EXIT);
    EXPECT_EQ(avio_seek(io.Get(), 100, SEEK_SET), AVERROR_EXIT);
    EXPECT_EQ(stream->bytes.size(), 1u);
    EXPECT_FALSE(failure.IsSet());

    cancellation.ClearDeadline();
    EXPECT_FALSE(cancellation.IsStopRequested());
    cancellation.SetDeadline(Cancellation::Clock::duration::max());
    EXPECT_FALSE(cancellation.IsStopRequested()) << "no overflow";
}

}  // namespace
}  // namespace Quorva::Proc
