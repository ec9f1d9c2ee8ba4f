// probe on many files: several at a time, from lists, continued, and with some that end their process.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

const std::string picture = "P6 1 1 255\n123";

struct Many : testing::Test {
    const TemporaryFolder folder;
    std::vector<std::string> paths;

    void PutFiles()
    {
        for (const char* name : {"a.ppm", "b.ppm", "c\n.ppm", "d.ppm", "e.ppm"})
            paths.push_back(folder.Put(name, picture));
        paths.push_back(folder.Put("words.ppm", "words"));
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
        {"printf 'a.ppm\\n\\nb.ppm' > list; $T probe --json-lines --files-from list",                        2, 0},
        {"printf 'a.ppm\\nwords.ppm\\n' | $T probe --json-lines d.ppm --files-from -",                       3, 1},
        {"(printf 'a.ppm\\0'; sleep 1; printf 'c\\n.ppm\\0') | $T probe --json-lines --null --files-from -",
         2,                                                                                                     0},
        {"(echo a.ppm; sleep 1; echo b.ppm) | $T probe --isolate=no --json-lines --files-from -",            2, 0},
        {"mkdir in; mv d.ppm e.ppm in; echo in | $T probe --json-lines --files-from -",                      2, 0},
        {"$T probe --json-lines --files-from none",                                                          0, 2},
        {"echo a.ppm | $T probe --json-lines - --files-from -",                                              0, 2},
        {"(echo a.ppm; head -c 100000 /dev/zero) | $T probe --json-lines --files-from -",                    1, 1},
        {"cat a.ppm | $T probe --json-lines - -",                                                            2, 0},
        {"mkfifo pipe; cat a.ppm > pipe & $T probe --json-lines --timeout 0.3 pipe b.ppm",                   2, 0},
        {"$T probe --json-lines --timeout 0.3 <(sleep 1; cat a.ppm)",                                        1, 0},
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
    Shell("$T probe --json-lines *.ppm > whole");
    const std::string whole = Content("whole");
    const size_t second = whole.find('\n', whole.find('\n') + 1) + 1;
    for (const size_t size : {size_t{0}, second - 1, second, second + 20, whole.size()}) {
        folder.Put("part", whole.substr(0, size));
        const Outcome outcome = Shell("$T probe -q --json-lines --resume part *.ppm >> part");
        EXPECT_EQ(FilesOf(Content("part"), true), FilesOf(whole, true)) << size << outcome.errors;
    }
    folder.Put("bad", "{}\n" + whole);
    const Outcome bad = Shell("$T probe --json-lines --resume bad a.ppm");
    EXPECT_EQ(bad.code, 2);
    EXPECT_THAT(bad.errors, HasSubstr("line 1 of 'bad' is not a result of --json-lines"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Many, FilesThatEndTheirProcessCostALine)
{
    for (const char* name : {"1.ppm", "2crash.ppm", "3.ppm", "4spin.ppm", "5eat.ppm", "6.ppm"})
        folder.Put(name, picture);
    const std::string run =
        "LD_PRELOAD='" HOSTILE_DEMUXER_LIBRARY "' $T probe --timeout 1 --max-memory 200M ";
    const struct {
        size_t index;
        const char *kind, *message;
    } rows[] = {
        {1, "crashed", "the worker process crashed (SIGSEGV, signal 11)"     },
        {3, "timeout", "no progress for 1 seconds (--timeout)"               },
        {4, "memory",  "needs more than the 200 MiB that --max-memory allows"},
    };
    for (const char* jobs : {"--jobs 1 ", "--jobs 4 "}) {
        const Outcome text = Shell(run + jobs + "*.ppm");
        const Outcome document = Shell(run + jobs + "--json *.ppm"),
                      lines = Shell(run + jobs + "--json-lines *.ppm");
        const Outcome table = Shell(run + jobs + "--table *.ppm");
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
