#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"

#include "Proc/Wrappers/Tessadrin/Details/RecentMessages.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <glog/logging.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <type_traits>

namespace Quorva::Proc {

using Details::RecentMessages;

namespace {

constexpr int verbosity = 31;
constexpr const char* nobody = "Global";

/// Held while one message is formatted and written; recursive, because a sink may log through FFmpeg in turn.
/// FFmpeg logs until the process ends, so neither this lock nor the list of messages is ever destroyed.
constinit std::recursive_mutex output;
static_assert(std::is_trivially_destructible_v<std::recursive_mutex>);

RecentMessages& GetRecentMessages()
{
    static RecentMessages& recent = *new RecentMessages;
    return recent;
}

int64_t Now()
{
    using std::chrono::nanoseconds;
    return std::chrono::duration_cast<nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const AVClass* ClassOf(void* context) { return context ? *static_cast<const AVClass**>(context) : nullptr; }

/// Null where the object has no name; some classes lack the function, and it may find none.
const char* NameOf(void* context)
{
    const AVClass* type = ClassOf(context);
    return type && type->item_name ? type->item_name(context) : nullptr;
}

/// Muxers of program streams report underflows by the thousand, and libvpx warns about every stream.
bool IsNoise(std::string_view name, int level, const char* format)
{
    if (level == AV_LOG_ERROR && (name == "dvd" || name == "mpeg"))
        return std::strstr(format, "underflow");
    return level > AV_LOG_ERROR && name == "libvpx";
}

struct Record {
    google::LogSeverity severity;
    const char* word;  ///< null for a level that FFmpeg's list does not have
};

Record RecordOf(int level)
{
    switch (level) {
        case AV_LOG_QUIET:
            return {google::GLOG_INFO, "QUIET "};
        case AV_LOG_PANIC:
            return {google::GLOG_ERROR, "PANIC "};
        case AV_LOG_FATAL:
            return {google::GLOG_ERROR, "FATAL "};
        case AV_LOG_ERROR:
            return {google::GLOG_ERROR, "ERROR "};
        case AV_LOG_WARNING:
            return {google::GLOG_WARNING, "WARNING "};
        case AV_LOG_INFO:
            return {google::GLOG_INFO, "INFO "};
        case AV_LOG_VERBOSE:
            return {google::GLOG_INFO, "VERBOSE "};
        case AV_LOG_DEBUG:
            return {google::GLOG_INFO, "DEBUG "};
        default:
            return {google::GLOG_INFO, nullptr};
    }
}

void Write(const Record& record, const char* name, const char* format, va_list arguments)
{
    const std::lock_guard guard(output);
    char text[1024] = {};
    // A format that the C library refuses leaves what it has written so far, which is the best there is.
    std::vsnprintf(text, sizeof text, format, arguments);
    const auto write = [&](std::ostream& stream) {
        stream << (record.word ? record.word : "") << name << ": " << text;
    };
    if (record.severity == google::GLOG_INFO)
        write(google::LogMessage(__FILE__, __LINE__).stream());
    else
        write(google::LogMessage(__FILE__, __LINE__, record.severity).stream());
}

void Report(void* context, int level, const char* format, va_list arguments)
{
    const char* name = NameOf(context);
    if (name && IsNoise(name, level, format))
        return;
    if (!GetRecentMessages().Admit(format, Now()))
        return;

    const Record record = RecordOf(level);
    if (record.severity == google::GLOG_INFO && FLAGS_v < verbosity)
        return;
    if (!record.word) {
        const AVClass* type = ClassOf(context);
        name = type ? type->class_name : nullptr;
    }
    Write(record, name ? name : nobody, format, arguments);
}

}  // namespace

void FFMpegLogCallback(void* context, int level, const char* format, va_list arguments)
{
    if (level > 0)
        level &= 0xff;  // the rest is a colour
    if (level > av_log_get_level() || !format)
        return;
    try {
        Report(context, level, format, arguments);
    } catch (const std::bad_alloc&) {
        // The message is lost. FFmpeg often logs on its way to reporting the same want of memory itself.
    }
}

}  // namespace Quorva::Proc
