#include "Proc/Wrappers/Tessadrin/Tessadrin.CodecTags.h"

#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"
#include "tests/support/Failure.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Quorva::Proc {
namespace {

using Conf::IFormatCodec;
using Conf::IFormatCodecAudio;
using Conf::IFormatCodecVideo;

constexpr unsigned int unknown = MKTAG('Z', 'Z', 'Z', 'Z');

AVCodecID CodecOf(const AVCodecTag* table, unsigned int tag)
{
    const AVCodecTag* const tables[] = {table, nullptr};
    return av_codec_get_id(tables, tag);
}

/// Every code of the table, by asking it for every codec that FFmpeg describes, and in both letter cases.
std::set<unsigned int> TagsOf(const AVCodecTag* table)
{
    const AVCodecTag* const tables[] = {table, nullptr};
    std::set<unsigned int> tags;
    const auto add = [&](unsigned int tag) {
        unsigned int lower = tag;
        for (int shift = 0; shift < 32; shift += 8)
            if (const unsigned int c = (tag >> shift) & 0xff; c >= 'A' && c <= 'Z')
                lower += 0x20u << shift;
        tags.insert({tag, lower});
    };
    for (const AVCodecDescriptor* codec = nullptr; (codec = avcodec_descriptor_next(codec));)
        if (unsigned int tag; av_codec_get_tag2(tables, codec->id, &tag))
            add(tag);
    return tags;
}

/// What all three lookups are tried with: every code that one of the four tables writes, all codes of 16
/// bits, and one that none knows.
std::set<unsigned int> AllTags()
{
    std::set<unsigned int> tags = {unknown, 0xffffffff};
    for (const AVCodecTag* table : {avformat_get_riff_video_tags(), avformat_get_mov_video_tags(),
                                    avformat_get_riff_audio_tags(), avformat_get_mov_audio_tags()})
        tags.merge(TagsOf(table));
    for (unsigned int tag = 0; tag <= 0xffff; ++tag)
        tags.insert(tag);
    return tags;
}

/// The pipeline's text; nothing where it has none.
std::optional<std::string> TextOf(AVCodecID id)
{
    const auto found = GetFFCodecsMap().find(id);
    return found == GetFFCodecsMap().end() ? std::nullopt : std::optional(found->second);
}

TEST(FindCodecID, FollowsFFmpegsTablesForEveryCode)
{
    std::map<const char*, int> refused;
    const auto expect = [&](const char* kind, std::string (*find)(unsigned int), AVCodecID id,
                            unsigned int tag) {
        std::optional<std::string> found;
        try {
            found = find(tag);
        } catch (const Conf::FormatException&) {
            ++refused[kind];
        }
        EXPECT_EQ(found, TextOf(id)) << kind << ' ' << tag;
    };
    int fromQuickTime = 0, contradictions = 0;
    for (const unsigned int tag : AllTags()) {
        const AVCodecID avi = CodecOf(avformat_get_riff_video_tags(), tag);
        const AVCodecID mov = CodecOf(avformat_get_mov_video_tags(), tag);
        const AVCodecID video = avi ? avi : mov;
        const AVCodecID wave = CodecOf(avformat_get_riff_audio_tags(), tag);
        const AVCodecID audio = wave ? wave : CodecOf(avformat_get_mov_audio_tags(), tag);
        fromQuickTime += !avi && mov;
        contradictions += avi && mov && avi != mov;
        expect("video", FindCodecVideoID, video, tag);
        expect("audio", FindCodecAudioID, audio, tag);
        expect("any", FindCodecID, video ? video : audio, tag);
    }
    EXPECT_GT(fromQuickTime, 20);
    EXPECT_GT(contradictions, 0) << "the order of the two tables is not tested";
    EXPECT_GT(refused["video"], 50);
    EXPECT_GT(refused["audio"], 10);
}

TEST(FindCodecID, KnownCodes)
{
    const std::string& none = IFormatCodec::CODEC_ID_NONE;
    const struct {
        const char code[5];
        const std::string& video;
        const std::string& audio;
    } rows[] = {
        {"H264",    IFormatCodecVideo::CODEC_ID_H264, none                           },
        {"h264",    IFormatCodecVideo::CODEC_ID_H264, none                           },
        {"hvc1",    IFormatCodecVideo::CODEC_ID_H265, none                           },
        {"mp4a",    none,                             IFormatCodecAudio::CODEC_ID_AAC},
        {"U\0\0\0", none,                             IFormatCodecAudio::CODEC_ID_MP3},
        {"ZZZZ",    none,                             none                           },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code);
        const unsigned int tag = MKTAG(row.code[0], row.code[1], row.code[2], row.code[3]);
        EXPECT_EQ(FindCodecVideoID(tag), row.video);
        EXPECT_EQ(FindCodecAudioID(tag), row.audio);
        EXPECT_EQ(FindCodecID(tag), row.video == none ? row.audio : row.video);
    }
    // Video is asked first, also for numbers that WAVE has.
    EXPECT_EQ(FindCodecID(1), *TextOf(AV_CODEC_ID_MSRLE));
    EXPECT_EQ(FindCodecAudioID(1), *TextOf(AV_CODEC_ID_PCM_S16LE));
}

TEST(FindCodecID, CodecWithoutATextIsAnException)
{
    const auto tags = TagsOf(avformat_get_riff_video_tags());
    const auto tag = std::ranges::find_if(
        tags, [](unsigned int t) { return !TextOf(CodecOf(avformat_get_riff_video_tags(), t)); });
    ASSERT_NE(tag, tags.end());
    const int id = CodecOf(avformat_get_riff_video_tags(), *tag);
    EXPECT_EQ(FailureOf<Conf::FormatException>([&] { FindCodecID(*tag); }),
              (Failure{"Provided codec id (" + std::to_string(id) + ") is not found in list",
                       "AVCodecIDToTextID", "CodecList"}));
}

TEST(FindMP4CodecID, FirstOfARepeatedNumberWinsAndUnknownIsEmpty)
{
    const struct {
        unsigned int first, last;
        AVCodecID codec;
    } rows[] = {
        {0x00, 0x00, AV_CODEC_ID_NONE        },
        {0x01, 0x02, AV_CODEC_ID_MPEG4SYSTEMS},
        {0x21, 0x21, AV_CODEC_ID_H264        },
        {0x23, 0x23, AV_CODEC_ID_HEVC        },
        {0x40, 0x40, AV_CODEC_ID_AAC         }, // and MP4ALS
        {0x60, 0x65, AV_CODEC_ID_MPEG2VIDEO  },
        {0x66, 0x68, AV_CODEC_ID_AAC         },
        {0x69, 0x69, AV_CODEC_ID_MP3         }, // and MP2
        {0xA5, 0xA5, AV_CODEC_ID_AC3         },
        {0xE1, 0xE1, AV_CODEC_ID_QCELP       },
    };
    for (const auto& row : rows)
        for (unsigned int tag = row.first; tag <= row.last; ++tag)
            EXPECT_EQ(FindMP4CodecID(tag), CodecIDToTextID(row.codec)) << tag;
    for (const unsigned int tag : {0x22u, 0x5fu, 0xADu, 0xB1u, 0x121u, unknown})
        EXPECT_EQ(FindMP4CodecID(tag), "") << tag;
    int known = 0;
    for (unsigned int tag = 0; tag <= 0xffff; ++tag)
        known += !FindMP4CodecID(tag).empty();
    EXPECT_EQ(known, 32);
}

}  // namespace
}  // namespace Quorva::Proc
