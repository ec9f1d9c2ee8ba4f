// What tells formats of one demuxer apart, by a file's first bytes or by what FFmpeg has opened.
#include "Proc/Wrappers/Tessadrin/Details/Recognisers.h"

#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Demuxers.h"
#include "tests/support/Failure.h"
#include "tests/support/FormatContext.h"
#include "tests/support/GuardedBytes.h"
#include "tests/support/Probes.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace Quorva::Proc {
namespace {

using namespace Details;  // NOLINT(google-build-using-namespace): the library's insides are what is tested
using namespace std::string_literals;
using F = Conf::IFormatFile;

TEST(Recognisers, BytesThatTellFormatsApart)
{
    const std::string none;
    const struct {
        const char* what;
        ProbeRecogniser* recognise;
        std::string bytes;
        ProbeResult after;  ///< empty format: nothing may change
    } rows[] = {
        {"both types",               FromProbe::Matroska, Samples::ebml + "x webm matroska",   {F::FORMAT_MATROSKA, 100, {}}},
        {"one type",                 FromProbe::Matroska, Samples::ebml + "\x42\x82\x84webm",  {F::FORMAT_WEBM, 100, {}}    },
        {"no type",                  FromProbe::Matroska, Samples::ebml + "matrosk",           {}                           },
        {"type without a magic",     FromProbe::Matroska, "xxxxmatroska",                      {}                           },
        {"magic not at the start",   FromProbe::Matroska, "x" + Samples::ebml + "matroska",    {}                           },
        {"known brand",              FromProbe::IsoMedia, "....ftypqt  ",                      {F::FORMAT_MOV, 100, {}}     },
        {"unknown brand",            FromProbe::IsoMedia, "....ftyp\xff\xfe\xfd\xfc",          {F::FORMAT_MP4, 7, {}}       },
        {"no brand",                 FromProbe::IsoMedia, "....moov....",                      {F::FORMAT_MOV, 7, {}}       },
        {"plain",                    FromProbe::Swf,      "FWS\6",                             {F::FORMAT_SWF, 100, {}}     },
        {"compressed",               FromProbe::Swf,      "CWS\6",                             {F::FORMAT_CSWF, 100, {}}    },
        {"compressed otherwise",     FromProbe::Swf,      "ZWS\6",                             {}                           },
        {"whatever",                 FromProbe::Gif,      none,                                {F::FORMAT_GIF, 7, {}}       },
        {"lossy",                    FromProbe::WebP,     Samples::webp + "VP8 ",              {F::FORMAT_WEBP, 100, {}}    },
        {"lossless",                 FromProbe::WebP,     Samples::webp + "VP8L",              {F::FORMAT_WEBP, 100, {}}    },
        {"animated",                 FromProbe::WebP,     Samples::webp + "VP8X\x0a\0\0\0\2"s, {F::FORMAT_AWEBP, 100, {}}   },
        {"animated with alpha",
         FromProbe::WebP,
         Samples::webp + "VP8X\x0a\0\0\0\x12"s,
         {F::FORMAT_AWEBP, 100, {}}                                                                                         },
        {"with alpha only",
         FromProbe::WebP,
         Samples::webp + "VP8X\x0a\0\0\0\x10"s,
         {F::FORMAT_WEBP, 100, {}}                                                                                          },
        {"chunk of another size",    FromProbe::WebP,     Samples::webp + "VP8X\x0b\0\0\0\2"s, {}                           },
        {"a larger size's low byte", FromProbe::WebP,     Samples::webp + "VP8X\x0a\0\0\1\2"s, {}                           },
        {"another chunk",            FromProbe::WebP,     Samples::webp + "ALPH\x0a\0\0\0\2"s, {}                           },
        {"another RIFF file",        FromProbe::WebP,     "RIFF\x1a\0\0\0WAVEVP8 "s,           {}                           },
        {"another container",        FromProbe::WebP,     "RIFX\x1a\0\0\0WEBPVP8 "s,           {}                           },
        {"still",                    FromProbe::Png,      Samples::png,                        {F::FORMAT_PNG, 99, {}}      },
        {"animated",                 FromProbe::Png,      Samples::apng,                       {F::FORMAT_APNG, 100, {}}    },
        {"scored alike",             FromProbe::Png,      "x",                                 {F::FORMAT_PNG, 0, {}}       },
        {"scored alike",             FromProbe::JpegXL,   "x",                                 {F::FORMAT_JPEGXL, 0, {}}    },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what + ": "s + testing::PrintToString(row.bytes));
        ProbeResult result = {"before", 7, "somebody"};
        ProbeResult after = row.after.format.empty() ? result : row.after;
        after.implementation = "somebody";
        row.recognise(*ProbeOf("", row.bytes), result);
        EXPECT_EQ(result, after);
    }
    ProbeResult result;
    FromProbe::IsoMedia(*ProbeOf("a.m4a", "....moov"), result);
    EXPECT_EQ(result.format, Conf::GetFormatsByExtension("m4a").front()) << "no brand: the extension's first";
}

TEST(Recognisers, ReadNothingBehindAShortBuffer)
{
    const struct {
        ProbeRecogniser* recognise;
        std::string bytes;
        size_t needed;  ///< the shortest start that is recognised
        std::string format, otherwise;
    } rows[] = {
        {FromProbe::Matroska, Samples::ebml + "..matroska",        14, F::FORMAT_MATROSKA, "before"     },
        {FromProbe::Matroska, Samples::ebml + "..webm",            10, F::FORMAT_WEBM,     "before"     },
        {FromProbe::IsoMedia, "....ftyp",                          8,  F::FORMAT_MP4,      F::FORMAT_MOV},
        {FromProbe::Swf,      "CWS",                               3,  F::FORMAT_CSWF,     "before"     },
        {FromProbe::WebP,     Samples::webp + "VP8L",              16, F::FORMAT_WEBP,     "before"     },
        {FromProbe::WebP,     Samples::webp + "VP8X\x0a\0\0\0\2"s, 21, F::FORMAT_AWEBP,    "before"     },
    };
    for (const auto& row : rows)
        for (size_t size = 0; size <= row.bytes.size(); ++size) {
            SCOPED_TRACE(testing::PrintToString(row.bytes.substr(0, size)));
            const GuardedBytes bytes(row.bytes.substr(0, size));
            MovieProbe probe;
            probe.buffer = bytes.data();
            probe.size = size;
            ProbeResult result = {"before", 7, {}};
            row.recognise(probe, result);
            EXPECT_EQ(result.format, size < row.needed ? row.otherwise : row.format);
        }
    MovieProbe none;
    none.size = 4096;  // without a buffer
    ProbeResult result;
    FromProbe::IsoMedia(none, result);
    EXPECT_EQ(result.format, F::FORMAT_MOV);
}

TEST(Recognisers, ABrandThatIsCutOffLeavesTheExtensionNoSay)
{
    for (size_t size = 8; size <= 12; ++size)
        for (const char* name : {"a.m4a", "a.mov", "a.3gp", "a.jp2", "a.mkv", "a.mp4", "a"}) {
            SCOPED_TRACE(testing::Message() << name << " of " << size);
            ProbeResult result;
            DetectFileInputFormat(*ProbeOf(name, "\0\0\0\x18"s + "ftypM4B "s.substr(0, size - 4)), result);
            EXPECT_EQ(result,
                      (ProbeResult{size < 12 ? F::FORMAT_MP4 : F::FORMAT_M4B, 100, ImplNames::FFMPEG}));
        }
}

TEST(ImageSequence, TheDemuxersAreThoseOfOnePictureEach)
{
    std::vector<std::string> names, expected;
    for (const AVInputFormat* demuxer : CollectImageDemuxers(InputCatalogue().formats, AllDemuxers()))
        names.emplace_back(demuxer->name);
    for (const AVInputFormat* demuxer : AllDemuxers())
        if (const std::string name = demuxer->name;
            (name.ends_with("_pipe") || name == "alias_pix" || name == "brender_pix") &&
            av_input_format_get_read_probe_func(demuxer))
            expected.push_back(name);
    expected.emplace_back("gif");
    EXPECT_EQ(names, expected);
    EXPECT_EQ(names.size(), 39u);

    for (const char* missing : {"image2", "gif"}) {
        InputMap formats = InputCatalogue().formats;
        formats.erase(missing);
        try {
            CollectImageDemuxers(formats, AllDemuxers());
            ADD_FAILURE() << "collected without " << missing;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
            EXPECT_EQ(PlaceOf(e, ""), (Failure{"", "CollectImageDemuxers", "InputFormat"}));
        }
    }
    InputMap one;
    one["one"] = nullptr;
    EXPECT_THROW(StillAndAnimated(one, "one", "other"), std::out_of_range);
    EXPECT_THROW(StillAndAnimated(one, "other", "one"), std::out_of_range);
}

// The order of the demuxers is nobody's business: every order gives the same.
TEST(ImageSequence, TheOnlyHighestScoreNamesTheFormat)
{
    const ScoringDemuxer<30> bmp("bmp_pipe");
    const ScoringDemuxer<50> tiff("tiff_pipe");
    const ScoringDemuxer<50> pcx("pcx_pipe");
    const ScoringDemuxer<90> gem("gem_pipe");
    const ScoringDemuxer<0> dds("dds_pipe");
    const struct {
        std::vector<const AVInputFormat*> demuxers;
        ProbeResult before, after;
    } rows[] = {
        {{},                    {"x", 10, ""}, {"x", 10, ""}           },
        {{dds},                 {"x", 10, ""}, {"x", 10, ""}           },
        {{bmp, dds},            {"x", 10, ""}, {F::FORMAT_BMP, 30, ""} },
        {{bmp, tiff},           {"x", 70, ""}, {F::FORMAT_TIFF, 70, ""}},
        {{bmp, tiff, pcx},      {"x", 10, ""}, {"x", 10, ""}           },
        {{bmp, tiff, pcx, gem}, {"x", 10, ""}, {F::FORMAT_GEM, 90, ""} },
    };
    for (auto [demuxers, before, after] : rows) {
        std::ranges::sort(demuxers);
        do {
            ProbeResult result = before;
            RecogniseImage(demuxers, *ProbeOf("", "x"), result);
            EXPECT_EQ(result, after);
        } while (std::ranges::next_permutation(demuxers).found);
    }
}

TEST(ImageSequence, ANumberedNameIsRecognisedByItsBytes)
{
    const struct {
        std::string bytes, format;
    } rows[] = {
        {Samples::png,               F::FORMAT_PNG   },
        {Samples::apng,              F::FORMAT_APNG  },
        {Samples::webp + "VP8 ....", F::FORMAT_WEBP  },
        {Samples::gif,               F::FORMAT_GIF   },
        {Samples::unknown,           F::FORMAT_IMAGE2},
    };
    for (const auto& row : rows) {
        ProbeResult result = {F::FORMAT_IMAGE2, 60, {}};
        FromProbe::ImageSequence(*ProbeOf("", row.bytes), result);
        EXPECT_EQ(result.format, row.format);
    }
    ProbeResult result;
    DetectFileInputFormat(*ProbeOf("picture%03d.jpg", Samples::png), result);
    EXPECT_EQ(result, (ProbeResult{F::FORMAT_PNG, 100, ImplNames::FFMPEG}));
}

TEST(GetContainerFormat, NamesWhatFFmpegHasOpened)
{
    using Streams = std::vector<FormatContext::Stream>;
    const FormatContext::Stream targa{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_TARGA},
        h264{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264};
    const Streams one(1, targa), unknown(1, h264), two(2, targa);
    const struct {
        const char* demuxer;
        Streams streams;
        const char* brand;
        std::string format;
    } rows[] = {
        {"hevc",        {},      "",     F::FORMAT_H265     },
        {"aac",         {},      "",     F::FORMAT_AAC      },
        {"aa",          {},      "",     "aa"               },
        {"image2",      one,     "",     F::FORMAT_TARGA    },
        {"image2pipe",  one,     "",     F::FORMAT_TARGA    },
        {"image2",      two,     "",     F::FORMAT_IMAGE2   },
        {"image2",      unknown, "",     F::FORMAT_IMAGE2   },
        {"image2",      {},      "",     F::FORMAT_IMAGE2   },
        {"gif_pipe",    {},      "",     F::FORMAT_GIF      },
        {"png_pipe",    {},      "",     F::FORMAT_PNG      },
        {"jpegxl_pipe", {},      "",     F::FORMAT_JPEGXL   },
        {"mov",         {},      "qt  ", F::FORMAT_MOV      },
        {"mov",         {},      "M4B ", F::FORMAT_M4B      },
        {"mov",         {},      "zzzz", F::FORMAT_MP4      },
        {"mov",         {},      "M4B",  F::FORMAT_QUICKTIME},
        {"mov",         {},      "",     F::FORMAT_QUICKTIME},
        {"matroska",    {},      "",     "matroska,webm"    },
        {"swf",         {},      "",     "swf"              },
        {"webp_pipe",   {},      "",     "webp_pipe"        },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.demuxer + " "s + row.brand);
        FormatContext context(row.demuxer, row.streams);
        context.Metadata("major_brand", row.brand).Url("");  // as custom I/O leaves it
        EXPECT_EQ(GetContainerFormat(context.Get()), row.format);
    }
    const ScoringDemuxer<1> unknownDemuxer("nobody_knows");
    FormatContext context("wav");
    context.Get()->iformat = unknownDemuxer;
    EXPECT_EQ(FailureOf<ProcException>([&] { GetContainerFormat(context.Get()); }),
              (Failure{"Unknown file format", "GetContainerFormat", "InputFormat"}));
    const AVInputFormat nameless{};
    for (const AVInputFormat* demuxer : {&nameless, static_cast<const AVInputFormat*>(nullptr)}) {
        context.Get()->iformat = demuxer;
        EXPECT_THROW(GetContainerFormat(context.Get(), *ProbeOf("", "")), ProcException);
    }
    EXPECT_THROW(GetContainerFormat(nullptr), ProcException);
}

TEST(GetContainerFormat, ReadsTheFileAgainWhereTheContextDoesNotTell)
{
    const std::string before = testing::TempDir() + "RecognisersTest";
    const auto webmBehind = [](size_t bytes) { return Samples::ebml + std::string(bytes, '.') + "webm"; };
    const std::string animated = Samples::webp + "VP8X\x0a\0\0\0\2"s;
    const struct {
        const char* demuxer;
        const char* extension;
        std::string bytes, format;
    } rows[] = {
        {"matroska",  "",     webmBehind(120), F::FORMAT_WEBM },
        {"matroska",  "",     webmBehind(121), "matroska,webm"},
        {"swf",       "",     "CWS",           F::FORMAT_CSWF },
        {"webp_pipe", "",     animated,        F::FORMAT_AWEBP},
        {"mov",       "",     Samples::iso,    F::FORMAT_MOV  },
        {"mov",       ".3g2", "....moov",      F::FORMAT_3G2  },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        const std::string path = before + row.extension;
        std::ofstream(path, std::ios::binary) << row.bytes;
        for (const char* protocol : {"", "file:", "file://"})
            EXPECT_EQ(GetContainerFormat(FormatContext(row.demuxer).Url(protocol + path).Get()), row.format)
                << protocol;
        EXPECT_EQ(std::remove(path.c_str()), 0);
        for (const char* protocol : {"", "FILE:", "pipe:"})
            EXPECT_THROW(GetContainerFormat(FormatContext(row.demuxer).Url(protocol + path).Get()),
                         Core::IOException);
        const auto probe = ProbeOf("stream"s + row.extension, row.bytes.substr(0, 128));
        EXPECT_EQ(GetContainerFormat(FormatContext(row.demuxer).Url(path).Get(), *probe), row.format);
    }
}

}  // namespace
}  // namespace Quorva::Proc
