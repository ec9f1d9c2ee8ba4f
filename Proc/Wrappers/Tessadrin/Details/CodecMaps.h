#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <map>
#include <string>
#include <unordered_map>

namespace Quorva::Proc::Details {

using CodecMap = std::map<AVCodecID, std::string>;

/// The codec tables as CodecList hands them out.
struct CodecMaps {
    CodecMaps();

    // In the order they are built; the last two are derived from the ones above.
    CodecMap video, audio, subtitle, generic, additional;
    CodecMap whole;
    std::unordered_map<std::string, AVCodecID> byText;
};

}  // namespace Quorva::Proc::Details
