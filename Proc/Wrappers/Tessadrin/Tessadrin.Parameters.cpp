#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Details/KeyFrame.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <glog/logging.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

namespace Quorva::Proc {

using Conf::FrameCropping;
using Conf::IFormatCodec;
using Conf::IFormatCodecAudio;
using Conf::IFormatCodecSubtitle;
using Conf::IFormatCodecVideo;
using Details::Raise;

namespace {

static_assert(sizeof(FrameCropping) == 16);
static_assert(sizeof(Conf::DisplayMatrix::values) == 36);

/// Adds an entry of coded side data with a copy of `value`.
template <class T>
bool AddSideData(AVCodecParameters& parameters, AVPacketSideDataType type, const T& value)
{
    AVPacketSideData* entry = av_packet_side_data_new(&parameters.coded_side_data,
                                                      &parameters.nb_coded_side_data, type, sizeof value, 0);
    if (entry)
        std::memcpy(entry->data, &value, sizeof value);
    return entry;
}

void FillVideo(const IFormatCodecVideo& video, AVCodecParameters& parameters)
{
    parameters.width = static_cast<int>(video.GetWidth());
    parameters.height = static_cast<int>(video.GetHeight());
    parameters.sample_aspect_ratio = {static_cast<int>(video.GetPixelAspectX()),
                                      static_cast<int>(video.GetPixelAspectY())};
    parameters.format = static_cast<int>(video.GetPixelFormat());
    if (video.ExistsBitsPerPixel())
        parameters.bits_per_coded_sample = video.GetBitsPerPixel();

    const Conf::ColorSpace colour = video.GetColorSpace();
    parameters.color_primaries = static_cast<AVColorPrimaries>(colour.primaries);
    parameters.color_trc = static_cast<AVColorTransferCharacteristic>(colour.transfer);
    parameters.color_space = static_cast<AVColorSpace>(colour.matrix);

    if (video.ExistsDisplayMatrix()) {
        Conf::DisplayMatrix matrix = video.GetDisplayMatrix();
        if (matrix.GetOrientation() != Conf::ImageOrientation::Normal) {
            matrix.CorrectTranslation({parameters.width, parameters.height});
            if (!AddSideData(parameters, AV_PKT_DATA_DISPLAYMATRIX, matrix.values)) {
                LOG(ERROR) << "Failed to generate a display matrix data";
                return;
            }
        }
    }
    if (video.ExistsFrameCropping() &&
        !AddSideData(parameters, AV_PKT_DATA_FRAME_CROPPING, video.GetFrameCropping()))
        LOG(ERROR) << "Failed to generate a frame cropping data";
}

void FillAudio(const IFormatCodecAudio& audio, AVCodecParameters& parameters)
{
    const Conf::SampleInfo info = audio.GetSampleInfo();
    av_channel_layout_uninit(&parameters.ch_layout);  // a custom layout owns memory
    parameters.ch_layout.nb_channels = info.layout->channels;
    parameters.sample_rate = info.sampleRate;
    parameters.format = SampleFormatFFMPEGFromQuorva(info.format->format);
    // A mask that FFmpeg refuses leaves the number of channels as it stands.
    av_channel_layout_from_mask(&parameters.ch_layout, AVChannelLayoutMaskFromQuorva(info.layout->layout));
    parameters.bit_rate = static_cast<int32_t>(audio.GetBitrate());
    if (audio.ExistsBitsPerSample())
        parameters.bits_per_coded_sample = audio.GetBitsPerSample();
    if (audio.ExistsFrameSize())
        parameters.frame_size = audio.GetFrameSize();
    if (audio.GetBlockAlignment() != 0)
        parameters.block_align = audio.GetBlockAlignment();
    if (audio.ExistsInitialPadding())
        parameters.initial_padding = audio.GetInitialPadding();
}

int64_t LargestQuantizer(const std::string& textId)
{
    static const std::map<std::string, int64_t> quantizers = {
        {IFormatCodecVideo::CODEC_ID_H264, 51},
        {IFormatCodecVideo::CODEC_ID_H265, 51},
        {IFormatCodecVideo::CODEC_ID_VP8,  63},
        {IFormatCodecVideo::CODEC_ID_VP9,  63},
        {IFormatCodecVideo::CODEC_ID_AV1,  63},
    };
    const auto found = quantizers.find(textId);
    return found == quantizers.end() ? 51 : found->second;
}

bool FindCropping(FrameCropping& cropping, const AVPacketSideData* entries, int count)
{
    const AVPacketSideData* entry = av_packet_side_data_get(entries, count, AV_PKT_DATA_FRAME_CROPPING);
    if (!entry || entry->size < sizeof cropping)
        return false;
    std::memcpy(&cropping, entry->data, sizeof cropping);
    return true;
}

double Ratio(AVRational fraction) { return fraction.den ? av_q2d(fraction) : 0; }

}  // namespace

void FormatCodecToCodecParameters(const boost::intrusive_ptr<const IFormatCodec>& codec,
                                  AVCodecParameters* parameters)
{
    parameters->codec_id = CodecIDFromTextID(codec->GetCodecID());
    parameters->codec_type = AVMEDIA_TYPE_UNKNOWN;
    if (codec->ExistsProfile())
        parameters->profile = codec->GetProfile();

    switch (codec->GetKind()) {
        case IFormatCodec::Kind::Video:
            parameters->codec_type = AVMEDIA_TYPE_VIDEO;
            FillVideo(dynamic_cast<const IFormatCodecVideo&>(*codec), *parameters);
            break;
        case IFormatCodec::Kind::Audio:
            parameters->codec_type = AVMEDIA_TYPE_AUDIO;
            FillAudio(dynamic_cast<const IFormatCodecAudio&>(*codec), *parameters);
            break;
        case IFormatCodec::Kind::Other:
            parameters->codec_type = AVMEDIA_TYPE_SUBTITLE;
            break;
        case IFormatCodec::Kind::Subtitle:
            parameters->codec_type = AVMEDIA_TYPE_SUBTITLE;
            // FFmpeg's muxers know the older identifier under the newer one only.
            if (codec->GetCodecID() == IFormatCodecSubtitle::CODEC_ID_SSA)
                parameters->codec_id = AV_CODEC_ID_ASS;
            break;
    }
    SetExtradata(parameters, codec->GetExtradata());
}

void SetExtradata(AVCodecParameters* parameters, const boost::intrusive_ptr<const IBlob>& extradata)
{
    av_freep(&parameters->extradata);
    parameters->extradata_size = 0;
    const uint64_t size = extradata ? extradata->GetSize() : 0;
    if (size == 0)
        return;

    const uint64_t room = size + AV_INPUT_BUFFER_PADDING_SIZE;
    const bool countable = size <= INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE;
    auto* copy = countable ? static_cast<uint8_t*>(av_malloc(room)) : nullptr;
    if (!copy)
        Raise(Core::MemoryException("Failed to allocate extradata.", room));
    std::memcpy(copy, extradata->GetData(), size);
    std::memset(copy + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    parameters->extradata = copy;
    parameters->extradata_size = static_cast<int>(size);
}

int64_t GetProperQuality(const boost::intrusive_ptr<const IFormatCodec>& codec, int64_t& maxQuantizer)
{
    constexpr int64_t lowest = IFormatCodec::MIN_QUALITY;
    constexpr int64_t highest = IFormatCodec::MAX_QUALITY;
    static_assert(lowest < highest && lowest <= 51);

    maxQuantizer = LargestQuantizer(codec->GetCodecID());
    // Beyond the scale the product could overflow, and the answer is known.
    const int64_t quality = std::clamp(codec->GetQuality(), lowest, highest);
    const double scaled = static_cast<double>((maxQuantizer - lowest) * (quality - lowest)) /
                          static_cast<double>(highest - lowest);
    return std::clamp(int64_t{std::llround(scaled)} + lowest, lowest, maxQuantizer);
}

int64_t GetAudioBitrate(const AVCodecParameters* parameters)
{
    int bits = 0;
    switch (parameters->codec_id) {
        case AV_CODEC_ID_PCM_S16LE:
        case AV_CODEC_ID_PCM_S16BE:
        case AV_CODEC_ID_PCM_U16LE:
        case AV_CODEC_ID_PCM_U16BE:
            bits = 16;
            break;
        case AV_CODEC_ID_PCM_S8:
        case AV_CODEC_ID_PCM_U8:
        case AV_CODEC_ID_PCM_MULAW:
        case AV_CODEC_ID_PCM_ALAW:
            bits = 8;
            break;
        case AV_CODEC_ID_PCM_S32LE:
        case AV_CODEC_ID_PCM_S32BE:
        case AV_CODEC_ID_PCM_U32LE:
        case AV_CODEC_ID_PCM_U32BE:
            bits = 32;
            break;
        case AV_CODEC_ID_PCM_S24LE:
        case AV_CODEC_ID_PCM_S24BE:
        case AV_CODEC_ID_PCM_U24LE:
        case AV_CODEC_ID_PCM_U24BE:
        case AV_CODEC_ID_PCM_S24DAUD:
            bits = 24;
            break;
        default:
            return parameters->bit_rate;
    }
    // A damaged header may claim anything; the first product of two ints fits 64 bits.
    const int64_t samples = int64_t{parameters->sample_rate} * parameters->ch_layout.nb_channels;
    int64_t rate = 0;
    if (__builtin_mul_overflow(samples, bits, &rate))
        return samples < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return rate;
}

void GetStreamAspect(const AVStream* stream, int64_t& num, int64_t& den)
{
    const AVRational ofStream = stream->sample_aspect_ratio;
    const AVRational ofCodec = stream->codecpar->sample_aspect_ratio;
    bool preferStream = ofStream.num > 0;
    // Of two fractions that mean the same, the one with smaller numbers.
    if (std::abs(Ratio(ofStream) - Ratio(ofCodec)) < 0.1)
        preferStream = ofStream.num < ofCodec.num;

    const AVRational& preferred = preferStream ? ofStream : ofCodec;
    num = preferred.num;
    den = preferred.den;
    if (num <= 0 || den <= 0)
        num = den = 1;
    const int64_t divisor = av_gcd(num, den);
    if (divisor > 1) {
        num /= divisor;
        den /= divisor;
    }
}

void FillAvFrameParams(AVFrame& frame, const IDataVideo& video)
{
    const IDataVideo::Picture& picture = video.GetPicture();
    frame.format = static_cast<int>(video.GetPixelFormat());
    frame.width = picture.width;
    frame.height = picture.height;
    Details::SetKeyFrame(frame, false);
    frame.sample_aspect_ratio = {picture.aspectX, picture.aspectY};
}

bool GetFrameCroppingFromCodecContext(FrameCropping& cropping, AVCodecContext* context)
{
    return FindCropping(cropping, context->coded_side_data, context->nb_coded_side_data);
}

bool GetFrameCroppingFromCodecParameters(FrameCropping& cropping, AVCodecParameters* parameters)
{
    return FindCropping(cropping, parameters->coded_side_data, parameters->nb_coded_side_data);
}

}  // namespace Quorva::Proc
