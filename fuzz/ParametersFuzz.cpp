// Descriptions of streams with any numbers in them become FFmpeg's parameters, or the documented exception.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"
#include "fuzz/support/Input.h"
#include "host/CodecDescriptions.h"
#include "tests/support/Owned.h"

#include <memory>

using namespace Quorva;

namespace {

template <class Description>
boost::intrusive_ptr<Description> Describe(Input& input, const std::string& codec)
{
    auto description = MakeRefCounted<Description>();
    description->codecID = input.Below(4) ? codec : input.Text(12);
    description->bitrate = input.Number<int64_t>();
    description->quality = input.Extreme();
    if (input.Flag())
        description->profile = input.Extreme();
    if (input.Flag())
        description->extradata = MakeBlob(input.Bytes(static_cast<size_t>(input.Below(70))));
    return description;
}

boost::intrusive_ptr<const Conf::IFormatCodec> Video(Input& input)
{
    static const std::string* const codecs[] = {&Conf::IFormatCodecVideo::CODEC_ID_H264,
                                                &Conf::IFormatCodecVideo::CODEC_ID_VP9,
                                                &Conf::IFormatCodecVideo::CODEC_ID_RAWVIDEO};
    auto video = Describe<Conf::VideoCodecDescription>(input, *codecs[input.Below(3)]);
    video->width = input.Number<unsigned>() >> input.Below(32);
    video->height = input.Number<unsigned>() >> input.Below(32);
    video->pixelAspectX = input.Number<unsigned>();
    video->pixelAspectY = input.Number<unsigned>();
    video->pixelFormat = static_cast<PixFmt>(input.Extreme());
    video->colorSpace = {input.Extreme(), input.Extreme(), input.Extreme()};
    if (input.Flag())
        video->bitsPerPixel = input.Extreme();
    if (input.Flag())
        for (int& value : video->displayMatrix.emplace().values)
            value = input.Extreme();
    if (input.Flag())
        video->frameCropping = Conf::FrameCropping{input.Number<uint32_t>(), input.Number<uint32_t>(),
                                                   input.Number<uint32_t>(), input.Number<uint32_t>()};
    if (video->displayMatrix && input.Flag())
        video->displayMatrix->CorrectTranslation(
            {static_cast<int>(video->width), static_cast<int>(video->height)});
    return video;
}

boost::intrusive_ptr<const Conf::IFormatCodec> Audio(Input& input)
{
    static const std::string* const codecs[] = {&Conf::IFormatCodecAudio::CODEC_ID_AAC,
                                                &Conf::IFormatCodecAudio::CODEC_ID_PCM_S16LE,
                                                &Conf::IFormatCodecAudio::CODEC_ID_FLAC};
    auto audio = Describe<Conf::AudioCodecDescription>(input, *codecs[input.Below(3)]);
    Tolerate([&] {
        audio->sampleInfo =
            Conf::SampleInfo(input.Extreme(), static_cast<Conf::SampleFormats>(input.Between(-1, 14)),
                             static_cast<Conf::ChannelLayout>(input.Extreme()));
    });
    if (input.Flag())
        audio->bitsPerSample = input.Extreme();
    if (input.Flag())
        audio->frameSize = input.Extreme();
    if (input.Flag())
        audio->initialPadding = input.Extreme();
    audio->blockAlignment = input.Extreme();
    return audio;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    av_log_set_level(AV_LOG_QUIET);
    Input input(data, size);
    const Owned<AVCodecParameters> parameters(avcodec_parameters_alloc());
    for (int i = 0; i < 2; ++i) {  // the second over what the first left
        boost::intrusive_ptr<const Conf::IFormatCodec> codec;
        switch (input.Below(4)) {
            case 0:
                codec = Audio(input);
                break;
            case 1:
                codec =
                    Describe<Conf::SubtitleCodecDescription>(input, Conf::IFormatCodecSubtitle::CODEC_ID_SSA);
                break;
            case 2:
                codec = Describe<Conf::OtherCodecDescription>(input, Conf::IFormatCodec::CODEC_ID_NONE);
                break;
            default:
                codec = Video(input);
                break;
        }
        Tolerate([&] { Proc::FormatCodecToCodecParameters(codec, parameters.get()); });
        Proc::GetAudioBitrate(parameters.get());
        Conf::FrameCropping cropping;
        Proc::GetFrameCroppingFromCodecParameters(cropping, parameters.get());
        int64_t most = 0;
        const int64_t quality = Proc::GetProperQuality(codec, most);
        Require(quality >= 1 && quality <= most);
    }
    return 0;
}
