#include "Proc/Wrappers/Tessadrin/SafeTypes.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"

#include <algorithm>

namespace Quorva::Proc {

using Details::Throw;

namespace {

constexpr size_t mpeg1FrameRates = 8;  // what its header can express; FFmpeg lists more for non-standard use

/// The encoder's own option that follows `last`, the first for null; null behind the last.
const AVOption* NextOption(const AVCodec& codec, const AVOption* last)
{
    if (!codec.priv_class)
        return nullptr;
    return av_opt_next(&codec.priv_class, last);  // an object is whatever begins with a pointer to its class
}

}  // namespace

std::vector<AVRational> SafeEncoderCodec::GetSupportedFrameRates() const
{
    const void* list = nullptr;
    if (avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_FRAME_RATE, 0, &list, nullptr) != 0)
        Throw<ProcException>("Unable to get supported frame rates");

    std::vector<AVRational> rates;
    for (auto rate = static_cast<const AVRational*>(list); rate && (rate->num || rate->den); ++rate)
        rates.push_back(*rate);
    if (codec->id == AV_CODEC_ID_MPEG1VIDEO && rates.size() > mpeg1FrameRates)
        rates.resize(mpeg1FrameRates);
    return rates;
}

std::optional<AVRational> SafeEncoderCodec::GetSupportedFrameRate(const AVRational& rate) const
{
    std::vector<AVRational> rates = GetSupportedFrameRates();
    if (rates.empty())
        return std::nullopt;
    rates.push_back({0, 0});
    const AVRational nearest = rates[av_find_nearest_q_idx(rate, rates.data())];
    if (nearest.den == 0)
        Throw<ProcException>("Unable to select supported frame rate");
    return nearest;
}

std::vector<AVPixelFormat> SafeEncoderCodec::GetSupportedPixelFormats() const
{
    const void* list = nullptr;
    if (avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_PIX_FORMAT, 0, &list, nullptr) != 0)
        Throw<ProcException>("Unable to get supported pixel formats");

    std::vector<AVPixelFormat> formats;
    for (auto format = static_cast<const AVPixelFormat*>(list); format && *format != AV_PIX_FMT_NONE;
         ++format)
        formats.push_back(*format);
    return formats;
}

std::vector<PixFmt> SafeEncoderCodec::GetSupportedPixFmts() const
{
    return PixelFormatsQuorvaFromFFMPEG(GetSupportedPixelFormats());
}

NameSet SafeEncoderCodec::GetSupportedOptions() const
{
    NameSet names;
    for (const AVOption* option = nullptr; (option = NextOption(*codec, option));)
        if (option->type != AV_OPT_TYPE_CONST)
            names.insert(option->name);
    return names;
}

NameSet SafeEncoderCodec::GetOptionValues(std::string_view name) const
{
    const AVOption* option = NextOption(*codec, nullptr);
    while (option && option->name != name)
        option = NextOption(*codec, option);
    NameSet values;
    if (!option || !option->unit)
        return values;
    const std::string_view unit = option->unit;
    while ((option = NextOption(*codec, option)) && option->type == AV_OPT_TYPE_CONST && option->unit &&
           option->unit == unit)
        values.insert(option->name);
    return values;
}

bool SafeEncoderCodec::IsTwoPassEncodingAllowed() const
{
    static const NameSet encoders = {"libaom-av1", "libvpx",     "libvpx-vp9", "libvvenc", "libx264",
                                     "mjpeg",      "mpeg1video", "mpeg2video", "mpeg4"};
    return codec->name && encoders.contains(std::string_view(codec->name));
}

}  // namespace Quorva::Proc
