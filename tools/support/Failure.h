/// @file
/// Why a file failed: exceptions as lines for people and as JSON.
#pragma once

#include "tools/support/Json.h"

#include <boost/exception/info.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

/// What kind of failure it is, for programs that have to decide what to do about it.
enum class FailureKind {
    NotFound,
    Unreadable,     ///< exists, but the system refuses to open or read it
    Unwritable,     ///< the output: the system refuses, or something is in the way
    UnknownFormat,  ///< nothing recognises it
    Unsupported,    ///< recognised, but not read
    InvalidData,    ///< damaged
    NoMemory,
    Stopped,   ///< by a signal
    Internal,  ///< anything else
    Crashed,   ///< the worker that read the file died
    Memory,    ///< the worker died because it was out of memory
    Timeout,   ///< the worker got no further
};

/// "not-found" and so on: the values of the JSON member "kind".
std::string_view FailureKindName(FailureKind kind);

/// Attached to exceptions whose class doesn't say it.
using TagFailureKind = boost::error_info<struct TagFailureKindName, FailureKind>;
/// FFmpeg's negative result.
using TagFFmpegResult = boost::error_info<struct TagFFmpegResultName, int>;

struct Failure {
    FailureKind kind = FailureKind::Internal;
    std::string message;      ///< one line, without the path
    std::string description;  ///< as the exception has it
    std::string exception;    ///< class name
    std::optional<int> ffmpegResult;
    std::string file;  ///< where it was thrown; empty when unknown
    unsigned line = 0;
    std::string function;
    std::vector<std::string> callStack;
};

/// The exception that is being handled, as a failure of the file at `path`. To be called in a catch block.
Failure CurrentFailure(const std::string& path);

/// From now on, failures of kind NoMemory say that --max-memory allows so many bytes; 0: they do not.
void SetMemoryBudget(uint64_t bytes);

/// "needs more than the 1 GiB that --max-memory allows"
std::string OverBudgetText(uint64_t bytes);

/// Why an FFmpeg call gave this negative result: what FFmpeg logged within an FFmpegErrors object where the
/// result has many possible causes, or else the result's own text.
std::string FFmpegReason(int result);

/// Throws a ProcException about an FFmpeg call whose result was negative: `what`, ": " and FFmpeg's reason.
[[noreturn]] void ThrowFFmpegFailure(const std::string& what, int result);

/// One line "PATH: MESSAGE" on standard error, and when `details` the place and the call stack below it.
void PrintFailure(const std::string& path, const Failure& failure, bool details);

/// @param details  with "where" and "call_stack", which change from build to build
Json FailureJson(const Failure& failure, bool details);

}  // namespace Quorva::Tool
