/// @file
/// Which FFmpeg the program was built with, and which one runs.
#pragma once

#include <string>
#include <vector>

namespace Quorva::Tool {

/// One of FFmpeg's libraries, version numbers as "61.7.103".
struct LibraryVersion {
    std::string name;  ///< without "lib"
    std::string built;
    std::string running;
};

std::vector<LibraryVersion> FFmpegVersions();

}  // namespace Quorva::Tool
