#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "host/MediaDescription.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace Quorva::Proc {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// A caller's own initialisers may use the library.
const std::string textAtStart = CodecIDToTextID(AV_CODEC_ID_H264);
const AVCodec* const decoderAtStart = FindDecoder(AV_CODEC_ID_AAC, ImplNames::FFMPEG);

TEST(Load, IsCompleteBeforeCallersInitialisers)
{
    EXPECT_EQ(textAtStart, "h264");
    EXPECT_EQ(decoderAtStart, avcodec_find_decoder_by_name("aac"));
}

struct Ended {
    int status;          ///< as waitpid() gives it
    std::string output;  ///< what it wrote to either stream
};

Ended RunChild(const std::string& mode, const std::string& program = LOAD_CHILD)
{
    const std::string command =
        "OTHER_FFMPEG=" + mode + " exec '" + program + "' '" TESSADRIN_LIBRARY "' 2>&1";
    FILE* child = popen(command.c_str(), "r");
    if (!child)
        throw std::runtime_error("no child process");
    Ended ended;
    std::array<char, 4096> part;
    while (const size_t length = std::fread(part.data(), 1, part.size(), child))
        ended.output.append(part.data(), length);
    ended.status = pclose(child);
    return ended;
}

int CountOf(const std::string& part, const std::string& text)
{
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        ++count;
    return count;
}

TEST(Load, FFmpegIsSetUpOnceAndMayLogToTheEnd)
{
    const Ended child = RunChild("normal");
    SCOPED_TRACE(child.output);
    EXPECT_EQ(child.status, 0);
    for (const char* once : {"network on\n", "network off\n", "ERROR Global: after unload\n",
                             "ERROR Global: from atexit\n", "ERROR Global: from a static destructor\n"}) {
        SCOPED_TRACE(once);
        EXPECT_EQ(CountOf(once, child.output), 1);
    }
    EXPECT_LT(child.output.find("end of main"), child.output.find("network off"));
}

TEST(Load, SkipsWhatHasNoName)
{
    const Ended child = RunChild("nameless");
    EXPECT_EQ(child.status, 0) << child.output;
}

TEST(Load, EndsTheProcessWithOneSentenceAndTheExceptionWhenItFails)
{
    const struct {
        const char* mode;
        const char* reason;
        const char* exception;
        const char* function;
    } rows[] = {
        {"wrong",   "Bad pixel format descriptions: rgb24 (QUORVA) != rgb24 (FFMPEG)",   "std::logic_error",
         "operator ()"                                                                                                             },
        {"unnamed", "Bad pixel format descriptions: rgb24 (QUORVA) != unnamed (FFMPEG)", "std::logic_error",
         "operator ()"                                                                                                             },
        {"missing", "Bad pixel format descriptions: nv12 (QUORVA) != none (FFMPEG)",     "std::logic_error",
         "operator ()"                                                                                                             },
        {"nomov",   "invalid unordered_map<K, T> key (this FFmpeg has nothing for '",    "std::out_of_range",
         "InputCatalogue"                                                                                                          },
        {"newer",   "Compiled for libavutil ",                                           "std::logic_error",  "CheckRuntimeVersion"},
    };
    for (const auto& row : rows)
        for (const char* program : {LOAD_CHILD, START_CHILD}) {
            const Ended child = RunChild(row.mode, program);
            SCOPED_TRACE(child.output);
            EXPECT_TRUE(WIFSIGNALED(child.status));
            EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
            const std::string said =
                child.output.substr(child.output.find("Tessadrin"));  // behind "network on"
            EXPECT_THAT(said, StartsWith(std::string("Tessadrin can't be loaded: ") + row.reason));
            const size_t handler = said.find("handler: ");
            ASSERT_NE(handler, std::string::npos);
            EXPECT_THAT(
                said.substr(0, handler),
                testing::EndsWith("; install the FFmpeg 7.1 it was built with, or build it again with this "
                                  "one (`tessadrin doctor` tells more).\n"));
            EXPECT_EQ(CountOf("\n", said), 2);
            EXPECT_THAT(said.substr(handler), HasSubstr(row.exception));
            EXPECT_THAT(said.substr(handler),
                        HasSubstr(std::string(" in ") + row.function + ", call stack kept\n"));
        }
}

}  // namespace
}  // namespace Quorva::Proc
