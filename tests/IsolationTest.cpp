// Workers: good ones, and all the ways in which bad ones end.
#include "tests/support/Isolated.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/isolation/FileBroker.h"
#include "tools/support/Failure.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <thread>

namespace Quorva::Tool {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;  // crashes end by exit codes there, and memory has no limit
#else
constexpr bool SANITIZED = false;
#endif

size_t CountDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

long MaxResident()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(Workers, ResultsAreCompleteInOrderAndLeaveNothingBehind)
{
    for (const bool spare : {true, false}) {
        IsolatedRun run;
        run.count = 300;
        run.process = [](size_t index) {
            if (index % 50 == 0)
                std::this_thread::sleep_for(milliseconds(20));  // others end before it
            std::printf("%zu\n", index);
            SendRecord(std::to_string(index % 10));
            return static_cast<int>(index % 7);
        };
        IsolationOptions options;
        options.jobs = 4;
        options.spare = spare;
        const size_t descriptors = CountDescriptors();
        const long before = MaxResident();
        run.Run(options);
        std::vector<size_t> expected(run.count);
        std::iota(expected.begin(), expected.end(), 0);
        std::string output, records;
        for (const size_t index : expected) {
            output += std::to_string(index) + "\n";
            records += std::to_string(index % 10);
            EXPECT_EQ(run.results[index].code, static_cast<int>(index % 7));
            EXPECT_FALSE(run.results[index].failure);
        }
        EXPECT_TRUE(run.finished);
        EXPECT_EQ(run.order, expected);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.records, records);
        EXPECT_EQ(CountDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        EXPECT_LT(MaxResident() - before, SANITIZED ? 65536 : 4096) << "KiB";
    }
}

TEST(Workers, OutputAheadOfItsTurnIsBoundedAndComplete)
{
    IsolatedRun run;
    run.count = 3;
    constexpr size_t LINES = 200000;
    run.process = [](size_t index) {
        for (int i = 0; index == 0 && i < 30; ++i, ReportProgress())
            std::this_thread::sleep_for(milliseconds(50));
        for (size_t i = 0; i < LINES; ++i)
            std::printf("%zu is flooding the output with lines\n", index);
        return 0;
    };
    IsolationOptions options;
    options.jobs = 3;
    options.timeout = milliseconds(1000);  // of which waiting for one's turn is no part
    const long before = MaxResident();
    run.ended = [&](size_t) { EXPECT_LT(MaxResident() - before, 16 * 1024 + (SANITIZED ? 65536 : 0)); };
    run.Run(options);
    std::string expected;
    for (size_t index = 0; index < run.count; ++index) {
        EXPECT_FALSE(run.results[index].failure) << index;
        for (size_t i = 0; i < LINES; ++i)
            expected += std::to_string(index) + " is flooding the output with lines\n";
    }
    EXPECT_TRUE(run.output == expected);
}

TEST(Workers, UnorderedResultsAreNotHeldUp)
{
    IsolatedRun run;
    run.count = 6;
    run.process = [](size_t index) {
        std::this_thread::sleep_for(milliseconds(index == 1 ? 800 : 1));
        return 0;
    };
    IsolationOptions options;
    options.jobs = 2;
    options.ordered = false;
    run.Run(options);
    EXPECT_EQ(run.order.size(), 6U);
    EXPECT_NE(run.order[1], 1U);
}

int EatMemory(size_t)
{
    for (std::vector<std::unique_ptr<char[]>> all;;
         all.push_back(std::make_unique_for_overwrite<char[]>(1 << 20))) {
    }
}

int UseFailedAllocation(size_t)
{
    auto* const bytes = static_cast<volatile char*>(std::malloc(size_t{1} << 40));
    bytes[16] = 1;
    return 0;
}

int CrashAfterFailedAllocation(size_t)
{
    std::free(std::malloc(size_t{1} << 40));  // which was tolerated
    *reinterpret_cast<volatile char*>(uintptr_t{1} << 46) = 1;
    return 0;
}

TEST(Workers, EachEndHasItsKind)
{
    const struct {
        const char* name;
        int (*process)(size_t);
        FailureKind kind;
        const char* message;
        bool sanitizers;  ///< whether it ends so below them
    } rows[] = {
        {"null",
         [](size_t) {
             *static_cast<volatile int*>(nullptr) = 1;
             return 0;
         },                                                                                                             FailureKind::Crashed, "SIGSEGV, signal 11",               false},
        {"abort",              [](size_t) -> int { std::abort(); },                                                     FailureKind::Crashed, "SIGABRT, signal 6",                true },
        {"exit",               [](size_t) -> int { _exit(3); },                                                         FailureKind::Crashed, "exit code 3",                      true },
        {"throws",             [](size_t) -> int { std::terminate(); },                                                 FailureKind::Crashed, "SIGABRT",                          true },
        {"spins",
         [](size_t) -> int {
             for (volatile unsigned i = 0;;)
                 i = i + 1;
         },                                                                                                             FailureKind::Timeout, "0.5 seconds",                      true },
        {"sleeps",
         [](size_t) -> int {
             for (;;)
                 pause();
         },                                                                                                             FailureKind::Timeout, "no progress",                      true },
        {"eats",               [](size_t i) { return []() noexcept { return EatMemory(0); }() + static_cast<int>(i); },
         FailureKind::Memory,                                                                                                                 "128 MiB that --max-memory allows", false},
        {"null of malloc",     UseFailedAllocation,                                                                     FailureKind::Memory,  "128 MiB",                          false},
        {"crash after malloc", CrashAfterFailedAllocation,                                                              FailureKind::Crashed, "SIGSEGV",                          false},
        {"says so",
         [](size_t) -> int {
             std::fputs("memory allocation of 99 bytes failed\n", stderr);
             std::abort();
         },                                                                                                             FailureKind::Memory,  "128 MiB",                          true },
        {"no protocol",
         [](size_t) {
             (void)!write(3, "what", 4);
             for (;;)
                 pause();
             return 0;
         },                                                                                                             FailureKind::Crashed, "out of control",                   true },
    };
    IsolationOptions options;
    options.timeout = milliseconds(500);
    options.maxMemory = 128 << 20;
    for (const auto& row : rows) {
        if (SANITIZED && !row.sanitizers)
            continue;
        SCOPED_TRACE(row.name);
        const IsolatedRun run = RunOne(row.process, options);
        ASSERT_TRUE(run.results.size() == 1 && run.results[0].failure);
        EXPECT_EQ(run.results[0].failure->kind, row.kind) << run.results[0].failure->message;
        EXPECT_THAT(run.results[0].failure->message, HasSubstr(row.message));
        EXPECT_TRUE(run.finished);
    }
}

TEST(Workers, FailuresThatAreCaughtNameTheBudget)
{
    if (SANITIZED)
        GTEST_SKIP() << "no limit of memory below sanitizers";
    IsolationOptions options;
    options.maxMemory = 96 << 20;
    const IsolatedRun run = RunOne(EatMemory, options);
    EXPECT_FALSE(run.results[0].failure);
    EXPECT_EQ(run.results[0].code, 1);
    EXPECT_THAT(run.errors, HasSubstr("file0: needs more than the 96 MiB that --max-memory allows"));
}

TEST(Workers, ProgressKeepsThemAliveAndEscapesAreHarmless)
{
    IsolationOptions options;
    options.timeout = milliseconds(300);
    const IsolatedRun run = RunOne(
        [](size_t) {
            for (int i = 0; i < 20; ++i, ReportProgress())
                std::this_thread::sleep_for(milliseconds(40));
            (void)!write(2, "\x1b[2Jhidden\nlast", 15);
            return 5;
        },
        options);
    EXPECT_EQ(run.results[0].code, 5);
    EXPECT_EQ(run.errors, "\\x1b[2Jhidden\nlast\n");
}

TEST(Workers, StopsReachThem)
{
    for (const bool finish : {true, false}) {
        IsolatedRun run;
        run.count = 50;
        run.process = [](size_t index) {
            if (index == 0)
                kill(getppid(), 0);  // forbidden: the test's own signal comes from elsewhere
            SendRecord("!");
            pause();  // until SIGUSR1
            std::puts("ended well");
            return 0;
        };
        IsolationOptions options;
        options.jobs = 2;
        options.finishOnStop = finish;
        const pid_t self = getpid(), sender = fork();
        if (sender == 0) {
            usleep(400000);
            kill(self, SIGINT);
            _exit(0);
        }
        run.Run(options);
        waitpid(sender, nullptr, 0);
        EXPECT_FALSE(run.finished);
        EXPECT_EQ(run.results.size(), 2U) << "nothing is begun after the stop";
        for (const FileResult& result : run.results) {
            EXPECT_EQ(result.stopped, !finish);
            EXPECT_FALSE(result.failure);
        }
        EXPECT_EQ(run.output, finish ? "ended well\nended well\n" : "");
    }
}

TEST(Workers, OneProcessDoesTheSame)
{
    IsolatedRun run;
    run.count = 2;
    run.process = [](size_t index) -> int {
        SendRecord("r");
        std::printf("%d\n", getpid());
        return index == 0 ? 3 : throw std::runtime_error("thrown");
    };
    IsolationOptions options;
    options.isolate = false;
    run.Run(options);
    const std::string self = std::to_string(getpid()) + "\n";
    EXPECT_EQ(run.output, self + self);
    EXPECT_EQ(run.records, "rr");
    EXPECT_EQ(run.results[0].code, 3);
    EXPECT_EQ(run.results[1].code, 1);
    EXPECT_THAT(run.errors, HasSubstr("file1: thrown"));
}

/// Reads a file in Process(): its content, or the kind of the failure.
std::string ContentOf(const std::string& path)
{
    try {
        const auto stream = Core::DataInputFile::Create(RequestInput(path).Release(), path);
        std::string bytes(stream->GetSize(), 0);
        stream->Read(reinterpret_cast<uint8_t*>(bytes.data()), bytes.size());
        return bytes;
    } catch (...) {
        return std::string(FailureKindName(CurrentFailure({}).kind));
    }
}

TEST(Workers, FilesComeFromTheParent)
{
    const TemporaryFolder folder;
    const std::string first = folder.Put("in/list.m3u8", "first");
    folder.Put("in/deeper/piece.ts", "piece");
    folder.Put("secret", "secret");
    std::filesystem::create_symlink("../secret", folder.At("in/link"));
    std::filesystem::create_symlink("deeper/piece.ts", folder.At("in/inner"));
    std::filesystem::create_symlink("in", folder.At("alias"));
    ASSERT_EQ(mkfifo(folder.At("in/pipe").c_str(), 0600), 0);
    const struct {
        std::string path, confined, open;
    } rows[] = {
        {folder.At("in/list.m3u8"), "first", "first"},
        {folder.At("in/deeper/piece.ts"), "piece", "piece"},
        {folder.At("in/inner"), "piece", "piece"},
        {folder.At("alias/deeper/../inner"), "piece", "piece"},
        {folder.At("in/none"), "not-found", "not-found"},
        {folder.At("in/pipe"), "unreadable", "unreadable"},
        {folder.At("in/deeper"), "unreadable", "unreadable"},
        {folder.At("secret"), "unreadable", "secret"},
        {folder.At("in/link"), "unreadable", "secret"},
        {folder.At("in/../secret"), "unreadable", "secret"},
        {"/proc/self/environ", "unreadable", ""},
        {std::string("in\0x", 4), "unreadable", "unreadable"},
    };
    for (const bool isolate : {true, false})
        for (const bool outside : {false, true}) {
            IsolatedRun run;
            run.path = [&](size_t) { return first; };
            run.process = [&](size_t) {
                for (const auto& row : rows)
                    SendRecord(ContentOf(row.path) + "\n");
                return 0;
            };
            std::string expected;
            for (const auto& row : rows)
                expected += (outside ? row.open : row.confined) + "\n";
            IsolationOptions options;
            options.isolate = isolate;
            options.allowOutside = outside;
            run.Run(options);
            EXPECT_EQ(run.records, expected) << isolate << outside;
        }
}

TEST(Workers, InputsAreCounted)
{
    const TemporaryFolder folder;
    const std::string path = folder.Put("file", "content");
    BrokerOptions options;
    options.maxInputs = 2;
    FileBroker broker(path, options);
    ControlMessage request;
    request.kind = ControlMessage::Kind::Input;
    request.payload = folder.Put("other", "content");
    for (const auto kind :
         {ControlMessage::Kind::Opened, ControlMessage::Kind::Opened, ControlMessage::Kind::Refused})
        EXPECT_EQ(broker.Answer(request).kind, kind);
}

TEST(Workers, OutputsAreThoseThatTheParentOpens)
{
    const TemporaryFolder folder;
    IsolatedRun run;
    run.openOutput = [&](const std::string& path) {
        return path == "wanted"
                   ? Descriptor(open(folder.At(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
                   : throw std::runtime_error("not wanted");
    };
    run.process = [](size_t) {
        const auto output = OpenOutput("wanted");
        output->Write(reinterpret_cast<const uint8_t*>("0123456789"), 10);
        output->MoveTo(2);
        output->Write(reinterpret_cast<const uint8_t*>("x"), 1);
        output->SetSize(5);
        OpenOutput("other");
        return 0;
    };
    run.Run({});
    EXPECT_EQ(FilesIn(folder.path), std::vector<std::string>{"wanted"});
    std::ifstream file(folder.At("wanted"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "01x34");
    EXPECT_THAT(run.errors, HasSubstr("not wanted"));
}

}  // namespace
}  // namespace Quorva::Tool
