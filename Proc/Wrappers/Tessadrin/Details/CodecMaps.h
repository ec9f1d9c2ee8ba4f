#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <map>
#include <string>
#include <string_view>

namespace Quorva::Proc::Details {

using CodecMap = std::map<AVCodecID, std::string>;

/// The codec tables as CodecList hands them out.
struct CodecMaps {
    CodecMaps();

    // In the order they are built; the last three are derived from the ones above.
    CodecMap video, audio, subtitle;
    CodecMap whole;
    boost::unordered_flat_map<int, const std::string*> byId;        ///< the same, to be found at once
    boost::unordered_flat_map<std::string_view, AVCodecID> byText;  ///< texts of `whole`
};

}  // namespace Quorva::Proc::Details
