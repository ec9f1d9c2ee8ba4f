#include "tools/support/Logging.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
#include "tools/support/Console.h"

#include <glog/logging.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

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

thread_local FFmpegErrors* collecting = nullptr;

void CollectError(void* context, const char* format, va_list arguments)
{
    char text[1024] = {};
    std::vsnprintf(text, sizeof text, format, arguments);
    const AVClass* const type = context ? *static_cast<const AVClass**>(context) : nullptr;
    const char* const name = type && type->item_name ? type->item_name(context) : nullptr;
    FFmpegErrors::Collect(name ? name : "", text);
}

/// The library's callback drops what the verbosity leaves out, and messages that recur.
void LogCallback(void* context, int level, const char* format, va_list arguments)
{
    // The higher bits are a colour.
    if (collecting && format && (level > 0 ? level & 0xff : level) <= AV_LOG_ERROR) {
        va_list copy;
        va_copy(copy, arguments);
        try {
            CollectError(context, format, copy);
        } catch (const std::bad_alloc&) {
            // The message is lost; the result that goes with it is reported all the same.
        }
        va_end(copy);
    }
    Proc::FFMpegLogCallback(context, level, format, arguments);
}

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
    av_log_set_callback(LogCallback);
}

FFmpegErrors::FFmpegErrors() : outer(std::exchange(collecting, this)) {}
FFmpegErrors::~FFmpegErrors() { collecting = outer; }

void FFmpegErrors::Collect(std::string_view source, std::string_view text)
{
    constexpr size_t limit = 64;  // damaged files cause them without end
    if (!collecting)
        return;
    std::vector<Message>& messages = collecting->messages;
    // FFmpeg writes some lines piece by piece.
    if (!messages.empty() && !messages.back().text.ends_with('\n') && messages.back().text.size() < 1024)
        messages.back().text += text;
    else if (messages.size() < limit)
        messages.push_back({std::string(source), std::string(text)});
}

std::string FFmpegErrors::First(std::string_view source)
{
    if (collecting)
        for (const Message& message : collecting->messages)
            if (source.empty() || message.source == source)
                return message.text.substr(0, message.text.find_last_not_of(". \n") + 1);
    return {};
}

}  // namespace Quorva::Tool
