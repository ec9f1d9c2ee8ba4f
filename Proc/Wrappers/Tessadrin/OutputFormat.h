/// @file
/// Which muxer writes a format.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Quorva::Proc {

TESSADRIN_API const AVOutputFormat* GetOutputFormat(const std::string& format);
TESSADRIN_API const std::unordered_map<std::string, const AVOutputFormat*>& GetFFMPEGSupportedOutputFormats();
TESSADRIN_API std::vector<std::pair<std::string, std::string>> GetFFMPEGRealOutputFormats();

}  // namespace Quorva::Proc
