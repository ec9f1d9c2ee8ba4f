// How single streams are encoded, and the few helpers that every part of the command uses.
#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

namespace Quorva::Tool {

namespace {

/// x264 works at its own default then, which few can tell from the original.
constexpr int USUAL_QUALITY = 44;

bool IsRgb(AVPixelFormat format)
{
    const AVPixFmtDescriptor* descriptor = Proc::GetPixelFormatDescription(format);
    return descriptor && descriptor->flags & AV_PIX_FMT_FLAG_RGB;
}

/// The frame after cropping, and to what size it goes.
FrameSize TargetSize(const FrameSize& from, const std::optional<FrameSize>& asked, AVRational aspect)
{
    if (!asked)
        return from;
    FrameSize size = *asked;
    // A side that wasn't given follows the picture's shape as people see it; most encoders want it even.
    const double shape =
        static_cast<double>(from.width) / from.height * (aspect.num > 0 ? av_q2d(aspect) : 1);
    const auto even = [](double length) {
        return std::max(2, 2 * static_cast<int>(std::lround(length / 2)));
    };
    if (size.width == 0)
        size.width = even(size.height * shape);
    else if (size.height == 0)
        size.height = even(size.width / shape);
    return size;
}

/// Sizes that encoders take are multiples of these.
struct SizeRow {
    std::string_view encoder;
    int width;
    int height;
    bool byChroma = false;  ///< where the pixel format's chroma is as coarse
};

constexpr SizeRow sizeRows[] = {
    {"libx264", 2, 2, true},
    {"libx265", 2, 2, true},
    {"utvideo", 2, 2, true},
    {"libsvtav1", 2, 2, true},
    {"libxvid", 2, 2},
    {"ffvhuff", 2, 1, true},
    {"huffyuv", 2, 1, true},
    {"prores", 2, 1},
    {"prores_aw", 2, 1},
    {"v210", 2, 1},
    {"wmv1", 2, 1},
    {"wmv2", 2, 1},
    {"cinepak", 4, 4},
    {"h263p", 4, 4},
    {"cfhd", 16, 16},
    {"rv10", 16, 16},
    {"rv20", 4, 4},
    {"speedhq", 16, 16},
};

FrameSize SizeStep(AVPixelFormat format, const AVCodec& encoder)
{
    const auto* const row = std::ranges::find(sizeRows, std::string_view(encoder.name), &SizeRow::encoder);
    // Other encoders of these are those of devices.
    const bool isOther = row == std::end(sizeRows);
    if (isOther && encoder.id != AV_CODEC_ID_H264 && encoder.id != AV_CODEC_ID_HEVC)
        return {1, 1};
    if (!isOther && !row->byChroma)
        return {row->width, row->height};
    int horizontal = 0, vertical = 0;
    if (av_pix_fmt_get_chroma_sub_sample(format, &horizontal, &vertical) < 0)
        return {1, 1};
    return {isOther ? 1 << horizontal : std::min(row->width, 1 << horizontal),
            isOther ? 1 << vertical : std::min(row->height, 1 << vertical)};
}

FrameSize RoundedDown(const FrameSize& size, const FrameSize& step)
{
    return {std::max(size.width / step.width, 1) * step.width,
            std::max(size.height / step.height, 1) * step.height};
}

std::string Multiples(const FrameSize& step)
{
    return std::max(step.width, step.height) == 2
               ? "even sizes"
               : fmt::format("sizes that are multiples of {}", std::max(step.width, step.height));
}

void MakeEven(FrameSize& size, const FrameSize& step, const AVCodec& encoder, std::vector<std::string>& notes)
{
    const FrameSize even = RoundedDown(size, step);
    if (even == size)
        return;
    notes.push_back(fmt::format("{} needs {}: {}x{} becomes {}x{}", encoder.name, Multiples(step), size.width,
                                size.height, even.width, even.height));
    size = even;
}

/// @param size   the result's
/// @param asked  on the command line; a side may be 0
/// @throws Quorva::Exception  the encoder refuses what was asked for
void CheckEven(const FrameSize& size, const FrameSize& step, const FrameSize& asked, const AVCodec& encoder)
{
    const FrameSize below = RoundedDown(size, step);
    if (below == size)
        return;
    const FrameSize above = RoundedDown({size.width + step.width - 1, size.height + step.height - 1}, step);
    // A side that follows the other one is not named.
    const auto text = [&](const FrameSize& even) {
        return fmt::format("{}x{}", asked.width ? std::to_string(even.width) : "",
                           asked.height ? std::to_string(even.height) : "");
    };
    ThrowRefused(fmt::format("encoder {} needs {}: {} or {} instead of {}", encoder.name, Multiples(step),
                             text(below), text(above), text(size)));
}

/// The shape of pixels that keeps the picture's shape.
AVRational TargetAspect(const FrameSize& from, const FrameSize& to, AVRational aspect, bool freeSide)
{
    if (from == to || aspect.num <= 0)
        aspect = from == to ? aspect : AVRational{1, 1};
    if (from == to)
        return aspect;
    if (freeSide)
        return {1, 1};
    AVRational result{1, 1};
    // Inexact results are as near as 65535 allows.
    av_reduce(&result.num, &result.den, int64_t{aspect.num} * from.width * to.height,
              int64_t{aspect.den} * from.height * to.width, 65535);
    return result;
}

std::optional<Conf::DisplayMatrix> MatrixOf(const AVCodecParameters& parameters)
{
    const AVPacketSideData* entry = av_packet_side_data_get(
        parameters.coded_side_data, parameters.nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    Conf::DisplayMatrix matrix;
    if (!entry || entry->size < sizeof matrix.values)
        return std::nullopt;
    std::memcpy(matrix.values.data(), entry->data, sizeof matrix.values);
    return matrix;
}

std::string EncodingText(const StreamPlan& stream)
{
    return fmt::format("is encoded as {} by {}, {}", CodecName(stream.encoder->Get()->id),
                       stream.encoder->Get()->name, stream.result);
}

void PlanRate(StreamPlan& stream, AVFormatContext& input, const AVStream& source,
              const ConvertOptions& options, Plan& plan)
{
    AVRational own = av_guess_frame_rate(&input, const_cast<AVStream*>(&source), nullptr);
    if (own.num <= 0 || own.den <= 0)
        own = {25, 1};  // as FFmpeg assumes for pictures without times
    AVRational rate = options.frameRate.num > 0 ? options.frameRate : own;
    av_reduce(&rate.num, &rate.den, rate.num, rate.den, 65535);
    if (const auto supported = stream.encoder->GetSupportedFrameRate(rate);
        supported && av_cmp_q(*supported, rate) != 0) {
        plan.notes.push_back(fmt::format("{} takes {}/{} pictures per second instead of {}/{}",
                                         stream.encoder->Get()->name, supported->num, supported->den,
                                         rate.num, rate.den));
        rate = *supported;
    }
    stream.frameRate = rate;
    stream.retimed = av_cmp_q(rate, own) != 0;
    stream.constantRate = stream.retimed || options.frameRate.num > 0 ||
                          !(plan.images || plan.muxer->flags & (AVFMT_VARIABLE_FPS | AVFMT_NOTIMESTAMPS));
}

}  // namespace

void ThrowRefused(const std::string& what)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(what) << TagFailureKind(FailureKind::Unsupported));
}

void ThrowUsage(const std::string& what) { throw UsageError(what); }

std::string CodecName(AVCodecID id)
{
    const auto& names = GetFFCodecsMap();
    const auto found = names.find(id);
    return found == names.end() || id == AV_CODEC_ID_NONE ? avcodec_get_name(id) : found->second;
}

StreamPlan PlanVideo(AVFormatContext& input, const AVStream& source, AVCodecID target,
                     const Container& container, const ConvertOptions& options, Plan& plan)
{
    const AVCodecParameters& parameters = *source.codecpar;
    StreamPlan stream;
    stream.input = source.index;
    stream.treatment = StreamPlan::Treatment::Video;
    stream.decoder = ChooseDecoder(source, options.decoderImplementation);
    stream.encoder.emplace(ChooseEncoder(target, options.encoderImplementation));
    stream.bitrate = options.bitrate;
    stream.quality = options.quality;

    const auto video = MakeRefCounted<Conf::VideoCodecDescription>();
    stream.video = video;
    video->codecID = CodecName(target);
    video->quality = options.quality.value_or(USUAL_QUALITY);
    video->bitrate = options.bitrate.value_or(0);

    FrameSize size{parameters.width, parameters.height};
    Conf::FrameCropping crop;
    if (Proc::GetFrameCroppingFromCodecParameters(crop, source.codecpar) &&
        !(crop == Conf::FrameCropping())) {
        stream.applyCrop = !container.cropping || options.size;
        if (!stream.applyCrop) {
            video->frameCropping = crop;
        } else if (int64_t{crop.left} + crop.right < size.width &&
                   int64_t{crop.top} + crop.bottom < size.height) {
            size.width -= static_cast<int>(crop.left + crop.right);
            size.height -= static_cast<int>(crop.top + crop.bottom);
        } else {
            stream.applyCrop = false;  // it would leave nothing
        }
    }
    AVRational aspect{0, 1};
    if (source.sample_aspect_ratio.num > 0 || parameters.sample_aspect_ratio.num > 0) {
        int64_t num = 0, den = 0;
        Proc::GetStreamAspect(&source, num, den);
        av_reduce(&aspect.num, &aspect.den, num, den, 65535);
    }
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(target);
    const bool lossless = descriptor && !(descriptor->props & AV_CODEC_PROP_LOSSY);
    const auto from = static_cast<AVPixelFormat>(parameters.format);
    const PixelChoice choice =
        ChoosePixelFormat(*stream.encoder, from, parameters.color_range, options.pixelFormat,
                          // Only these have a place for the range beside the stream.
                          lossless && container.rotation && IsFullRange(from, parameters.color_range));
    FrameSize to = TargetSize(size, options.size, aspect);
    const FrameSize step = SizeStep(choice.format, *stream.encoder->Get());
    if (options.size && options.size->width == 0)
        to.width = RoundedDown(to, step).width;
    if (options.size && options.size->height == 0)
        to.height = RoundedDown(to, step).height;
    if (options.size)
        CheckEven(to, step, *options.size, *stream.encoder->Get());
    else
        MakeEven(to, step, *stream.encoder->Get(), plan.notes);
    const bool freeSide = options.size && (options.size->width == 0 || options.size->height == 0);
    const AVRational toAspect = TargetAspect(size, to, aspect, freeSide);
    video->width = static_cast<unsigned>(to.width);
    video->height = static_cast<unsigned>(to.height);
    video->pixelAspectX = static_cast<unsigned>(toAspect.num);
    video->pixelAspectY = static_cast<unsigned>(toAspect.den);

    video->pixelFormat = Proc::PixelFormatQuorvaFromFFMPEGSafe(choice.format);
    stream.fullRange = choice.fullRange;

    video->colorSpace = {parameters.color_primaries, parameters.color_trc, parameters.color_space};
    if (IsRgb(choice.format))
        video->colorSpace.matrix = IsRgb(from) ? parameters.color_space : AVCOL_SPC_RGB;
    else if (IsRgb(from))
        video->colorSpace.matrix = to.height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    if (const auto matrix = MatrixOf(parameters)) {
        if (container.rotation)
            video->displayMatrix = matrix;
        else
            plan.notes.push_back(
                fmt::format("stream {}: {} has no place for its rotation", source.index, plan.format));
    }
    if (target == parameters.codec_id && parameters.profile >= 0 && choice.format == from)
        video->profile = parameters.profile;

    PlanRate(stream, input, source, options, plan);
    if (options.twoPass) {
        if (!stream.encoder->IsTwoPassEncodingAllowed())
            ThrowRefused(fmt::format("encoder {} has no use for two passes", stream.encoder->Get()->name));
        stream.twoPass = true;
    }
    stream.result = fmt::format("{}x{} {}", to.width, to.height, av_get_pix_fmt_name(choice.format));
    if (!plan.still)
        stream.result += fmt::format(", {:.5g} pictures per second", av_q2d(stream.frameRate));
    stream.text = EncodingText(stream);
    return stream;
}

StreamPlan PlanAudio(const AVStream& source, AVCodecID target, const std::vector<int>& rates,
                     const ConvertOptions& options, Plan& plan)
{
    const AVCodecParameters& parameters = *source.codecpar;
    StreamPlan stream;
    stream.input = source.index;
    stream.treatment = StreamPlan::Treatment::Audio;
    const auto forSound = [](const std::string& implementation) {
        // The others are for pictures only.
        using Proc::ImplNames;
        return implementation == ImplNames::FFMPEG || implementation == ImplNames::FFMPEG_FDK ? implementation
                                                                                              : std::string();
    };
    stream.decoder = ChooseDecoder(source, forSound(options.decoderImplementation));
    stream.encoder.emplace(ChooseEncoder(target, forSound(options.encoderImplementation)));
    stream.bitrate = options.audioBitrate;
    stream.quality = options.audioQuality;

    const int channels = parameters.ch_layout.nb_channels;
    Conf::ChannelLayout layout = Conf::LayoutRecord::Find(channels)->layout;
    if (parameters.ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
        if (Proc::IsSupportedAVChannelLayoutMask(parameters.ch_layout.u.mask))
            layout = Proc::QuorvaFromAVChannelLayout(parameters.ch_layout);
        else
            plan.notes.push_back(fmt::format("stream {}: its speakers are taken for {}", source.index,
                                             *Conf::LayoutRecord::Find(channels)->name));
    }
    if (layout == Conf::ChannelLayout::None)
        ThrowRefused(
            fmt::format("stream {} has {} channels, for which there is no layout", source.index, channels));
    const auto format = static_cast<AVSampleFormat>(parameters.format);
    const Conf::SampleInfo from(
        parameters.sample_rate,
        Proc::SampleFormatQuorvaFromFFMPEG(format == AV_SAMPLE_FMT_NONE ? AV_SAMPLE_FMT_S16 : format),
        layout);

    const auto audio = MakeRefCounted<Conf::AudioCodecDescription>();
    stream.audio = audio;
    audio->codecID = CodecName(target);
    audio->bitrate = options.audioBitrate.value_or(0);
    audio->quality = options.audioQuality.value_or(USUAL_QUALITY);
    audio->sampleInfo = ChooseSampleInfo(*stream.encoder, from, options, rates);
    if (target == parameters.codec_id && parameters.profile >= 0)
        audio->profile = parameters.profile;
    stream.result = fmt::format("{} Hz, {}, {}", audio->sampleInfo.sampleRate,
                                *audio->sampleInfo.layout->name, audio->sampleInfo.format->name);
    stream.text = EncodingText(stream);
    return stream;
}

}  // namespace Quorva::Tool
