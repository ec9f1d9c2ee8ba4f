// The catalogue of demuxers: what is in it, and how it is built from FFmpegs that lack some.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/DemuxerFunctions.h"
#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "tests/support/Demuxers.h"
#include "tests/support/Failure.h"
#include "tests/support/FormatContext.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Quorva::Proc {
namespace {

using namespace Details;  // NOLINT(google-build-using-namespace): the library's insides are what is tested
using Conf::IFormatFile;
using testing::IsEmpty;

using Names = std::set<std::string>;
using Demuxers = std::vector<const AVInputFormat*>;

Names Without(const Names& names, const Names& others)
{
    Names rest;
    std::ranges::set_difference(names, others, std::inserter(rest, rest.end()));
    return rest;
}

/// FFmpeg's demuxers but for those of one name, which is missing in some builds.
Demuxers AllBut(std::string_view name)
{
    Demuxers demuxers = AllDemuxers();
    std::erase_if(demuxers, [&](const AVInputFormat* demuxer) { return demuxer->name == name; });
    return demuxers;
}

TEST(KnownInputFormats, AreFFmpegsOwnNames)
{
    const std::vector<std::string> list = GetFFMPEGKnownInputFormats();
    const Names known(list.begin(), list.end());
    Names present;
    for (const AVInputFormat* demuxer : AllDemuxers())
        present.insert(demuxer->name);
    EXPECT_EQ(list.size(), 354u);
    EXPECT_EQ(known.size(), list.size());
    EXPECT_THAT(Without(known, present), IsEmpty()) << "misspelt, or missing in this build of FFmpeg";
    EXPECT_THAT(Without(Without(present, known), {"dash", "imf", "libopenmpt", "libgme", "dvdvideo"}),
                IsEmpty());
}

TEST(InputCatalogue, EveryFormatHasTheDemuxerThatClaimedItFirst)
{
    const InputCatalogue catalogue(AllDemuxers(), {IFormatFile::FORMAT_MP4, IFormatFile::FORMAT_AVI});
    const struct {
        const char* why;
        std::string format;
        const char* demuxer;
    } rows[] = {
        {"a name of the pipeline",              IFormatFile::FORMAT_H265,       "hevc"                   },
        {"text unlike the constant",            IFormatFile::FORMAT_AAC,        "aac"                    },
        {"FFmpeg's name",                       "aa",                           "aa"                     },
        {"ISO base media",                      IFormatFile::FORMAT_MP4,        "mov,mp4,m4a,3gp,3g2,mj2"},
        {"ISO base media, claimed before",      IFormatFile::FORMAT_AVI,        "avi"                    },
        {"document type",                       IFormatFile::FORMAT_MATROSKA,   "matroska,webm"          },
        {"document type",                       IFormatFile::FORMAT_WEBM,       "matroska,webm"          },
        {"shares a demuxer",                    IFormatFile::FORMAT_CSWF,       "swf"                    },
        {"shares a demuxer",                    IFormatFile::FORMAT_AWEBP,      "webp_pipe"              },
        {"shares a demuxer",                    IFormatFile::FORMAT_WEBP,       "webp_pipe"              },
        {"a demuxer for still ones",            IFormatFile::FORMAT_JPEGXL,     "jpegxl_pipe"            },
        {"a demuxer for animated ones",         IFormatFile::FORMAT_AJPEGXL,    "jpegxl_anim"            },
        {"a demuxer for still ones",            IFormatFile::FORMAT_PNG,        "png_pipe"               },
        {"a demuxer for animated ones",         IFormatFile::FORMAT_APNG,       "apng"                   },
        {"the animation's, not the picture's",  IFormatFile::FORMAT_GIF,        "gif"                    },
        {"FFmpeg's name beside the pipeline's", "gif_pipe",                     "gif_pipe"               },
        {"a picture with a demuxer",            IFormatFile::FORMAT_JPEG,       "jpeg_pipe"              },
        {"a picture without a demuxer",         IFormatFile::FORMAT_TARGA,      "image2"                 },
        {"a picture without a demuxer",         IFormatFile::FORMAT_MPEG2VIDEO, "image2"                 },
        {"a codec of pictures and more",        IFormatFile::FORMAT_MPEG1VIDEO, "mpegvideo"              },
        {"a codec of pictures and more",        IFormatFile::FORMAT_V210X,      "v210x"                  },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format + ": " + row.why);
        const auto found = catalogue.formats.find(row.format);
        ASSERT_NE(found, catalogue.formats.end());
        EXPECT_STREQ(found->second->name, row.demuxer);
    }
    // One for each of the 354 demuxers, 7 that share one, 5 pictures without one, and the list's MP4.
    EXPECT_EQ(catalogue.formats.size(), 354u + 7 + 5 + 1);
    for (const std::string& format : GetKnownISOBaseMediaFileFormats())
        EXPECT_TRUE(InputCatalogue().formats.contains(format)) << format;
}

TEST(InputCatalogue, ThePipelineNamesMostFormatsAsFFmpegDoes)
{
    const std::map<std::string, std::string> others = {
        {IFormatFile::FORMAT_AAC,          "aac"          },
        {IFormatFile::FORMAT_H265,         "hevc"         },
        {IFormatFile::FORMAT_H266,         "vvc"          },
        {IFormatFile::FORMAT_PIX,          "alias_pix"    },
        {IFormatFile::FORMAT_AJPEGXL,      "jpegxl_anim"  },
        {IFormatFile::FORMAT_MPEG4VIDEO,   "m4v"          },
        {IFormatFile::FORMAT_MPEG1VIDEO,   "mpegvideo"    },
        {IFormatFile::FORMAT_MJPEG2000,    "mjpeg_2000"   },
        {IFormatFile::FORMAT_JPEG2000,     "j2k_pipe"     },
        {IFormatFile::FORMAT_RADIANCE_HDR, "hdr_pipe"     },
        {IFormatFile::FORMAT_CSWF,         "swf"          },
        {IFormatFile::FORMAT_MATROSKA,     "matroska,webm"},
        {IFormatFile::FORMAT_WEBM,         "matroska,webm"},
        {IFormatFile::FORMAT_AWEBP,        "webp_pipe"    },
    };
    for (const auto& [format, demuxer] : InputCatalogue(AllDemuxers(), {}).formats) {
        const auto other = others.find(format);
        const std::string name = other == others.end() ? format : other->second;
        EXPECT_THAT(std::string(demuxer->name), testing::AnyOf(name, name + "_pipe", "image2")) << format;
    }
}

TEST(InputCatalogue, ALaterDemuxerOfANameChangesNothing)
{
    const ScoringDemuxer<1> second("wav");
    Demuxers demuxers = AllDemuxers();
    demuxers.push_back(second);
    EXPECT_NE(InputCatalogue(demuxers).formats.at(IFormatFile::FORMAT_WAV), second);
    std::ranges::rotate(demuxers, demuxers.end() - 1);
    EXPECT_EQ(InputCatalogue(demuxers).formats.at(IFormatFile::FORMAT_WAV), second);
}

TEST(InputCatalogue, ExperimentalAndUnknownDemuxersAreNotUsed)
{
    ScoringDemuxer<1> experimental("wav");
    experimental.head.p.flags = AVFMT_NOFILE | AVFMT_EXPERIMENTAL;
    const ScoringDemuxer<2> unknown("nobody_knows");
    Demuxers demuxers = AllBut("wav");
    demuxers.insert(demuxers.begin(), {experimental, unknown});
    const InputCatalogue catalogue(demuxers);
    EXPECT_FALSE(catalogue.formats.contains(IFormatFile::FORMAT_WAV));
    EXPECT_FALSE(catalogue.formats.contains("nobody_knows"));
}

TEST(InputCatalogue, DemuxersThatServeSeveralFormatsAreRequired)
{
    for (const std::string demuxer : {"mov,mp4,m4a,3gp,3g2,mj2", "matroska,webm", "swf", "jpegxl_pipe",
                                      "png_pipe", "webp_pipe", "image2"}) {
        SCOPED_TRACE(demuxer);
        try {
            InputCatalogue catalogue(AllBut(demuxer));
            ADD_FAILURE() << "built without it";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
            EXPECT_EQ(PlaceOf(e, ""), (Failure{"", "InputCatalogue", "InputFormat"}));
            const std::string* key = boost::get_error_info<TagMissingKey>(e);
            EXPECT_EQ(key ? *key : "", demuxer) << "nobody could tell what is missing";
        }
    }
    for (const char* demuxer : {"gif", "apng", "jpegxl_anim", "wav"})
        EXPECT_NO_THROW(InputCatalogue(AllBut(demuxer))) << demuxer;
}

TEST(SupportedInputFormats, LeaveOutWhatIsOnlyRecognised)
{
    const InputMap all = InputCatalogue(AllDemuxers(), {IFormatFile::FORMAT_HEIF, IFormatFile::FORMAT_HEIC,
                                                        IFormatFile::FORMAT_HEICS, IFormatFile::FORMAT_AVIF})
                             .formats;
    const auto removed = [&](const InputMap& supported) {
        Names names;
        for (const auto& [format, demuxer] : all)
            if (const auto kept = supported.find(format); kept == supported.end())
                names.insert(format);
            else
                EXPECT_EQ(kept->second, demuxer) << format;
        return names;
    };
    const Names always = {IFormatFile::FORMAT_AWEBP, IFormatFile::FORMAT_HEIF, IFormatFile::FORMAT_HEIC,
                          IFormatFile::FORMAT_HEICS};
    Names withoutDecoder = always;
    withoutDecoder.insert({IFormatFile::FORMAT_JPEGXL, IFormatFile::FORMAT_AJPEGXL});
    EXPECT_EQ(removed(SupportedInputFormats(all, true)), always);
    EXPECT_EQ(removed(SupportedInputFormats(all, false)), withoutDecoder);

    const auto& offered = GetFFMPEGSupportedInputFormats();
    EXPECT_EQ(&offered, &GetFFMPEGSupportedInputFormats());
    EXPECT_EQ(offered, SupportedInputFormats(InputCatalogue().formats,
                                             FindDecoder(AV_CODEC_ID_JPEGXL, ImplNames::FFMPEG)));
}

TEST(IsSingleImageContainer, AGifIsOneWhenItHasOneFrame)
{
    const struct {
        const char* what;
        std::string format;
        std::vector<FormatContext::Stream> streams;
        bool single;
    } rows[] = {
        {"a frame",         IFormatFile::FORMAT_GIF,  {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_GIF, 1}},  true },
        {"two frames",      IFormatFile::FORMAT_GIF,  {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_GIF, 2}},  false},
        {"not counted",     IFormatFile::FORMAT_GIF,  {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_GIF, 0}},  false},
        {"a sound",         IFormatFile::FORMAT_GIF,  {{AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_MP3, 1}},  false},
        {"nothing",         IFormatFile::FORMAT_GIF,  {},                                          false},
        {"two streams",
         IFormatFile::FORMAT_GIF,
         {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_GIF, 1}, {AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_GIF, 1}},
         false                                                                                          },
        {"a still picture", IFormatFile::FORMAT_BMP,  {},                                          true },
        {"a film",          IFormatFile::FORMAT_MP4,  {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, 1}}, false},
        {"animated",        IFormatFile::FORMAT_APNG, {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_APNG, 1}}, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IsSingleImageContainer(row.format, FormatContext("gif", row.streams).Get()), row.single)
            << row.format << ": " << row.what;
    EXPECT_FALSE(IsSingleImageContainer(IFormatFile::FORMAT_GIF, nullptr));
    EXPECT_TRUE(IsSingleImageContainer(IFormatFile::FORMAT_BMP, nullptr));
}

TEST(DemuxerFunctions, OfThisFFmpegAreKnown)
{
    EXPECT_TRUE(ProveDemuxerHead(av_demuxer_iterate));
    const auto headerOf = [](const char* name) {
        return av_input_format_get_read_header_func(av_find_input_format(name));
    };
    EXPECT_EQ(av_input_format_get_read_probe_func(av_find_input_format("s16le")), nullptr);
    EXPECT_TRUE(headerOf("wav"));
    EXPECT_EQ(headerOf("image2"), headerOf("bmp_pipe"));
    EXPECT_NE(headerOf("image2"), headerOf("gif"));

    // The highest of all scores is what FFmpeg's own search gives.
    for (const std::string& start :
         {std::string("fLaC\0\0\0\x22", 8), std::string("OggS\0\2", 6), std::string("#!AMR\n"),
          std::string("FLV\1\5\0\0\0\x09", 9), std::string("no file at all")}) {
        const auto probe = MovieProbe::Create("", {start.begin(), start.end()});
        const AVProbeData data = ProbeDataOf(*probe);
        int highest = 0, expected = 0;
        for (const AVInputFormat* demuxer : AllDemuxers())
            if (const ReadProbe read = av_input_format_get_read_probe_func(demuxer))
                highest = std::max(highest, read(&data));
        // The demuxer doesn't matter, and there may be none.
        (void)av_probe_input_format3(&data, 1, &expected);
        EXPECT_EQ(highest, expected) << start;
    }
}

TEST(DemuxerFunctions, AnotherLayoutIsRefused)
{
    static const int data = 0;
    static DemuxerHead head;
    // Behind one of libavformat's own, as input devices are: their code is in another library too.
    const auto iterate = [](void** position) -> const AVInputFormat* {
        static const AVInputFormat* const demuxers[] = {av_find_input_format("wav"), &head.p, nullptr};
        const auto index = reinterpret_cast<uintptr_t>(*position);
        *position = reinterpret_cast<void*>(index + 1);
        return demuxers[index];
    };
    const auto isProven = [&](ReadProbe probe, ReadHeader header) {
        head = {.p = {},
                .rawCodec = {},
                .privateDataSize = 0,
                .internalFlags = 0,
                .readProbe = probe,
                .readHeader = header};
        return ProveDemuxerHead(iterate);
    };
    const auto code = [](auto*) { return 0; };
    EXPECT_TRUE(isProven(nullptr, nullptr));
    EXPECT_TRUE(isProven(code, code));
    EXPECT_FALSE(isProven(reinterpret_cast<ReadProbe>(reinterpret_cast<uintptr_t>(&data)), nullptr))
        << "a probe that is data";
    EXPECT_FALSE(isProven(nullptr, reinterpret_cast<ReadHeader>(uintptr_t{1024})))
        << "a header that is a number";
    EXPECT_FALSE(isProven(nullptr, reinterpret_cast<ReadHeader>(reinterpret_cast<uintptr_t>(&std::rand))))
        << "code of another library";
}

}  // namespace
}  // namespace Quorva::Proc
