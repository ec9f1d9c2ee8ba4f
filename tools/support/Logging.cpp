#include "tools/support/Logging.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tools/support/Console.h"

#include <glog/logging.h>

#include <algorithm>
#include <string_view>

namespace Quorva::Tool {

namespace {

/// Shows records as plain lines: no time stamps, nothing from a media file that a terminal would obey.
class ConsoleSink final : public google::LogSink {
public:
    using LogSink::send;
    void send(google::LogSeverity severity, const char*, const char*, int, const google::LogMessageTime&,
              const char* message, size_t size) override
    {
        if (severity < leastSevere)
            return;
        std::string_view text(message, size);
        while (!text.empty() && text.back() == '\n')
            text.remove_suffix(1);
        WriteLine(text);
    }

    google::LogSeverity leastSevere = google::GLOG_INFO;  ///< that is shown
};

}  // namespace

void StartLogging(const char* program, int verbosity)
{
    static constexpr struct {
        int ffmpeg;  ///< least urgent level that passes
        google::LogSeverity severity;
        int verbose;  ///< FLAGS_v
    } steps[] = {
        {AV_LOG_QUIET,   google::GLOG_FATAL,   0 },
        {AV_LOG_ERROR,   google::GLOG_ERROR,   0 },
        {AV_LOG_WARNING, google::GLOG_WARNING, 0 },
        {AV_LOG_INFO,    google::GLOG_INFO,    31},
        {AV_LOG_VERBOSE, google::GLOG_INFO,    40},
        {AV_LOG_DEBUG,   google::GLOG_INFO,    48},
    };
    const auto& step =
        steps[std::clamp<size_t>(static_cast<size_t>(std::max(verbosity, 0)), 0, std::size(steps) - 1)];
    for (const google::LogSeverity severity :
         {google::GLOG_INFO, google::GLOG_WARNING, google::GLOG_ERROR, google::GLOG_FATAL})
        google::SetLogDestination(severity, "");
    FLAGS_logtostderr = false;
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    FLAGS_minloglevel = step.severity;
    FLAGS_v = step.verbose;
    google::InitGoogleLogging(program);
    // Records come as late as during the program's exit.
    static ConsoleSink& sink = *new ConsoleSink;
    sink.leastSevere = step.severity;
    google::AddLogSink(&sink);
    av_log_set_level(step.ffmpeg);
}

}  // namespace Quorva::Tool
