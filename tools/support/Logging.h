/// @file
/// The log records of the library, and of FFmpeg through it, on standard error.
#pragma once

namespace Quorva::Tool {

/// Starts the logging library. What is shown grows with `verbosity`: 0 nothing, 1 errors, 2 warnings too,
/// 3 information (FLAGS_v 31), 4 FFmpeg's verbose and 5 its debug messages. No log file is written.
void StartLogging(const char* program, int verbosity);

}  // namespace Quorva::Tool
