// `tessadrin probe`, run as people run it.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/MadeMedia.h"
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>

namespace {

using nlohmann::json;
using Quorva::Media::MadeFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// A PCM WAV file, 16 bits, mono, 8000 Hz, of 100 ms.
std::string Wave()
{
    const std::string sound(1600, '\1');
    const auto number = [](uint32_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i)
            text += static_cast<char>(value >> 8 * i);
        return text;
    };
    return "RIFF" + number(36 + 1600, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) + number(1, 2) +
           number(8000, 4) + number(16000, 4) + number(2, 2) + number(16, 2) + "data" + number(1600, 4) +
           sound;
}

std::string Picture() { return "P6\n2 1\n255\n\1\2\3\4\5\6"; }

/// A file that is recognised, but too damaged to be opened; FFmpeg complains about it.
std::string DamagedWave()
{
    return "RIFF" + std::string("\x10\0\0\0", 4) + "WAVEjunk" + std::string(64, '\xff');
}

/// The document that `probe --json` prints.
json Probe(std::vector<std::string> arguments, int code)
{
    arguments.insert(arguments.begin(), {"probe", "--json"});
    const Outcome outcome = RunProgram(arguments);
    EXPECT_EQ(outcome.code, code) << outcome.errors;
    const json document = json::parse(outcome.output, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << outcome.output;
    return document;
}

TEST(Probe, TellsWhatIsInAFile)
{
    const std::string path = MadeFile("h264-flac-srt.mkv").native();
    const json file = Probe({path, "--count"}, 0)["files"][0];
    EXPECT_EQ(file["path"], path);
    EXPECT_EQ(file["size"], std::filesystem::file_size(path));
    EXPECT_EQ(file["format"],
              json::parse(R"({"detected": "matroska", "score": 100, "implementation": "ffmpeg",
        "container": "matroska", "demuxer": "matroska,webm", "single_image": false})"));
    EXPECT_NEAR(file["duration"].get<double>(), 1e6, 5e4) << "microseconds";
    ASSERT_EQ(file["streams"].size(), 3u);
    const json& video = file["streams"][0];
    EXPECT_EQ(video["kind"], "video");
    EXPECT_EQ(video["codec"]["id"], "h264");
    EXPECT_EQ(video["codec"]["decoder_long_name"], "H.264 / AVC / MPEG-4 AVC / MPEG-4 part 10");
    EXPECT_EQ(video["video"]["width"], 128);
    EXPECT_EQ(video["video"]["height"], 96);
    EXPECT_EQ(video["video"]["frame_rate"], (json{
                                                {"num", 25},
                                                {"den", 1 }
    }));
    EXPECT_TRUE(video["video"]["pixel_format"].is_string());
    EXPECT_EQ(video["count"]["packets"], 25);
    EXPECT_EQ(file["streams"][1]["audio"]["sample_rate"], 44100);
    EXPECT_EQ(file["streams"][1]["audio"]["layout"], "stereo");
    EXPECT_EQ(file["streams"][2]["kind"], "subtitle");

    const std::string text = RunProgram({"probe", path}).output;
    for (const char* part :
         {"matroska, score 100", "0:00:01.", "128x96", "25 frames/s", "H.264 / AVC", "44100 Hz"})
        EXPECT_THAT(text, HasSubstr(part));
}

TEST(Probe, PacketsAreListedAsTheyAreCounted)
{
    const std::string path = MadeFile("h264-aac.mp4").native();
    const json listed = Probe({path, "--packets"}, 0)["files"][0];
    const json counted = Probe({path, "--count"}, 0)["files"][0];
    EXPECT_EQ(listed["count"], counted["count"]);
    EXPECT_EQ(listed["packets"].size(), counted["count"]["packets"]);
    EXPECT_FALSE(counted.contains("packets"));
    uint64_t bytes = 0;
    int64_t last = 0;
    std::map<int, int> ofStream;
    for (const json& packet : listed["packets"]) {
        bytes += packet["size"].get<uint64_t>();
        ++ofStream[packet["stream"].get<int>()];
        if (packet["pts"].is_number())
            last = std::max(last, packet["pts"].get<int64_t>());
    }
    EXPECT_EQ(bytes, counted["count"]["bytes"]);
    for (const json& stream : counted["streams"])
        EXPECT_EQ(ofStream[stream["index"]], stream["count"]["packets"]);
    EXPECT_GT(last, 900'000) << "microseconds: the file lasts for a second";
    EXPECT_LT(last, 1'100'000);

    const std::string text = RunProgram({"probe", "--packets", path}).output;
    size_t lines = 0;
    for (size_t at = 0; (at = text.find("\n  packet of #", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(lines, counted["count"]["packets"]);
}

TEST(Probe, StandardInputIsReadInAnyOrder)
{
    const std::string path = MadeFile("h264-aac.mp4");  // its index is at its end
    const std::string wanted = RunProgram({"probe", "--packets", path}).output;
    for (const char* line :
         {"exec \"$0\" probe --packets - <\"$1\"", "cat \"$1\" | \"$0\" probe --packets -",
          "cat \"$1\" | \"$0\" probe --packets /dev/stdin", "\"$0\" probe --packets <(cat \"$1\")",
          "d=$(mktemp -d) && mkfifo $d/p && { cat \"$1\" >$d/p & } && \"$0\" probe --packets $d/p && rm -r "
          "$d"}) {
        SCOPED_TRACE(line);
        const Outcome outcome = RunProgram({"-c", line, TESSADRIN_PROGRAM, path}, "bash");
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_EQ(outcome.output.substr(outcome.output.find('\n')), wanted.substr(wanted.find('\n')));
    }
    EXPECT_THAT(RunProgram({"probe", "-"}).ErrorLines(),
                ElementsAre("-: not a known media format (the file is empty)"));
}

TEST(Probe, UnknownTimesAreNull)
{
    const TemporaryFolder folder;
    const json file = Probe({folder.Put("still.ppm", Picture()), "--packets"}, 0)["files"][0];
    EXPECT_TRUE(file["format"]["single_image"]);
    EXPECT_TRUE(file["duration"].is_null());
    EXPECT_TRUE(file["streams"][0]["video"]["frame_rate"].is_null());
    EXPECT_TRUE(file["streams"][0]["video"]["pixel_aspect"].is_null());
    EXPECT_EQ(file["streams"][0]["video"]["pixel_format"], "rgb24");
    EXPECT_EQ(file["count"], (json{
                                 {"packets", 1               },
                                 {"bytes",   Picture().size()}
    }));
}

TEST(Probe, EveryFailureIsOneLineAndTheOthersGoOn)
{
    const TemporaryFolder folder;
    const std::string good = folder.Put("good.wav", Wave());
    ASSERT_EQ(mknod(folder.At("socket.wav").c_str(), S_IFSOCK | 0600, 0), 0);
    const struct {
        std::string path, message, kind;
    } rows[] = {
        {folder.At("none.wav"), "No such file or directory", "not-found"},
        {"./[no,list]", "No such file or directory", "not-found"},
        {folder.At("socket.wav"), "is a socket, which can't be opened as a file", "unreadable"},
        {folder.Put("empty.wav", ""), "not a known media format (the file is empty)", "unknown-format"},
        {folder.Put("text.wav", "plain words"), "not a known media format (first 11 bytes match nothing)",
         "unknown-format"},
        {folder.Put("long.bin", std::string(70000, 'x')),
         "not a known media format (first 70000 bytes match nothing)", "unknown-format"},
        {folder.Put("playlist.mpd",
         "<?xml version=\"1.0\"?><MPD profiles=\"urn:mpeg:dash:profile:isoff-live:2011\">"),
         "not a known media format", "unknown-format"},
        {folder.Put("damaged.wav", DamagedWave()), "can't be opened as wav: Invalid data found",
         "invalid-data"},
        {folder.Put("photo.heic", std::string("\0\0\0\x18"
                                              "ftypheic\0\0\0\0mif1heic", 24)),
         "recognised as heic, which is not read here", "unsupported"},
    };
    std::vector<std::string> paths{good};
    for (const auto& row : rows)
        paths.push_back(row.path);
    paths.push_back(good);

    std::vector<std::string> arguments = paths;
    arguments.insert(arguments.begin(), "probe");
    const Outcome outcome = RunProgram(arguments);
    EXPECT_EQ(outcome.code, 1);
    const std::vector<std::string> lines = outcome.ErrorLines();
    ASSERT_EQ(lines.size(), std::size(rows)) << outcome.errors;
    EXPECT_EQ(RunProgram({"probe", "[no,list]"}).ErrorLines(),
              RunProgram({"probe", "./[no,list]"}).ErrorLines());
    const json files = Probe(paths, 1)["files"];
    ASSERT_EQ(files.size(), paths.size());
    EXPECT_FALSE(files.front().contains("error"));
    EXPECT_FALSE(files.back().contains("error"));
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].path);
        EXPECT_THAT(lines[i], AllOf(StartsWith(rows[i].path + ": "), HasSubstr(rows[i].message)));
        EXPECT_EQ(lines[i].find(rows[i].path, 1), std::string::npos) << "the path twice: " << lines[i];
        const json& error = files[i + 1]["error"];
        EXPECT_EQ(error["kind"], rows[i].kind);
        EXPECT_EQ(rows[i].path + ": " + error["message"].get<std::string>(), lines[i]);
        EXPECT_FALSE(error.contains("where")) << "changes with every build: only with -v";
    }

    const Outcome quiet = RunProgram({"probe", "-q", rows[0].path});
    EXPECT_EQ(quiet.code, 1);
    EXPECT_EQ(quiet.output + quiet.errors, "");
}

TEST(Probe, VerboseNamesPlaceCallsAndFFmpegsReasons)
{
    const TemporaryFolder folder;
    const std::string damaged = folder.Put("damaged.wav", DamagedWave());
    const Outcome outcome = RunProgram({"probe", "-v", damaged, folder.At("none.wav")});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.errors, StartsWith("ERROR ")) << "FFmpeg's own";
    EXPECT_THAT(outcome.errors,
                HasSubstr("ProcException from ThrowFFmpegFailure, tools/support/Failure.cpp:"));
    EXPECT_THAT(outcome.errors, HasSubstr("IOException from ThrowRefused, tools/isolation/Worker.cpp:"));
    EXPECT_THAT(outcome.errors, HasSubstr("\n  #0 "));
    EXPECT_THAT(outcome.errors, HasSubstr("OpenedInput::OpenedInput"))
        << "the program's functions have names";

    const json error = Probe({damaged, "-v"}, 1)["files"][0]["error"];
    EXPECT_EQ(error["where"]["function"], "ThrowFFmpegFailure");
    EXPECT_FALSE(error["call_stack"].empty());
}

TEST(Probe, FoldersAreWalkedInOrder)
{
    const TemporaryFolder folder;
    for (const char* name : {"b.wav", "a/z.wav", "a/c/y.wav", "a.wav"})
        folder.Put(name, Wave());
    std::filesystem::create_directory(folder.path / "empty");
    std::filesystem::create_directory_symlink("..", folder.path / "a" / "up");
    std::filesystem::create_symlink("nowhere", folder.path / "a" / "dangling");
    std::vector<std::string> paths;
    const json document = Probe({folder.path.native()}, 0);
    for (const json& file : document["files"])
        paths.push_back(file["path"]);
    EXPECT_THAT(paths, ElementsAre(folder.At("a/c/y.wav"), folder.At("a/z.wav"), folder.At("a.wav"),
                                   folder.At("b.wav")));

    const Outcome nothing = RunProgram({"probe", folder.At("empty")});
    EXPECT_EQ(nothing.code, 0);
    EXPECT_EQ(nothing.output, "");
    EXPECT_EQ(nothing.errors, folder.At("empty") + ": no files in this folder\n");
}

TEST(Probe, NamesAreHarmlessOnATerminalAndValidInJson)
{
    const TemporaryFolder folder;
    const std::string name = "line\nfeed \x1b[2J \xff \xe2\x80\xae %d [x,y] *.wav";
    const std::string path = folder.Put(name, Wave());
    const std::string shown = folder.At("line\\nfeed \\x1b[2J \\xff \\u{202e} %d [x,y] *.wav");
    const Outcome text = RunProgram({"probe", path});
    EXPECT_EQ(text.code, 0) << text.errors;
    EXPECT_THAT(text.output, StartsWith(shown + "\n  format     wav"));
    EXPECT_THAT(RunProgram({"probe", path + "x"}).ErrorLines(), ElementsAre(StartsWith(shown + "x: ")));
    EXPECT_THAT(RunProgram({"probe", "--table", path}).output, HasSubstr("\n" + shown + "  wav"));

    EXPECT_EQ(Probe({path}, 0)["files"][0]["path"],
              folder.At("line\nfeed \x1b[2J \xef\xbf\xbd \xe2\x80\xae %d [x,y] *.wav"));
}

TEST(Probe, MetadataIsReadableText)
{
    const TemporaryFolder folder;
    std::string wave = Wave();
    const std::string title = "Caf\xe9";  // in Latin 1
    wave += std::string("LIST\x11\0\0\0INFOINAM\x05\0\0\0", 20) + title + std::string(2, '\0');
    wave[4] = static_cast<char>(wave[4] + 26);
    const json file = Probe({folder.Put("tagged.wav", wave)}, 0)["files"][0];
    EXPECT_EQ(file["metadata"], (json{
                                    {"title", "Caf\xc3\xa9"}
    }));
}

TEST(Probe, ImagesThatFFmpegWouldOpenByNameAreReadToo)
{
    // Only the extension tells a Targa file, and FFmpeg's demuxer for it takes names for patterns.
    const TemporaryFolder folder;
    std::string targa(18, '\0');
    targa[2] = 2;
    targa[12] = targa[14] = 2;
    targa[16] = 24;
    targa += std::string(12, '\7');
    const json file = Probe({folder.Put("picture%03d.tga", targa), "--count"}, 0)["files"][0];
    EXPECT_EQ(file["format"]["demuxer"], "image2");
    EXPECT_EQ(file["format"]["container"], "targa");
    EXPECT_EQ(file["count"]["bytes"], targa.size());
}

TEST(Probe, TableAlignsItsColumns)
{
    const TemporaryFolder folder;
    folder.Put("a.wav", Wave());
    folder.Put("a much longer n\xc3\xa4me.ppm", Picture());
    folder.Put("b.txt", "words");
    const Outcome outcome = RunProgram({"probe", "--table", folder.path.native()});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.errors, "") << "the row says it";
    std::istringstream stream(outcome.output);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    ASSERT_EQ(lines.size(), 4u) << outcome.output;
    const size_t format = lines[0].find("FORMAT");
    EXPECT_EQ(lines[1].find("ppm ", format), format + 1)
        << "the letter a-umlaut has two bytes and one column";
    EXPECT_EQ(lines[2].find("wav ", format - 1), format);
    EXPECT_THAT(lines[2], HasSubstr("pcm_s16le"));
    EXPECT_THAT(lines[3], EndsWith("not a known media format (first 5 bytes match nothing)"));
    EXPECT_EQ(lines[2].find("1600") + 4, lines[0].find("BYTES") + 5) << "numbers end where their title does";
}

}  // namespace
