#include "tools/Command.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace Quorva::Tool {

int64_t ParseTime(const char* option, const std::string& text)
{
    int64_t time = 0;
    if (av_parse_time(&time, text.c_str(), 1) < 0 || time < 0)
        throw CLI::ValidationError(option, fmt::format("'{}' is no time: 90, 1:30 and 1:30.5 are", text));
    return time;
}

}  // namespace Quorva::Tool
