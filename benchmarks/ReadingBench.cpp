// Files read through the callbacks, beside FFmpeg's own access to them.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"
#include "host/FoundationIO.h"
#include "tests/support/Muxed.h"
#include "tests/support/Owned.h"
#include "tests/support/TemporaryFolder.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Benchmarks {

using namespace Quorva;

namespace {

constexpr int64_t fileSize = 200'000'000;  // bytes

/// A file opened by FFmpeg, over the callbacks or, with no buffer size, by itself.
struct Opened {
    Opened(const std::string& path, int bufferSize)
    {
        AVFormatContext* fresh = avformat_alloc_context();
        if (bufferSize) {
            input = Core::DataInputFile::Create(ioPath(path));
            Open(bufferSize, fresh);
        }
        if (avformat_open_input(&fresh, path.c_str(), nullptr, nullptr) < 0)
            throw std::runtime_error("can't open " + path);
        context.reset(fresh);
    }
    /// Over bytes in memory.
    explicit Opened(std::vector<uint8_t> bytes) : input(Core::DataInputMemory::Create(std::move(bytes)))
    {
        AVFormatContext* fresh = avformat_alloc_context();
        Open(32 * 1024, fresh);
        if (avformat_open_input(&fresh, "", nullptr, nullptr) < 0)
            throw std::runtime_error("can't open what is in memory");
        context.reset(fresh);
    }

    boost::intrusive_ptr<Core::IDataInput> input;
    Owned<AVIOContext> io;
    Owned<AVFormatContext> context;
    Owned<AVPacket> packet{av_packet_alloc()};

private:
    void Open(int bufferSize, AVFormatContext* fresh)
    {
        io.reset(avio_alloc_context(static_cast<uint8_t*>(av_malloc(static_cast<size_t>(bufferSize))),
                                    bufferSize, 0, input.get(), Proc::FFReadCallback, nullptr,
                                    Proc::FFSeekRCallback));
        fresh->pb = io.get();
    }
};

/// Writes the packets of a short file again and again, until the file is long.
void MakeLong(const std::string& path, const char* muxer, const std::vector<uint8_t>& shortFile)
{
    Opened source(shortFile);
    if (avformat_find_stream_info(source.context.get(), nullptr) < 0)
        throw std::runtime_error("nothing known about the short file");
    std::vector<Owned<AVPacket>> packets;
    while (av_read_frame(source.context.get(), source.packet.get()) >= 0) {
        packets.emplace_back(av_packet_clone(source.packet.get()));
        av_packet_unref(source.packet.get());
    }
    AVFormatContext* target = nullptr;
    if (avformat_alloc_output_context2(&target, nullptr, muxer, path.c_str()) < 0 ||
        avio_open(&target->pb, path.c_str(), AVIO_FLAG_WRITE) < 0)
        throw std::runtime_error("can't write " + path);
    AVStream* const stream = avformat_new_stream(target, nullptr);
    avcodec_parameters_copy(stream->codecpar, source.context->streams[0]->codecpar);
    stream->codecpar->codec_tag = 0;
    stream->time_base = {1, 25};
    if (avformat_write_header(target, nullptr) < 0)
        throw std::runtime_error("can't write " + path);
    for (int64_t number = 0; avio_tell(target->pb) < fileSize; ++number) {
        const Owned<AVPacket> packet(
            av_packet_clone(packets[static_cast<size_t>(number) % packets.size()].get()));
        packet->pts = packet->dts = number;
        packet->duration = 1;
        packet->pos = -1;
        av_packet_rescale_ts(packet.get(), {1, 25}, stream->time_base);
        if (av_write_frame(target, packet.get()) < 0)
            throw std::runtime_error("can't write " + path);
    }
    av_write_trailer(target);
    avio_closep(&target->pb);
    avformat_free_context(target);
}

Work ReadAll(const std::string& path, int bufferSize)
{
    return [=](int64_t times) {
        for (int64_t i = 0; i < times; ++i) {
            const Opened file(path, bufferSize);
            int64_t packets = 0;
            for (; av_read_frame(file.context.get(), file.packet.get()) >= 0; ++packets)
                av_packet_unref(file.packet.get());
            if (packets < 1000)
                throw std::runtime_error("too little in " + path);
        }
    };
}

/// Reads packets of a file in memory with one of the two functions; starts again where it ends.
template <class Function>
Work ReadPackets(const std::vector<uint8_t>& bytes, Function function)
{
    const auto file = std::make_shared<Opened>(bytes);
    return [=](int64_t times) {
        av_seek_frame(file->context.get(), -1, 0, AVSEEK_FLAG_BYTE);  // the same packets each time
        for (int64_t i = 0; i < times; ++i) {
            if (function(file->context.get(), file->packet.get()) < 0)
                av_seek_frame(file->context.get(), -1, 0, AVSEEK_FLAG_BYTE);
            av_packet_unref(file->packet.get());
        }
    };
}

}  // namespace

void AddReading()
{
    static const TemporaryFolder folder;
    const struct {
        const char* muxer;
        const char* encoder;
        double limit;  ///< with 256 KiB
    } rows[] = {
        {"mpegts",   "mpeg2video", 0.95},
        {"matroska", "mpeg4",      0.70},
        {"mp4",      "mpeg4",      0.85}
    };
    for (const auto& row : rows) {
        const std::string path = folder.At(row.muxer);
        MakeLong(path, row.muxer, Mux(row.muxer, row.encoder, 100, 20'000'000));
        for (const int size : {32, 256})
            Add({.name = fmt::format("demuxing 200 MB of {}, buffer of {} KiB", row.muxer, size),
                 .peer = "FFmpeg's own access",
                 .ours = ReadAll(path, size * 1024),
                 .peers = ReadAll(path, 0),
                 .limit = size == 32 ? 1.02 : row.limit,
                 .times = 1});
    }
    const std::vector<uint8_t> wave = Mux("wav", "pcm_s16le", 2000, 0);
    Add({.name = "av_read_frame_fixed, good input",
         .peer = "av_read_frame",
         .ours = ReadPackets(wave, Proc::av_read_frame_fixed),
         .peers = ReadPackets(wave, av_read_frame),
         .countInstructions = true});
}

}  // namespace Benchmarks
