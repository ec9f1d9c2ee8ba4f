// Ctrl-C and its like, whatever `tessadrin` is doing: exit code 130 soon, and nothing half-made stays behind.
#include "tests/support/Program.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <set>

namespace {

namespace fs = std::filesystem;

class Stop : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder = std::make_unique<TemporaryFolder>();
        EXPECT_EQ(
            Shell("ffmpeg -v error -f lavfi -i testsrc2=size=1280x720:rate=25:duration=30 -f lavfi -i "
                  "sine=duration=30 -c:v mpeg4 -q:v 5 -c:a mp2 big.mkv && ffmpeg -v error -i big.mkv -t "
                  "2 -c copy piece.ts && printf '#EXTM3U\\n#EXT-X-TARGETDURATION:2\\n#EXTINF:2,\\n"
                  "piece.ts\\n' > live.m3u8")
                .code,
            0);
    }
    static void TearDownTestSuite() { folder.reset(); }

    /// Runs a line of the shell in the folder; `$T` there is the program.
    static Outcome Shell(const std::string& line)
    {
        setenv("T", TESSADRIN_PROGRAM, 1);
        setenv("F", folder->path.c_str(), 1);
        return RunProgram({"-c", "cd \"$F\" || exit\n" + line}, "/bin/bash");
    }

    static std::unique_ptr<TemporaryFolder> folder;
};
std::unique_ptr<TemporaryFolder> Stop::folder;

/// `timeout --foreground` signals once; the exit code is 137 when it has to kill.
TEST_F(Stop, IsHeardWhateverTheProgramDoes)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "with a sanitizer, the program may take longer to start than the signals wait";
#endif
    const std::string once = "timeout --foreground --preserve-status -k 8 -s ";
    // An encoder that takes a minute for what it holds.
    const std::string encode = "$T convert big.mkv o.mkv --video-codec hevc --option preset=placebo";
    const auto twice = [&](const char* signal) {
        return fmt::format("{0} & sleep 3; kill -{1} $!; sleep 0.02; kill -{1} $!; wait $!", encode, signal);
    };
    // With another process at the pipe, which does nothing.
    const auto beside = [&](char direction, const std::string& line) {
        return fmt::format("(exec sleep 9 {} a) & {}; code=$?; kill $!; exit $code", direction, once + line);
    };
    const struct {
        std::string line;
        const char* left;  ///< what there is afterwards; empty: nothing
    } rows[] = {
        {once + "INT 3 " + encode, "o.mkv"},
        {once + "HUP 3 " + encode, "o.mkv"},
        {twice("TERM"), ""},
        {twice("HUP"), ""},
        {"mkfifo a; " + once + "INT 1 $T convert big.mkv a --format mkv", ""},
        {beside('<', "INT 1 $T convert big.mkv a --format mkv"), ""},
        {beside('>', "TERM 1 $T convert a o.mkv"), ""},
        {beside('>', "HUP 1 $T probe a"), ""},
        {beside('>', "INT 1 $T dump a"), ""},
        {beside('<', "INT 1 $T probe --packets big.mkv > a"), ""},
    };
    const std::set<std::string> inputs = {"a", "big.mkv", "live.m3u8", "piece.ts"};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const Outcome outcome = Shell(row.line);
        EXPECT_EQ(outcome.code, 130) << outcome.errors;
        std::string left;
        for (const auto& entry : fs::directory_iterator(folder->path))
            if (const std::string name = entry.path().filename(); !inputs.contains(name)) {
                left += name;
                fs::remove(entry.path());
            }
        EXPECT_EQ(left, row.left);
    }
}

TEST_F(Stop, IsNotSeenInSlowPipes)
{
    const char* const lines[] = {
        "$T convert big.mkv - --format mpegts | (sleep 2; cat)",
        "(head -c 100000 big.mkv; sleep 1; tail -c +100001 big.mkv) | $T convert - - --format mpegts",
        "mkfifo b; (sleep 1; $T convert big.mkv b --format mpegts) & cat b",
        "mkfifo c; $T convert big.mkv c --format mpegts & sleep 1; cat c",
    };
    ASSERT_EQ(Shell("$T convert big.mkv - --format mpegts > direct").code, 0);
    for (const char* const line : lines) {
        SCOPED_TRACE(line);
        const Outcome outcome = Shell(fmt::format("({}) > slow; cmp direct slow", line));
        EXPECT_EQ(outcome.code, 0) << outcome.errors << outcome.output;
    }
}

}  // namespace
