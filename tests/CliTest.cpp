// The program's manners: usage, catalogues, pipes and terminals.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST(CommandLine, MistakesAreNamedAndCostTwo)
{
    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } rows[] = {
        {{},                                  "subcommand is required"                         },
        {{"prob", "x"},                       "no command 'prob'; did you mean 'probe'?"       },
        {{"conv"},                            "no command 'conv'; did you mean 'convert'?"     },
        {{"convert", "--audio", "x"},         "no option '--audio'\n`tessadrin help convert`"  },
        {{"--verson"},                        "no option '--verson'; did you mean '--version'?"},
        {{"probe", "--jsno", "x"},            "no option '--jsno'; did you mean '--json'?"     },
        {{"probe", "--utterly-wrong", "x"},   "no option '--utterly-wrong'\n"                  },
        {{"probe"},                           "FILE is required"                               },
        {{"probe", "--json", "--table", "x"}, "--table"                                        },
        {{"formats", "mp5"},                  "no format 'mp5'; did you mean 'mp3'?"           },
        {{"codecs", "h265"},                  "no codec 'h265'; did you mean 'h26"             },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const Outcome outcome = RunProgram(row.arguments);
        EXPECT_EQ(outcome.code, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.errors, AllOf(StartsWith("tessadrin: "), HasSubstr(row.message)));
    }
}

TEST(CommandLine, HelpAndVersionAreNoFailures)
{
    const Outcome help = RunProgram({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.output, AllOf(HasSubstr("probe"), HasSubstr("formats"), HasSubstr("codecs"),
                                   HasSubstr("Exit codes: 0 ")));
    const Outcome version = RunProgram({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_THAT(version.output, AllOf(StartsWith("tessadrin "), HasSubstr("libavformat")));
    EXPECT_EQ(help.errors + version.errors, "");
}

/// The entry of a catalogue's list whose `key` is `value`.
json Entry(const json& list, const char* key, const char* value)
{
    for (const json& entry : list)
        if (entry[key] == value)
            return entry;
    return {};
}

TEST(Schemas, RefuseWhatTheyDoNotDescribe)
{
    const TemporaryFolder folder;
    const std::string good =
        RunProgram({"probe", "--json", "--packets", folder.Put("still.ppm", "P6 1 1 255\n123")}).output;
    EXPECT_EQ(SchemaFault(good), "");
    const std::pair<const char*, json> rows[] = {
        {"/files/0/streams/0/kind",         "unknown"             }, // no value of its enumeration
        {"/files/0/streams/0/surprise",     1                     }, // a member that isn't described
        {"/files/0/size",                   -1                    },
        {"/files/0/streams/0/codec/ffmpeg", nullptr               },
        {"/files/0/error",                  {{"kind", "internal"}}}, // lacks its message
        {"/files/0",                        {{"path", "x"}}       }, // neither described nor failed
        {"/files/0/format",
         {{"detected", "wav"},
          {"score", 1},
          {"implementation", "ffmpeg"},
          {"container", "wav"}}                                   }, // lacks what a container brings along
    };
    for (const auto& [place, value] : rows) {
        json bad = json::parse(good);
        bad[json::json_pointer(place)] = value;
        EXPECT_NE(SchemaFault(bad.dump()), "") << place;
    }
    EXPECT_NE(SchemaFault("WARNING\n{\"schema\":\"tessadrin/progress/1\"}\n"), "");
}

TEST(Formats, BothDirectionsAreListed)
{
    const Outcome outcome = RunProgram({"formats", "--json"});
    EXPECT_EQ(outcome.code, 0);
    const json document = json::parse(outcome.output);
    const json& formats = document["formats"];
    EXPECT_EQ(Entry(formats, "name", "m4a")["demuxer"], "mov,mp4,m4a,3gp,3g2,mj2");
    EXPECT_EQ(Entry(formats, "name", "m4a")["muxer"], "ipod");
    EXPECT_EQ(Entry(formats, "name", "mka")["mime_type"], "audio/x-matroska");
    EXPECT_TRUE(Entry(formats, "name", "heic").is_null()) << "recognised, but not read";
    EXPECT_TRUE(Entry(formats, "name", "flic")["muxer"].is_null());
    EXPECT_EQ(document["demuxers"].size(), 354u);

    const std::string rows = RunProgram({"formats", "wav", "gif"}).output;
    EXPECT_THAT(rows, AllOf(HasSubstr("\ngif "), HasSubstr("\nwav ")));
    EXPECT_EQ(std::ranges::count(rows, '\n'), 3);
    EXPECT_THAT(RunProgram({"formats", "--demuxers"}).output, HasSubstr("\nmatroska,webm "));
}

TEST(Codecs, ImplementationsAnswerForThemselves)
{
    const json document = json::parse(RunProgram({"codecs", "--json"}).output);
    const json h264 = Entry(document["codecs"], "id", "h264");
    EXPECT_EQ(h264["kind"], "video");
    EXPECT_EQ(h264["decoders"]["ffmpeg"], "h264");
    EXPECT_EQ(h264["encoders"]["ffmpeg"], "libx264");
    EXPECT_TRUE(h264["decoders"]["directx"].is_null()) << "never on this system";
    EXPECT_TRUE(h264["encoders"].contains("nvenc"));

    EXPECT_THAT(RunProgram({"codecs", "h264"}).output, HasSubstr("libx264"));
    EXPECT_THAT(RunProgram({"codecs", "aac"}).output, ContainsRegex("\naac +audio +aac +aac +[a-z]"))
        << "what encodes where nobody asks for an implementation";
    const std::string decoders = RunProgram({"codecs", "--decoders"}).output;
    EXPECT_THAT(decoders,
                AllOf(StartsWith("Decoders:\n"), HasSubstr("\nh264\n"), Not(HasSubstr("Encoders:"))));
    EXPECT_THAT(RunProgram({"codecs", "--decoders", "--encoders"}).output, HasSubstr("\n\nEncoders:\n"));
}

TEST(Help, EveryCommandTeachesByExamples)
{
    for (const char* command : {"probe", "convert", "formats", "codecs", "dump", "doctor", "help"}) {
        const Outcome outcome = RunProgram({"help", command});
        EXPECT_EQ(outcome.code, 0) << command;
        EXPECT_THAT(outcome.output, HasSubstr(std::string("\n  tessadrin ") + command)) << command;
        EXPECT_EQ(outcome.output, RunProgram({command, "--help"}).output);
    }
    EXPECT_EQ(RunProgram({"help"}).output, RunProgram({"--help"}).output);
    std::istringstream lines(RunProgram({"help", "convert"}).output);
    for (std::string line; std::getline(lines, line) && line != "Examples:";)
        EXPECT_LE(line.size(), 105u) << line;
    const Outcome slip = RunProgram({"help", "convrt"});
    EXPECT_EQ(slip.code, 2);
    EXPECT_THAT(slip.errors, HasSubstr("did you mean 'convert'?"));
    EXPECT_THAT(RunProgram({"--version"}).output,
                ContainsRegex("libavcodec +built with 61[.0-9]+ +running 61"));
}

TEST(Help, ShellsCompleteByIt)
{
    const TemporaryFolder folder;
    folder.Put("completion", RunProgram({"help", "--as", "bash"}).output);
    const auto complete = [&](const std::string& words, int position, const std::string& word) {
        folder.Put("ask", "source " + folder.At("completion") + "\nCOMP_WORDS=(" + words +
                              ")\nCOMP_CWORD=" + std::to_string(position) + "\n_tessadrin tessadrin '" +
                              word + "' \"${COMP_WORDS[" + std::to_string(position - 1) +
                              "]}\"\necho \"${COMPREPLY[*]}\" >" + folder.At("answer"));
        EXPECT_EQ(std::system(("bash " + folder.At("ask")).c_str()), 0);
        std::ifstream file(folder.At("answer"));
        std::string line;
        std::getline(file, line);
        return line;
    };
    EXPECT_EQ(complete("tessadrin con", 1, "con"), "convert");
    EXPECT_EQ(complete("tessadrin convert --two", 2, "--two"), "--two-pass");
    EXPECT_EQ(complete("tessadrin convert --progress j", 3, "j"), "json");
    EXPECT_EQ(complete("tessadrin help d", 2, "d"), "dump doctor");
    EXPECT_EQ(complete("tessadrin help -h", 2, "-h"), "-h");
    EXPECT_EQ(complete("tessadrin convert --decoder-implementation q", 3, "q"), "qsv");
    const std::filesystem::path program = TESSADRIN_PROGRAM;
    setenv("PATH", (program.parent_path().native() + ":" + std::getenv("PATH")).c_str(), 1);
    EXPECT_EQ(complete("tessadrin convert --format matr", 3, "matr"), "matroska");
    EXPECT_EQ(complete("tessadrin codecs hev", 2, "hev"), "hevc");
    EXPECT_THAT(RunProgram({"help", "--as", "zsh"}).output,
                AllOf(StartsWith("#compdef tessadrin\n"), HasSubstr("'*--overwrite[Replace OUT")));
    EXPECT_THAT(RunProgram({"help", "--as", "fish"}).output, HasSubstr("-l two-pass -d 'Look at all"));
    EXPECT_THAT(RunProgram({"help", "--as", "man"}).output, HasSubstr("\n.SS tessadrin convert\n"));
}

TEST(Output, ReaderThatLeavesEndsTheProgramQuietly)
{
    const TemporaryFolder folder;
    const int errors = open(folder.At("errors").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const auto before = std::signal(SIGPIPE, SIG_IGN);  // as some parents leave it
    const Outcome outcome = RunOn({"codecs"}, input, ends[1], errors);
    std::signal(SIGPIPE, before);
    EXPECT_EQ(outcome.signal, SIGPIPE);
    EXPECT_EQ(std::filesystem::file_size(folder.At("errors")), 0u);
    for (const int descriptor : {errors, input, ends[1]})
        close(descriptor);
}

TEST(Output, FullDiskIsAFailure)
{
    const TemporaryFolder folder;
    const int errors = open(folder.At("errors").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int full = open("/dev/full", O_RDWR | O_CLOEXEC);
    ASSERT_GE(full, 0);
    EXPECT_EQ(RunOn({"formats", "wav"}, full, full, errors).code, 1);
    close(full);
    close(errors);
    std::ifstream file(folder.At("errors"));
    std::string line;
    std::getline(file, line);
    EXPECT_THAT(line, AllOf(StartsWith("tessadrin: "), HasSubstr("No space left on device")));
}

/// What the program writes when a terminal of 60 columns is all it has.
std::string OnTerminal(const std::vector<std::string>& arguments)
{
    const winsize size{24, 60, 0, 0};
    int master = -1;
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) {
        ADD_FAILURE() << "no terminal to be had";
        return {};
    }
    RunOn(arguments, slave, slave, slave);  // what it writes fits into the terminal's buffer
    close(slave);
    std::string text;
    char piece[4096];
    for (ssize_t count; (count = read(master, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(count));
    close(master);
    return text;
}

TEST(ProgressBar, IsForTerminalsOnly)
{
    const TemporaryFolder folder;
    folder.Put("a-file-with-a-name-that-does-not-fit-into-the-rest-of-sixty-columns.txt", "words");
    folder.Put("b.txt", "words");
    const std::string path = folder.path.native();
    setenv("NO_COLOR", "1", 1);
    const std::string shown = OnTerminal({"probe", path});
    EXPECT_THAT(shown, StartsWith("[........................] 0/2 "));
    EXPECT_EQ(shown.find('\r'), 59u) << "the bar leaves the last column free: " << shown;
    EXPECT_THAT(shown, HasSubstr("\r\x1b[K" + path)) << "it makes way for lines";
    EXPECT_THAT(OnTerminal({"probe", "-q", path}), IsEmpty());
    EXPECT_THAT(OnTerminal({"probe", path + "/b.txt"}), Not(HasSubstr("[")));

    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
    EXPECT_THAT(OnTerminal({"probe", path + "/b.txt"}), StartsWith("\x1b[31m" + path + "/b.txt: not"));
    setenv("TERM", "dumb", 1);
    EXPECT_THAT(OnTerminal({"probe", path + "/b.txt"}), StartsWith(path + "/b.txt: not"));
    setenv("TERM", "xterm", 1);
    const Outcome piped = RunProgram({"probe", path});
    EXPECT_THAT(piped.output + piped.errors,
                Not(AnyOf(HasSubstr("\r"), HasSubstr("\x1b"), HasSubstr("0/2"))));
}

}  // namespace
