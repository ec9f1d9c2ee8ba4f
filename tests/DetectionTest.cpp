// What a file is: the rule that finds it, and the recognisers that tell formats of one demuxer apart.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Demuxers.h"
#include "tests/support/Failure.h"
#include "tests/support/FormatContext.h"
#include "tests/support/GuardedBytes.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace Quorva::Proc {

bool operator==(const ProbeResult& a, const ProbeResult& b)
{
    return a.format == b.format && a.score == b.score && a.implementation == b.implementation;
}

std::ostream& operator<<(std::ostream& stream, const ProbeResult& result)
{
    return stream << '"' << result.format << "\" " << result.score << " by \"" << result.implementation
                  << '"';
}

namespace {

using namespace Details;  // NOLINT(google-build-using-namespace): the library's insides are what is tested
using namespace std::string_literals;
using Conf::IFormatFile;

std::unique_ptr<const MovieProbe> ProbeOf(const std::string& fileName, const std::string& bytes)
{
    return MovieProbe::Create(fileName, {bytes.begin(), bytes.end()});
}

const std::string isoStart =
    "\0\0\0\x18"s
    "ftypisom\0\0\2\0isomiso2"s;
const std::string webpStart = "RIFF\x1a\0\0\0WEBP"s;
const std::string ebml = "\x1A\x45\xDF\xA3"s;
const std::string pngStart = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\2\0\0\0\x90wS\xde"s;
const std::string animation =
    "\0\0\0\x08"s
    "acTL\0\0\0\1\0\0\0\0....\0\0\0\1IDAT"s;

// ---- The extension's step, with demuxers that score what the row says.

const ScoringDemuxer<40> wav("wav");
const ScoringDemuxer<40> au("au");
const ScoringDemuxer<60> aa("aa");
const ScoringDemuxer<0> voc("voc");

ProbeResult AmongScored(const std::vector<std::string>& candidates, ProbeResult result = {})
{
    static const AVInputFormat* const silent = av_find_input_format("s16le");  // without a probe
    const InputMap formats = {
        {IFormatFile::FORMAT_WAV, wav   },
        {IFormatFile::FORMAT_AU,  au    },
        {"aa",                    aa    },
        {IFormatFile::FORMAT_VOC, voc   },
        {IFormatFile::FORMAT_AVI, wav   },
        {"s16le",                 silent}
    };
    DetectAmong(candidates, formats, *ProbeOf("", "x"), result);
    return result;
}

TEST(DetectAmong, AConfirmedProposalWithAHigherScoreWins)
{
    const std::string &WAV = IFormatFile::FORMAT_WAV, &AU = IFormatFile::FORMAT_AU,
                      &VOC = IFormatFile::FORMAT_VOC, &AVI = IFormatFile::FORMAT_AVI;
    const struct {
        const char* what;
        std::vector<std::string> candidates;
        ProbeResult before, after;
    } rows[] = {
        {"nothing proposed",            {},              {"x", 3, "y"},  {"x", 3, "y"} },
        {"unknown to the map",          {"mkv", WAV},    {},             {WAV, 40, ""} },
        {"a demuxer without a probe",   {"s16le"},       {},             {}            },
        {"score 0 is not higher",       {VOC},           {},             {}            },
        {"the higher one, after",       {WAV, "aa"},     {},             {"aa", 60, ""}},
        {"the higher one, before",      {"aa", WAV},     {},             {"aa", 60, ""}},
        {"a tie names nothing",         {WAV, AU},       {},             {"", 40, ""}  },
        {"a tie below a higher one",    {WAV, AU, "aa"}, {},             {"aa", 60, ""}},
        {"a higher one, then a tie",    {"aa", WAV, AU}, {},             {"aa", 60, ""}},
        {"found before, scored higher", {WAV},           {"x", 50, "y"}, {"x", 50, "y"}},
        {"found before, scored alike",  {WAV},           {"x", 40, "y"}, {"", 40, "y"} },
        {"found before, scored lower",  {WAV},           {"x", 30, "y"}, {WAV, 40, ""} },
        {"content of another format",   {AVI},           {},             {}            },
        {"second of one demuxer",       {AVI, WAV},      {},             {WAV, 40, ""} },
        {"one demuxer is not a tie",    {WAV, AVI},      {},             {WAV, 40, ""} },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(AmongScored(row.candidates, row.before), row.after);
    }
    decltype(wav)::calls = 0;
    AmongScored({AVI, WAV, AVI, WAV});
    EXPECT_EQ(decltype(wav)::calls, 1);
}

TEST(DetectAmong, AnUnknownDemuxerIsAnError)
{
    const ScoringDemuxer<50> unknown("nobody_knows");
    ProbeResult result;
    EXPECT_EQ(FailureOf<ProcException>([&] {
                  DetectAmong(
                      {
                          "x"
                  },
                      {{"x", unknown}}, *ProbeOf("", "x"), result);
              }),
              (Failure{"Unknown file format", "GetFormatID", "InputFormat"}));
    EXPECT_EQ(result, ProbeResult());
}

// ---- The whole rule.

TEST(DetectFileInputFormat, TheExtensionProposesAndTheBytesDecide)
{
    const std::string gif = "GIF89a\1\0\1\0\x80\0\0\0\0\0\xff\xff\xff,\0\0\0\0\1\0\1\0\0\2\2\x44\1\0;"s;
    const std::string& byFFmpeg = ImplNames::FFMPEG;
    const struct {
        const char* what;
        const char* fileName;
        std::string bytes;
        ProbeResult after;
    } rows[] = {
        {"second proposal of one demuxer",   "a.mov", isoStart,              {IFormatFile::FORMAT_MP4, 100, byFFmpeg} },
        {"no extension",                     "a",     isoStart,              {IFormatFile::FORMAT_MP4, 100, byFFmpeg} },
        {"extension of something else",      "a.png", isoStart,              {IFormatFile::FORMAT_MP4, 100, byFFmpeg} },
        {"extension that proposes nothing",  "a.zzz", isoStart,              {IFormatFile::FORMAT_MP4, 100, byFFmpeg} },
        {"one of two proposals",             "a.png", pngStart,              {IFormatFile::FORMAT_PNG, 99, byFFmpeg}  },
        {"the other",                        "a.png", pngStart + animation,  {IFormatFile::FORMAT_APNG, 100, byFFmpeg}},
        {"the same without extension",       "a",     pngStart,              {IFormatFile::FORMAT_PNG, 99, byFFmpeg}  },
        {"the same without extension",       "a",     pngStart + animation,  {IFormatFile::FORMAT_APNG, 100, byFFmpeg}},
        {"two demuxers of one format",       "a.gif", gif,                   {IFormatFile::FORMAT_GIF, 100, byFFmpeg} },
        {"a picture's demuxer by file name",
         "a.tga",                                     "no signature at all",
         {IFormatFile::FORMAT_IMAGE2, 50, byFFmpeg}                                                                   },
        {"nothing",                          "a",     "",                    {}                                       },
        {"nothing that is known",            "a",     "no signature at all", {}                                       },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fileName + ": "s + row.what);
        ProbeResult result;
        DetectFileInputFormat(*ProbeOf(row.fileName, row.bytes), result);
        EXPECT_EQ(result, row.after);
    }
    ProbeResult result;
    DetectFileInputFormat(MovieProbe(), result);
    EXPECT_EQ(result, ProbeResult()) << "a probe without a buffer";
}

TEST(DetectFileInputFormat, WhatWasFoundBeforeStandsUnlessBeaten)
{
    ProbeResult result = {"something", 99, "somebody"};
    DetectFileInputFormat(*ProbeOf("a.mp4", isoStart), result);
    EXPECT_EQ(result, (ProbeResult{IFormatFile::FORMAT_MP4, 100, ImplNames::FFMPEG}));

    // Another score of 100 takes the format away, and FFmpeg's search finds it again.
    result = {"something", 100, "somebody"};
    DetectFileInputFormat(*ProbeOf("a.mp4", isoStart), result);
    EXPECT_EQ(result, (ProbeResult{IFormatFile::FORMAT_MP4, 100, ImplNames::FFMPEG}));

    result = {"something", 1, "somebody"};
    DetectFileInputFormat(*ProbeOf("a", isoStart), result);
    EXPECT_EQ(result, (ProbeResult{"something", 1, ImplNames::FFMPEG}))
        << "without an extension nobody looks";

    result = {"something", 0, "somebody"};
    DetectFileInputFormat(*ProbeOf("a", "no signature at all"), result);
    EXPECT_EQ(result, (ProbeResult{"something", 0, "somebody"}));
}

TEST(DetectFileInputFormat, TheGeneralSearchNeedsAScoreOf25)
{
    // A tag longer than the probe, on a file named like MPEG audio, is worth 24; five frames anywhere are 25.
    const auto tag = ProbeOf("", "ID3\3\0\0\0\0\x7f\x7f"s + std::string(100, 'x'));
    MovieProbe named;
    named.fileName = "a.mp3";
    named.buffer = tag->buffer;
    named.size = tag->size;
    std::string frames = "x";
    for (int i = 0; i < 5; ++i)
        frames += "\xff\xfb\x90\x64" + std::string(413, '\0');
    const auto audio = ProbeOf("a", frames);

    const auto general = [](const MovieProbe& probe) {
        const AVProbeData data = ProbeDataOf(probe);
        int score = 0;
        return av_probe_input_format3(&data, 1, &score) ? score : -1;
    };
    ASSERT_EQ(general(named), 24);
    ASSERT_EQ(general(*audio), 25);
    ProbeResult result;
    DetectFileInputFormat(named, result);
    EXPECT_EQ(result, ProbeResult());
    DetectFileInputFormat(*audio, result);
    EXPECT_EQ(result, (ProbeResult{IFormatFile::FORMAT_MP3, 25, ImplNames::FFMPEG}));
}

TEST(DetectFileInputFormat, ADemuxerThatThePipelineDoesNotKnowIsAnError)
{
    const struct {
        const char* demuxer;  ///< not every FFmpeg has it
        std::string bytes;
    } rows[] = {
        {"libgme", "\x1f\x8b\x08\0\0\0\0\0\0\3"s + std::string(30, 'x')},
        {"dash",        "<?xml version=\"1.0\"?>\n<MPD profiles=\"urn:mpeg:dash:profile:isoff-live:2011\">\n"                                                },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.demuxer);
        ProbeResult result;
        const auto probe = ProbeOf("a", row.bytes);
        const auto detect = [&] { DetectFileInputFormat(*probe, result); };
        if (!av_find_input_format(row.demuxer)) {
            EXPECT_NO_THROW(detect());
            continue;
        }
        EXPECT_EQ(FailureOf<ProcException>(detect),
                  (Failure{"Unknown file format", "GetFormatID", "InputFormat"}));
        EXPECT_EQ(result.format, "");
        EXPECT_EQ(result.implementation, "");
    }
}

// ---- Recognisers.

TEST(Recognisers, BytesThatTellFormatsApart)
{
    const std::string none;
    const struct {
        const char* what;
        ProbeRecogniser* recognise;
        std::string bytes;
        ProbeResult after;  ///< empty format: nothing may change
    } rows[] = {
        {"both types",
         FromProbe::Matroska,
         ebml + "x webm matroska",
         {IFormatFile::FORMAT_MATROSKA, 100, {}}                                                                               },
        {"one type",                 FromProbe::Matroska, ebml + "\x42\x82\x84webm",       {IFormatFile::FORMAT_WEBM, 100, {}} },
        {"no type",                  FromProbe::Matroska, ebml + "matrosk",                {}                                  },
        {"type without a magic",     FromProbe::Matroska, "xxxxmatroska",                  {}                                  },
        {"magic not at the start",   FromProbe::Matroska, "x" + ebml + "matroska",         {}                                  },
        {"known brand",              FromProbe::IsoMedia, "....ftypqt  ",                  {IFormatFile::FORMAT_MOV, 100, {}}  },
        {"unknown brand",            FromProbe::IsoMedia, "....ftyp\xff\xfe\xfd\xfc",      {IFormatFile::FORMAT_MP4, 7, {}}    },
        {"no brand",                 FromProbe::IsoMedia, "....moov....",                  {IFormatFile::FORMAT_MOV, 7, {}}    },
        {"plain",                    FromProbe::Swf,      "FWS\6",                         {IFormatFile::FORMAT_SWF, 100, {}}  },
        {"compressed",               FromProbe::Swf,      "CWS\6",                         {IFormatFile::FORMAT_CSWF, 100, {}} },
        {"compressed otherwise",     FromProbe::Swf,      "ZWS\6",                         {}                                  },
        {"whatever",                 FromProbe::Gif,      none,                            {IFormatFile::FORMAT_GIF, 7, {}}    },
        {"lossy",                    FromProbe::WebP,     webpStart + "VP8 ",              {IFormatFile::FORMAT_WEBP, 100, {}} },
        {"lossless",                 FromProbe::WebP,     webpStart + "VP8L",              {IFormatFile::FORMAT_WEBP, 100, {}} },
        {"animated",                 FromProbe::WebP,     webpStart + "VP8X\x0a\0\0\0\2"s, {IFormatFile::FORMAT_AWEBP, 100, {}}},
        {"animated with alpha",
         FromProbe::WebP,
         webpStart + "VP8X\x0a\0\0\0\x12"s,
         {IFormatFile::FORMAT_AWEBP, 100, {}}                                                                                  },
        {"with alpha only",
         FromProbe::WebP,
         webpStart + "VP8X\x0a\0\0\0\x10"s,
         {IFormatFile::FORMAT_WEBP, 100, {}}                                                                                   },
        {"chunk of another size",    FromProbe::WebP,     webpStart + "VP8X\x0b\0\0\0\2"s, {}                                  },
        {"a larger size's low byte", FromProbe::WebP,     webpStart + "VP8X\x0a\0\0\1\2"s, {}                                  },
        {"another chunk",            FromProbe::WebP,     webpStart + "ALPH\x0a\0\0\0\2"s, {}                                  },
        {"another RIFF file",        FromProbe::WebP,     "RIFF\x1a\0\0\0WAVEVP8 "s,       {}                                  },
        {"another container",        FromProbe::WebP,     "RIFX\x1a\0\0\0WEBPVP8 "s,       {}                                  },
        {"still",                    FromProbe::Png,      pngStart,                        {IFormatFile::FORMAT_PNG, 99, {}}   },
        {"animated",                 FromProbe::Png,      pngStart + animation,            {IFormatFile::FORMAT_APNG, 100, {}} },
        {"scored alike",             FromProbe::Png,      "x",                             {IFormatFile::FORMAT_PNG, 0, {}}    },
        {"scored alike",             FromProbe::JpegXL,   "x",                             {IFormatFile::FORMAT_JPEGXL, 0, {}} },
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
        {FromProbe::Matroska, ebml + "..matroska",             14, IFormatFile::FORMAT_MATROSKA, "before"               },
        {FromProbe::Matroska, ebml + "..webm",                 10, IFormatFile::FORMAT_WEBM,     "before"               },
        {FromProbe::IsoMedia, "....ftypM4B ",                  12, IFormatFile::FORMAT_M4B,      IFormatFile::FORMAT_MOV},
        {FromProbe::Swf,      "CWS",                           3,  IFormatFile::FORMAT_CSWF,     "before"               },
        {FromProbe::WebP,     webpStart + "VP8L",              16, IFormatFile::FORMAT_WEBP,     "before"               },
        {FromProbe::WebP,     webpStart + "VP8X\x0a\0\0\0\2"s, 21, IFormatFile::FORMAT_AWEBP,    "before"               },
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
    EXPECT_THROW(StillAndAnimated(
                     {
                         {"a", wav}
    },
                     "a", "b"),
                 std::out_of_range);
    EXPECT_THROW(StillAndAnimated(
                     {
                         {"b", wav}
    },
                     "a", "b"),
                 std::out_of_range);
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
        {{},                    {"x", 10, ""}, {"x", 10, ""}                     },
        {{dds},                 {"x", 10, ""}, {"x", 10, ""}                     },
        {{bmp, dds},            {"x", 10, ""}, {IFormatFile::FORMAT_BMP, 30, ""} },
        {{bmp, tiff},           {"x", 70, ""}, {IFormatFile::FORMAT_TIFF, 70, ""}},
        {{bmp, tiff, pcx},      {"x", 10, ""}, {"x", 10, ""}                     },
        {{bmp, tiff, pcx, gem}, {"x", 10, ""}, {IFormatFile::FORMAT_GEM, 90, ""} },
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
        {pngStart,               IFormatFile::FORMAT_PNG   },
        {pngStart + animation,   IFormatFile::FORMAT_APNG  },
        {webpStart + "VP8 ....", IFormatFile::FORMAT_WEBP  },
        {"GIF89a\1\0\1\0"s,      IFormatFile::FORMAT_GIF   },
        {"no signature at all",  IFormatFile::FORMAT_IMAGE2},
    };
    for (const auto& row : rows) {
        ProbeResult result = {IFormatFile::FORMAT_IMAGE2, 60, {}};
        FromProbe::ImageSequence(*ProbeOf("", row.bytes), result);
        EXPECT_EQ(result.format, row.format);
    }
    ProbeResult result;
    DetectFileInputFormat(*ProbeOf("picture%03d.jpg", pngStart), result);
    EXPECT_EQ(result, (ProbeResult{IFormatFile::FORMAT_PNG, 100, ImplNames::FFMPEG}));
}

// ---- Opened files.

TEST(GetContainerFormat, NamesWhatFFmpegHasOpened)
{
    using Streams = std::vector<FormatContext::Stream>;
    const Streams one =
                      {
                          {AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_TARGA}
    },
                  unknown = {{AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264}}, two = {one.front(), one.front()};
    const struct {
        const char* demuxer;
        Streams streams;
        const char* brand;
        std::string format;
    } rows[] = {
        {"hevc",        {},      "",     IFormatFile::FORMAT_H265     },
        {"aac",         {},      "",     IFormatFile::FORMAT_AAC      },
        {"aa",          {},      "",     "aa"                         },
        {"image2",      one,     "",     IFormatFile::FORMAT_TARGA    },
        {"image2pipe",  one,     "",     IFormatFile::FORMAT_TARGA    },
        {"image2",      two,     "",     IFormatFile::FORMAT_IMAGE2   },
        {"image2",      unknown, "",     IFormatFile::FORMAT_IMAGE2   },
        {"image2",      {},      "",     IFormatFile::FORMAT_IMAGE2   },
        {"gif_pipe",    {},      "",     IFormatFile::FORMAT_GIF      },
        {"png_pipe",    {},      "",     IFormatFile::FORMAT_PNG      },
        {"jpegxl_pipe", {},      "",     IFormatFile::FORMAT_JPEGXL   },
        {"mov",         {},      "qt  ", IFormatFile::FORMAT_MOV      },
        {"mov",         {},      "M4B ", IFormatFile::FORMAT_M4B      },
        {"mov",         {},      "zzzz", IFormatFile::FORMAT_MP4      },
        {"mov",         {},      "M4B",  IFormatFile::FORMAT_QUICKTIME},
        {"mov",         {},      "",     IFormatFile::FORMAT_QUICKTIME},
        {"matroska",    {},      "",     "matroska,webm"              },
        {"swf",         {},      "",     "swf"                        },
        {"webp_pipe",   {},      "",     "webp_pipe"                  },
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
    context.Get()->iformat = nullptr;
}

TEST(GetContainerFormat, ReadsTheFileAgainWhereTheContextDoesNotTell)
{
    const std::string folder = testing::TempDir();
    const struct {
        const char* demuxer;
        const char* fileName;
        std::string bytes, format;
    } rows[] = {
        {"matroska",                 "a.bin", ebml + "webm",          IFormatFile::FORMAT_WEBM        },
        {"matroska",                 "a.bin", ebml + std::string(120, '.') + "webm",                    IFormatFile::FORMAT_WEBM},
        {"matroska",                          "a.bin",                        ebml + std::string(121,              '.') + "webm", "matroska,webm"},
        {"swf",           "a.bin",                  "CWS",                                    IFormatFile::FORMAT_CSWF                                                  },
        {"webp_pipe",  "a.bin",         webpStart + "VP8X\x0a\0\0\0\2"s,IFormatFile::FORMAT_AWEBP},
        {"mov", "a.bin",        isoStart,                                         IFormatFile::FORMAT_MOV                                                                                                          },
        {"mov",   "a.3g2",          "....moov",IFormatFile::FORMAT_3G2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        const std::string path = folder + row.fileName;
        std::ofstream(path, std::ios::binary) << row.bytes;
        EXPECT_EQ(GetContainerFormat(FormatContext(row.demuxer).Url(path).Get()), row.format);
        EXPECT_EQ(std::remove(path.c_str()), 0);
        EXPECT_THROW(GetContainerFormat(FormatContext(row.demuxer).Url(path).Get()), Core::IOException);
    }
}

}  // namespace
}  // namespace Quorva::Proc
