// What a file is: the extension proposes, the bytes decide.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Demuxers.h"
#include "tests/support/Failure.h"
#include "tests/support/Probes.h"

#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace Quorva::Proc {
namespace {

using namespace Details;  // NOLINT(google-build-using-namespace): the library's insides are what is tested
using namespace std::string_literals;
using F = Conf::IFormatFile;

// First, so that every table built on first use is built here.
TEST(Detection, ManyThreadsAtOnce)
{
    std::latch start(4);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (const char* fileName : {"a.png", "a.jxl", "a%03d.png"}) {
                ProbeResult result;
                DetectFileInputFormat(*ProbeOf(fileName, Samples::png), result);
                EXPECT_EQ(result.format, F::FORMAT_PNG) << fileName;
            }
            ProbeResult result;
            FromProbe::JpegXL(*ProbeOf("", "x"), result);
            EXPECT_EQ(result.format, F::FORMAT_JPEGXL);
            EXPECT_FALSE(GetFFMPEGSupportedInputFormats().empty());
        });
    for (std::thread& thread : threads)
        thread.join();
}

// ---- The extension's step, with demuxers that score what the row says.

const ScoringDemuxer<40> wav("wav");
const ScoringDemuxer<40> au("au");
const ScoringDemuxer<60> aa("aa");
const ScoringDemuxer<0> voc("voc");

ProbeResult AmongScored(const std::vector<std::string>& candidates, ProbeResult result = {})
{
    static const AVInputFormat* const silent = av_find_input_format("s16le");  // without a probe
    const InputMap formats = {
        {F::FORMAT_WAV, wav   },
        {F::FORMAT_AU,  au    },
        {"aa",          aa    },
        {F::FORMAT_VOC, voc   },
        {F::FORMAT_AVI, wav   },
        {"s16le",       silent}
    };
    DetectAmong(candidates, formats, *ProbeOf("", "x"), result);
    return result;
}

TEST(DetectAmong, AConfirmedProposalWithAHigherScoreWins)
{
    const std::string &WAV = F::FORMAT_WAV, &AU = F::FORMAT_AU, &VOC = F::FORMAT_VOC, &AVI = F::FORMAT_AVI;
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
    InputMap formats;
    formats["x"] = unknown;
    const auto detect = [&] { DetectAmong({"x"}, formats, *ProbeOf("", "x"), result); };
    EXPECT_EQ(FailureOf<ProcException>(detect),
              (Failure{"Unknown file format", "GetFormatID", "InputFormat"}));
    EXPECT_EQ(result, ProbeResult());
}

// ---- The whole rule.

TEST(DetectFileInputFormat, TheExtensionProposesAndTheBytesDecide)
{
    const std::string& byFFmpeg = ImplNames::FFMPEG;
    const struct {
        const char* what;
        const char* fileName;
        std::string bytes;
        ProbeResult after;
    } rows[] = {
        {"second proposal of one demuxer",   "a.mov", Samples::iso,     {F::FORMAT_MP4, 100, byFFmpeg}  },
        {"no extension",                     "a",     Samples::iso,     {F::FORMAT_MP4, 100, byFFmpeg}  },
        {"extension of something else",      "a.png", Samples::iso,     {F::FORMAT_MP4, 100, byFFmpeg}  },
        {"extension that proposes nothing",  "a.zzz", Samples::iso,     {F::FORMAT_MP4, 100, byFFmpeg}  },
        {"one of two proposals",             "a.png", Samples::png,     {F::FORMAT_PNG, 99, byFFmpeg}   },
        {"the other",                        "a.png", Samples::apng,    {F::FORMAT_APNG, 100, byFFmpeg} },
        {"the same without extension",       "a",     Samples::png,     {F::FORMAT_PNG, 99, byFFmpeg}   },
        {"the same without extension",       "a",     Samples::apng,    {F::FORMAT_APNG, 100, byFFmpeg} },
        {"two demuxers of one format",       "a.gif", Samples::gif,     {F::FORMAT_GIF, 100, byFFmpeg}  },
        {"a picture's demuxer by file name", "a.tga", Samples::unknown, {F::FORMAT_IMAGE2, 50, byFFmpeg}},
        {"nothing",                          "a",     "",               {}                              },
        {"nothing that is known",            "a",     Samples::unknown, {}                              },
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
    DetectFileInputFormat(*ProbeOf("a.mp4", Samples::iso), result);
    EXPECT_EQ(result, (ProbeResult{F::FORMAT_MP4, 100, ImplNames::FFMPEG}));

    // Another score of 100 takes the format away, and FFmpeg's search finds it again.
    result = {"something", 100, "somebody"};
    DetectFileInputFormat(*ProbeOf("a.mp4", Samples::iso), result);
    EXPECT_EQ(result, (ProbeResult{F::FORMAT_MP4, 100, ImplNames::FFMPEG}));

    result = {"something", 1, "somebody"};
    DetectFileInputFormat(*ProbeOf("a", Samples::iso), result);
    EXPECT_EQ(result, (ProbeResult{"something", 1, ImplNames::FFMPEG}))
        << "without an extension nobody looks";

    result = {"something", 0, "somebody"};
    DetectFileInputFormat(*ProbeOf("a", Samples::unknown), result);
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
    EXPECT_EQ(result, (ProbeResult{F::FORMAT_MP3, 25, ImplNames::FFMPEG}));
}

TEST(DetectFileInputFormat, ADemuxerThatThePipelineDoesNotKnowIsAnError)
{
    const struct {
        const char* demuxer;  ///< not every FFmpeg has it
        std::string bytes;
    } rows[] = {
        {"libgme", "\x1f\x8b\x08\0\0\0\0\0\0\3"s + std::string(30, 'x')},
        {"dash", "<?xml version=\"1.0\"?>\n<MPD profiles=\"urn:mpeg:dash:profile:isoff-live:2011\">\n"},
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

}  // namespace
}  // namespace Quorva::Proc
