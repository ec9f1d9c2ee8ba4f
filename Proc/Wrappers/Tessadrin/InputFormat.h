/// @file
/// Which demuxers the pipeline uses and under which format names, and what an input file is.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/ProcessingSupport.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace Quorva::Proc {

TESSADRIN_API void DetectFileInputFormat(const MovieProbe& probe, ProbeResult& result);
TESSADRIN_API std::string GetContainerFormat(AVFormatContext* context);
TESSADRIN_API std::vector<std::string> GetFFMPEGKnownInputFormats();
TESSADRIN_API const std::unordered_map<std::string, const AVInputFormat*>& GetFFMPEGSupportedInputFormats();
TESSADRIN_API bool IsSingleImageContainer(const std::string& format, AVFormatContext* context);

}  // namespace Quorva::Proc
