#include "Proc/Wrappers/Tessadrin/Tessadrin.CodecTags.h"

#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"

#include <algorithm>
#include <iterator>

namespace Quorva::Proc {

namespace {

struct ObjectTypeTag {
    AVCodecID codec;
    unsigned int tag;
};

// The first row of a tag wins; the order of two rows with one tag is the order of likelihood.
// clang-format off
constexpr ObjectTypeTag MP4ObjectTypeTags[] = {
    {AV_CODEC_ID_MOV_TEXT,     0x08},
    {AV_CODEC_ID_MPEG4,        0x20},
    {AV_CODEC_ID_H264,         0x21},
    {AV_CODEC_ID_HEVC,         0x23},
    {AV_CODEC_ID_AAC,          0x40},
    {AV_CODEC_ID_MP4ALS,       0x40},
    {AV_CODEC_ID_MPEG2VIDEO,   0x61},
    {AV_CODEC_ID_MPEG2VIDEO,   0x60},
    {AV_CODEC_ID_MPEG2VIDEO,   0x62},
    {AV_CODEC_ID_MPEG2VIDEO,   0x63},
    {AV_CODEC_ID_MPEG2VIDEO,   0x64},
    {AV_CODEC_ID_MPEG2VIDEO,   0x65},
    {AV_CODEC_ID_AAC,          0x66},
    {AV_CODEC_ID_AAC,          0x67},
    {AV_CODEC_ID_AAC,          0x68},
    {AV_CODEC_ID_MP3,          0x69},
    {AV_CODEC_ID_MP2,          0x69},
    {AV_CODEC_ID_MPEG1VIDEO,   0x6A},
    {AV_CODEC_ID_MP3,          0x6B},
    {AV_CODEC_ID_MJPEG,        0x6C},
    {AV_CODEC_ID_PNG,          0x6D},
    {AV_CODEC_ID_JPEG2000,     0x6E},
    {AV_CODEC_ID_VC1,          0xA3},
    {AV_CODEC_ID_DIRAC,        0xA4},
    {AV_CODEC_ID_AC3,          0xA5},
    {AV_CODEC_ID_EAC3,         0xA6},
    {AV_CODEC_ID_DTS,          0xA9},
    {AV_CODEC_ID_TSCC2,        0xD0},
    {AV_CODEC_ID_VORBIS,       0xDD},
    {AV_CODEC_ID_DVD_SUBTITLE, 0xE0},
    {AV_CODEC_ID_QCELP,        0xE1},
    {AV_CODEC_ID_MPEG4SYSTEMS, 0x01},
    {AV_CODEC_ID_MPEG4SYSTEMS, 0x02},
    {AV_CODEC_ID_NONE,         0x00},
};
// clang-format on
static_assert(std::size(MP4ObjectTypeTags) == 34);

AVCodecID FindTag(const AVCodecTag* first, const AVCodecTag* second, unsigned int tag)
{
    // One table at a time: what the first knows is never looked up in the second.
    const AVCodecTag* const firstList[] = {first, nullptr};
    const AVCodecID found = av_codec_get_id(firstList, tag);
    if (found != AV_CODEC_ID_NONE)
        return found;
    const AVCodecTag* const secondList[] = {second, nullptr};
    return av_codec_get_id(secondList, tag);
}

}  // namespace

std::string FindCodecVideoID(unsigned int tag)
{
    return CodecIDToTextID(FindTag(avformat_get_riff_video_tags(), avformat_get_mov_video_tags(), tag));
}

std::string FindCodecAudioID(unsigned int tag)
{
    return CodecIDToTextID(FindTag(avformat_get_riff_audio_tags(), avformat_get_mov_audio_tags(), tag));
}

std::string FindCodecID(unsigned int tag)
{
    std::string video = FindCodecVideoID(tag);
    return video == Conf::IFormatCodec::CODEC_ID_NONE ? FindCodecAudioID(tag) : video;
}

std::string FindMP4CodecID(unsigned int tag)
{
    const auto found = std::ranges::find(MP4ObjectTypeTags, tag, &ObjectTypeTag::tag);
    return found == std::end(MP4ObjectTypeTags) ? std::string() : CodecIDToTextID(found->codec);
}

}  // namespace Quorva::Proc
