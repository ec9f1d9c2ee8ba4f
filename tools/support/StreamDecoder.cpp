#include "tools/support/StreamDecoder.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowNoMemory()
{
    Proc::Details::Raise(Core::MemoryException("Unable to allocate memory for decoding", 0));
}

/// The device whose memory decoders of an implementation fill; none for those that use the usual one.
AVHWDeviceType DeviceOf(const std::string& implementation)
{
    if (implementation == Proc::ImplNames::NVDEC)
        return AV_HWDEVICE_TYPE_CUDA;
    return implementation == Proc::ImplNames::DIRECTX ? AV_HWDEVICE_TYPE_D3D11VA : AV_HWDEVICE_TYPE_NONE;
}

}  // namespace

StreamDecoder::StreamDecoder(const AVCodec* codec, const AVStream& source, int threads,
                             const std::string& implementation)
    : context(codec)
{
    int result = avcodec_parameters_to_context(context.get(), source.codecpar);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("decoder {} refuses stream {}", codec->name, source.index), result);
    context->pkt_timebase = source.time_base;
    context->thread_count = threads;
    if (const AVHWDeviceType type = DeviceOf(implementation);
        type != AV_HWDEVICE_TYPE_NONE && source.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
        result = av_hwdevice_ctx_create(&context->hw_device_ctx, type, nullptr, nullptr, 0);
        if (result < 0)
            ThrowFFmpegFailure(fmt::format("implementation {} finds no device of type {}", implementation,
                                           av_hwdevice_get_type_name(type)),
                               result);
    }
    result = avcodec_open2(context.get(), codec, nullptr);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("decoder {} refuses stream {}", codec->name, source.index), result);
}

void StreamDecoder::Decode(const AVPacket* packet, const TakeFrame& take)
{
    const int result = avcodec_send_packet(context.get(), packet);
    if (result < 0 && result != AVERROR_EOF)
        Count(result);  // what else comes may be whole
    Receive(take);
}

void StreamDecoder::Receive(const TakeFrame& take)
{
    // Decoders give frames after an error too; one that gives errors alone has an end all the same.
    for (int errors = 0; errors < 100;) {
        const int result = avcodec_receive_frame(context.get(), frame.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        if (result < 0) {
            Count(result);
            ++errors;
            continue;
        }
        errors = 0;
        if (frame->hw_frames_ctx) {
            const Proc::SafeFrame copy;
            int transferred = av_hwframe_transfer_data(copy.get(), frame.get(), 0);
            if (transferred >= 0)
                transferred = av_frame_copy_props(copy.get(), frame.get());
            if (transferred < 0)
                ThrowFFmpegFailure("pictures can't be fetched from the device", transferred);
            take(*copy.get());
        } else {
            take(*frame.get());
        }
        av_frame_unref(frame.get());
    }
}

void StreamDecoder::Count(int result)
{
    if (result == AVERROR(ENOMEM))
        ThrowNoMemory();
    if (damaged++ == 0)
        firstResult = result;
}

Proc::SafeCodecContext OpenSubtitleDecoder(const AVCodec& codec, const AVStream& source)
{
    Proc::SafeCodecContext context(&codec);
    int result = avcodec_parameters_to_context(context.get(), source.codecpar);
    context->pkt_timebase = source.time_base;
    if (result >= 0)
        result = avcodec_open2(context.get(), &codec, nullptr);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("decoder {} refuses stream {}", codec.name, source.index), result);
    return context;
}

}  // namespace Quorva::Tool
