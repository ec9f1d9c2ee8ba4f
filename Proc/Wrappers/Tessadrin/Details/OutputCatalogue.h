#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Quorva::Proc::Details {

/// Which of several muxers of one name writes which format. Static text; both are empty where FFmpeg has one
/// muxer of that name, which is then the format's name too.
struct KnownOutputFormat {
    std::string_view mimeType;
    std::string_view format;
};

/// Every muxer of this FFmpeg, in its order.
std::vector<const AVOutputFormat*> AllMuxers();

/// Which muxer writes which format.
struct OutputCatalogue {
    /// @param muxers  in FFmpeg's order: the first that claims a format keeps it
    /// @throws std::out_of_range  a muxer that writes other formats too is missing.
    explicit OutputCatalogue(std::span<const AVOutputFormat* const> muxers = AllMuxers());

    std::unordered_multimap<std::string_view, KnownOutputFormat> known;  ///< by muxer name
    std::unordered_map<std::string, const AVOutputFormat*> formats;
};

}  // namespace Quorva::Proc::Details
