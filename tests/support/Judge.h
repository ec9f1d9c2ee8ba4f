// What FFmpeg's own commands make of a file.
#pragma once

#include "tests/support/Program.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

/// One stream of a file, as read or decoded to its end.
struct JudgedStream {
    std::string kind;                 ///< "video", "audio", "subtitle"
    std::vector<std::string> hashes;  ///< of frames or packets, in their order
    double first = 0;                 ///< seconds
    double end = 0;                   ///< the latest end of a frame or packet
    double sum = 0;                   ///< of all their durations
};

/// What the ffmpeg command reads from a file, complaints being failures of the test.
/// @param arguments  between input and output, as "-c", "copy" for packets
inline std::vector<JudgedStream> Judge(const std::string& path, const std::vector<std::string>& arguments)
{
    std::vector<std::string> line = {"-v", "error", "-xerror", "-i", path};
    line.insert(line.end(), arguments.begin(), arguments.end());
    line.insert(line.end(), {"-fps_mode", "passthrough", "-f", "framehash", "-hash", "crc32", "-"});
    const Outcome outcome = RunProgram(line, "ffmpeg");
    EXPECT_EQ(outcome.code, 0) << path;
    EXPECT_EQ(outcome.errors, "") << path;
    std::vector<JudgedStream> streams;
    std::vector<double> bases;
    std::istringstream lines(outcome.output);
    for (std::string text; std::getline(lines, text);) {
        char kind[16] = "";
        char hash[16] = "";
        size_t index = 0;
        long long dts = 0, pts = 0, duration = 0, size = 0;
        int num = 0, den = 1;
        if (std::sscanf(text.c_str(), "#tb %zu: %d/%d", &index, &num, &den) == 3) {
            bases.resize(std::max(bases.size(), index + 1));
            bases[index] = static_cast<double>(num) / den;
        } else if (std::sscanf(text.c_str(), "#media_type %zu: %15s", &index, kind) == 2) {
            streams.resize(std::max(streams.size(), index + 1));
            streams[index].kind = kind;
        } else if (std::sscanf(text.c_str(), "%zu, %lld, %lld, %lld, %lld, %15[0-9a-f]", &index, &dts, &pts,
                               &duration, &size, hash) == 6) {
            JudgedStream& stream = streams.at(index);
            const double base = bases.at(index);
            if (stream.hashes.empty())
                stream.first = static_cast<double>(pts) * base;
            stream.end = std::max(stream.end, static_cast<double>(pts + duration) * base);
            stream.sum += static_cast<double>(duration) * base;
            stream.hashes.push_back(hash);
        }
    }
    return streams;
}

/// What the ffprobe command says of a file.
inline nlohmann::json Describe(const std::string& path)
{
    const Outcome outcome = RunProgram(
        {"-v", "error", "-show_format", "-show_streams", "-show_chapters", "-of", "json", path}, "ffprobe");
    EXPECT_EQ(outcome.code, 0) << path;
    EXPECT_EQ(outcome.errors, "") << path;
    return nlohmann::json::parse(outcome.output, nullptr, false);
}

/// A member by its JSON pointer, null where there is none.
inline nlohmann::json Member(const nlohmann::json& document, const std::string& pointer)
{
    return document.value(nlohmann::json::json_pointer(pointer), nlohmann::json());
}

/// Runs the ffmpeg command.
inline void RunFFmpeg(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"-v", "error", "-y"});
    const Outcome outcome = RunProgram(arguments, "ffmpeg");
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
}
