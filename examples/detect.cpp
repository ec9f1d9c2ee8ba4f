// Says what files are and how many packets are in them: detect FILE...
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <cstdio>
#include <exception>
#include <memory>

using namespace Quorva;

struct Release {
    void operator()(AVIOContext* io) const
    {
        av_freep(&io->buffer);  // FFmpeg may have replaced the one it was given
        avio_context_free(&io);
    }
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

bool Show(const char* path)
{
    const auto stream = Core::DataInputFile::Create(path);
    Proc::ProbeResult found;
    Proc::DetectInputFormat(stream, found);
    std::printf("%s: '%s', score %d", path, found.format.c_str(), found.score);
    const auto& demuxers = Proc::GetFFMPEGSupportedInputFormats();
    const auto demuxer = demuxers.find(found.format);
    if (demuxer == demuxers.end())
        return std::puts(", which is not read"), false;

    constexpr int size = 64 * 1024;
    std::unique_ptr<AVIOContext, Release> io(avio_alloc_context(static_cast<uint8_t*>(av_malloc(size)), size,
                                                                0, stream.get(), Proc::FFReadCallback,
                                                                nullptr, Proc::FFSeekRCallback));
    AVFormatContext* fresh = avformat_alloc_context();
    fresh->pb = io.get();
    fresh->io_open = [](auto...) { return AVERROR(EPERM); };  // what playlists name stays closed
    int result = avformat_open_input(&fresh, path, demuxer->second, nullptr);
    std::unique_ptr<AVFormatContext, Release> context(fresh);  // empty when opening failed
    std::unique_ptr<AVPacket, Release> packet(av_packet_alloc());
    int packets = 0;
    while (result >= 0 && (result = Proc::av_read_frame_fixed(context.get(), packet.get())) >= 0) {
        ++packets;
        av_packet_unref(packet.get());
    }
    std::printf(", %d packets: %s\n", packets, Proc::GetErrorDescriptionFFMPEG(result).c_str());
    return result == AVERROR_EOF;
}

int main(int argc, char** argv)
{
    bool allWell = argc > 1;
    for (int i = 1; i < argc; ++i) {
        try {
            allWell &= Show(argv[i]);
        } catch (const std::exception& e) {
            std::printf("%s: %s\n", argv[i], e.what());
            allWell = false;
        }
    }
    return allWell ? 0 : 1;
}
