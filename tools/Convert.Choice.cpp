#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "host/Property.h"
#include "tools/Convert.Encoders.h"
#include "tools/support/Suggest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <span>

namespace Quorva::Tool {

namespace {

using Proc::ImplNames;

const std::vector<std::string>& Implementations()
{
    static const std::vector<std::string> names = {
        ImplNames::FFMPEG, ImplNames::FFMPEG_FDK, ImplNames::NVDEC, ImplNames::DIRECTX,
        ImplNames::QSV,    ImplNames::NVENC,      ImplNames::AMF};
    return names;
}

bool IsPlain(const std::string& implementation)
{
    return implementation == ImplNames::FFMPEG || implementation == ImplNames::FFMPEG_FDK;
}

void CheckImplementation(const std::string& name)
{
    if (std::ranges::find(Implementations(), name) == Implementations().end())
        ThrowUsage(fmt::format("no implementation '{}'{}; there are {}", name,
                               DidYouMean(name, Implementations()), fmt::join(Implementations(), ", ")));
}

/// FFmpeg's list of what an encoder takes; empty when it takes anything.
template <class T>
std::vector<T> Supported(const Proc::SafeEncoderCodec& encoder, AVCodecConfig config)
{
    const void* list = nullptr;
    int count = 0;
    if (avcodec_get_supported_config(nullptr, encoder.Get(), config, 0, &list, &count) < 0 || !list)
        return {};  // a question that doesn't fit the encoder: nothing is restricted
    const T* const first = static_cast<const T*>(list);
    return std::vector<T>(first, first + count);
}

constexpr struct {
    AVPixelFormat limited;
    AVPixelFormat full;
} rangeTwins[] = {
    {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P},
    {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P},
    {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVJ444P},
    {AV_PIX_FMT_YUV440P, AV_PIX_FMT_YUVJ440P},
    {AV_PIX_FMT_YUV411P, AV_PIX_FMT_YUVJ411P},
};

bool HasTwin(AVPixelFormat format)
{
    return std::ranges::any_of(rangeTwins, [&](const auto& twin) { return twin.limited == format; });
}

std::string NameOf(AVPixelFormat format)
{
    const char* name = av_get_pix_fmt_name(format);
    return name ? name : std::to_string(format);
}

std::vector<std::string> NamesOf(const std::vector<PixFmt>& formats)
{
    std::vector<std::string> names;
    for (const PixFmt format : formats)
        names.push_back(NameOf(static_cast<AVPixelFormat>(format)));
    return names;
}

AVSampleFormat ChooseSampleFormat(const Proc::SafeEncoderCodec& encoder, AVSampleFormat source)
{
    const auto formats = Supported<AVSampleFormat>(encoder, AV_CODEC_CONFIG_SAMPLE_FORMAT);
    const auto contains = [&](AVSampleFormat format) {
        return std::ranges::find(formats, format) != formats.end();
    };
    if (formats.empty() || contains(source))
        return source;
    if (const AVSampleFormat twin = av_get_alt_sample_fmt(source, !av_sample_fmt_is_planar(source));
        contains(twin))
        return twin;
    // The narrowest that loses nothing, or else the widest.
    const auto width = [](AVSampleFormat format) { return av_get_bytes_per_sample(format); };
    AVSampleFormat best = formats.front();
    for (const AVSampleFormat format : formats)
        if (width(best) < width(source) ? width(format) > width(best)
                                        : width(format) >= width(source) && width(format) < width(best))
            best = format;
    return best;
}

int NearestRate(const std::vector<int>& rates, int rate)
{
    if (rates.empty() || std::ranges::find(rates, rate) != rates.end())
        return rate;
    // The next above, so that nothing is lost, or else the highest.
    int best = 0;
    for (const int candidate : rates)
        if (best < rate ? candidate > best : candidate >= rate && candidate < best)
            best = candidate;
    return best;
}

const Conf::LayoutRecord& LayoutNamed(const std::string& text)
{
    int count = 0;
    const char* const end = text.data() + text.size();
    if (const auto [rest, error] = std::from_chars(text.data(), end, count);
        error == std::errc() && rest == end) {
        const Conf::LayoutRecord* record = Conf::LayoutRecord::Find(count);
        if (record->layout == Conf::ChannelLayout::None)
            ThrowUsage(fmt::format("no layout for {} channels; there are 1 to 8", count));
        return *record;
    }
    std::vector<std::string> names;
    for (int i = 1; i <= static_cast<int>(Conf::ChannelLayout::StereoDownmix); ++i)
        if (const Conf::LayoutRecord* record =
                Conf::LayoutRecord::Find(static_cast<Conf::ChannelLayout>(i))) {
            if (*record->name == text)
                return *record;
            names.push_back(*record->name);
        }
    ThrowUsage(fmt::format("no channel layout '{}'{}", text, DidYouMean(text, names)));
}

bool TakesLayout(const Proc::SafeEncoderCodec& encoder, const Conf::LayoutRecord& layout)
{
    const auto layouts = Supported<AVChannelLayout>(encoder, AV_CODEC_CONFIG_CHANNEL_LAYOUT);
    const AVChannelLayout wanted = Proc::AVChannelLayoutFromQuorva(layout.layout);
    return layouts.empty() || std::ranges::any_of(layouts, [&](const AVChannelLayout& candidate) {
               return av_channel_layout_compare(&candidate, &wanted) == 0;
           });
}

/// What the encoder takes instead of `layout`: as many channels elsewhere, or else fewer, the most it takes.
const Conf::LayoutRecord* NearestLayout(const Proc::SafeEncoderCodec& encoder,
                                        const Conf::LayoutRecord& layout)
{
    if (TakesLayout(encoder, layout))
        return &layout;
    const Conf::LayoutRecord* best = nullptr;
    for (const AVChannelLayout& candidate :
         Supported<AVChannelLayout>(encoder, AV_CODEC_CONFIG_CHANNEL_LAYOUT)) {
        if (candidate.order != AV_CHANNEL_ORDER_NATIVE ||
            !Proc::IsSupportedAVChannelLayoutMask(candidate.u.mask))
            continue;
        const auto* record = Conf::LayoutRecord::Find(Proc::QuorvaFromAVChannelLayout(candidate));
        if (record->channels <= layout.channels && (!best || record->channels > best->channels))
            best = record;
    }
    if (!best)
        ThrowRefused(
            fmt::format("encoder {} takes no channel layout near {}", encoder.Get()->name, *layout.name));
    return best;
}

/// Names that all encoders have, as "g" and "bf".
std::vector<std::string> CommonOptions()
{
    std::vector<std::string> names;
    const AVClass* const commonClass = avcodec_get_class();
    for (const AVOption* option = nullptr; (option = av_opt_next(&commonClass, option));)
        if (option->type != AV_OPT_TYPE_CONST && option->flags & AV_OPT_FLAG_ENCODING_PARAM)
            names.push_back(option->name);
    return names;
}

/// @throws UsageError  the option takes one of several names, and `value` is none of them, nor a number or a
///                     sum of them
void CheckValue(const Proc::SafeEncoderCodec& encoder, const std::string& name, const std::string& value)
{
    const Proc::NameSet known = encoder.GetOptionValues(name);
    const bool isNumber = !value.empty() && value.find_first_not_of("+-.0123456789") == std::string::npos;
    if (known.empty() || isNumber || known.contains(value))
        return;
    for (size_t begin = 0; begin < value.size();) {
        begin = value.find_first_not_of("+-", begin);
        if (begin == std::string::npos)
            break;
        const size_t end = std::min(value.find_first_of("+-", begin), value.size());
        const std::string part = value.substr(begin, end - begin);
        if (!known.contains(part)) {
            std::vector<std::string> names(known.begin(), known.end());
            std::ranges::sort(names);
            ThrowUsage(fmt::format("option '{}' of encoder {} doesn't take '{}'{}; it takes {}", name,
                                   encoder.Get()->name, part, DidYouMean(part, names),
                                   fmt::join(names, ", ")));
        }
        begin = end;
    }
}

}  // namespace

bool IsFullRange(AVPixelFormat format, AVColorRange range)
{
    return range == AVCOL_RANGE_JPEG ||
           std::ranges::any_of(rangeTwins, [&](const auto& twin) { return twin.full == format; });
}

AVPixelFormat WithRange(AVPixelFormat format, bool fullRange)
{
    for (const auto& twin : rangeTwins)
        if (format == twin.limited || format == twin.full)
            return fullRange ? twin.full : twin.limited;
    return format;
}

Proc::SafeEncoderCodec ChooseEncoder(AVCodecID codec, const std::string& implementation)
{
    const std::string name = CodecName(codec);
    if (!implementation.empty()) {
        CheckImplementation(implementation);
        // Other implementations give FFmpeg's default where they name no encoder: not what was asked for.
        const auto named = Proc::GetCustomFFEncodersList();
        const bool isNamed = std::ranges::find(named, std::pair(codec, implementation)) != named.end();
        if (!isNamed && !IsPlain(implementation))
            ThrowRefused(fmt::format("implementation {} has no encoder for {}", implementation, name));
        if (!Proc::FindEncoder(codec, implementation))
            ThrowRefused(fmt::format("this FFmpeg lacks the encoder of implementation {} for {}",
                                     implementation, name));
        return {codec, implementation};
    }
    // The plain implementation may name an encoder that this FFmpeg lacks; the next one may not.
    for (const std::string& candidate : {ImplNames::FFMPEG, ImplNames::FFMPEG_FDK})
        if (Proc::FindEncoder(codec, candidate))
            return {codec, candidate};
    ThrowRefused(fmt::format("this FFmpeg lacks an encoder for {}", name));
}

const AVCodec* ChooseDecoder(const AVStream& stream, const std::string& implementation)
{
    if (!implementation.empty())
        CheckImplementation(implementation);
    const std::string& chosen = implementation.empty() ? ImplNames::FFMPEG : implementation;
    const AVCodec* decoder = Proc::FindDecoder(stream.codecpar->codec_id, chosen);
    if (!decoder)
        ThrowRefused(fmt::format("this FFmpeg lacks the decoder of implementation {} for {} (stream {})",
                                 chosen, CodecName(stream.codecpar->codec_id), stream.index));
    return decoder;
}

AVCodecID CodecNamed(const std::string& name, AVMediaType kind)
{
    std::vector<std::string> names;
    for (const auto& [id, text] : GetFFCodecsMap())
        if (id != AV_CODEC_ID_NONE && avcodec_get_type(id) == kind) {
            if (text == name)
                return id;
            names.push_back(text);
        }
    // Names that people have for a codec or its encoder.
    constexpr std::pair<std::string_view, AVCodecID> others[] = {
        {"h265",  AV_CODEC_ID_HEVC      },
        {"x265",  AV_CODEC_ID_HEVC      },
        {"avc",   AV_CODEC_ID_H264      },
        {"x264",  AV_CODEC_ID_H264      },
        {"xvid",  AV_CODEC_ID_MPEG4     },
        {"divx",  AV_CODEC_ID_MPEG4     },
        {"jpeg",  AV_CODEC_ID_MJPEG     },
        {"mpeg2", AV_CODEC_ID_MPEG2VIDEO},
        {"mpeg1", AV_CODEC_ID_MPEG1VIDEO},
        {"pcm",   AV_CODEC_ID_PCM_S16LE },
        {"vtt",   AV_CODEC_ID_WEBVTT    },
        {"tx3g",  AV_CODEC_ID_MOV_TEXT  },
    };
    const AVCodec* const encoder = avcodec_find_encoder_by_name(name.c_str());
    const auto* const other =
        std::ranges::find(others, std::string_view(name), &std::pair<std::string_view, AVCodecID>::first);
    if (const AVCodecID meant = encoder                     ? encoder->id
                                : other != std::end(others) ? other->second
                                                            : AV_CODEC_ID_NONE;
        meant != AV_CODEC_ID_NONE)
        ThrowUsage(fmt::format("no {} codec '{}': it is called {} here", Proc::GetMediaTypeName(kind), name,
                               CodecName(meant)));
    ThrowUsage(
        fmt::format("no {} codec '{}'{}", Proc::GetMediaTypeName(kind), name, DidYouMean(name, names)));
}

PixelChoice ChoosePixelFormat(const Proc::SafeEncoderCodec& encoder, AVPixelFormat source, AVColorRange range,
                              const std::string& asked, bool keepRange)
{
    const auto ranges = Supported<AVColorRange>(encoder, AV_CODEC_CONFIG_COLOR_RANGE);
    const auto takes = [&](AVColorRange candidate) {
        return ranges.empty() || std::ranges::find(ranges, candidate) != ranges.end();
    };
    const bool sourceFull = IsFullRange(source, range);
    const bool takesFull = takes(AVCOL_RANGE_JPEG);
    const bool takesLimited = takes(AVCOL_RANGE_MPEG);

    std::vector<PixFmt> formats = encoder.GetSupportedPixFmts();
    const bool any = formats.empty();
    if (any)
        for (const PixFmtDescription& description : PixFmtDescription::GetSupportedList())
            formats.push_back(description.format);
    formats = Proc::FilterPixelFormatsForSwScaling(std::move(formats), false, true);
    std::erase_if(formats, [&](PixFmt format) {
        const auto number = static_cast<AVPixelFormat>(format);
        return IsFullRange(number, AVCOL_RANGE_UNSPECIFIED) ? !takesFull || any
                                                            : !takesLimited && HasTwin(number);
    });
    if (!asked.empty()) {
        const AVPixelFormat wanted = av_get_pix_fmt(asked.c_str());
        if (wanted == AV_PIX_FMT_NONE) {
            std::vector<std::string> all;
            for (const PixFmtDescription& description : PixFmtDescription::GetSupportedList())
                all.push_back(description.GetName());
            ThrowUsage(fmt::format("no pixel format '{}'{}", asked, DidYouMean(asked, all)));
        }
        const std::vector<PixFmt> both =
            Proc::PixelFormatsIntersection(formats, {Proc::PixelFormatQuorvaFromFFMPEGSafe(wanted)});
        if (both.empty())
            ThrowRefused(fmt::format("encoder {} doesn't take pixel format {}; it takes {}",
                                     encoder.Get()->name, asked, fmt::join(NamesOf(formats), ", ")));
        formats = both;
    }
    // Colours that don't change their range lose nothing, so full ones are looked for under their own names.
    const bool byName = sourceFull && !keepRange && takesFull;
    const AVPixelFormat wanted = keepRange ? WithRange(source, false) : WithRange(source, sourceFull);
    const PixFmt best = Proc::FindBestPixelFormatOfList(formats, wanted, Proc::HasAlpha(source), nullptr);
    if (best == PixFmt::NONE || !Proc::IsSwScalingSupportedAsInput(source))
        ThrowRefused(fmt::format("pictures in {} can't be converted for encoder {}", NameOf(source),
                                 encoder.Get()->name));
    PixelChoice choice{static_cast<AVPixelFormat>(best), false};
    choice.fullRange = IsFullRange(choice.format, AVCOL_RANGE_UNSPECIFIED) ||
                       (sourceFull && (byName || keepRange) &&
                        !(Proc::GetPixelFormatDescription(choice.format)->flags & AV_PIX_FMT_FLAG_RGB));
    return choice;
}

Conf::SampleInfo ChooseSampleInfo(const Proc::SafeEncoderCodec& encoder, const Conf::SampleInfo& source,
                                  const ConvertOptions& options, const std::vector<int>& rates)
{
    const Conf::LayoutRecord& wanted =
        options.channels.empty() ? *source.layout : LayoutNamed(options.channels);
    if (!options.channels.empty() && !TakesLayout(encoder, wanted))
        ThrowRefused(fmt::format("encoder {} doesn't take channel layout {}; {} would be the nearest",
                                 encoder.Get()->name, *wanted.name, *NearestLayout(encoder, wanted)->name));
    const int rate = options.sampleRate.value_or(source.sampleRate);
    const std::vector<int> encodersRates = Supported<int>(encoder, AV_CODEC_CONFIG_SAMPLE_RATE);
    const int nearest = NearestRate(rates.empty() ? encodersRates : rates, rate);
    if (options.sampleRate && nearest != rate)
        ThrowRefused(fmt::format("{} Hz is no sample rate for encoder {} here; {} Hz would be the nearest",
                                 rate, encoder.Get()->name, nearest));
    const AVSampleFormat format =
        ChooseSampleFormat(encoder, Proc::SampleFormatFFMPEGFromQuorva(source.format->format));
    return {nearest, Proc::SampleFormatQuorvaFromFFMPEG(format), NearestLayout(encoder, wanted)->layout};
}

void ShareOutOptions(Plan& plan, const ConvertOptions& options)
{
    for (const auto& [name, value] : options.encoderOptions) {
        std::vector<std::string> known = CommonOptions();
        const bool isCommon = std::ranges::find(known, name) != known.end();
        bool taken = false;
        for (StreamPlan& stream : plan.streams) {
            if (!stream.encoder)
                continue;
            const Proc::NameSet own = stream.encoder->GetSupportedOptions();
            known.insert(known.end(), own.begin(), own.end());
            if (!isCommon && !own.contains(name))
                continue;
            CheckValue(*stream.encoder, name, value);
            Proc::SetContextOptions(&stream.options, Core::Property(name, value));
            taken = true;
        }
        if (!taken)
            ThrowUsage(fmt::format("no encoder here has an option '{}'{}", name, DidYouMean(name, known)));
    }
}

}  // namespace Quorva::Tool
