#include "tools/Convert.Encoders.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"
#include "tools/support/Failure.h"
#include "tools/support/Logging.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace Quorva::Tool {

namespace {

struct FreeParameters {
    void operator()(AVCodecParameters* parameters) const noexcept { avcodec_parameters_free(&parameters); }
};
using Parameters = std::unique_ptr<AVCodecParameters, FreeParameters>;

/// The coarsest step of the MPEG-4 family.
constexpr double MAX_STEP = 31;

bool IsLossless(AVCodecID id)
{
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(id);
    return descriptor && descriptor->props & AV_CODEC_PROP_LOSSLESS &&
           !(descriptor->props & AV_CODEC_PROP_LOSSY);
}

/// Codecs whose FFmpeg encoders are told the size of a step.
bool HasSteps(AVCodecID id)
{
    switch (id) {
        case AV_CODEC_ID_MPEG1VIDEO:
        case AV_CODEC_ID_MPEG2VIDEO:
        case AV_CODEC_ID_MPEG4:
        case AV_CODEC_ID_MJPEG:
        case AV_CODEC_ID_H261:
        case AV_CODEC_ID_H263:
        case AV_CODEC_ID_H263P:
        case AV_CODEC_ID_FLV1:
        case AV_CODEC_ID_WMV1:
        case AV_CODEC_ID_WMV2:
        case AV_CODEC_ID_MSMPEG4V2:
        case AV_CODEC_ID_MSMPEG4V3:
        case AV_CODEC_ID_RV10:
        case AV_CODEC_ID_RV20:
        case AV_CODEC_ID_SNOW:
            return true;
        default:
            return false;
    }
}

void SetGlobalQuality(AVCodecContext& context, double quality)
{
    context.flags |= AV_CODEC_FLAG_QSCALE;
    context.global_quality = static_cast<int>(std::lround(FF_QP2LAMBDA * quality));
}

/// @return false when the encoder has no such thing as quality
bool ApplyQuality(AVCodecContext& context, const StreamPlan& plan, OptionSet& options)
{
    const AVCodec& codec = *plan.encoder->Get();
    int64_t largest = 0;
    const int64_t quantizer = plan.video ? Proc::GetProperQuality(plan.video, largest)
                                         : Proc::GetProperQuality(plan.audio, largest);
    // 0 is the best, 1 the smallest.
    const double coarseness = static_cast<double>(quantizer - 1) / static_cast<double>(largest - 1);
    if (plan.encoder->GetSupportedOptions().contains("crf")) {
        Proc::PutMetadata(&options, "crf", std::to_string(quantizer));
        context.bit_rate = 0;  // libvpx takes another value for a limit
    } else if (HasSteps(codec.id)) {
        // Their steps grow evenly, those of the newer codecs double every six.
        const double step = std::exp2(static_cast<double>(quantizer - 12) / 6);
        SetGlobalQuality(context, std::clamp(step, 1., MAX_STEP));
    } else if (codec.id == AV_CODEC_ID_THEORA || codec.id == AV_CODEC_ID_VORBIS) {
        SetGlobalQuality(context, 10 * (1 - coarseness));
    } else if (codec.id == AV_CODEC_ID_MP3) {
        SetGlobalQuality(context, 9 * coarseness);
    } else if (codec.name == std::string_view("aac")) {
        SetGlobalQuality(context, 2 - 1.9 * coarseness);
    } else {
        return false;
    }
    return true;
}

/// Bits per second for sound that shouldn't be told from the original; 0: the encoder's own.
int64_t UsualBitrate(AVCodecID codec, int channels)
{
    const auto limited = [channels](int64_t perChannel, int64_t most) {
        return std::min<int64_t>(perChannel * channels, most);
    };
    switch (codec) {
        case AV_CODEC_ID_AAC:
        case AV_CODEC_ID_OPUS:
        case AV_CODEC_ID_VORBIS:
        case AV_CODEC_ID_WMAV1:
        case AV_CODEC_ID_WMAV2:
            return limited(64000, 512000);
        case AV_CODEC_ID_MP3:
            return limited(96000, 320000);
        case AV_CODEC_ID_MP2:
            return limited(96000, 384000);
        case AV_CODEC_ID_AC3:
        case AV_CODEC_ID_EAC3:
            return limited(96000, 640000);
        default:
            return 0;
    }
}

void ApplyRate(AVCodecContext& context, const StreamPlan& plan, OptionSet& options,
               std::vector<std::string>& notes)
{
    const AVCodec& codec = *plan.encoder->Get();
    // Who sets one of these knows what they want.
    for (const char* own : {"crf", "qp", "b", "ab", "q", "global_quality", "lossless"})
        if (options.Has(own))
            return;
    if (IsLossless(codec.id)) {
        if (plan.bitrate || plan.quality)
            notes.push_back(
                fmt::format("encoder {} loses nothing: bit rate and quality mean nothing to it", codec.name));
    } else if (plan.bitrate) {
        context.bit_rate = *plan.bitrate;
    } else if (plan.quality) {
        if (!ApplyQuality(context, plan, options))
            notes.push_back(fmt::format("encoder {} has no scale of quality: left as it is", codec.name));
    } else if (plan.video) {
        ApplyQuality(context, plan, options);  // encoders without have a default of their own
    } else if (const int64_t rate = UsualBitrate(codec.id, context.ch_layout.nb_channels)) {
        context.bit_rate = rate;
    }
}

/// Defaults of a few encoders that would leave cores idle or talk on standard error.
void ApplyManners(const AVCodec& codec, OptionSet& options)
{
    const auto suggest = [&](const char* name, const char* value) {
        if (!options.Has(name))
            Proc::PutMetadata(&options, name, value);
    };
    const std::string_view name = codec.name;
    if (name == "libvpx-vp9") {
        suggest("row-mt", "1");
        suggest("cpu-used", "4");
    } else if (name == "libx265") {
        suggest("x265-params", "log-level=error");
    }
}

void SetUpVideo(AVCodecContext& context, const StreamPlan& plan, const AVStream& source)
{
    context.time_base = av_inv_q(plan.frameRate);
    if (!plan.constantRate && av_cmp_q(source.avg_frame_rate, source.r_frame_rate) != 0) {
        // Pictures come at their own pace. MPEG-4 counts to 65535.
        const AVRational base = source.time_base;
        context.time_base = base.num > 0 && base.den <= 65535 ? base : AVRational{1, 60000};
    }
    context.framerate = plan.frameRate;
    context.chroma_sample_location = source.codecpar->chroma_location;
    context.field_order = source.codecpar->field_order;
    context.flags |= AV_CODEC_FLAG_FRAME_DURATION;
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(context.pix_fmt);
    if (descriptor && descriptor->flags & AV_PIX_FMT_FLAG_RGB)
        context.color_range = AVCOL_RANGE_UNSPECIFIED;
    else if (plan.fullRange)
        context.color_range = AVCOL_RANGE_JPEG;
    else if (source.codecpar->color_range == AVCOL_RANGE_MPEG)
        context.color_range = AVCOL_RANGE_MPEG;
    SetLastingSideData(context, source);
}

void SetUpAudio(AVCodecContext& context, const AVStream& source)
{
    context.time_base = {1, context.sample_rate};
    // 24 bits travel in 32.
    if (context.sample_fmt == AV_SAMPLE_FMT_S32 || context.sample_fmt == AV_SAMPLE_FMT_S32P)
        context.bits_per_raw_sample =
            source.codecpar->bits_per_raw_sample > 0 ? source.codecpar->bits_per_raw_sample : 24;
}

void SetUpPass(AVCodecContext& context, const StreamPlan& plan, const EncoderSetting& setting,
               OptionSet& options)
{
    if (setting.pass == 0 || !plan.twoPass)
        return;
    context.flags |= setting.pass == 1 ? AV_CODEC_FLAG_PASS1 : AV_CODEC_FLAG_PASS2;
    if (setting.pass == 2)
        context.stats_in = const_cast<char*>(setting.passStats.c_str());  // only read, and stays ours
    if (plan.encoder->GetSupportedOptions().contains("stats"))
        Proc::PutMetadata(&options, "stats", setting.passLog);
}

/// @return FFmpeg's result
int TryToOpen(Proc::SafeCodecContext& context, const StreamPlan& plan, const AVStream& source,
              const EncoderSetting& setting, bool withProfile, std::vector<std::string>& notes)
{
    const AVCodec& codec = *plan.encoder->Get();
    const Parameters parameters(avcodec_parameters_alloc());
    if (!parameters)
        return AVERROR(ENOMEM);
    if (plan.video)
        Proc::FormatCodecToCodecParameters(plan.video, parameters.get());
    else
        Proc::FormatCodecToCodecParameters(plan.audio, parameters.get());
    if (!withProfile)
        parameters->profile = AV_PROFILE_UNKNOWN;
    if (const int result = avcodec_parameters_to_context(context.get(), parameters.get()); result < 0)
        return result;
    context->codec_id = codec.id;  // one text may stand for several
    context->thread_count = setting.threads;
    if (setting.globalHeader)
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (codec.capabilities & AV_CODEC_CAP_EXPERIMENTAL)
        context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    OptionSet options = plan.options;
    ApplyManners(codec, options);
    if (plan.video)
        SetUpVideo(*context.get(), plan, source);
    else
        SetUpAudio(*context.get(), source);
    ApplyRate(*context.get(), plan, options, notes);
    SetUpPass(*context.get(), plan, setting, options);
    const int result = avcodec_open2(context.get(), &codec, &options);
    if (result >= 0 && !options.First().empty())
        ThrowUsage(fmt::format("encoder {} leaves option '{}' unused", codec.name, options.First()));
    return result;
}

}  // namespace

Proc::SafeCodecContext OpenEncoder(const StreamPlan& plan, const AVStream& source,
                                   const EncoderSetting& setting, std::vector<std::string>& notes)
{
    const AVCodec& codec = *plan.encoder->Get();
    const FFmpegErrors errors;
    const bool hasProfile = plan.video ? plan.video->ExistsProfile() : plan.audio->ExistsProfile();
    int result = 0;
    for (const bool withProfile : {true, false}) {
        if (withProfile && !hasProfile)
            continue;
        Proc::SafeCodecContext context(&codec);
        std::vector<std::string> remarks;
        result = TryToOpen(context, plan, source, setting, withProfile, remarks);
        if (result < 0)
            continue;
        if (hasProfile && !withProfile)
            remarks.push_back(fmt::format("encoder {} doesn't keep the profile", codec.name));
        notes.insert(notes.end(), remarks.begin(), remarks.end());
        return context;
    }
    ThrowFFmpegFailure(fmt::format("encoder {} refuses {}", codec.name, plan.result), result);
}

}  // namespace Quorva::Tool
