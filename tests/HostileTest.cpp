// The program where things are against it: what it says is clear, its exit code is one of those it documents,
// and nothing half-made stays behind.
#include "tests/support/Program.h"

#include <gmock/gmock.h>

#include <csignal>
#include <map>

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// A tone of two seconds, which every build of FFmpeg reads.
std::string Wave()
{
    std::string bytes(
        "RIFF\x24\x77\1\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\xbb\0\0\0\x77\1\0\2\0\x10\0data\0\x77\1\0", 44);
    for (int i = 0; i < 0x17700 / 2; ++i) {
        const int value = (i * 300 % 60000) - 30000;
        bytes += {static_cast<char>(value & 255), static_cast<char>(value >> 8)};
    }
    return bytes;
}

class Hostile : public testing::Test {
protected:
    /// Runs a line of the shell; `$T` there is the program, `$F` the folder.
    Outcome Shell(const std::string& line) const
    {
        setenv("T", TESSADRIN_PROGRAM, 1);
        setenv("F", folder.path.c_str(), 1);
        return RunProgram({"-c", "cd \"$F\" && " + line}, "/bin/bash");
    }

    const TemporaryFolder folder;
    const std::string wave = folder.Put("in.wav", Wave());
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;  // these need memory, and standard streams, of their own
#else
constexpr bool sanitized = false;
#endif

TEST_F(Hostile, PlacesAreNamedInOneLine)
{
    const struct {
        const char* line;
        int code;
        const char* last;  ///< the end of what is said
    } rows[] = {
        {"$T convert in.wav --format wav /dev/full",                               1,
         "/dev/full: can't be written: No space left on device\n"                                                                                  },
        {"ulimit -f 8 && $T convert in.wav out.flac",                              1,   "File too large\n"                                         },
        {"$T convert in.wav /proc/none.flac",                                      1,   ": can't be written: No such file or directory\n"          },
        {"$T convert in.wav none/out.flac",                                        1,   ": can't be written: No such file or directory\n"          },
        {"$T convert in.wav in.wav/out.flac",                                      1,   ": can't be written: Not a directory\n"                    },
        {"mkdir d.flac && $T convert --overwrite in.wav d.flac",                   1,
         "d.flac: can't be put in its place: Is a directory\n"                                                                                     },
        {"mkdir e && $T convert e out.flac",                                       1,   "e: is a folder: name a file in it\n"                      },
        {"$T convert /dev/zero out.flac",                                          1,
         "/dev/zero: not a known media format (first 1048576 bytes match nothing)\n"                                                               },
        {"$T probe /proc/self/mem",                                                1,   "/proc/self/mem: Can't use for reading: Invalid argument\n"},
        {"mkfifo p && timeout --preserve-status -s INT 0.5 $T convert p out.flac", 130,
         "p: was not read to its end\n"                                                                                                            },
        {"$T probe $(printf 'x%.0s' {1..4000}).wav",                               1,   ": File name too long\n"                                   },
        {"truncate -s 5G s.wav && $T probe s.wav",                                 1,
         "s.wav: not a known media format (first 1048576 bytes match nothing)\n"                                                                   },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const Outcome outcome = Shell(row.line);
        EXPECT_EQ(outcome.code, row.code);
        EXPECT_THAT(outcome.errors, EndsWith(row.last));
        EXPECT_LE(outcome.ErrorLines().size(), 2u)
            << "what is done to the stream may be said before: " << outcome.errors;
    }
    for (const auto& entry : fs::recursive_directory_iterator(folder.path))
        EXPECT_THAT(entry.path().native(), Not(AnyOf(HasSubstr(".part"), HasSubstr("out")))) << "left behind";
}

TEST_F(Hostile, NamesAreTakenAsTheyAre)
{
    std::string deep = ".";
    while (deep.size() < 3800)
        deep += "/" + std::string(200, 'd');
    // paths of that length are more than some functions take at once
    ASSERT_EQ(Shell("mkdir -p " + deep).code, 0);
    for (const std::string& name :
         {std::string("a b"), std::string("a\nb"), std::string("a\xff\xfe"), std::string("[a,b]"),
          std::string("%03d"), std::string("-a"), deep + "/x"}) {
        SCOPED_TRACE(name.substr(0, 20));
        setenv("N", name.c_str(), 1);
        EXPECT_EQ(Shell("cp in.wav \"./$N.wav\" && $T probe -- \"./$N.wav\"").code, 0);
        EXPECT_EQ(Shell("$T convert \"./$N.wav\" \"./$N.flac\" && $T probe -- \"./$N.flac\"").code, 0);
    }
}

TEST_F(Hostile, EnvironmentsMakeNoDifference)
{
    const std::string usual = Shell("$T probe in.wav && $T convert in.wav - --format flac | md5sum").output;
    EXPECT_THAT(usual, HasSubstr("0:00:01.000"));
    for (const char* environment : {"env -u HOME", "env HOME=/none", "env -i", "env LC_ALL=de_DE.UTF-8",
                                    "env LC_ALL=C", "env LANG=none", "env TMPDIR=/none"}) {
        SCOPED_TRACE(environment);
        const std::string run = std::string(environment) + " $T ";
        EXPECT_EQ(Shell(run + "probe in.wav && " + run + "convert in.wav - --format flac | md5sum").output,
                  usual);
    }
}

TEST_F(Hostile, ClosedStandardStreamsDontReachFiles)
{
    EXPECT_EQ(Shell("$T convert in.wav usual.flac").code, 0);
    for (const char* closed : {"<&-", ">&-", "2>&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
        SCOPED_TRACE(closed);
        EXPECT_EQ(Shell(std::string("$T convert --overwrite in.wav out.flac ") + closed).code, 0);
        EXPECT_EQ(Shell("cmp usual.flac out.flac").code, 0);
    }
    const Outcome probed = Shell("$T probe in.wav >&-");
    EXPECT_EQ(probed.code, 1);
    EXPECT_EQ(probed.errors, "tessadrin: can't write the output: Bad file descriptor\n");
}

// The library's own load and what the system needs for it is 200 MB of addresses, so that 64 MB end in the
// system's own loader.
TEST_F(Hostile, MemoryThatEndsIsSaid)
{
    if (sanitized)
        GTEST_SKIP() << "sanitizers take terabytes of addresses";
    std::map<int, int> codes;
    for (int megabytes = 64; megabytes <= 320; megabytes += 16) {
        const std::string limit = "ulimit -v " + std::to_string(megabytes * 1024) + " && ";
        const Outcome outcome = Shell(limit + "$T convert --overwrite in.wav out.flac");
        ++codes[outcome.code];
        EXPECT_THAT(outcome.code, AnyOf(0, 1, 127)) << megabytes << " MB, signal " << outcome.signal;
        EXPECT_TRUE(outcome.code == 0 || !outcome.errors.empty()) << megabytes;
    }
    EXPECT_GT(codes[127], 0);
    EXPECT_GT(codes[0], 0);
}

// The file is read as it is at the time.
TEST_F(Hostile, FilesChangeWhileTheyAreRead)
{
    const struct {
        const char* change;
        const char* what;
    } rows[] = {
        {"truncate -s 1000000 big.wav",         "shrinks"         },
        {"truncate -s 1000 big.wav",            "all but vanishes"},
        {"cat in.wav in.wav in.wav >> big.wav", "grows"           },
        {"rm big.wav",                          "is removed"      },
        {"mv in.wav big.wav",                   "is replaced"     },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        folder.Put("in.wav", Wave());
        // 30 MB, of which the header tells; whoever reads waits in the middle until it has changed.
        ASSERT_EQ(Shell("cp in.wav big.wav && truncate -s 30000000 big.wav && "
                        "printf '\\xff\\xff\\xff\\x7f' | dd of=big.wav bs=1 seek=40 conv=notrunc status=none")
                      .code,
                  0);
        const Outcome outcome =
            Shell(std::string("mkfifo -m 600 out; rm -f result.wav; (head -c 100000; ") + row.change +
                  "; cat) < out > result.wav & $T convert big.wav --format wav out; code=$?; "
                  "wait; rm -f out; exit $code");
        EXPECT_THAT(outcome.code, AnyOf(0, 1)) << outcome.errors;
        EXPECT_GT(fs::file_size(folder.At("result.wav")), 100'000u);
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// From the program's first own allocation to its last, in steps.
TEST_F(Hostile, AllocationsThatFailAreSaid)
{
    const std::string preload = "LD_PRELOAD='" FAILING_PROGRAM_LIBRARY "' ";
    int failed = 0;
    for (int nth = 2000; nth < 12'000; nth += 331)
        for (const char* command : {"probe --count in.wav", "convert --overwrite in.wav out.flac"}) {
            const Outcome outcome = Shell(preload + "FAIL_AT=" + std::to_string(nth) + " $T " + command);
            // a load that fails ends the process
            EXPECT_TRUE(outcome.code == 0 || outcome.code == 1 ||
                        (outcome.signal == SIGABRT && outcome.errors.find("bad_alloc") != std::string::npos))
                << nth << ": " << outcome.code << ", signal " << outcome.signal << "\n"
                << outcome.errors;
            EXPECT_TRUE(outcome.code == 0 || !outcome.errors.empty());
            failed += outcome.code != 0;
        }
    EXPECT_GT(failed, 3);
}
#endif

}  // namespace
