#include "tools/support/Failure.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Console.h"
#include "tools/support/Logging.h"

#include <fmt/format.h>
#include <boost/core/demangle.hpp>
#include <boost/exception/get_error_info.hpp>

#include <iterator>
#include <new>
#include <sstream>
#include <system_error>
#include <typeinfo>

namespace Quorva::Tool {

namespace {

constinit uint64_t memoryBudget = 0;  ///< bytes; 0: none

/// The class that was thrown, without the wrapper that boost::throw_exception puts around it.
std::string ClassName(const std::exception& e)
{
    std::string name = boost::core::demangle(typeid(e).name());
    const std::string_view wrapper = "boost::wrapexcept<";
    if (name.starts_with(wrapper) && name.ends_with('>'))
        name = name.substr(wrapper.size(), name.size() - wrapper.size() - 1);
    return name;
}

FailureKind KindOf(const std::exception& e)
{
    if (const FailureKind* kind = boost::get_error_info<TagFailureKind>(e))
        return *kind;
    if (dynamic_cast<const Core::MemoryException*>(&e) || dynamic_cast<const std::bad_alloc*>(&e))
        return FailureKind::NoMemory;
    if (dynamic_cast<const Core::IOException*>(&e))
        return FailureKind::Unreadable;
    return FailureKind::Internal;
}

FailureKind KindOf(int result)
{
    switch (result) {
        case AVERROR(ENOMEM):
            return FailureKind::NoMemory;
        case AVERROR(ENOSYS):
        case AVERROR_PATCHWELCOME:
        case AVERROR_PROTOCOL_NOT_FOUND:
            return FailureKind::Unsupported;
        case AVERROR_EXIT:
            return FailureKind::Stopped;
        default:
            return FailureKind::InvalidData;
    }
}

/// `text` without " 'PATH'": the path stands in front of the message already.
std::string WithoutPath(std::string text, const std::string& path)
{
    const std::string quoted = " '" + path + "'";
    if (const size_t place = text.find(quoted); place != std::string::npos && !path.empty())
        text.erase(place, quoted.size());
    return text;
}

/// Results for many causes, which FFmpeg's messages name.
bool IsVague(int result)
{
    switch (result) {
        case -1:
        case AVERROR(EINVAL):
        case AVERROR(ENOSYS):
        case AVERROR_BUG:
        case AVERROR_EXPERIMENTAL:
        case AVERROR_EXTERNAL:
        case AVERROR_INVALIDDATA:
        case AVERROR_PATCHWELCOME:
        case AVERROR_UNKNOWN:
            return true;
        default:
            return false;
    }
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace

std::string_view FailureKindName(FailureKind kind)
{
    switch (kind) {
        case FailureKind::NotFound:
            return "not-found";
        case FailureKind::Unreadable:
            return "unreadable";
        case FailureKind::Unwritable:
            return "unwritable";
        case FailureKind::UnknownFormat:
            return "unknown-format";
        case FailureKind::Unsupported:
            return "unsupported";
        case FailureKind::InvalidData:
            return "invalid-data";
        case FailureKind::NoMemory:
            return "no-memory";
        case FailureKind::Crashed:
            return "crashed";
        case FailureKind::Memory:
            return "memory";
        case FailureKind::Timeout:
            return "timeout";
        case FailureKind::Stopped:
            return "stopped";
        case FailureKind::Internal:
            break;
    }
    return "internal";
}

Failure CurrentFailure(const std::string& path)
{
    Failure failure;
    try {
        throw;
    } catch (const std::exception& e) {
        const std::string* description = boost::get_error_info<TagDescription>(e);
        failure.kind = KindOf(e);
        failure.description = description ? *description : e.what();
        failure.exception = ClassName(e);
        if (const int* result = boost::get_error_info<TagFFmpegResult>(e))
            failure.ffmpegResult = *result;
        if (const boost::source_location where = boost::get_throw_location(e); where.line() > 0) {
            failure.file = where.file_name();
            failure.line = where.line();
            failure.function = where.function_name();
        }
        if (const std::string* stack = boost::get_error_info<TagCallStack>(e))
            failure.callStack = LinesOf(*stack);
    } catch (...) {
        failure.description = "an exception of no known class";
    }
    failure.message = WithoutPath(failure.description, path);
    if (failure.kind == FailureKind::NoMemory && memoryBudget > 0)
        failure.message = OverBudgetText(memoryBudget) + ": " + failure.message;
    return failure;
}

void SetMemoryBudget(uint64_t bytes) { memoryBudget = bytes; }

std::string OverBudgetText(uint64_t bytes)
{
    static constexpr const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    for (; number >= 1024 && unit + 1 < std::size(units); ++unit)
        number /= 1024;
    return fmt::format("needs more than the {:.4g} {} that --max-memory allows", number, units[unit]);
}

std::string FFmpegReason(int result)
{
    if (const std::string words = IsVague(result) ? FFmpegErrors::First() : std::string(); !words.empty())
        return words;
    if (result == -1)  // not a system error number, although it reads like one
        return "FFmpeg reports a failure without naming its cause";
    // The library has texts for FFmpeg's own codes and frames all others with their number. The system's
    // error numbers have better names.
    std::string text = Proc::GetErrorDescriptionFFMPEG(result);
    if (result < 0 && result > -4096 && text.ends_with(fmt::format("({})", result)))
        return std::system_category().message(AVUNERROR(result));
    return text;
}

void ThrowFFmpegFailure(const std::string& what, int result)
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription(what + ": " + FFmpegReason(result))
                                               << TagFailureKind(KindOf(result)) << TagFFmpegResult(result));
}

void PrintFailure(const std::string& path, const Failure& failure, bool details)
{
    WriteComplaint(path + ": " + failure.message);
    if (!details)
        return;
    if (!failure.file.empty())
        WriteLine(fmt::format("  {} from {}, {}:{}", failure.exception, failure.function, failure.file,
                              failure.line));
    else if (!failure.exception.empty())
        WriteLine("  " + failure.exception);
    for (const std::string& call : failure.callStack)
        WriteLine("  " + call);
}

Json FailureJson(const Failure& failure, bool details)
{
    Json json{
        {"kind",    FailureKindName(failure.kind)},
        {"message", failure.message              }
    };
    if (failure.description != failure.message)
        json["description"] = failure.description;
    if (!failure.exception.empty())
        json["exception"] = failure.exception;
    if (failure.ffmpegResult)
        json["ffmpeg_error"] = *failure.ffmpegResult;
    if (details && !failure.file.empty())
        json["where"] = {
            {"file",     failure.file    },
            {"line",     failure.line    },
            {"function", failure.function}
        };
    if (details && !failure.callStack.empty())
        json["call_stack"] = failure.callStack;
    return json;
}

}  // namespace Quorva::Tool
