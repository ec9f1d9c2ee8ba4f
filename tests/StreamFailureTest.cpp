// A host stream that throws at any call below FFmpeg: through the bare callbacks and through the guarded
// ones.
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "host/RefCounting.h"
#include "tests/support/Allocation.h"
#include "tests/support/MemoryStreams.h"
#include "tests/support/Muxed.h"
#include "tests/support/Owned.h"

#include <gmock/gmock.h>
#include <malloc.h>
#include <boost/exception/get_error_info.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace Quorva::Proc {
namespace {

constexpr int bufferSize = 4096;

struct Container {
    const char* muxer;
    const char* encoder;
    int frames;
};
// Headers that are gone back to, indices at the end, and neither.
constexpr Container containers[] = {
    {"mpegts",   "mpeg2video", 20},
    {"ogg",      "flac",       20},
    {"avi",      "mpeg4",      12},
    {"matroska", "mpeg4",      12},
    {"mp4",      "mpeg4",      12},
    {"flv",      "flv",        12},
};

/// Throws at one call and ever after; counts them.
class Trap {
public:
    explicit Trap(int at) : at(at) {}
    void Step()
    {
        if (++calls >= at)
            throw Core::IOException() << TagDescription("the stream's own reason");
    }
    bool IsSprung() const { return calls >= at; }
    int GetCalls() const { return calls; }

private:
    const int at;
    int calls = 0;
};

class TrappedInput final : public RefCounted<Core::IDataInput> {
public:
    TrappedInput(const std::vector<uint8_t>& bytes, Trap& trap)
        : inner(Core::DataInputMemory::Create(bytes)), trap(trap)
    {
    }
    uint64_t Read(uint8_t* buffer, uint64_t size) override { return trap.Step(), inner->Read(buffer, size); }
    uint64_t GetSize() override { return trap.Step(), inner->GetSize(); }
    uint64_t MoveBy(int64_t offset) override { return trap.Step(), inner->MoveBy(offset); }
    void MoveTo(uint64_t position) override { trap.Step(), inner->MoveTo(position); }
    const std::string& GetName() const noexcept override { return inner->GetName(); }

private:
    boost::intrusive_ptr<Core::IDataInput> inner;
    Trap& trap;
};

class TrappedOutput final : public RefCounted<Core::IDataOutput> {
public:
    explicit TrappedOutput(Trap& trap) : trap(trap) {}
    void Write(const uint8_t* buffer, uint64_t size) override
    {
        EXPECT_FALSE(trap.IsSprung()) << "written behind a hole";
        trap.Step();
        inner->Write(buffer, size);
    }
    uint64_t GetSize() override { return trap.Step(), inner->GetSize(); }
    void SetSize(uint64_t size) override { trap.Step(), inner->SetSize(size); }
    uint64_t MoveBy(int64_t offset) override { return trap.Step(), inner->MoveBy(offset); }
    void MoveTo(uint64_t target) override { trap.Step(), inner->MoveTo(target); }

private:
    boost::intrusive_ptr<MemoryOutput> inner = MakeRefCounted<MemoryOutput>();
    Trap& trap;
};

struct FreeUnlessThrowing {
    void operator()(AVFormatContext* context) const
    {
        if (std::uncaught_exceptions() == 0)
            avformat_free_context(context);
    }
};
using Io = Owned<AVIOContext>;

Io BareInput(Core::IDataInput* stream)
{
    return Io(avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 0,
                                 AsOpaque(stream), FFReadCallback, nullptr, FFSeekRCallback));
}

Io BareOutput(Core::IDataOutput* stream)
{
    return Io(avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 1,
                                 AsOpaque(stream), nullptr, FFWriteCallback, FFSeekWCallback));
}

/// Everything that a reader does; what passes through FFmpeg passes through here.
/// @return  whether it got to the end
bool ReadAll(AVIOContext* io, std::vector<Owned<AVPacket>>* packets = nullptr,
             std::vector<AVCodecParameters*>* streams = nullptr)
{
    AVFormatContext* fresh = avformat_alloc_context();
    fresh->pb = io;
    try {
        if (avformat_open_input(&fresh, nullptr, nullptr, nullptr) < 0)
            return false;  // freed by FFmpeg
    } catch (...) {
        avformat_free_context(fresh);
        throw;
    }
    const Owned<AVFormatContext> context(fresh);
    avformat_find_stream_info(fresh, nullptr);
    for (;;) {
        Owned<AVPacket> packet(av_packet_alloc());
        const int result = av_read_frame(fresh, packet.get());
        if (result < 0) {
            for (unsigned i = 0; streams && i < fresh->nb_streams; ++i) {
                streams->push_back(avcodec_parameters_alloc());
                avcodec_parameters_copy(streams->back(), fresh->streams[i]->codecpar);
                streams->back()->codec_tag = 0;
            }
            return result == AVERROR_EOF;
        }
        av_packet_rescale_ts(packet.get(), fresh->streams[packet->stream_index]->time_base, {1, 1000});
        if (packets)
            packets->push_back(std::move(packet));
    }
}

/// A file's packets, for writing.
struct Source {
    explicit Source(const Container& container)
        : bytes(Mux(container.muxer, container.encoder, container.frames, 64'000))
    {
        const auto input = Core::DataInputMemory::Create(bytes);
        EXPECT_TRUE(ReadAll(BareInput(input.get()).get(), &packets, &streams));
        EXPECT_GT(packets.size(), 5u);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source()
    {
        for (AVCodecParameters* parameters : streams)
            avcodec_parameters_free(&parameters);
    }

    const std::vector<uint8_t> bytes;
    std::vector<Owned<AVPacket>> packets;
    std::vector<AVCodecParameters*> streams;
};

/// Everything that a writer does. The trailer is only reached when nothing was thrown before, and a muxer
/// that an exception passed through is not freed.
/// @return  whether FFmpeg was content throughout
bool WriteAll(AVIOContext* io, const char* muxer, const Source& source)
{
    AVFormatContext* fresh = nullptr;
    avformat_alloc_output_context2(&fresh, nullptr, muxer, nullptr);
    std::unique_ptr<AVFormatContext, FreeUnlessThrowing> context(fresh);
    context->pb = io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_FLUSH_PACKETS;
    for (const AVCodecParameters* parameters : source.streams) {
        AVStream* stream = CreateStream(fresh, nullptr);
        avcodec_parameters_copy(stream->codecpar, parameters);
        stream->time_base = {1, 1000};
    }
    if (avformat_write_header(fresh, nullptr) < 0)
        return false;  // and no trailer either
    bool content = true;
    for (const auto& original : source.packets) {
        const Owned<AVPacket> packet(av_packet_clone(original.get()));
        av_packet_rescale_ts(packet.get(), {1, 1000}, context->streams[packet->stream_index]->time_base);
        content = content && av_interleaved_write_frame(fresh, packet.get()) >= 0;
    }
    content = av_write_trailer(fresh) >= 0 && content;
    avio_flush(io);
    return content && io->error == 0;
}

size_t BytesInUse()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 0;  // the sanitizer's allocator doesn't tell
#else
    return mallinfo2().uordblks;
#endif
}

/// Runs `action` with traps at the first call, the second, and so on, until one isn't sprung.
/// @param action  what it throws, or keeps, must be the stream's
/// @return        the most bytes that one run lost
size_t SpringTraps(const std::function<void(Trap&)>& action)
{
    size_t worst = 0;
    int traps = 0;
    for (int at = 1;; ++at) {
        Trap trap(at);
        const size_t before = BytesInUse();
        try {
            action(trap);
            EXPECT_FALSE(trap.IsSprung()) << "the exception at call " << at << " was lost";
        } catch (const Core::IOException& e) {
            const std::string* text = boost::get_error_info<TagDescription>(e);
            EXPECT_TRUE(text && *text == "the stream's own reason");
        }
        const size_t after = BytesInUse();
        if (at > 1)  // the first has to do with FFmpeg's own first times
            worst = std::max(worst, after > before ? after - before : 0);
        if (!trap.IsSprung())
            break;
        ++traps;
    }
    EXPECT_GE(traps, 5);
    return worst;
}

TEST(BareStreams, WhatTheyThrowReachesTheCallerFromEveryCall)
{
#if defined(__SANITIZE_ADDRESS__)
    const __lsan::ScopedDisabler disabler;  // what FFmpeg's functions held is lost, see below
#endif
    for (const Container& container : containers) {
        SCOPED_TRACE(container.muxer);
        const Source source(container);
        const size_t reading = SpringTraps([&](Trap& trap) {
            const auto stream = MakeRefCounted<TrappedInput>(source.bytes, trap);
            ReadAll(BareInput(stream.get()).get());
        });
        const size_t writing = SpringTraps([&](Trap& trap) {
            const auto stream = MakeRefCounted<TrappedOutput>(trap);
            WriteAll(BareOutput(stream.get()).get(), container.muxer, source);
        });
        // As the header says.
        EXPECT_LE(reading, 300'000u);
        EXPECT_LE(writing, 400'000u);
    }
}

TEST(GuardedStreams, KeepWhatIsThrownAndLoseNothing)
{
    for (const Container& container : containers) {
        SCOPED_TRACE(container.muxer);
        const Source source(container);
        SpringTraps([&](Trap& trap) {
            StreamFailure failure;
            GuardedIO io(MakeRefCounted<TrappedInput>(source.bytes, trap), bufferSize, failure);
            const bool whole = ReadAll(io.Get());
            EXPECT_EQ(failure.IsSet(), trap.IsSprung());
            EXPECT_TRUE(whole || failure.IsSet());
            failure.Check();
        });
        SpringTraps([&](Trap& trap) {
            StreamFailure failure;
            GuardedIO io(MakeRefCounted<TrappedOutput>(trap), true, bufferSize, failure);
            const bool content = WriteAll(io.Get(), container.muxer, source);
            EXPECT_EQ(failure.IsSet(), trap.IsSprung());  // some muxers overlook that a seek failed
            EXPECT_TRUE(content || failure.IsSet());
            failure.Check();
        });
    }
}

TEST(GuardedStreams, OfOneFileShareTheFirstFailure)
{
    StreamFailure failure;
    failure.Check();
    Trap never(INT_MAX), at(1);
    GuardedIO sound(MakeRefCounted<TrappedOutput>(never), true, bufferSize, failure);
    GuardedIO broken(MakeRefCounted<TrappedOutput>(at), false, bufferSize, failure);
    EXPECT_EQ(&GuardedIO::Of(broken.Get()), &broken);
    EXPECT_TRUE(sound->seekable);
    EXPECT_FALSE(broken->seekable);
    for (GuardedIO* io : {&broken, &sound}) {
        avio_w8(io->Get(), 'x');
        avio_flush(io->Get());
        EXPECT_EQ((*io)->error, AVERROR(EIO));
    }
    EXPECT_EQ(never.GetCalls(), 0);
    EXPECT_THROW(failure.Check(), Core::IOException);
    EXPECT_THROW(failure.Check(), Core::IOException) << "it stays";
}

TEST(GuardedStreams, SayWhenThereIsNoMemory)
{
    StreamFailure failure;
    const auto stream = Core::DataInputMemory::Create({1, 2, 3});
    for (const size_t most : {size_t{bufferSize - 1}, size_t{64}}) {
        const AllocationLimit limit(most);
        EXPECT_THROW(GuardedIO(stream, bufferSize, failure), Core::MemoryException);
    }
}

}  // namespace
}  // namespace Quorva::Proc
