/// @file
/// The border between FFmpeg's codec identifiers and the pipeline's text identifiers.
/// The maps are complete before any caller runs and never change: no call here locks or, on success,
/// allocates. References stay valid until the library is unloaded.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <map>
#include <string>

namespace Quorva {

/// Audio codecs by FFmpeg identifier, and AV_CODEC_ID_NONE. EAC3 and TrueHD are in GetFFCodecsMap() only.
TESSADRIN_API const std::map<AVCodecID, std::string>& GetFFAudioCodecsMap();

/// Video codecs by FFmpeg identifier, and AV_CODEC_ID_NONE. H.265 is in GetFFCodecsMap() only.
TESSADRIN_API const std::map<AVCodecID, std::string>& GetFFVideoCodecsMap();

/// Subtitle codecs by FFmpeg identifier.
TESSADRIN_API const std::map<AVCodecID, std::string>& GetFFSubtitleCodecsMap();

/// Every codec the pipeline knows, by FFmpeg identifier.
TESSADRIN_API const std::map<AVCodecID, std::string>& GetFFCodecsMap();

/// The pipeline's name of a codec, as a reference into GetFFCodecsMap().
/// @throws Conf::FormatException  the pipeline has no name for `id`.
TESSADRIN_API const std::string& CodecIDToTextID(AVCodecID id);

/// The smallest identifier that carries `textId`; letter case counts.
/// @throws Conf::FormatException  no codec carries `textId`.
TESSADRIN_API AVCodecID CodecIDFromTextID(const std::string& textId);

}  // namespace Quorva
