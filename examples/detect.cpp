// Says what files are and how many packets are in them: detect FILE...
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <cstdio>

using namespace Quorva;

bool Show(const char* path)
{
    const auto stream = Core::DataInputFile::Create(path);
    const auto probe = Proc::MovieProbe::Create(stream, 64 * 1024);
    Proc::ProbeResult found;
    Proc::DetectFileInputFormat(*probe, found);
    const auto& demuxers = Proc::GetFFMPEGSupportedInputFormats();
    const auto demuxer = demuxers.find(found.format);
    std::printf("%s: %s, score %d", path, found.format.c_str(), found.score);
    if (demuxer == demuxers.end())
        return std::puts(", not read"), false;

    constexpr int size = 64 * 1024;
    AVIOContext* io = avio_alloc_context(static_cast<uint8_t*>(av_malloc(size)), size, 0, stream.get(),
                                         Proc::FFReadCallback, nullptr, Proc::FFSeekRCallback);
    AVFormatContext* context = avformat_alloc_context();
    context->pb = io;  // it stays ours
    int packets = 0, result = avformat_open_input(&context, path, demuxer->second, nullptr);
    AVPacket* packet = av_packet_alloc();
    for (; result >= 0 && (result = Proc::av_read_frame_fixed(context, packet)) >= 0; av_packet_unref(packet))
        ++packets;
    std::printf(", %d packets: %s\n", packets, Proc::GetErrorDescriptionFFMPEG(result).c_str());
    av_packet_free(&packet);
    avformat_close_input(&context);
    av_freep(&io->buffer);
    avio_context_free(&io);
    return result == AVERROR_EOF;
}

int main(int argc, char** argv)
{
    bool allWell = argc > 1;
    for (int i = 1; i < argc; ++i) {
        try {
            allWell &= Show(argv[i]);
        } catch (const std::exception& e) {  // FFmpeg's trouble and the file system's
            const std::string* text = boost::get_error_info<TagDescription>(e);
            std::printf("%s: %s\n", argv[i], text ? text->c_str() : e.what());
            allWell = false;
        }
    }
    return allWell ? 0 : 1;
}
