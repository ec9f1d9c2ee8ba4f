#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <array>
#include <cerrno>
#include <cstdint>

namespace Quorva::Proc {

using Conf::SampleInfo;
using Details::Throw;

namespace {

std::string Describe(const SampleInfo& info)
{
    return fmt::format("layout = {} sample rate = {} sample format = {}", *info.layout->name, info.sampleRate,
                       info.format->name);
}

uint8_t** PlanesOf(const IDataAudio& audio)
{
    AVFrame& frame = *audio.GetFrame();
    return frame.extended_data ? frame.extended_data : frame.data;
}

}  // namespace

SafeSwrContext::SafeSwrContext(const SampleInfo& in, const SampleInfo& out)
{
    SafeSwrContext fresh;
    fresh.Init(in, out);
    Swap(fresh);
}

void SafeSwrContext::Init(const SampleInfo& in, const SampleInfo& out)
{
    const AVChannelLayout inLayout = AVChannelLayoutFromQuorva(in.layout->layout);
    const AVChannelLayout outLayout = AVChannelLayoutFromQuorva(out.layout->layout);
    // What a compensation switched on would outlive the second set-up: start from FFmpeg's defaults.
    if (context) {
        swr_close(context);
        av_opt_set_defaults(context);
    }
    const int result = swr_alloc_set_opts2(
        &context, &outLayout, SampleFormatFFMPEGFromQuorva(out.format->format), out.sampleRate, &inLayout,
        SampleFormatFFMPEGFromQuorva(in.format->format), in.sampleRate, 0, nullptr);
    if (result < 0)
        Throw<FilterException>(
            "Cannot create sample rate converter (AVERROR = {}). Input format: {}, output format: {}.", result,
            Describe(in), Describe(out));
    ApplyChanges();
}

void SafeSwrContext::ApplyChanges() const
{
    RequredExist();
    if (swr_init(context) < 0)
        Throw<FilterException>("Cannot initialize context.");
}

int SafeSwrContext::Convert(const boost::intrusive_ptr<IDataAudio>& src,
                            const boost::intrusive_ptr<IDataAudio>& dst, int dstOffset)
{
    if (!dst)
        Throw<FilterException>("incorrect dst parameter.");
    RequredExist();

    const SampleInfo info = dst->GetSampleInfo();
    const size_t planes = info.format->planar ? info.layout->channels : 1;
    const int room = dst->GetSampleCount() - dstOffset;
    if (dstOffset < 0 || room < 0)
        Throw<FilterException>("incorrect dst parameter.");

    // FFmpeg writes through a null plane without asking.
    std::array<uint8_t*, UINT8_MAX + 1> output = {};  // a layout has at most 255 channels
    uint8_t* const* given = PlanesOf(*dst);
    const ptrdiff_t skip = static_cast<ptrdiff_t>(info.GetSampleSizePerPlane()) * dstOffset;
    for (size_t plane = 0; plane < planes; ++plane) {
        if (!given[plane])
            Throw<FilterException>("incorrect dst parameter.");
        output[plane] = given[plane] + skip;
    }

    const uint8_t* const* input = src ? PlanesOf(*src) : nullptr;
    const int count = src ? src->GetSampleCount() : 0;
    const bool readable = count == 0 || (count > 0 && input[0]);
    const int written =
        readable ? swr_convert(context, output.data(), room, input, count) : AVERROR(EINVAL);
    if (written < 0)
        Throw<FilterException>("swr_convert() failed");
    return written;
}

int SafeSwrContext::GetDelay(int base) const
{
    RequredExist();
    return static_cast<int>(swr_get_delay(context, base));
}

void SafeSwrContext::SetCompensation(int sampleDelta, int compensationDistance)
{
    RequredExist();
    if (swr_set_compensation(context, sampleDelta, compensationDistance) < 0)
        Throw<FilterException>("swr_set_compensation() failed");
}

void SafeSwrContext::Reset() noexcept { swr_free(&context); }

void SafeSwrContext::RequredExist() const
{
    if (!context)
        Throw<FilterException>("Sample rate converter not initialized.");
}

}  // namespace Quorva::Proc
