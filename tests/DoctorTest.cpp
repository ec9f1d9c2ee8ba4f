#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// The program with an FFmpeg of its own.
Outcome RunWith(const char* ffmpeg, const std::vector<std::string>& arguments)
{
    setenv("OTHER_FFMPEG", ffmpeg, 1);
    const Outcome outcome = RunProgram(arguments, TESSADRIN_OTHER_FFMPEG);
    unsetenv("OTHER_FFMPEG");
    return outcome;
}

TEST(Doctor, FindsNothingWrongHere)
{
    const Outcome text = RunProgram({"doctor"});
    EXPECT_EQ(text.code, 0);
    EXPECT_EQ(text.errors, "");
    EXPECT_THAT(text.output, AllOf(StartsWith("tessadrin "), HasSubstr("\n  libswresample  built with "),
                                   HasSubstr("\nSandbox for reading files: Landlock "),
                                   EndsWith("\nThe library can be loaded.\n")));

    const json document = json::parse(RunProgram({"doctor", "--json"}).output);
    EXPECT_EQ(document["loads"], true);
    EXPECT_TRUE(document["failure"].is_null());
    EXPECT_TRUE(document["sandbox"]["seccomp"]);
    EXPECT_EQ(document["libraries"]["libavcodec"]["running"], document["tool"]["ffmpeg"]["avcodec"]);
    EXPECT_THAT(document["lacking"]["decoders"].get<std::vector<std::string>>(),
                testing::Not(testing::Contains("h264")));
    for (const char* kind : {"encoders", "demuxers", "muxers"})
        EXPECT_TRUE(document["lacking"][kind].is_array()) << kind;
}

TEST(Doctor, SaysWhatTheLoadSaysWhereItFails)
{
    for (const char* ffmpeg : {"wrong", "missing", "nomov", "newer"}) {
        SCOPED_TRACE(ffmpeg);
        const Outcome loaded = RunWith(ffmpeg, {"codecs"});
        EXPECT_EQ(loaded.signal, SIGABRT);
        const size_t begin = loaded.errors.find("can't be loaded");
        ASSERT_NE(begin, std::string::npos);
        // What follows is the terminate handler's.
        const std::string sentence = loaded.errors.substr(begin, loaded.errors.find('\n', begin) + 1 - begin);

        const Outcome doctor = RunWith(ffmpeg, {"doctor"});
        EXPECT_EQ(doctor.code, 1);
        EXPECT_THAT(doctor.output, EndsWith("\nThe library " + sentence));
        const json document = json::parse(RunWith(ffmpeg, {"doctor", "--json"}).output);
        EXPECT_EQ(document["loads"], false);
        EXPECT_EQ("can't be loaded: " + document["failure"].get<std::string>() + ".\n", sentence);
    }
}

TEST(Doctor, NamesWhatIsLacking)
{
    // That it can be loaded again without the demuxer shows that only some are indispensable.
    const json document = json::parse(RunWith("noflac", {"doctor", "--json"}).output);
    EXPECT_EQ(document["loads"], true);
    EXPECT_EQ(document["lacking"]["demuxers"], json({"flac"}));
    EXPECT_EQ(json::parse(RunWith("nameless", {"doctor", "--json"}).output)["loads"], true);
}

}  // namespace
