// Decodes the first pictures of a file into numbered BMP files: decode FILE NAME [COUNT]
#include "OpenFile.h"

#include <cstdio>
#include <cstdlib>

using namespace Quorva;

int main(int argc, char** argv)
try {
    if (argc < 3)
        return std::fputs("usage: decode FILE NAME [COUNT]\n", stderr), 2;
    int wanted = argc > 3 ? std::atoi(argv[3]) : 3;
    OpenFile file(argv[1]);
    const int index = file.Best(AVMEDIA_TYPE_VIDEO);
    if (index < 0)
        return std::puts("no pictures"), 1;
    const Proc::SafeCodecContext decoder = file.OpenDecoder(index);
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    const Proc::SafeFrame frame;
    for (bool more = true; more && wanted > 0;) {
        more = file.Read(packet.get());
        if (more && packet->stream_index != index)
            continue;
        // Null drains the decoder: it may hold pictures back until the end.
        avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);
        while (wanted > 0 && avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            const int64_t time =
                Proc::stream_to_global(frame->best_effort_timestamp, file->streams[index]->time_base);
            std::printf("%dx%d at %.3f s\n", frame->width, frame->height, static_cast<double>(time) / 1e6);
            Proc::AVFrame_SaveToBmp(frame->width, frame->height, frame.get(), argv[2]);
            --wanted;
        }
    }
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
