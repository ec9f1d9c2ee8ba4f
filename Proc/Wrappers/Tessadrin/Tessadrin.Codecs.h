/// @file
/// Which FFmpeg decoder or encoder serves a codec, for each family of back-ends.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Quorva::Proc {

TESSADRIN_API const AVCodec* FindDecoder(AVCodecID id, const std::string& implementation);
TESSADRIN_API const AVCodec* FindDecoder(const std::string& textId, const std::string& implementation);
TESSADRIN_API const AVCodec* FindEncoder(AVCodecID id, const std::string& implementation);
TESSADRIN_API const AVCodec* FindEncoder(const std::string& textId, const std::string& implementation);
TESSADRIN_API std::vector<std::pair<AVCodecID, std::string>> GetCustomFFDecodersList();
TESSADRIN_API std::vector<std::pair<AVCodecID, std::string>> GetCustomFFEncodersList();
TESSADRIN_API std::string DecoderLongNameFromCodec(AVCodecID id, const std::string& implementation);
TESSADRIN_API std::string EncoderLongNameFromCodec(AVCodecID id, const std::string& implementation);
TESSADRIN_API std::unordered_set<AVPixelFormat> GetSupportedHWPixelFormats(const AVCodec* codec);
TESSADRIN_API std::string TraceFFCodecs(bool decoders, bool encoders);
TESSADRIN_API bool IsTextSubtitle(AVCodecID id);
TESSADRIN_API bool IsValidCodec(const AVCodecContext* context);

}  // namespace Quorva::Proc
