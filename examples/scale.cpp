// Scales a file's first picture and saves it: scale FILE WIDTH NAME
#include "OpenFile.h"

#include <cstdio>
#include <cstdlib>

using namespace Quorva;

/// The picture in another size, as RGB; its shape stays.
Proc::SafeFrame Scaled(const AVFrame& picture, int width)
{
    const int height = static_cast<int>(Proc::AvRescale(picture.height, width, picture.width));
    Proc::SwsCtxParams params;
    params.src = {picture.width, picture.height, static_cast<AVPixelFormat>(picture.format),
                  static_cast<Conf::YCbCrMatrix>(picture.colorspace), nullptr};
    params.dst = {width, height, AV_PIX_FMT_RGB24, Conf::YCbCrMatrix::RGB, nullptr};
    params.flags = SWS_LANCZOS | SWS_ACCURATE_RND;
    const Proc::SafeSwsContext scaler(params);
    Proc::SafeFrame scaled({}, AV_PIX_FMT_RGB24, width, height, 1, 1);
    if (scaler.Scale(Proc::SwsSource(picture), Proc::SwsDestination(scaled)) < 0)
        Fail("can't scale " + params.src.GetDescription());
    return scaled;
}

int main(int argc, char** argv)
try {
    if (argc != 4 || std::atoi(argv[2]) <= 0)
        return std::fputs("usage: scale FILE WIDTH NAME\n", stderr), 2;
    OpenFile file(argv[1]);
    const int index = file.Best(AVMEDIA_TYPE_VIDEO);
    if (index < 0)
        return std::puts("no pictures"), 1;
    const Proc::SafeCodecContext decoder = file.OpenDecoder(index);
    const std::unique_ptr<AVPacket, Close> packet(av_packet_alloc());
    const Proc::SafeFrame frame;
    for (bool more = true; more;) {
        more = file.Read(packet.get());
        if (more && packet->stream_index != index)
            continue;
        avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);
        if (avcodec_receive_frame(decoder.get(), frame.get()) < 0)
            continue;
        const Proc::SafeFrame scaled = Scaled(*frame.get(), std::atoi(argv[2]));
        Proc::AVFrame_SaveToBmp(scaled->width, scaled->height, scaled.get(), argv[3]);
        std::printf("%dx%d to %dx%d\n", frame->width, frame->height, scaled->width, scaled->height);
        return 0;
    }
    std::puts("no picture could be decoded");
    return 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
