// Copies of planes beside memcpy, conversions beside the same FFmpeg calls by hand.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"
#include "host/Media.h"
#include "host/ProcessingSupport.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstring>
#include <memory>
#include <vector>

namespace Benchmarks {

using namespace Quorva;

namespace {

/// Memory for planes, one after the other, so that a copy may find its plane in no cache.
struct Planes {
    Planes(int64_t stride, int64_t rows, int count)
        : size(static_cast<size_t>(stride * rows)), bytes(size * static_cast<size_t>(count), 1), count(count)
    {
    }
    uint8_t* Next() { return bytes.data() + size * static_cast<size_t>(at++ % count); }

    size_t size;
    std::vector<uint8_t> bytes;
    int count;
    int at = 0;
};

void AddCopy(const std::string& name, int width, int height, int64_t stride, int planes, bool rowWise,
             double limit)
{
    const auto source = std::make_shared<Planes>(stride, height, planes);
    const auto target = std::make_shared<Planes>(stride, height, planes);
    Add({.name = fmt::format("copy of a plane, {}", name),
         .peer = rowWise ? "memcpy of each row" : "one memcpy of the same bytes",
         .ours =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i) {
                     uint8_t* const to = target->Next();
                     Proc::CopyPlane(
                         Proc::Details::PlaneTemplate<true>(source->Next(), stride, width, height, 0, false),
                         Proc::Details::PlaneTemplate<false>(to, stride, width, height, 0, false));
                     benchmark::DoNotOptimize(*to);
                 }
             },
         .peers =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i) {
                     uint8_t* const to = target->Next();
                     const uint8_t* const from = source->Next();
                     if (rowWise)
                         for (int y = 0; y < height; ++y)
                             std::memcpy(to + y * stride, from + y * stride, static_cast<size_t>(width));
                     else
                         std::memcpy(to, from, static_cast<size_t>(width) * static_cast<size_t>(height));
                     benchmark::DoNotOptimize(*to);
                 }
             },
         .limit = limit,
         .seconds = 0.01});
}

std::shared_ptr<AVFrame> NewPicture(AVPixelFormat format, int width, int height)
{
    std::shared_ptr<AVFrame> frame(av_frame_alloc(), [](AVFrame* f) { av_frame_free(&f); });
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        throw std::bad_alloc();
    for (const AVBufferRef* buffer : frame->buf)
        for (size_t i = 0; buffer && i < buffer->size; ++i)
            buffer->data[i] = static_cast<uint8_t>(i * 7 % 4);  // within ten bits, too
    return frame;
}

void AddScaling(const std::string& name, AVPixelFormat from, AVPixelFormat to, int width, int height,
                double limit)
{
    const auto source = NewPicture(from, 1280, 720);
    const auto target = NewPicture(to, width, height);
    const auto ours = std::make_shared<Proc::SafeSwsContext>(Proc::SwsCtxParams{
        {1280,  720,    from},
        {width, height, to  },
        SWS_BICUBIC
    });
    const std::shared_ptr<SwsContext> peers(
        sws_getContext(1280, 720, from, width, height, to, SWS_BICUBIC, nullptr, nullptr, nullptr),
        sws_freeContext);
    Add({.name = "scaling, " + name,
         .peer = "sws_scale",
         .ours =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     ours->Scale(Proc::SwsSource(*source), Proc::SwsDestination(*target));
             },
         .peers =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     sws_scale(peers.get(), source->data, source->linesize, 0, 720, target->data,
                               target->linesize);
             },
         .limit = limit,
         .seconds = 0.02});
}

void AddResampling()
{
    const Conf::SampleInfo in(44100, Conf::SampleFormats::S16, Conf::ChannelLayout::Stereo);
    const Conf::SampleInfo out(48000, Conf::SampleFormats::FLTP, Conf::ChannelLayout::Stereo);
    constexpr int samples = 1024, room = 2048;
    const boost::intrusive_ptr<Proc::IDataAudio> source = MakeRefCounted<Proc::AudioData>(in, samples);
    const boost::intrusive_ptr<Proc::IDataAudio> target = MakeRefCounted<Proc::AudioData>(out, room);
    const auto ours = std::make_shared<Proc::SafeSwrContext>(in, out);
    SwrContext* fresh = nullptr;
    const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    swr_alloc_set_opts2(&fresh, &stereo, AV_SAMPLE_FMT_FLTP, 48000, &stereo, AV_SAMPLE_FMT_S16, 44100, 0,
                        nullptr);
    swr_init(fresh);
    const std::shared_ptr<SwrContext> peers(fresh, [](SwrContext* c) { swr_free(&c); });
    Add({.name = "resampling of 1024 samples",
         .peer = "swr_convert",
         .ours =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     ours->Convert(source, target, 0);
             },
         .peers =
             [=](int64_t times) {
                 for (int64_t i = 0; i < times; ++i)
                     swr_convert(peers.get(), target->GetFrame()->extended_data, room,
                                 const_cast<const uint8_t**>(source->GetFrame()->extended_data), samples);
             },
         .limit = 1.05,
         .seconds = 0.01});
}

}  // namespace

void AddPictures()
{
    // Warm: one plane, which stays in the caches. Cold: 24 of them, 200 MB.
    AddCopy("1080p, contiguous, warm", 1920, 1080, 1920, 1, false, 1.05);
    AddCopy("1080p, padded, warm", 1920, 1080, 2048, 1, true, 1.05);
    AddCopy("4K, contiguous, cold", 3840, 2160, 3840, 24, false, 1.05);
    AddCopy("4K, contiguous, cold, by rows", 3840, 2160, 3840, 24, true, 0.85);
    AddCopy("4K, padded, cold", 3840, 2160, 4096, 24, true, 1.05);
    AddScaling("720p to 360p", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 640, 360, 1.05);
    AddScaling("720p to RGB", AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA, 1280, 720, 1.05);
    AddScaling("720p of ten bits to RGB, samples checked", AV_PIX_FMT_YUV420P10, AV_PIX_FMT_BGRA, 1280, 720,
               1.25);
    AddResampling();
}

}  // namespace Benchmarks
