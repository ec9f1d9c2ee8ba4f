// How `tessadrin convert` ends: refused, interrupted, or without room; and that nothing else is left then.
#include "tests/support/Conversions.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

using nlohmann::json;
using testing::HasSubstr;

TEST(ConvertEnds, RefusesWithOneLineAndLeavesNothing)
{
    const TemporaryFolder folder;
    const std::string input = Made("h264-aac.mp4");
    const std::string damaged = folder.Put("damaged.png", "\x89PNG\r\n\x1a\n" + std::string(5000, 'x'));
    const struct {
        std::string input;
        const char* output;
        const char* options;
        int code;
        const char* text;
    } rows[] = {
        {input,                     "a.mp4",         "--option prest=fast",             2, "did you mean 'preset'?"                                    },
        {input,                     "a.mp4",         "--option coder=cabax",            2, "did you mean 'cabac'?"                                     },
        {input,                     "a.mp4",         "--video-codec h265",              2, "it is called hevc here"                                    },
        {input,                     "a.xyz",         "",                                2, "--format does"                                             },
        {input,                     "a.mp4",         "--format matroxka",               2, "did you mean 'matroska'?"                                  },
        {input,                     "a.mp4",         "--video-codec copy --size 64x48", 2, "leave its other options out"                               },
        {input,                     "a.mp4",         "--map 7",                         2, "matches no stream; there are 2"                            },
        {input,                     "a.mp4",         "--encoder-implementation nvenc",  1, "nvenc"                                                     },
        {input,                     "a.webm",        "--video-codec h264",              1, "webm doesn't hold h264"                                    },
        {input,                     "a.dv",          "",                                1, "encoder dvvideo refuses 128x96"                            },
        {folder.At("missing.mp4"),  "a.mp4",         "",                                1, "No such file"                                              },
        {damaged,                   "a.jpg",         "",                                1, "the size of its pictures is unknown: "                     },
        {input,                     "a.mp4",         "--size 65x49",                    1, "even sizes: 64x48 or 66x50 instead of 65x49"               },
        {input,                     "a.mp4",         "--size x49",                      1, "even sizes: x48 or x50 instead of x49"                     },
        {input,                     "a%d%d.png",     "",                                2, "more than one place"                                       },
        {input,                     "a%25d.png",     "",                                2, "more than 18 digits"                                       },
        {input,                     "a%n.png",       "",                                2, "'%n' is no place"                                          },
        {input,                     "a%%.png",       "",                                2, "'%%' is no place"                                          },
        {Made("h264-flac-srt.mkv"), "a.mkv",         "--map s --duration 0",            1, "no packet was written"                                     },
        {input,                     "nowhere/a.mp4", "",                                1, "nowhere/a.mp4: can't be written: No such file or directory"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const Outcome outcome = Convert(row.input, folder.At(row.output), row.options);
        EXPECT_EQ(outcome.code, row.code);
        ASSERT_FALSE(outcome.ErrorLines().empty());
        EXPECT_THAT(outcome.ErrorLines().back(), HasSubstr(row.text));
        EXPECT_THAT(FilesIn(folder.path), testing::ElementsAre("damaged.png"));
    }
}

TEST(ConvertEnds, FailsWhenAStreamGivesNothing)
{
    const TemporaryFolder folder;
    const auto make = [&](const char* input, const char* output, const char* drop) {
        RunFFmpeg({"-i", Made(input), "-map", "0", "-c", "copy", drop, "noise=drop=1", folder.At(output)});
    };
    make("cover.mp3", "mute.mka", "-bsf:a");
    make("h264-aac.mp4", "mute.mkv", "-bsf:a");
    make("h264-flac-srt.mkv", "wordless.mkv", "-bsf:s");
    RunFFmpeg({"-i", Made("cover.mp3"), "-map", "0", "-c:v", "copy", folder.At("zeroed.m4a")});
    std::fstream file(folder.At("zeroed.m4a"), std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const size_t data = bytes.find("mdat");
    file.seekp(static_cast<std::streamoff>(data + 4));
    file << std::string(bytes.find("moov", data) - data - 8, '\0');
    file.close();
    const struct {
        const char* input;
        const char* output;
        const char* options;
        int code;
        bool isKept;
        const char* text;
    } rows[] = {
        {"mute.mka",     "a.mka", "",                   1, false, "no packet was written: stream 0: audio mp3"  },
        {"mute.mkv",     "b.mkv", "",                   1, true,  "stream 1: audio aac: nothing of it was"      },
        {"mute.mkv",     "c.avi", "",                   1, true,  "no packet of it could be read"               },
        {"mute.mkv",     "d.mkv", "--duration 0.5",     0, true,  "it has nothing in the time asked for"        },
        {"wordless.mkv", "e.mkv", "",                   0, true,  "stream 2: subtitle subrip: nothing of it was"},
        {"zeroed.m4a",   "f.mp3", "",                   1, false, "packets are damaged"                         },
        {"zeroed.m4a",   "g.mka", "--audio-codec flac", 1, false, "packets are damaged"                         },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        const std::string output = folder.At(row.output);
        const Outcome outcome = Convert(folder.At(row.input), output, row.options);
        EXPECT_EQ(outcome.code, row.code);
        EXPECT_THAT(outcome.errors, HasSubstr(row.text));
        EXPECT_EQ(std::filesystem::exists(output), row.isKept);
        EXPECT_FALSE(std::filesystem::exists(output + ".part"));
    }
}

TEST(ConvertEnds, ReplacesNothingUnlessItIsComplete)
{
    const TemporaryFolder folder;
    const std::string input = Made("h264-aac.mp4");
    const std::string there = folder.Put("there.mkv", "precious");
    Outcome outcome = Convert(input, there);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(
        outcome.ErrorLines(),
        testing::ElementsAre(testing::EndsWith("there.mkv: is there already; --overwrite replaces it")))
        << "before anything is announced or done";

    // The system takes no more than 4 KiB, as a full disk would.
    const std::string line = std::string("trap '' XFSZ; ulimit -f 8; exec ") + TESSADRIN_PROGRAM +
                             " convert \"$0\" \"$1\" --overwrite $2";
    outcome = RunProgram({"-c", line, input, there}, "sh");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.ErrorLines().back(), HasSubstr("there.mkv: "));
    EXPECT_THAT(outcome.ErrorLines().back(), HasSubstr("File too large"));
    EXPECT_THAT(FilesIn(folder.path), testing::ElementsAre("there.mkv"));
    EXPECT_EQ(std::filesystem::file_size(there), 8u);

    outcome = RunProgram({"-c", line, input, there, "--keep-partial"}, "sh");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(FilesIn(folder.path), testing::ElementsAre("there.mkv", "there.mkv.part"));
    std::filesystem::remove(there + ".part");

    EXPECT_EQ(Convert(input, there, "--overwrite").code, 0);
    EXPECT_GT(std::filesystem::file_size(there), 8u);
    EXPECT_THAT(FilesIn(folder.path), testing::ElementsAre("there.mkv"));
}

TEST(ConvertEnds, WritesIntoPipes)
{
    const TemporaryFolder folder;
    const std::string input = Made("h264-aac.mp4");
    Outcome outcome = RunProgram({"convert", input, "-", "--format", "mkv", "--progress", "json"});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    const std::string path = folder.Put("piped.mkv", outcome.output);
    EXPECT_EQ(CodecsOf(Describe(path)), "h264+aac");
    EXPECT_EQ(Judge(path, {"-map", "0:v"})[0].hashes.size(), 25u);
    std::istringstream lines(outcome.errors);
    json last;
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with('{'))
            last = json::parse(line);
    EXPECT_EQ(last["state"], "complete");

    outcome = RunProgram({"convert", input, "-", "--format", "mp4"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("mp4 can't be written into a pipe: muxer does not support"));
}

TEST(ConvertEnds, EndsWellWhenInterrupted)
{
    const TemporaryFolder folder;
    const std::string input = Made("h264-aac.mp4");
    const std::string output = folder.At("stopped.mkv");
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t child = Start({"convert", input, output, "--size", "2560x1920", "--video-codec", "ffv1",
                               "--threads", "1", "--progress", "json"},
                              nothing, ends[1], nothing);
    close(ends[1]);
    // Something was written, long before the last of the large pictures is encoded.
    const auto isEarly = [](const std::string& text) {
        const size_t line = text.rfind("\"position\":");
        return line == std::string::npos || text.compare(line + 11, 2, "0,") == 0;
    };
    std::string told;
    char piece[4096];
    for (ssize_t size = 0; isEarly(told) && (size = read(ends[0], piece, sizeof piece)) > 0;)
        told.append(piece, static_cast<size_t>(size));
    kill(child, SIGINT);
    const Outcome outcome = WaitFor(child);
    std::string rest(65536, '\0');
    rest.resize(static_cast<size_t>(std::max<ssize_t>(read(ends[0], rest.data(), rest.size()), 0)));
    close(ends[0]);
    close(nothing);
    EXPECT_EQ(outcome.code, 130);
    EXPECT_THAT(rest, HasSubstr("\"state\":\"stopped\""));
    EXPECT_THAT(FilesIn(folder.path), testing::ElementsAre("stopped.mkv"));
    const auto streams = Judge(output, {"-map", "0:v"});
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_GE(streams[0].hashes.size(), 1u);
    EXPECT_LT(streams[0].hashes.size(), 25u);
}

}  // namespace
