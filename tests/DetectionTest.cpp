// What a file is: the extension proposes, the bytes decide.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/Demuxers.h"
#include "tests/support/Failure.h"
#include "tests/support/Probes.h"

#include <algorithm>
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

/// An input that doesn't know its size and counts what is read of it.
class CountedInput final : public RefCounted<Core::IDataInput> {
public:
    CountedInput(const std::string& name, const std::string& bytes)
        : inner(Core::DataInputMemory::Create({bytes.begin(), bytes.end()}, name))
    {
    }
    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        const uint64_t count = inner->Read(buffer, std::min<uint64_t>(size, 30'000));
        total += count;
        return count;
    }
    uint64_t GetSize() override { Throw<Core::IOException>("no size"); }
    uint64_t MoveBy(int64_t offset) override { return inner->MoveBy(offset); }
    void MoveTo(uint64_t position) override { inner->MoveTo(position); }
    const std::string& GetName() const noexcept override { return inner->GetName(); }

    uint64_t total = 0;

private:
    const boost::intrusive_ptr<Core::IDataInput> inner;
};

/// An ID3v2 tag with `size` bytes in it.
std::string ID3(uint32_t size, char version = 3, char flags = 0)
{
    std::string tag = "ID3"s + version + '\0' + flags;
    for (int shift = 21; shift >= 0; shift -= 7)
        tag += static_cast<char>(size >> shift & 0x7F);
    return tag + std::string(size, 'x');
}

TEST(DetectInputFormat, LooksCloserAndBehindTags)
{
    const std::string ape =
        "APETAGEX\xd0\7\0\0\xa0\x86\1\0\1\0\0\0\0\0\0\xa0\0\0\0\0\0\0\0\0"s + std::string(100'000, 'x');
    // The probe for H.264 gives up at a unit with a forbidden bit.
    const std::string damaged =
        "\0\0\0\1\x67\x42\0\x1e\xab\x40\0\0\0\1\x68\xce\x3c\x80\0\0\0\1\x65\x88\x84"s +
        std::string(20'000, 'U') + "\0\0\0\1\xff"s + std::string(20'000, 'U');
    const std::string& byFFmpeg = ImplNames::FFMPEG;
    const ProbeResult png{F::FORMAT_PNG, 99, byFFmpeg};
    const struct {
        const char* what;
        const char* name;
        std::string bytes;
        ProbeResult after;
        uint64_t mediaStart;
    } rows[] = {
        {"no tag", "a", Samples::png, png, 0},
        {"short tag", "a", ID3(1000) + Samples::png, png, 1010},
        {"200 KB", "a", ID3(200'000) + Samples::png, png, 200'010},
        {"200 KB, a misleading name", "a.mp3", ID3(200'000) + Samples::png, png, 200'010},
        {"40 KB, a misleading name", "a.mp3", ID3(40'000) + Samples::png, png, 40'010},
        {"3 MB, a misleading name", "a.mp3", ID3(3'000'000) + Samples::png, png, 3'000'010},
        {"nothing behind it", "a.mp3", ID3(40'000) + Samples::unknown, {F::FORMAT_MP3, 12, byFFmpeg}, 40'010},
        {"with a footer", "a", ID3(100'000, 4, 0x10) + "3DI-footer" + Samples::png, png, 100'020},
        {"a flag without a footer", "a", ID3(100'000, 3, 0x10) + Samples::png, png, 100'010},
        {"several tags", "a", ape + ID3(100'000) + ID3(0) + Samples::png, png, 200'052},
        {"a tag that claims too much", "a", ID3(1000).substr(0, 500), {}, 1010},
        {"damage further on", "a", damaged, {F::FORMAT_H264, 51, byFFmpeg}, 0},
        {"both", "a", ID3(100'000) + damaged, {F::FORMAT_H264, 51, byFFmpeg}, 100'010},
        {"nothing that is known", "a", std::string(5'000'000, 'U'), {}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto input = MakeRefCounted<CountedInput>(row.name, row.bytes);
        input->MoveTo(7);
        ProbeResult result;
        EXPECT_EQ(DetectInputFormat(input, result), row.mediaStart);
        EXPECT_EQ(result, row.after);
        EXPECT_EQ(input->MoveBy(0), 7u);
        EXPECT_LT(input->total, (1 << 20) + (64 << 10) + 1000u);
    }
    ProbeResult better = {"something", 100, "somebody"};
    DetectInputFormat(MakeRefCounted<CountedInput>("a", Samples::png), better);
    EXPECT_EQ(better, (ProbeResult{"something", 100, "somebody"}));
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
