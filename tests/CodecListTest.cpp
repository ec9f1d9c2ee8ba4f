#include "Proc/Wrappers/Tessadrin/CodecList.h"

#include "host/MediaDescription.h"
#include "tests/support/Failure.h"

#include <set>

namespace Quorva {
namespace {

using Conf::FormatException;
using Conf::IFormatCodecAudio;
using Conf::IFormatCodecVideo;

TEST(CodecList, IdentifiersCrossTheBorderBothWays)
{
    const struct {
        const char* what;
        AVCodecID id;
        const std::string& textId;
    } rows[] = {
        {"no codec",                     AV_CODEC_ID_NONE,      Conf::IFormatCodec::CODEC_ID_NONE   },
        {"key spelled unlike its text",  AV_CODEC_ID_ALIAS_PIX, IFormatCodecVideo::CODEC_ID_PIX     },
        {"only in the additional rows",  AV_CODEC_ID_HEVC,      IFormatCodecVideo::CODEC_ID_H265    },
        {"first of two rows of one key", AV_CODEC_ID_IFF_ILBM,  IFormatCodecVideo::CODEC_ID_IFF_ILBM},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(CodecIDToTextID(row.id), row.textId);
        EXPECT_EQ(CodecIDFromTextID(row.textId), row.id);
    }
    EXPECT_EQ(&CodecIDToTextID(AV_CODEC_ID_AAC), &GetFFCodecsMap().at(AV_CODEC_ID_AAC));
}

TEST(CodecList, MapsHaveTheirExtent)
{
    EXPECT_EQ(GetFFVideoCodecsMap().size(), 193u);
    EXPECT_EQ(GetFFAudioCodecsMap().size(), 132u);
    EXPECT_EQ(GetFFSubtitleCodecsMap().size(), 22u);
    EXPECT_EQ(GetFFCodecsMap().size(), 357u);
    EXPECT_FALSE(GetFFVideoCodecsMap().contains(AV_CODEC_ID_HEVC));
    EXPECT_FALSE(GetFFAudioCodecsMap().contains(AV_CODEC_ID_EAC3));
    EXPECT_FALSE(GetFFAudioCodecsMap().contains(AV_CODEC_ID_TRUEHD));
    for (const AVCodecID id : {AV_CODEC_ID_HEVC, AV_CODEC_ID_EAC3, AV_CODEC_ID_TRUEHD})
        EXPECT_TRUE(GetFFCodecsMap().contains(id)) << id;
}

TEST(CodecList, MissesNameWhatWasAskedFor)
{
    EXPECT_EQ(FailureOf<FormatException>([] { CodecIDToTextID(AV_CODEC_ID_VVC); }),
              (Failure{"Provided codec id (196) is not found in list", "AVCodecIDToTextID", "CodecList"}));
    for (const std::string text : {"H264", "", "{}", "iff_byterun1"})
        EXPECT_EQ(FailureOf<FormatException>([&] { CodecIDFromTextID(text); }),
                  (Failure{"Provided codec textID (" + text + ") is not found in list", "AVCodecIDFromTextID",
                           "CodecList"}));
}

// FFmpeg's own descriptors are the other opinion: the kind of every listed codec, and its name, which the
// pipeline's text repeats.
TEST(CodecList, AgreesWithEveryDescriptorOfFFmpeg)
{
    const struct {
        AVMediaType kind;
        const std::map<AVCodecID, std::string>& map;
    } kinds[] = {
        {AVMEDIA_TYPE_VIDEO,    GetFFVideoCodecsMap()   },
        {AVMEDIA_TYPE_AUDIO,    GetFFAudioCodecsMap()   },
        {AVMEDIA_TYPE_SUBTITLE, GetFFSubtitleCodecsMap()},
    };
    for (const auto& [kind, map] : kinds)
        for (const auto& [id, text] : map)
            if (id != AV_CODEC_ID_NONE) {
                const AVCodecDescriptor* known = avcodec_descriptor_get(id);
                ASSERT_TRUE(known) << text;
                EXPECT_EQ(known->type, kind) << text;
            }

    int listed = 0;
    for (const AVCodecDescriptor* known = nullptr; (known = avcodec_descriptor_next(known));) {
        SCOPED_TRACE(known->name);
        const auto entry = GetFFCodecsMap().find(known->id);
        if (entry == GetFFCodecsMap().end()) {
            EXPECT_THROW(CodecIDToTextID(known->id), FormatException);
            continue;
        }
        ++listed;
        EXPECT_EQ(CodecIDFromTextID(entry->second), known->id);
        EXPECT_EQ(entry->second, known->name);
    }
    std::set<std::string> texts;
    for (const auto& [id, text] : GetFFCodecsMap())
        texts.insert(text);
    EXPECT_EQ(texts.size(), GetFFCodecsMap().size()) << "two codecs share a text";
    // FFmpeg describes no codec for these: no codec, probing, MPEG-4 systems, metadata.
    EXPECT_EQ(listed + 4, static_cast<int>(texts.size()));
}

}  // namespace
}  // namespace Quorva
