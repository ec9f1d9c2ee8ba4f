/// @file
/// The log records of the library, and of FFmpeg through it, on standard error.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

/// Starts the logging library. What is shown grows with `verbosity`: 0 nothing, 1 errors, 2 warnings too,
/// 3 information (FLAGS_v 31), 4 FFmpeg's verbose and 5 its debug messages. No log file is written.
void StartLogging(const char* program, int verbosity);

/// Collects the messages of level ERROR that FFmpeg logs on the calling thread during the object's lifetime,
/// whatever the verbosity. Objects nest; only the innermost one of a thread collects. Needs StartLogging().
class FFmpegErrors {
public:
    FFmpegErrors();
    FFmpegErrors(const FFmpegErrors&) = delete;
    FFmpegErrors& operator=(const FFmpegErrors&) = delete;
    ~FFmpegErrors();

    /// Returns the first message that the thread's innermost object has collected; empty when there is none.
    /// @param source  only messages of FFmpeg's objects of this name, such as "mjpeg"; empty: of all
    static std::string First(std::string_view source = {});

    /// Called by the log callback.
    static void Collect(std::string_view source, std::string_view text);

private:
    struct Message {
        std::string source;
        std::string text;  ///< with its line feed
    };

    FFmpegErrors* const outer;
    std::vector<Message> messages;
};

}  // namespace Quorva::Tool
