#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"

#include "host/MediaDescription.h"
#include "tests/support/Failure.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace Quorva::Proc {
namespace {

using Conf::FormatException;
using Conf::IFormatCodecSubtitle;
using Conf::IFormatCodecVideo;
using Named = std::map<std::pair<AVCodecID, std::string>, std::string>;

const std::string implementations[] = {ImplNames::FFMPEG,
                                       ImplNames::FFMPEG_FDK,
                                       ImplNames::NVDEC,
                                       ImplNames::DIRECTX,
                                       ImplNames::QSV,
                                       ImplNames::NVENC,
                                       ImplNames::AMF,
                                       "no such",
                                       ""};

/// Every identifier that a codec or a descriptor has, and the one that nothing has.
std::set<AVCodecID> AllIdentifiers()
{
    std::set<AVCodecID> ids = {AV_CODEC_ID_NONE};
    for (void* position = nullptr; const AVCodec* codec = av_codec_iterate(&position);)
        ids.insert(codec->id);
    for (const AVCodecDescriptor* known = nullptr; (known = avcodec_descriptor_next(known));)
        ids.insert(known->id);
    return ids;
}

/// The tables as a caller was promised them, for comparison with FFmpeg's plain searches.
const Named namedDecoders = {
    {{AV_CODEC_ID_AAC, ImplNames::FFMPEG},         "aac"              },
    {{AV_CODEC_ID_AAC, ImplNames::FFMPEG_FDK},     "libfdk_aac"       },
    {{AV_CODEC_ID_AMR_NB, ImplNames::FFMPEG},      "libopencore_amrnb"},
    {{AV_CODEC_ID_AMR_WB, ImplNames::FFMPEG},      "libopencore_amrwb"},
    {{AV_CODEC_ID_VP8, ImplNames::FFMPEG},         "libvpx"           },
    {{AV_CODEC_ID_VP9, ImplNames::FFMPEG},         "libvpx-vp9"       },
    {{AV_CODEC_ID_AV1, ImplNames::FFMPEG},         "libdav1d"         },
    {{AV_CODEC_ID_MJPEG, ImplNames::NVDEC},        "mjpeg"            },
    {{AV_CODEC_ID_MPEG1VIDEO, ImplNames::NVDEC},   "mpeg1video"       },
    {{AV_CODEC_ID_MPEG2VIDEO, ImplNames::NVDEC},   "mpeg2video"       },
    {{AV_CODEC_ID_H264, ImplNames::NVDEC},         "h264"             },
    {{AV_CODEC_ID_HEVC, ImplNames::NVDEC},         "hevc"             },
    {{AV_CODEC_ID_VP8, ImplNames::NVDEC},          "vp8"              },
    {{AV_CODEC_ID_VP9, ImplNames::NVDEC},          "vp9"              },
    {{AV_CODEC_ID_AV1, ImplNames::NVDEC},          "av1"              },
    {{AV_CODEC_ID_MPEG2VIDEO, ImplNames::DIRECTX}, "mpeg2video"       },
    {{AV_CODEC_ID_H264, ImplNames::DIRECTX},       "h264"             },
    {{AV_CODEC_ID_HEVC, ImplNames::DIRECTX},       "hevc"             },
    {{AV_CODEC_ID_VP9, ImplNames::DIRECTX},        "vp9"              },
    {{AV_CODEC_ID_AV1, ImplNames::DIRECTX},        "av1"              },
    {{AV_CODEC_ID_ASS, ImplNames::FFMPEG},         "ass"              },
    {{AV_CODEC_ID_SSA, ImplNames::FFMPEG},         "ass"              },
};
const Named namedEncoders = {
    {{AV_CODEC_ID_FLV1, ImplNames::FFMPEG},   "flv"       },
    {{AV_CODEC_ID_H264, ImplNames::FFMPEG},   "libx264"   },
    {{AV_CODEC_ID_HEVC, ImplNames::FFMPEG},   "libx265"   },
    {{AV_CODEC_ID_AV1, ImplNames::FFMPEG},    "libsvtav1" },
    {{AV_CODEC_ID_H264, ImplNames::QSV},      "h264_qsv"  },
    {{AV_CODEC_ID_HEVC, ImplNames::QSV},      "hevc_qsv"  },
    {{AV_CODEC_ID_AV1, ImplNames::QSV},       "av1_qsv"   },
    {{AV_CODEC_ID_VP9, ImplNames::QSV},       "vp9_qsv"   },
    {{AV_CODEC_ID_H264, ImplNames::NVENC},    "h264_nvenc"},
    {{AV_CODEC_ID_HEVC, ImplNames::NVENC},    "hevc_nvenc"},
    {{AV_CODEC_ID_AV1, ImplNames::NVENC},     "av1_nvenc" },
    {{AV_CODEC_ID_H264, ImplNames::AMF},      "h264_amf"  },
    {{AV_CODEC_ID_HEVC, ImplNames::AMF},      "hevc_amf"  },
    {{AV_CODEC_ID_AV1, ImplNames::AMF},       "av1_amf"   },
    {{AV_CODEC_ID_AAC, ImplNames::FFMPEG},    "libfdk_aac"},
    {{AV_CODEC_ID_VORBIS, ImplNames::FFMPEG}, "libvorbis" },
    {{AV_CODEC_ID_ASS, ImplNames::FFMPEG},    "ass"       },
    {{AV_CODEC_ID_SSA, ImplNames::FFMPEG},    "ass"       },
};

TEST(Codecs, AgreeWithFFmpegsPlainSearches)
{
    const auto ids = AllIdentifiers();
    ASSERT_GT(ids.size(), 500u);
    const std::map<std::string, AVPixelFormat> devices = {
        {ImplNames::NVDEC,   AV_PIX_FMT_CUDA },
        {ImplNames::DIRECTX, AV_PIX_FMT_D3D11},
    };
    for (const AVCodecID id : ids)
        for (const std::string& implementation : implementations) {
            SCOPED_TRACE(testing::Message() << id << ' ' << implementation);
            const auto decoderRow = namedDecoders.find({id, implementation});
            const AVCodec* decoder = decoderRow == namedDecoders.end()
                                         ? avcodec_find_decoder(id)
                                         : avcodec_find_decoder_by_name(decoderRow->second.c_str());
            const auto device = devices.find(implementation);
            if (decoder && device != devices.end() &&
                !GetSupportedHWPixelFormats(decoder).contains(device->second))
                decoder = nullptr;
            EXPECT_EQ(FindDecoder(id, implementation), decoder);

            const auto encoderRow = namedEncoders.find({id, implementation});
            EXPECT_EQ(FindEncoder(id, implementation),
                      encoderRow == namedEncoders.end()
                          ? avcodec_find_encoder(id)
                          : avcodec_find_encoder_by_name(encoderRow->second.c_str()));
        }
}

TEST(Codecs, ListsNamePairsInOrder)
{
    const struct {
        std::vector<std::pair<AVCodecID, std::string>> list;
        const Named& named;
    } rows[] = {
        {GetCustomFFDecodersList(), namedDecoders},
        {GetCustomFFEncodersList(), namedEncoders},
    };
    for (const auto& [list, named] : rows) {
        std::vector<std::pair<AVCodecID, std::string>> keys;
        for (const auto& [key, name] : named)
            keys.push_back(key);
        EXPECT_EQ(list, keys);
    }
    EXPECT_EQ(rows[0].list.size(), 22u);
    EXPECT_EQ(rows[1].list.size(), 18u);
}

TEST(Codecs, TextsFindWhatIdentifiersFind)
{
    EXPECT_EQ(FindDecoder(IFormatCodecVideo::CODEC_ID_H264, ImplNames::QSV),
              avcodec_find_decoder_by_name("h264"));
    EXPECT_EQ(FindEncoder(IFormatCodecSubtitle::CODEC_ID_SSA, ImplNames::FFMPEG),
              avcodec_find_encoder_by_name("ass"));
    EXPECT_THROW(FindDecoder("no such codec", ImplNames::FFMPEG), FormatException);
    EXPECT_THROW(FindEncoder("no such codec", ImplNames::FFMPEG), FormatException);
}

TEST(Codecs, LongNamesAreThoseOfTheChosenCodec)
{
    EXPECT_EQ(DecoderLongNameFromCodec(AV_CODEC_ID_AAC, ImplNames::FFMPEG), "AAC (Advanced Audio Coding)");
    EXPECT_EQ(EncoderLongNameFromCodec(AV_CODEC_ID_FLV1, ImplNames::FFMPEG),
              "FLV / Sorenson Spark / Sorenson H.263 (Flash Video)");
    EXPECT_EQ(DecoderLongNameFromCodec(AV_CODEC_ID_NONE, ImplNames::FFMPEG), "");
    EXPECT_EQ(EncoderLongNameFromCodec(AV_CODEC_ID_H264, ImplNames::AMF),
              FindEncoder(AV_CODEC_ID_H264, ImplNames::AMF) ? "AMD AMF H.264 Encoder" : "");
}

TEST(Codecs, HardwareFormatsAreThoseOfEveryConfiguration)
{
    // libavcodec lists the device formats of a decoder it was built with; a codec of no device has none.
    EXPECT_TRUE(GetSupportedHWPixelFormats(avcodec_find_decoder(AV_CODEC_ID_PNG)).empty());
    const AVCodec* h264 = avcodec_find_decoder(AV_CODEC_ID_H264);
    std::set<AVPixelFormat> expected;
    for (int i = 0; const AVCodecHWConfig* config = avcodec_get_hw_config(h264, i); ++i)
        expected.insert(config->pix_fmt);
    const auto formats = GetSupportedHWPixelFormats(h264);
    EXPECT_EQ(std::set<AVPixelFormat>(formats.begin(), formats.end()), expected);
}

/// The lines of one listing below its title; checks the line feeds.
std::vector<std::string> Lines(const std::string& text)
{
    EXPECT_TRUE(text.empty() || text.back() == '\n');
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

TEST(TraceFFCodecs, ListsEachDirectionSorted)
{
    std::multiset<std::string> decoders, encoders;
    for (void* position = nullptr; const AVCodec* codec = av_codec_iterate(&position);)
        (av_codec_is_decoder(codec) ? decoders : encoders).insert(codec->name);

    std::vector<std::string> expected = {"Decoders:"};
    expected.insert(expected.end(), decoders.begin(), decoders.end());
    const auto decoderLines = expected;
    expected.insert(expected.end(), {"", "Encoders:"});
    expected.insert(expected.end(), encoders.begin(), encoders.end());
    const std::vector<std::string> encoderLines(expected.begin() + decoderLines.size() + 1, expected.end());

    EXPECT_EQ(Lines(TraceFFCodecs(true, true)), expected);
    EXPECT_EQ(Lines(TraceFFCodecs(true, false)), decoderLines);
    EXPECT_EQ(Lines(TraceFFCodecs(false, true)), encoderLines);
    EXPECT_EQ(TraceFFCodecs(false, false), "");
}

TEST(IsValidCodec, AcceptsOnlyKnownSubtitles)
{
    const struct {
        AVCodecID id;
        AVMediaType kind;
        bool valid;
    } rows[] = {
        {AV_CODEC_ID_ASS,  AVMEDIA_TYPE_SUBTITLE, true },
        {AV_CODEC_ID_NONE, AVMEDIA_TYPE_SUBTITLE, false},
        {AV_CODEC_ID_H264, AVMEDIA_TYPE_VIDEO,    false},
        {AV_CODEC_ID_AAC,  AVMEDIA_TYPE_AUDIO,    false},
    };
    AVCodecContext* context = avcodec_alloc_context3(nullptr);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        context->codec_id = row.id;
        context->codec_type = row.kind;
        EXPECT_EQ(IsValidCodec(context), row.valid);
        EXPECT_TRUE(IsTextSubtitle(row.id));
    }
    avcodec_free_context(&context);
    EXPECT_FALSE(IsValidCodec(nullptr));
}

}  // namespace
}  // namespace Quorva::Proc
