#include "tests/support/Muxed.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "tests/support/MemoryStreams.h"
#include "tests/support/Owned.h"

#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace {

int Checked(int result, const std::string& step)
{
    if (result < 0)
        throw std::runtime_error("can't " + step + ": " + std::to_string(result));
    return result;
}

template <class T>
T* Checked(T* pointer, const std::string& step)
{
    Checked(pointer ? 0 : AVERROR(ENOMEM), step);
    return pointer;
}

template <class T>
T FirstSupported(const AVCodecContext& context, AVCodecConfig config, T otherwise)
{
    const void* values = nullptr;
    Checked(avcodec_get_supported_config(&context, nullptr, config, 0, &values, nullptr), "ask the encoder");
    return values ? *static_cast<const T*>(values) : otherwise;
}

void Configure(AVCodecContext& encoder, int64_t bitRate)
{
    encoder.bit_rate = bitRate;
    encoder.flags |= AV_CODEC_FLAG_BITEXACT;
    encoder.thread_count = 1;
    encoder.strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    if (encoder.codec->type == AVMEDIA_TYPE_VIDEO) {
        encoder.width = encoder.height = 64;
        encoder.time_base = {1, 25};
        encoder.framerate = {25, 1};
        encoder.pix_fmt = FirstSupported(encoder, AV_CODEC_CONFIG_PIX_FORMAT, AV_PIX_FMT_YUV420P);
    } else {
        encoder.sample_rate = 48000;
        encoder.time_base = {1, 48000};
        encoder.sample_fmt = FirstSupported(encoder, AV_CODEC_CONFIG_SAMPLE_FORMAT, AV_SAMPLE_FMT_S16);
        av_channel_layout_default(&encoder.ch_layout, 2);
    }
}

Owned<AVFrame> MakeFrame(const AVCodecContext& encoder)
{
    Owned<AVFrame> frame(Checked(av_frame_alloc(), "make a frame"));
    if (encoder.codec->type == AVMEDIA_TYPE_VIDEO) {
        frame->format = encoder.pix_fmt;
        frame->width = encoder.width;
        frame->height = encoder.height;
    } else {
        frame->format = encoder.sample_fmt;
        frame->sample_rate = encoder.sample_rate;
        frame->nb_samples = encoder.frame_size ? encoder.frame_size : 1024;
        Checked(av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout), "copy a layout");
    }
    Checked(av_frame_get_buffer(frame.get(), 0), "make a frame");
    return frame;
}

void Fill(AVFrame& frame, std::minstd_rand& noise)
{
    Checked(av_frame_make_writable(&frame), "write to a frame");
    const bool floats =
        frame.width == 0 &&
        av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format)) == AV_SAMPLE_FMT_FLT;
    for (int i = 0; i < AV_NUM_DATA_POINTERS && frame.buf[i]; ++i)
        for (size_t at = 0; at + 4 <= frame.buf[i]->size; at += 4) {
            const auto value = static_cast<uint32_t>(noise());
            if (floats)
                *reinterpret_cast<float*>(frame.buf[i]->data + at) =
                    static_cast<float>(value % 2048) / 1024 - 1;
            else
                *reinterpret_cast<uint32_t*>(frame.buf[i]->data + at) = value;
        }
}

/// Gives the encoder one frame, or null for the end, and the muxer what comes out.
void Encode(AVFormatContext& muxer, AVCodecContext& encoder, AVPacket& packet, const AVFrame* frame)
{
    Checked(avcodec_send_frame(&encoder, frame), "encode");
    int result = 0;
    while ((result = avcodec_receive_packet(&encoder, &packet)) >= 0) {
        av_packet_rescale_ts(&packet, encoder.time_base, muxer.streams[0]->time_base);
        Checked(av_interleaved_write_frame(&muxer, &packet), "write a packet");
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF)
        Checked(result, "encode");
}

}  // namespace

std::vector<uint8_t> Mux(const char* muxerName, const char* encoderName, int frames, int64_t bitRate)
{
    using namespace Quorva;
    const auto output = MakeRefCounted<MemoryOutput>();
    constexpr int bufferSize = 16 * 1024;
    const Owned<AVIOContext> io(
        Checked(avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 1,
                                   Proc::AsOpaque(output.get()), nullptr, Proc::FFWriteCallback,
                                   Proc::FFSeekWCallback),
                "make an output"));

    AVFormatContext* context = nullptr;
    Checked(avformat_alloc_output_context2(&context, nullptr, muxerName, nullptr), "find the muxer");
    const Owned<AVFormatContext> muxer(context);
    muxer->pb = io.get();
    muxer->flags |= AVFMT_FLAG_BITEXACT;

    const AVCodec* const codec = Checked(avcodec_find_encoder_by_name(encoderName), "find the encoder");
    const Owned<AVCodecContext> encoder(Checked(avcodec_alloc_context3(codec), "make the encoder"));
    Configure(*encoder, bitRate);
    if (muxer->oformat->flags & AVFMT_GLOBALHEADER)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Checked(avcodec_open2(encoder.get(), codec, nullptr), "open the encoder");

    AVStream* const stream = Checked(avformat_new_stream(muxer.get(), nullptr), "make a stream");
    stream->time_base = encoder->time_base;
    Checked(avcodec_parameters_from_context(stream->codecpar, encoder.get()), "describe the stream");
    Checked(avformat_write_header(muxer.get(), nullptr), "write the header");

    const Owned<AVFrame> frame(MakeFrame(*encoder));
    const Owned<AVPacket> packet(Checked(av_packet_alloc(), "make a packet"));
    std::minstd_rand noise;
    const int64_t step = frame->nb_samples ? frame->nb_samples : 1;
    for (int i = 0; i < frames; ++i) {
        Fill(*frame, noise);
        frame->pts = i * step;
        Encode(*muxer, *encoder, *packet, frame.get());
    }
    Encode(*muxer, *encoder, *packet, nullptr);
    Checked(av_write_trailer(muxer.get()), "write the trailer");
    avio_flush(io.get());
    return output->bytes;
}
