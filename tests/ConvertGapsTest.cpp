// Gaps in the times of what `tessadrin convert` reads: filled, kept or closed up, in bounded memory and time.
#include "tests/support/Conversions.h"

#include <gmock/gmock.h>

namespace {

constexpr double year = 31'536'000;  // seconds
constexpr double decade = 10 * year;

/// A row's input: 8 seconds of pictures and sound, whose times jump where they are beyond 4 seconds.
struct Input {
    const char* container;
    double pictures = 0;  ///< seconds by which they jump; below 0: there are none
    double sound = 0;
};

class ConvertGaps : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder = std::make_unique<TemporaryFolder>();
        const std::string subtitles =
            folder->Put("s.srt",
                        "1\n00:00:01,000 --> 00:00:02,000\nfirst\n\n2\n00:00:06,000 --> "
                        "00:00:07,000\nsecond\n\n");
        RunFFmpeg({"-f",
                   "lavfi",
                   "-i",
                   "testsrc2=size=64x48:rate=25:duration=8",
                   "-f",
                   "lavfi",
                   "-i",
                   "sine=duration=8",
                   "-i",
                   subtitles,
                   "-c:v",
                   "libx264",
                   "-bf",
                   "2",
                   "-c:a",
                   "mp2",
                   "-c:s",
                   "copy",
                   "-map",
                   "0",
                   "-map",
                   "1",
                   "-map",
                   "2",
                   folder->At("base.mkv")});
        RunFFmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=1/15:duration=60", "-c:v", "mjpeg",
                   folder->At("slides.mkv")});
        RunFFmpeg({"-i", folder->At("base.mkv"), "-map", "0:v", "-map", "0:a", "-c", "copy",
                   folder->At("base.ts")});
        std::ifstream part(folder->At("base.ts"), std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(part), {});
        folder->Put("twice.ts", bytes + bytes);
    }
    static void TearDownTestSuite() { folder.reset(); }

    static std::string Make(const Input& input)
    {
        const std::string path = folder->At(std::string("input.") + input.container);
        std::vector<std::string> line = {"-i",   folder->At("base.mkv"),  "-c",
                                         "copy", "-max_interleave_delta", "0"};
        const auto jump = [&](const char* stream, double seconds) {
            if (seconds < 0)
                return;
            line.insert(line.end(), {"-map", std::string("0:") + stream});
            if (seconds > 0)
                line.insert(line.end(), {std::string("-bsf:") + stream,
                                         fmt::format("setts=pts='if(gt(PTS*TB,4),PTS+{0:.0f}/TB,PTS)':"
                                                     "dts='if(gt(DTS*TB,4),DTS+{0:.0f}/TB,DTS)'",
                                                     seconds)});
        };
        jump("v", input.pictures);
        jump("a", input.sound);
        if (std::string(input.container) == "mkv" && input.pictures >= 0)
            jump("s", input.sound);
        line.push_back(path);
        RunFFmpeg(line);
        return path;
    }

    /// Below a limit of memory, and killed after a time that no row needs.
    /// @param stop  seconds after which it is asked to stop, once: --foreground spares the rest of the group
    static Outcome ConvertWithin(const std::string& input, const std::string& output,
                                 const std::string& options, int stop = 90)
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        const std::string limit;  // their shadow memory needs terabytes of addresses
#else
        const std::string limit = "ulimit -v 1500000; ";
#endif
        return RunProgram({"-c",
                           limit + fmt::format("exec timeout --foreground -k 30 {} ", stop) +
                               TESSADRIN_PROGRAM + " convert \"$0\" \"$1\" --overwrite " + options,
                           input, output},
                          "sh");
    }

    static std::unique_ptr<TemporaryFolder> folder;
};
std::unique_ptr<TemporaryFolder> ConvertGaps::folder;

TEST_F(ConvertGaps, AreClosedUpWhereAllStreamsHaveThem)
{
    const std::string encoded = "--video-codec mpeg4 --audio-codec flac ";
    const struct {
        Input input;
        const char* output;
        std::string options;
        int jumps;        ///< that are reported
        double pictures;  ///< where they end in the output, seconds; below 0: not there
        double sound;
    } rows[] = {
        {{"mkv", 0, 0},           "a.mkv",  "",                                          0, 8,   8    },
        {{"mkv", 3600, 3600},     "a.mkv",  "",                                          1, 8,   8    },
        {{"mkv", 3600, 3600},     "a.mkv",  encoded,                                     1, 8,   8    },
        {{"mkv", decade, decade}, "a.mkv",  encoded,                                     1, 8,   8    },
        {{"mkv", year, year},     "a.mkv",  encoded,                                     1, 8,   8    },
        {{"mkv", decade, decade}, "a.avi",  "--frame-rate 25",                           1, 8,   8    },
        {{"mp4", 3600, 3600},     "a.mkv",  "",                                          1, 8,   8    },
        {{"nut", 3600, 3600},     "a.mp4",  "",                                          1, 8,   8    },
        {{"ts", 3600, 3600},      "a.ts",   "",                                          1, 8,   8    },
        {{"mkv", -1, decade},     "a.flac", "",                                          1, -1,  8    },
        {{"mkv", decade, -1},     "a.mkv",  encoded,                                     1, 8,   -1   },
        {{"mkv", 3600, 3600},     "a.mkv",  encoded + "--duration 6",                    1, 6,   6    },
        {{"mkv", 3600, 3600},     "a.mkv",  encoded + "--start 3 --duration 3",          1, 3,   3    },
        {{"mkv", 3600, 3600},     "a.mkv",  encoded + "--start 2000",                    1, 4,   4    },
        {{"mkv", 3600, 3600},     "a.mkv",  encoded + "--start 3606",                    0, 2,   2    },
        // One stream alone, a pause below the limit, or as asked for: nothing is moved.
        {{"mkv", 0, 60},          "a.mkv",  "",                                          0, 8,   68   },
        {{"mkv", 60, 0},          "a.mkv",  "",                                          0, 68,  8    },
        {{"mkv", 0, 60},          "a.mkv",  encoded,                                     0, 8,   68   },
        {{"mkv", 0, 72000},       "a.mkv",  "--video-codec copy --audio-codec aac",      0, 8,   72008},
        {{"mkv", 60, 0},          "a.avi",  encoded,                                     0, 68,  8    },
        {{"mkv", 9, 9},           "a.mkv",  "",                                          0, 17,  17   },
        {{"mkv", 60, 60},         "a.mkv",  "--max-gap 70",                              0, 68,  68   },
        {{"mkv", 600, 600},       "a.mkv",  "--max-gap none --frame-rate 25 " + encoded, 0, 608, 608  },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(fmt::format("{} {} {} {}", row.input.container, row.input.pictures, row.input.sound,
                                 row.output + (" " + row.options)));
        const std::string output = folder->At(row.output);
        const Outcome outcome = ConvertWithin(Make(row.input), output, row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        int jumps = 0;
        for (const std::string& text : outcome.ErrorLines())
            jumps += text.ends_with("; closed up");
        EXPECT_EQ(jumps, row.jumps) << outcome.errors;
        for (const auto& [kind, end] : {std::pair("v", row.pictures), std::pair("a", row.sound)}) {
            if (end < 0)
                continue;
            const auto streams = Judge(output, {"-map", fmt::format("0:{}", kind)});
            ASSERT_EQ(streams.size(), 1u);
            EXPECT_NEAR(streams[0].end - std::min(streams[0].first, 2.0), end, 0.2) << kind;
        }
    }
}

TEST_F(ConvertGaps, MoveSubtitlesWithTheOtherStreams)
{
    const std::string output = folder->At("s.mkv");
    ASSERT_EQ(ConvertWithin(Make({"mkv", 3600, 3600}), output, "").code, 0);
    const auto streams = Judge(output, {"-map", "0:s", "-c", "copy"});
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0].hashes.size(), 2u);
    EXPECT_NEAR(streams[0].end, 7, 0.2);
}

TEST_F(ConvertGaps, MoveChapters)
{
    const std::string chapters = folder->Put("chapters.txt",
                                             ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1\nSTART=0\nEND=3606\n"
                                             "[CHAPTER]\nTIMEBASE=1/1\nSTART=3606\nEND=3608\n");
    const std::string input = folder->At("chapters.mkv");
    RunFFmpeg({"-i", Make({"mkv", 3600, 3600}), "-i", chapters, "-map", "0", "-map_chapters", "1", "-c",
               "copy", input});
    for (const char* const name : {"c.mkv", "c.mp4"}) {
        SCOPED_TRACE(name);
        const std::string output = folder->At(name);
        ASSERT_EQ(ConvertWithin(input, output, "").code, 0);
        const nlohmann::json probed =
            nlohmann::json::parse(RunProgram({"probe", "--json", output}).output)["files"][0]["chapters"];
        ASSERT_EQ(probed.size(), 2u) << probed;
        EXPECT_NEAR(probed[1]["start"].get<double>(), 6e6, 0.1e6);
    }
}

/// No packet comes much behind those of the other stream.
TEST_F(ConvertGaps, AreFilledAsSlowlyAsTheOtherStreamsAdvance)
{
    RunFFmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25:duration=70", "-f", "lavfi", "-i",
               "sine=duration=70", "-c:v", "mjpeg", "-c:a", "mp2", folder->At("long.mkv")});
    const char* const hole = "noise=drop='gt(pts*tb,4)*lt(pts*tb,64)'";
    const struct {
        const char* stream;  ///< that has the hole
        const char* output;
        const char* options;
    } rows[] = {
        {"a", "f.avi", ""                                        },
        {"a", "f.mxf", "--video-codec mpeg2video"                },
        {"v", "f.avi", "--video-codec mpeg4"                     },
        {"v", "f.ts",  "--video-codec mpeg2video --frame-rate 30"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        const std::string input = folder->At("hole.mkv"), output = folder->At(row.output);
        RunFFmpeg(
            {"-i", folder->At("long.mkv"), "-c", "copy", std::string("-bsf:") + row.stream, hole, input});
        const Outcome outcome =
            ConvertWithin(input, output,
                          std::string("--audio-codec ") +
                              (std::string(row.output) == "f.mxf" ? "pcm_s16le " : "ac3 ") + row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        const Outcome packets = RunProgram(
            {"-v", "error", "-show_entries", "packet=stream_index,dts_time", "-of", "csv=p=0", output},
            "ffprobe");
        double latest[2] = {0, 0}, lag = 0;
        std::istringstream lines(packets.output);
        for (std::string line; std::getline(lines, line);) {
            size_t stream = 0;
            double time = 0;
            if (std::sscanf(line.c_str(), "%zu,%lf", &stream, &time) != 2 || stream > 1)
                continue;
            latest[stream] = std::max(latest[stream], time);
            lag = std::max(lag, std::abs(latest[0] - latest[1]));
        }
        EXPECT_NEAR(latest[0], 70, 2);
        EXPECT_NEAR(latest[1], 70, 2);
        EXPECT_LT(lag, 8);
    }
}

TEST_F(ConvertGaps, GoBackwardsInJoinedRecordingsAndAreNoneInSlideShows)
{
    const struct {
        const char* input;
        const char* options;
        int jumps;
        double end;
    } rows[] = {
        {"twice.ts",   "--video-codec mpeg4 --audio-codec flac", 1, 16},
        {"twice.ts",   "",                                       1, 16},
        {"slides.mkv", "",                                       0, 60},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        const std::string output = folder->At("joined.mkv");
        const Outcome outcome = ConvertWithin(folder->At(row.input), output, row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_EQ(outcome.errors.find("; closed up") != std::string::npos, row.jumps > 0) << outcome.errors;
        for (const JudgedStream& stream : Judge(output, {"-map", "0"}))
            EXPECT_NEAR(stream.end, row.end, 0.3) << stream.kind;
    }
}

/// Ten years, of which only seconds are made before it is asked to stop.
TEST_F(ConvertGaps, EndAtOnceWhenFillingThemIsStopped)
{
    const struct {
        Input input;
        const char* output;
        const char* options;
    } rows[] = {
        {{"mkv", -1, decade},     "a.flac", ""                                                      },
        {{"mkv", decade, -1},     "a.avi",  "--video-codec mpeg4"                                   },
        {{"mkv", decade, decade}, "a.mkv",  "--video-codec mpeg4 --audio-codec flac --frame-rate 25"},
        {{"mkv", 0, decade},      "a.mkv",  "--audio-codec flac"                                    },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        const Outcome outcome = ConvertWithin(Make(row.input), folder->At(row.output),
                                              std::string(row.options) + " --max-gap none", 3);
        EXPECT_EQ(outcome.code, 124) << "asked to stop; 137 when it had to be killed\n" << outcome.errors;
        EXPECT_THAT(outcome.errors, testing::HasSubstr("stopped; what had been read by then is in it"));
    }
}

}  // namespace
