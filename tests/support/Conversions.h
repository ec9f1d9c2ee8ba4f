// `tessadrin convert` on files that FFmpeg made.
#pragma once

#include "tests/support/Judge.h"
#include "tests/support/MadeMedia.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

inline std::string Made(const char* file) { return Quorva::Media::MadeFile(file).native(); }

/// @param options  between white space
inline Outcome Convert(const std::string& input, const std::string& output, const std::string& options = "")
{
    std::vector<std::string> arguments = {"convert", input, output};
    for (const std::string& word : Words(options))
        arguments.push_back(word);
    return RunProgram(arguments);
}

/// By their names, "h264+aac".
inline std::string CodecsOf(const nlohmann::json& description)
{
    std::vector<std::string> names;
    for (const nlohmann::json& stream : description["streams"])
        names.push_back(stream.value("codec_name", stream["codec_type"].get<std::string>()));
    return fmt::format("{}", fmt::join(names, "+"));
}
