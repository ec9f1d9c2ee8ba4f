// probe on many files: several at a time, from lists, continued, and with some that end their process.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

/// A WAV file: 8000 Hz, one channel, 16 bits, four samples.
const std::string sound(
    "RIFF\x2c\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x80\x3e\0\0\2\0\x10\0"
    "data\x8\0\0\0\0\0\0\0\0\0\0\0",
    52);

struct Many : testing::Test {
    const TemporaryFolder folder;
    std::vector<std::string> paths;

    void PutFiles()
    {
        for (const char* name : {"a.wav", "b.wav", "c\n.wav", "d.wav", "e.wav"})
            paths.push_back(folder.Put(name, sound));
        paths.push_back(folder.Put("words.wav", "words"));
    }
    std::string Content(const std::string& name) const
    {
        std::ifstream file(folder.At(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    /// In the folder; $T is the program.
    Outcome Shell(const std::string& command) const
    {
        setenv("T", TESSADRIN_PROGRAM, 1);
        return RunProgram({"-c", "cd '" + folder.path.native() + "' && " + command}, "/bin/bash");
    }
};

/// The files of a document, or of lines.
std::vector<json> FilesOf(const std::string& text, bool lines)
{
    if (!lines)
        return json::parse(text)["files"].get<std::vector<json>>();
    std::vector<json> files;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        files.push_back(json::parse(line));
    EXPECT_TRUE(text.ends_with('\n'));
    json document = json::parse(RunProgram({"probe", "--json", "/none"}).output);
    document["files"] = files;
    EXPECT_EQ(SchemaFault(document.dump()), "");
    return files;
}

TEST_F(Many, LinesAreTheDocumentsFiles)
{
    PutFiles();
    for (const char* how : {"--jobs=1", "--jobs=3", "--isolate=no", "--packets", "--unordered"}) {
        SCOPED_TRACE(how);
        const bool packets = how == std::string("--packets");
        const Outcome whole = RunProgram({"probe", "--json", packets ? how : "-q", folder.path.native()});
        const Outcome lines = RunProgram({"probe", "--json-lines", how, folder.path.native()});
        EXPECT_EQ(lines.code, 1);
        std::vector<json> expected = FilesOf(whole.output, false), found = FilesOf(lines.output, true);
        if (how == std::string("--unordered"))
            std::ranges::sort(found, {}, [](const json& file) { return file["path"].get<std::string>(); });
        EXPECT_EQ(found, expected);
        EXPECT_EQ(found.size(), 6u);
    }
}

TEST_F(Many, NamesComeFromLists)
{
    PutFiles();
    const struct {
        const char* command;
        size_t files;
        int code;
    } rows[] = {
        {"printf 'a.wav\\n\\nb.wav' > list; $T probe --json-lines --files-from list",                        2, 0},
        {"printf 'a.wav\\nwords.wav\\n' | $T probe --json-lines d.wav --files-from -",                       3, 1},
        {"(printf 'a.wav\\0'; sleep 1; printf 'c\\n.wav\\0') | $T probe --json-lines --null --files-from -",
         2,                                                                                                     0},
        {"(echo a.wav; sleep 1; echo b.wav) | $T probe --isolate=no --json-lines --files-from -",            2, 0},
        {"mkdir in; mv d.wav e.wav in; echo in | $T probe --json-lines --files-from -",                      2, 0},
        {"$T probe --json-lines --files-from none",                                                          0, 2},
        {"echo a.wav | $T probe --json-lines - --files-from -",                                              0, 2},
        {"(echo a.wav; head -c 100000 /dev/zero) | $T probe --json-lines --files-from -",                    1, 1},
        {"cat a.wav | $T probe --json-lines - -",                                                            2, 0},
        {"mkfifo pipe; cat a.wav > pipe & $T probe --json-lines --timeout 0.3 pipe b.wav",                   2, 0},
        {"$T probe --json-lines --timeout 0.3 <(sleep 1; cat a.wav)",                                        1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const Outcome outcome = Shell(row.command);
        EXPECT_EQ(outcome.code, row.code) << outcome.errors;
        EXPECT_EQ(std::ranges::count(outcome.output, '\n'), row.files) << outcome.output;
    }
}

TEST_F(Many, RunsAreContinued)
{
    PutFiles();
    Shell("$T probe --json-lines *.wav > whole");
    const std::string whole = Content("whole");
    const size_t second = whole.find('\n', whole.find('\n') + 1) + 1;
    for (const size_t size : {size_t{0}, second - 1, second, second + 20, whole.size()}) {
        folder.Put("part", whole.substr(0, size));
        const Outcome outcome = Shell("$T probe -q --json-lines --resume part *.wav >> part");
        EXPECT_EQ(FilesOf(Content("part"), true), FilesOf(whole, true)) << size << outcome.errors;
    }
    folder.Put("bad", "{}\n" + whole);
    const Outcome bad = Shell("$T probe --json-lines --resume bad a.wav");
    EXPECT_EQ(bad.code, 2);
    EXPECT_THAT(bad.errors, HasSubstr("line 1 of 'bad' is not a result of --json-lines"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Many, FilesThatEndTheirProcessCostALine)
{
    for (const char* name : {"1.wav", "2crash.wav", "3.wav", "4spin.wav", "5eat.wav", "6.wav"})
        folder.Put(name, sound);
    const std::string run =
        "LD_PRELOAD='" HOSTILE_DEMUXER_LIBRARY "' $T probe --timeout 3 --max-memory 200M ";
    const struct {
        size_t index;
        const char *kind, *message;
    } rows[] = {
        {1, "crashed", "the worker process crashed (SIGSEGV, signal 11)"     },
        {3, "timeout", "no progress for 3 seconds (--timeout)"               },
        {4, "memory",  "needs more than the 200 MiB that --max-memory allows"},
    };
    const Outcome dump = Shell("LD_PRELOAD='" HOSTILE_DEMUXER_LIBRARY "' $T dump 2crash.wav");
    EXPECT_EQ(dump.code, 1);
    EXPECT_THAT(dump.errors, HasSubstr("2crash.wav: the worker process crashed"));
    for (const char* jobs : {"--jobs 1 ", "--jobs 4 "}) {
        const Outcome text = Shell(run + jobs + "*.wav");
        const Outcome document = Shell(run + jobs + "--json *.wav"),
                      lines = Shell(run + jobs + "--json-lines *.wav");
        const Outcome table = Shell(run + jobs + "--table *.wav");
        for (const Outcome* outcome : {&text, &document, &lines, &table})
            EXPECT_EQ(outcome->code, 1) << outcome->errors;
        EXPECT_EQ(text.ErrorLines().size(), 3u) << text.errors;
        const std::vector<json> files = FilesOf(document.output, false);
        EXPECT_EQ(files, FilesOf(lines.output, true));
        ASSERT_EQ(files.size(), 6u);
        for (const auto& row : rows) {
            EXPECT_EQ(files[row.index]["error"]["kind"], row.kind);
            EXPECT_EQ(files[row.index]["error"]["message"], row.message);
            EXPECT_THAT(text.errors, HasSubstr(row.message));
            EXPECT_THAT(table.output, HasSubstr(row.message));
        }
        for (const size_t good : {0, 2, 5})
            EXPECT_FALSE(files[good].contains("error"));
    }
}
#endif

}  // namespace
