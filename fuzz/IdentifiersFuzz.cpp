// Tags, numbers and texts that name codecs, formats, failures and times: each look-up answers or throws the
// family, and what one direction gives the other takes.
#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CodecTags.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "fuzz/support/Input.h"
#include "host/MediaDescription.h"

#include <climits>

using namespace Quorva;

namespace {

void Tags(uint32_t tag)
{
    std::string video;
    const bool known = Tolerate([&] { video = Proc::FindCodecVideoID(tag); });
    Tolerate([&] { Require(!Proc::FindCodecAudioID(tag).empty()); });
    const bool either = Tolerate([&] {
        const std::string any = Proc::FindCodecID(tag);
        Require(known && (video == Conf::IFormatCodec::CODEC_ID_NONE || any == video));
    });
    Require(known || !either);
    const std::string mp4 = Proc::FindMP4CodecID(tag);
    Require(mp4.empty() || CodecIDToTextID(CodecIDFromTextID(mp4)) == mp4);
}

void Codecs(AVCodecID id, const std::string& text, const std::string& implementation)
{
    Tolerate([&] {
        const std::string& name = CodecIDToTextID(id);
        Require(CodecIDToTextID(CodecIDFromTextID(name)) == name);
    });
    Tolerate([&] { Require(CodecIDToTextID(CodecIDFromTextID(text)) == text); });
    const AVCodec* decoder = Proc::FindDecoder(id, implementation);
    const AVCodec* encoder = Proc::FindEncoder(id, implementation);
    Require(!decoder || av_codec_is_decoder(decoder));
    Require(!encoder || av_codec_is_encoder(encoder));
    Proc::DecoderLongNameFromCodec(id, implementation);
    Tolerate([&] { Proc::FindDecoder(text, implementation); });
    Tolerate([&] { Proc::GetOutputFormat(text); });
    Conf::GetFormatsByExtension(text);
}

void Layouts(uint64_t mask, int channels)
{
    if (Proc::IsSupportedAVChannelLayoutMask(mask))
        Require(Proc::AVChannelLayoutMaskFromQuorva(Proc::QuorvaFromAVChannelLayoutMask(mask)) == mask);
    AVChannelLayout layout = Proc::DefaultAVChannelLayout(channels);
    av_channel_layout_uninit(&layout);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static constexpr const char* implementations[] = {"ffmpeg", "ffmpeg_fdk", "nvdec", "directx",
                                                      "qsv",    "nvenc",      "amf",   ""};
    Input input(data, size);
    Tags(input.Number<uint32_t>());
    const auto id = static_cast<AVCodecID>(input.Below(1 << 18));
    const std::string implementation = implementations[input.Below(std::size(implementations))];
    Codecs(id, input.Text(), implementation);
    Require(!Proc::GetErrorDescriptionFFMPEG(input.Extreme()).empty());
    Layouts(input.Number<uint64_t>(), input.Extreme());

    const AVRational timeBase = {input.Between(1, INT_MAX - 1), input.Between(1, INT_MAX - 1)};
    Proc::stream_to_global(input.Number<int64_t>(), timeBase);
    Proc::global_to_stream(input.Number<int64_t>(), timeBase);
    auto num = input.Number<int64_t>(), den = input.Number<int64_t>();
    Proc::reduce(num, den);
    auto smallNum = input.Number<unsigned>(), smallDen = input.Number<unsigned>();
    Proc::reduce(smallNum, smallDen);
    return 0;
}
