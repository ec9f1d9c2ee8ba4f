/// @file
/// The log records of the library, and of FFmpeg through it, on standard error.
#pragma once

#include <memory>
#include <string>

namespace Quorva::Tool {

/// Starts the logging library. What is shown grows with `verbosity`: 0 nothing, 1 errors, 2 warnings too,
/// 3 information (FLAGS_v 31), 4 FFmpeg's verbose and 5 its debug messages. No log file is written.
void StartLogging(const char* program, int verbosity);

/// Keeps the library's own records of severity ERROR while it lives, shown or not: the only way in which some
/// of its functions report a failure. FFmpeg's messages are not among them.
class LibraryErrors {
public:
    LibraryErrors();
    LibraryErrors(const LibraryErrors&) = delete;
    LibraryErrors& operator=(const LibraryErrors&) = delete;
    ~LibraryErrors();

    /// The first record since the last call, without the name of the function that it begins with; empty for
    /// none.
    std::string Take();

private:
    class Sink;
    std::unique_ptr<Sink> sink;
};

}  // namespace Quorva::Tool
