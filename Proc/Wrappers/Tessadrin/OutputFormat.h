/// @file
/// Which muxer writes a format. The tables never change: every call here is safe on any thread.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Quorva::Proc {

/// The muxer that writes a format; several formats may share one, as still pictures do.
/// @param format  a text of Conf::IFormatFile::FORMAT_*; letter case counts
/// @return        FFmpeg's, never null
/// @throws ProcException  "Unknown file format: '...'": the pipeline writes no such format, or this build of
///                        FFmpeg lacks its muxer.
TESSADRIN_API const AVOutputFormat* GetOutputFormat(const std::string& format);

/// Every format that can be written, and the muxer that does. The reference stays valid until the library is
/// unloaded.
TESSADRIN_API const std::unordered_map<std::string, const AVOutputFormat*>& GetFFMPEGSupportedOutputFormats();

/// FFmpeg's names of the muxers that the pipeline uses, 70 rows in no particular order. With each comes the
/// MIME type that tells muxers of the same name apart, empty where there is one only. This build of FFmpeg
/// may lack some of them.
TESSADRIN_API std::vector<std::pair<std::string, std::string>> GetFFMPEGRealOutputFormats();

}  // namespace Quorva::Proc
