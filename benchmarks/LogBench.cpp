// The log bridge, beside FFmpeg's own callback and a bare record.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"

#include <fmt/format.h>
#include <glog/logging.h>

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Benchmarks {

namespace {

using Callback = void (*)(void*, int, const char*, va_list);

void Ignore(void*, int, const char*, va_list) {}

/// Sends messages to a callback, in turns of several formats.
Work Messages(Callback callback, int level, std::vector<std::string> formats)
{
    return [=](int64_t times) {
        av_log_set_callback(callback);
        size_t at = 0;
        for (int64_t i = 0; i < times; ++i) {
            av_log(nullptr, level, formats[at].c_str(), static_cast<int>(i));
            if (++at == formats.size())
                at = 0;
        }
        av_log_set_callback(Quorva::Proc::FFMpegLogCallback);
    };
}

/// Standard error goes nowhere meanwhile.
Work Unseen(Work work)
{
    return [work = std::move(work)](int64_t times) {
        const int kept = dup(STDERR_FILENO), nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept < 0 || nowhere < 0 || dup2(nowhere, STDERR_FILENO) < 0)
            throw std::runtime_error("standard error can't be sent away");
        work(times);
        dup2(kept, STDERR_FILENO);
        close(kept);
        close(nowhere);
    };
}

std::vector<std::string> Formats(int count)
{
    std::vector<std::string> formats;
    for (int i = 0; i < count; ++i)
        formats.push_back(fmt::format("message {} of a codec that complains about frame %d\n", i));
    return formats;
}

}  // namespace

void AddLog()
{
    google::InitGoogleLogging("TessadrinBench");
    FLAGS_stderrthreshold = google::NUM_SEVERITIES;
    for (int severity = 0; severity < google::NUM_SEVERITIES; ++severity)
        google::SetLogDestination(severity, "");
    const auto bridge = Quorva::Proc::FFMpegLogCallback;
    Add({.name = "message below the level",
         .peer = "a callback that does nothing",
         .ours = Messages(bridge, AV_LOG_DEBUG, Formats(1)),
         .peers = Messages(Ignore, AV_LOG_DEBUG, Formats(1)),
         .limit = 1.5});
    for (const int count : {10, 200})
        Add({.name = fmt::format("message suppressed, {} recent ones", count),
             .peer = "FFmpeg's callback, writing to nowhere",
             .ours = Messages(bridge, AV_LOG_WARNING, Formats(count)),
             .peers = Unseen(Messages(av_log_default_callback, AV_LOG_WARNING, Formats(count))),
             .limit = count == 10 ? 1. / 40 : 1. / 10});
    Add({.name = "message written",
         .peer = "one bare record",
         .ours =
             [](int64_t times) {
                 static int number = 0;
                 for (int64_t i = 0; i < times; ++i)
                     // each is a new one
                     av_log(nullptr, AV_LOG_WARNING, fmt::format("message {} is new\n", ++number).c_str(), 0);
             },
         .peers =
             [](int64_t times) {
                 static int number = 0;
                 for (int64_t i = 0; i < times; ++i)
                     LOG(WARNING) << "WARNING Global: " << fmt::format("message {} is new\n", ++number);
             },
         .limit = 1.15,
         .times = 4});  // few, as all of the last five seconds are kept
}

}  // namespace Benchmarks
