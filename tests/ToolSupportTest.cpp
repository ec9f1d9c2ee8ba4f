// What the program's commands build on.
#include "tools/support/Failure.h"
#include "tools/support/FurtherFiles.h"
#include "tools/support/OffsetInput.h"
#include "tools/support/OpenedInput.h"
#include "tools/support/OutputFiles.h"
#include "tools/support/SpooledInput.h"
#include "tools/support/Suggest.h"
#include "tools/support/Text.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "host/Exception.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <boost/exception/get_error_info.hpp>

#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace Quorva::Tool {
namespace {

TEST(Text, TerminalsSeeOneLineOfHarmlessCharacters)
{
    UseUtf8();
    const struct {
        std::string text, shown;
        size_t width;
    } rows[] = {
        {"plain", "plain", 5},
        {"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f", 4},
        {"\xe6\x98\xa0\xe7\x94\xbb", "\xe6\x98\xa0\xe7\x94\xbb", 4}, // two wide characters
        {"a\tb\r\n", "a\\tb\\r\\n", 8},
        {std::string("\0\x1b[31m\x7f", 7), "\\x00\\x1b[31m\\x7f", 16},
        {"\xc2\x9b"
         "31m", "\\u{9b}31m", 9}, // a control sequence in one character
        {"\xe2\x80\xae"
         "gpj.exe", "\\u{202e}gpj.exe", 15}, // would be read backwards
        {"\xc3(\xe2\x82\xf0\x28", "\\xc3(\\xe2\\x82\\xf0(", 18}, // no UTF-8
        {"\xed\xa0\x80", "\\xed\\xa0\\x80", 12}, // half a surrogate pair
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.shown);
        EXPECT_EQ(Printable(row.text), row.shown);
        EXPECT_EQ(DisplayWidth(row.shown), row.width);
    }
    EXPECT_EQ(Shortened("\xe6\x98\xa0\xe7\x94\xbb", 3), "\xe6\x98\xa0") << "half of a wide character is none";
    EXPECT_EQ(Shortened("abc", 3), "abc");
}

TEST(Text, TimesAndRates)
{
    EXPECT_EQ(DurationText(3'723'040'499), "1:02:03.040");
    EXPECT_EQ(DurationText(59'999'500), "0:01:00.000");
    EXPECT_EQ(DurationText(-500), "-0:00:00.001");
    EXPECT_EQ(DurationText(INT64_MIN + 1), "-2562047788:00:54.776");
    EXPECT_EQ(BitRateText(9999), "9999 b/s");
    EXPECT_EQ(BitRateText(128'500), "129 kb/s");
}

TEST(Suggest, OnlySlipsAreGuessed)
{
    const std::vector<std::string> names = {"matroska", "mp3", "mp4", "webm"};
    EXPECT_EQ(NearestName("matroksa", names), "matroska");
    EXPECT_EQ(NearestName("mp", names), "mp3");
    EXPECT_EQ(NearestName("x", names), "") << "replacing all of it is no slip";
    EXPECT_EQ(NearestName("vorbis", names), "");
    EXPECT_EQ(DidYouMean("wbm", names), "; did you mean 'webm'?");
    EXPECT_EQ(DidYouMean("", names), "");
}

TEST(FurtherFiles, OnlyRegularFilesOfTheFolderAndOfItsFileSystemAreOpened)
{
    const TemporaryFolder folder;
    const std::string near = folder.Put("near", "x"), list = folder.Put("list", "");
    const struct {
        std::string first, path;
        FurtherFilesPolicy policy;
        const char* reason;  ///< empty: it is opened
    } rows[] = {
        {list,                near,            {},                     ""                              },
        {list,                folder.At("."),  {},                     "Is a directory"                },
        {list,                "/etc/none",     {},                     "outside the folder"            },
        {list,                near,            {.maxOpenings = 0},     "more than 0 files"             },
        {list,                "/proc/version", {.allowOutside = true}, ""                              },
        {"/list",             "/etc/hostname", {},                     ""                              },
        {"/list",             "/proc/version", {},                     "outside the folder"            }, // a mount point
        {"-",                 near,            {},                     "the input that names it has no"},
        {"/proc/self/fd/0",   "/proc/version", {},                     "the input that names it has no"},
        {folder.At("none/x"), near,            {},                     "the input that names it has no"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first + " names " + row.path);
        std::string reason;
        try {
            const int descriptor = FurtherFiles(row.first, row.policy).Open(row.path);
            EXPECT_EQ(close(descriptor), 0);
        } catch (const Core::IOException& e) {
            reason = *boost::get_error_info<TagDescription>(e);
            EXPECT_TRUE(boost::get_error_info<TagFailureKind>(e));
        }
        EXPECT_EQ(reason.empty(), *row.reason == '\0') << reason;
        EXPECT_THAT(reason, testing::HasSubstr(row.reason));
    }
}

/// A file in memory, of which some bytes can't be read.
class TornInput final : public RefCounted<Core::IDataInput> {
public:
    TornInput(boost::intrusive_ptr<Core::IDataInput> whole, uint64_t from, uint64_t to)
        : whole(std::move(whole)), from(from), to(to)
    {
    }

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        const uint64_t position = whole->MoveBy(0);
        if (from < to && position < to && position + size > from)
            ThrowTorn(position);
        return whole->Read(buffer, size);
    }
    uint64_t GetSize() override { return whole->GetSize(); }
    uint64_t MoveBy(int64_t offset) override { return whole->MoveBy(offset); }
    void MoveTo(uint64_t position) override { whole->MoveTo(position); }
    const std::string& GetName() const noexcept override { return whole->GetName(); }

private:
    static void ThrowTorn(uint64_t position)
    {
        Proc::Details::Raise(Core::IOException() << TagDescription("torn at " + std::to_string(position)));
    }

    const boost::intrusive_ptr<Core::IDataInput> whole;
    const uint64_t from, to;
};

/// Reads all packets of the detected file; `failure` gets what was thrown on the way or at the end.
uint64_t CountPackets(const DetectedInput& detected, std::string& failure)
{
    uint64_t count = 0;
    AVPacket* packet = Proc::CreatePacket(0);
    try {
        OpenedInput input(detected);
        for (; input.ReadPacket(packet); ++count)
            av_packet_unref(packet);
        input.CheckStreams();
    } catch (const Core::IOException& e) {
        failure = *boost::get_error_info<TagDescription>(e);
        EXPECT_TRUE(boost::get_error_info<TagCallStack>(e));
    }
    Proc::ReleasePacket(&packet);
    return count;
}

/// 2 MiB of sound, as 256 packets of 8 KiB.
DetectedInput LongSound()
{
    std::string bytes(
        "RIFF\xff\xff\xff\x7fWAVEfmt \x10\0\0\0\1\0\1\0\x80\xbb\0\0\0\x77\1\0\2\0\x10\0data\0\0\x20\0", 44);
    bytes.resize(44 + (2 << 20), '\1');
    DetectedInput sound;
    sound.path = "sound.wav";
    sound.stream = Core::DataInputMemory::Create({bytes.begin(), bytes.end()}, sound.path);
    sound.size = bytes.size();
    sound.result = {"wav", 100, Proc::ImplNames::FFMPEG};
    return sound;
}

TEST(OpenedInput, ReadsZerosWhereAStreamThrowsUnlessItDoesSoOnAndOn)
{
    av_log_set_level(AV_LOG_QUIET);
    const DetectedInput whole = LongSound();
    const struct {
        const char* name;
        uint64_t from, to;
        uint64_t least, most;  ///< packets
        const char* failure;   ///< its begin
    } rows[] = {
        {"nowhere",       0,         0,          256, 257, ""                                                   },
        {"everywhere",    0,         whole.size, 0,   0,   "262144 bytes can't be read and count as zeros: torn"},
        {"at the end",    2'000'000, whole.size, 256, 257, "98348 bytes can't be read and count as zeros: torn" },
        {"in the middle", 600'000,   600'001,    256, 257, "4096 bytes can't be read and count as zeros: torn"  },
        {"from there on", 600'000,   whole.size, 73,  201, "torn at "                                           },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        DetectedInput torn = whole;
        torn.stream = MakeRefCounted<TornInput>(whole.stream, row.from, row.to);
        std::string failure;
        const uint64_t count = CountPackets(torn, failure);
        EXPECT_GE(count, row.least);
        EXPECT_LE(count, row.most);
        EXPECT_THAT(failure, testing::StartsWith(row.failure));
        EXPECT_EQ(failure.empty(), row.from == row.to);
    }
}

TEST(OutputFiles, KeepsWhatItReplacesAsItWasUntilTheEnd)
{
    namespace fs = std::filesystem;
    const TemporaryFolder folder;
    const std::string victim = folder.Put("victim", "precious");
    const auto write = [](OutputFiles& files, const std::string& path) {
        files.Create(path)->Write(reinterpret_cast<const uint8_t*>("new"), 3);
    };
    {
        OutputFiles files(false, false);
        write(files, folder.At("swapped"));
        fs::remove(folder.At("swapped.part"));
        fs::create_symlink(victim, folder.At("swapped.part"));
        EXPECT_THROW(files.Commit(), Core::IOException) << "the name isn't that of the file any more";
    }
    EXPECT_EQ(fs::file_size(victim), 8u);
    EXPECT_FALSE(fs::exists(folder.At("swapped")));

    fs::create_symlink("dangling", folder.At("link"));
    fs::permissions(victim, fs::perms(0440));
    OutputFiles files(true, false);
    write(files, folder.At("link"));
    write(files, victim);
    files.Commit();
    EXPECT_TRUE(fs::is_symlink(folder.At("link")));
    EXPECT_EQ(fs::file_size(folder.At("dangling")), 3u);
    EXPECT_EQ(fs::status(victim).permissions(), fs::perms(0440));
    EXPECT_EQ(fs::file_size(victim), 3u);
    EXPECT_EQ(FilesIn(folder.path).size(), 3u) << "no provisional file is left";
}

TEST(SpooledInput, KeepsNoMoreThanItsLimit)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string bytes(1000, 'x');
    ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), 1000);
    close(ends[1]);
    const TemporaryFolder folder;
    Descriptor kept(open(folder.At("kept").c_str(), O_RDWR | O_CREAT, 0600));
    SpooledInput input(Descriptor{ends[0]}, std::move(kept), "pipe ", 999);
    try {
        input.FillAll();
        ADD_FAILURE() << "kept all of it";
    } catch (const Core::IOException& e) {
        EXPECT_THAT(e.what(), testing::StartsWith("pipe is longer than 999 bytes, the most that is kept"));
    }
}

TEST(OffsetInput, CountsFromItsStart)
{
    const auto inner = Core::DataInputMemory::Create({'a', 'b', 'c', 'd'}, "name");
    OffsetInput input(inner, 1);
    uint8_t byte = 0;
    EXPECT_EQ(input.GetSize(), 3u);
    input.MoveTo(2);
    EXPECT_EQ(input.MoveBy(-1), 1u);
    EXPECT_THROW(input.MoveBy(-2), Core::IOException);
    EXPECT_THROW(input.MoveTo(UINT64_MAX), Core::IOException);
    EXPECT_EQ(input.Read(&byte, 1), 1u);
    EXPECT_EQ(byte, 'c') << "a refused move leaves the position";
}

TEST(OpenedInput, ReadsPositionsBehindATag)
{
    // A picture whose directory says where its bytes are.
    av_log_set_level(AV_LOG_QUIET);
    const std::string icon(
        "\0\0\1\0\1\0\1\1\0\0\1\0\x20\0\x30\0\0\0\x16\0\0\0\x28\0\0\0\1\0\0\0\2\0\0\0\1\0\x20", 38);
    const TemporaryFolder folder;
    const auto check = [&](const std::string& tag, const char* name, const std::string& media,
                           uint64_t packets) {
        SCOPED_TRACE(name);
        const DetectedInput detected = DetectInput(folder.Put(name, tag + media));
        EXPECT_EQ(detected.mediaStart, tag.size());
        std::string failure;
        EXPECT_EQ(CountPackets(detected, failure), packets) << failure;
    };
    const std::string id3 = std::string("ID3\4\0\0\0\0\1\0", 10) + std::string(128, '\0');
    const std::string ape(
        "APETAGEX\xd0\7\0\0\x20\0\0\0\0\0\0\0\0\0\0\xa0\0\0\0\0\0\0\0\0"
        "APETAGEX\xd0\7\0\0\x20\0\0\0\0\0\0\0\0\0\0\x80\0\0\0\0\0\0\0\0",
        64);
    check(id3, "a.ico", icon + std::string(32, '\1'), 1);
    check(
        ape, "b.au",
        std::string(".snd\0\0\0\x18\xff\xff\xff\xff\0\0\0\3\0\0\x1f\x40\0\0\0\1", 24) + std::string(64, '\1'),
        1);
}

TEST(Failure, KnowsItsKind)
{
    const auto failureOf = [](auto&& action) {
        try {
            action();
        } catch (...) {
            return CurrentFailure("/some/file");
        }
        return Failure();
    };
    Failure failure = failureOf([] { ThrowFFmpegFailure("reading stopped", AVERROR(ECONNRESET)); });
    EXPECT_EQ(failure.message, "reading stopped: Connection reset by peer") << "not by its number";
    EXPECT_EQ(failure.exception, "Quorva::Proc::ProcException");
    EXPECT_EQ(failure.kind, FailureKind::InvalidData);
    EXPECT_EQ(failure.ffmpegResult, AVERROR(ECONNRESET));

    failure = failureOf([] { Proc::Details::Raise(Core::MemoryException("no room", 7)); });
    EXPECT_EQ(failure.kind, FailureKind::NoMemory);
    EXPECT_EQ(failure.message, "no room");
    failure = failureOf([] {
        Proc::Details::Raise(Core::IOException() << TagDescription("Can't read '/some/file' at 7: lost"));
    });
    EXPECT_EQ(failure.kind, FailureKind::Unreadable);
    EXPECT_EQ(failure.message, "Can't read at 7: lost");
    EXPECT_EQ(failure.description, "Can't read '/some/file' at 7: lost");
    failure = failureOf([] { throw std::runtime_error("plain"); });
    EXPECT_EQ(failure.kind, FailureKind::Internal);
    EXPECT_EQ(failure.file, "");
    EXPECT_EQ(failureOf([] { throw 7; }).kind, FailureKind::Internal);
}

}  // namespace
}  // namespace Quorva::Tool
