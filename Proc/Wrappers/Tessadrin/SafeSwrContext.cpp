#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
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

int PlaneCount(const SampleInfo& info) { return info.format->planar ? info.layout->channels : 1; }

/// The planes of a buffer; null when one of them is missing, which FFmpeg would write or read without asking.
uint8_t* const* PlanesOf(const IDataAudio& audio, int count)
{
    const AVFrame& frame = *audio.GetFrame();
    const bool own = !frame.extended_data || frame.extended_data == frame.data;
    uint8_t* const* const planes = own ? frame.data : frame.extended_data;
    if (count < 1 || (own && count > AV_NUM_DATA_POINTERS))
        return nullptr;
    return std::find(planes, planes + count, nullptr) == planes + count ? planes : nullptr;
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
    Reset();  // set up again, a resampler keeps what a compensation or an option switched on
    const int result = swr_alloc_set_opts2(
        &context, &outLayout, SampleFormatFFMPEGFromQuorva(out.format->format), out.sampleRate, &inLayout,
        SampleFormatFFMPEGFromQuorva(in.format->format), in.sampleRate, 0, nullptr);
    if (result < 0)
        Throw<FilterException>(
            "Cannot create sample rate converter (AVERROR = {}). Input format: {}, output format: {}.",
            result, Describe(in), Describe(out));
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

    const int room = dst->GetSampleCount();
    const SampleInfo info = dst->GetSampleInfo();
    const int planeCount = PlaneCount(info);
    uint8_t* const* const planes = PlanesOf(*dst, planeCount);
    if (dstOffset < 0 || dstOffset > room || !planes)
        Throw<FilterException>("incorrect dst parameter.");

    std::array<uint8_t*, UINT8_MAX> output = {};  // a layout has no more channels
    const ptrdiff_t skip = ptrdiff_t{info.GetSampleSizePerPlane()} * dstOffset;
    std::transform(planes, planes + planeCount, output.begin(), [=](uint8_t* plane) { return plane + skip; });

    const uint8_t* const* input = nullptr;
    const int count = src ? src->GetSampleCount() : 0;
    if (count != 0)
        input = PlanesOf(*src, PlaneCount(src->GetSampleInfo()));
    else if (src)
        input = output.data();  // any list: nothing is read, but null would drain the resampler
    const bool readable = count == 0 || (count > 0 && input);
    const int written =
        readable ? swr_convert(context, output.data(), room - dstOffset, input, count) : AVERROR(EINVAL);
    if (written < 0)
        Throw<FilterException>("swr_convert() failed");
    return written;
}

int SafeSwrContext::GetDelay(int base) const
{
    RequredExist();
    // After a failed initialisation FFmpeg would divide by a rate of 0.
    return swr_is_initialized(context) ? static_cast<int>(swr_get_delay(context, base)) : 0;
}

void SafeSwrContext::SetCompensation(int sampleDelta, int compensationDistance)
{
    RequredExist();
    // A delta as large as its distance leaves no step through the input: FFmpeg takes it and divides by it.
    const bool possible = compensationDistance <= 0 || sampleDelta < compensationDistance;
    if (!possible || swr_set_compensation(context, sampleDelta, compensationDistance) < 0)
        Throw<FilterException>("swr_set_compensation() failed");
}

void SafeSwrContext::Reset() noexcept { swr_free(&context); }

void SafeSwrContext::RequredExist() const
{
    if (!context)
        Throw<FilterException>("Sample rate converter not initialized.");
}

}  // namespace Quorva::Proc
