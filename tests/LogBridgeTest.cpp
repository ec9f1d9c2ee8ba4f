#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"

#include "Proc/Wrappers/Tessadrin/Details/RecentMessages.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <stdexcept>
#include <thread>

namespace Quorva::Proc {
namespace {

using google::GLOG_ERROR;
using google::GLOG_INFO;
using google::GLOG_WARNING;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using Records = std::vector<LogRecord>;

/// A context as FFmpeg's objects are one: the class comes first.
struct Source {
    const AVClass* type;
    const char* name;
};

constexpr AVClass Class(const char* name, const char* (*itemName)(void*))
{
    AVClass type = {};
    type.class_name = name;
    type.item_name = itemName;
    return type;
}

const char* NameOf(void* context) { return static_cast<Source*>(context)->name; }

const AVClass named = Class("class of named", NameOf);
const AVClass nameless = Class("class of nameless", nullptr);

class LogBridge : public testing::Test {
protected:
    LogBridge()
    {
        av_log_set_level(AV_LOG_TRACE);
        FLAGS_v = 31;
    }
    ~LogBridge() override
    {
        av_log_set_level(AV_LOG_INFO);
        FLAGS_v = 0;
    }

    static void Send(void* context, int level, const char* format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        FFMpegLogCallback(context, level, format, arguments);
        va_end(arguments);
    }

    /// A format string that no other call has; without it a message would count as a repeat.
    static std::string Fresh(const std::string& format)
    {
        static int count = 0;
        return format + " #" + std::to_string(++count);
    }

    LogCapture log;
};

TEST_F(LogBridge, LevelsBecomeSeveritiesAndWords)
{
    Source source = {&named, "somebody"};
    const struct {
        int level;
        google::LogSeverity severity;
        const char* prefix;
        bool always;
    } rows[] = {
        {AV_LOG_QUIET,            GLOG_INFO,    "QUIET somebody: ",   false},
        {AV_LOG_PANIC,            GLOG_ERROR,   "PANIC somebody: ",   true },
        {AV_LOG_FATAL,            GLOG_ERROR,   "FATAL somebody: ",   true },
        {AV_LOG_ERROR,            GLOG_ERROR,   "ERROR somebody: ",   true },
        {AV_LOG_WARNING,          GLOG_WARNING, "WARNING somebody: ", true },
        {AV_LOG_INFO,             GLOG_INFO,    "INFO somebody: ",    false},
        {AV_LOG_VERBOSE,          GLOG_INFO,    "VERBOSE somebody: ", false},
        {AV_LOG_DEBUG,            GLOG_INFO,    "DEBUG somebody: ",   false},
        {AV_LOG_TRACE,            GLOG_INFO,    "class of named: ",   false},
        {19,                      GLOG_INFO,    "class of named: ",   false},
        {-1,                      GLOG_INFO,    "class of named: ",   false},
        {AV_LOG_ERROR | 0x7b00,   GLOG_ERROR,   "ERROR somebody: ",   true },
        {AV_LOG_WARNING | 0x1200, GLOG_WARNING, "WARNING somebody: ", true },
    };
    for (const auto& row : rows)
        for (const int verbosity : {30, 31, 32}) {
            SCOPED_TRACE(testing::Message() << row.level << " at verbosity " << verbosity);
            FLAGS_v = verbosity;
            const std::string format = Fresh("value %d");
            Send(&source, row.level, (format + "\n").c_str(), 7);
            const std::string text = row.prefix + ("value 7" + format.substr(8));
            EXPECT_EQ(log.Take(), row.always || verbosity >= 31 ? Records({
                                                                      {row.severity, text}
            })
                                                                : Records());
        }
    EXPECT_EQ(log.GetUnit(), "Tessadrin");
}

TEST_F(LogBridge, SourcesWithoutANameAreGlobal)
{
    Source noFunction = {&nameless, "unused"};
    Source noName = {&named, nullptr};
    Source noClass = {nullptr, "unused"};
    const struct {
        const char* what;
        void* context;
        const char* listed;
        const char* other;
    } rows[] = {
        {"no context",              nullptr,     "WARNING Global: ", "Global: "           },
        {"no class",                &noClass,    "WARNING Global: ", "Global: "           },
        {"class without function",  &noFunction, "WARNING Global: ", "class of nameless: "},
        {"function without answer", &noName,     "WARNING Global: ", "class of named: "   },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string first = Fresh("text"), second = Fresh("text");
        Send(row.context, AV_LOG_WARNING, first.c_str());
        Send(row.context, AV_LOG_TRACE, second.c_str());
        EXPECT_THAT(log.Take(), ElementsAre(LogRecord{GLOG_WARNING, row.listed + first},
                                            LogRecord{GLOG_INFO, row.other + second}));
    }
}

TEST_F(LogBridge, KnownNoiseIsDropped)
{
    const struct {
        const char* name;
        int level;
        const char* text;
        bool written;
    } rows[] = {
        {"mpeg",       AV_LOG_ERROR,   "buffer underflow", false},
        {"dvd",        AV_LOG_ERROR,   "underflow",        false},
        {"mpeg",       AV_LOG_WARNING, "buffer underflow", true },
        {"mpeg",       AV_LOG_FATAL,   "buffer underflow", true },
        {"dvd",        AV_LOG_ERROR,   "buffer overflow",  true },
        {"mpegts",     AV_LOG_ERROR,   "underflow",        true },
        {"DVD",        AV_LOG_ERROR,   "underflow",        true },
        {nullptr,      AV_LOG_ERROR,   "underflow",        true },
        {"libvpx",     AV_LOG_WARNING, "text",             false},
        {"libvpx",     AV_LOG_TRACE,   "text",             false},
        {"libvpx",     19,             "text",             false},
        {"libvpx",     AV_LOG_ERROR,   "text",             true },
        {"libvpx-vp9", AV_LOG_WARNING, "text",             true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << (row.name ? row.name : "no name") << ' ' << row.level);
        Source source = {&named, row.name};
        const std::string format = Fresh(row.text);
        Send(&source, row.level, format.c_str());
        EXPECT_EQ(log.Take().size(), row.written ? 1u : 0u);
        // A dropped message isn't remembered.
        Send(nullptr, AV_LOG_ERROR, format.c_str());
        EXPECT_EQ(log.Take().size(), row.written ? 0u : 1u);
    }
}

TEST_F(LogBridge, LevelIsTestedBeforeAnythingElse)
{
    av_log_set_level(AV_LOG_WARNING);
    const std::string format = Fresh("text");
    Send(nullptr, AV_LOG_INFO, format.c_str());
    av_log_set_level(AV_LOG_INFO);
    FLAGS_v = 30;
    EXPECT_THAT(log.Take(), IsEmpty());
    Send(nullptr, AV_LOG_WARNING, format.c_str());
    EXPECT_EQ(log.Take().size(), 1u) << "what FFmpeg's level stops is not remembered";

    const std::string other = Fresh("text");
    Send(nullptr, AV_LOG_INFO, other.c_str());
    Send(nullptr, AV_LOG_WARNING, other.c_str());
    EXPECT_THAT(log.Take(), IsEmpty()) << "what the verbosity stops is remembered";
    Send(nullptr, AV_LOG_ERROR, nullptr);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(LogBridge, LongTextIsCut)
{
    for (const size_t length : {10, 1023, 1024, 20000}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        const std::string format = Fresh("%s");
        Send(nullptr, AV_LOG_ERROR, format.c_str(), text.c_str());
        const std::string whole = text + format.substr(2);
        EXPECT_THAT(log.Take(), ElementsAre(LogRecord{GLOG_ERROR, "ERROR Global: " + whole.substr(0, 1023)}));
    }
}

TEST_F(LogBridge, ServesFFmpegItself)
{
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_PNG));
    const std::string format = Fresh("from %s");
    av_log(context, AV_LOG_ERROR, format.c_str(), "FFmpeg");
    avcodec_free_context(&context);
    EXPECT_THAT(log.Take(), ElementsAre(LogRecord{GLOG_ERROR, "ERROR png: from FFmpeg" + format.substr(7)}));
}

TEST_F(LogBridge, ThreadsDontMixTheirMessages)
{
    constexpr int threadCount = 8, messageCount = 50;
    std::vector<std::thread> threads;
    Records expected = {
        {GLOG_WARNING, "WARNING Global: said by all"}
    };
    for (int thread = 0; thread < threadCount; ++thread) {
        for (int message = 0; message < messageCount; ++message)
            expected.push_back({GLOG_ERROR, "ERROR Global: " + std::to_string(thread) + " says " +
                                                std::to_string(message) + " by itself"});
        threads.emplace_back([thread] {
            for (int message = 0; message < messageCount; ++message) {
                const std::string format =
                    std::to_string(thread) + " says " + std::to_string(message) + " %s";
                Send(nullptr, AV_LOG_ERROR, format.c_str(), "by itself");
                Send(nullptr, AV_LOG_WARNING, "said by all");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(log.Take(), UnorderedElementsAreArray(expected));
}

/// Logs through FFmpeg for every record, where the logging library lets a sink log.
class EchoingSink : google::LogSink {
public:
    EchoingSink() { google::AddLogSink(this); }
    ~EchoingSink() override { google::RemoveLogSink(this); }

private:
    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char*,
              size_t) override
    {
    }
    void WaitTillSent() override { av_log(nullptr, AV_LOG_WARNING, "said by the sink"); }
};

TEST_F(LogBridge, SinkMayLogAgain)
{
    const EchoingSink echo;
    Send(nullptr, AV_LOG_ERROR, "said first");
    EXPECT_THAT(log.Take(), ElementsAre(LogRecord{GLOG_ERROR, "ERROR Global: said first"},
                                        LogRecord{GLOG_WARNING, "WARNING Global: said by the sink"}));
}

class ThrowingSink : google::LogSink {
public:
    ThrowingSink() { google::AddLogSink(this); }
    ~ThrowingSink() override { google::RemoveLogSink(this); }

private:
    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char*,
              size_t) override
    {
        throw std::runtime_error("from a sink");
    }
};

// Whoever logs: it is the logging library's destructor that lets nothing pass.
TEST(ThrowingSinkDeathTest, EndsTheProcessWithItsReason)
{
    const auto reason = "from a sink";
    EXPECT_EXIT(
        {
            const ThrowingSink sink;
            LOG(ERROR) << "by hand";
        },
        testing::KilledBySignal(SIGABRT), reason);
    EXPECT_EXIT(
        {
            const ThrowingSink sink;
            av_log(nullptr, AV_LOG_ERROR, "by FFmpeg");
        },
        testing::KilledBySignal(SIGABRT), reason);
}

TEST(RecentMessages, AdmitAfterFiveSecondsOfSilence)
{
    constexpr int64_t second = 1'000'000'000, start = 12345;
    const struct {
        const char* what;
        std::vector<int64_t> times;
        std::vector<bool> admitted;
    } rows[] = {
        {"twice within a second",     {0, second / 2},                          {true, false}             },
        {"at the same moment",        {0, 0},                                   {true, false}             },
        {"six seconds later",         {0, 6 * second},                          {true, true}              },
        {"exactly the interval",      {0, 5 * second},                          {true, false}             },
        {"just beyond the interval",  {0, 5 * second + 1},                      {true, true}              },
        {"silence since last repeat", {0, 4 * second, 8 * second, 14 * second}, {true, false, false, true}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Details::RecentMessages recent;
        std::vector<bool> admitted;
        for (const int64_t time : row.times)
            admitted.push_back(recent.Admit("text", start + time));
        EXPECT_EQ(admitted, row.admitted);
    }

    Details::RecentMessages recent;
    EXPECT_TRUE(recent.Admit("every four seconds", start));
    for (int64_t time = 4 * second; time <= 60 * second; time += 4 * second)
        EXPECT_FALSE(recent.Admit("every four seconds", start + time)) << time;
}

TEST(RecentMessages, FormatsAreToldApart)
{
    constexpr int64_t second = 1'000'000'000;
    Details::RecentMessages recent;
    EXPECT_TRUE(recent.Admit("old %d", 0));
    EXPECT_TRUE(recent.Admit("older than it looks %d", 0));
    EXPECT_TRUE(recent.Admit("new %d", 4 * second));
    EXPECT_TRUE(recent.Admit("new %s", 4 * second));
    // The first two go; what follows them in the list stays what it was.
    EXPECT_FALSE(recent.Admit("new %s", 6 * second));
    EXPECT_FALSE(recent.Admit("new %d", 6 * second));
    EXPECT_TRUE(recent.Admit("old %d", 6 * second));
    EXPECT_FALSE(recent.Admit("new %d", 11 * second));
    EXPECT_TRUE(recent.Admit("old %d", 11 * second + 1));
}

}  // namespace
}  // namespace Quorva::Proc
