/// @file
/// Which FFmpeg decoder or encoder serves a codec, for each family of back-ends. The codecs returned are
/// FFmpeg's own constants. The choices are made while the library loads: no call here locks.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Quorva::Proc {

/// The decoder of `id` for an implementation, one of ImplNames. Some pairs name one decoder, and a build of
/// FFmpeg without it has none for them; all others, unknown implementations too, get FFmpeg's default.
/// For NVDEC and DIRECTX it must also offer frames in CUDA or D3D11 memory.
/// @return  null when there is none
TESSADRIN_API const AVCodec* FindDecoder(AVCodecID id, const std::string& implementation);

/// The same by text identifier.
/// @throws Conf::FormatException  no codec carries `textId`.
TESSADRIN_API const AVCodec* FindDecoder(const std::string& textId, const std::string& implementation);

/// The encoder of `id` for an implementation: the one named for the pair, or FFmpeg's default for the codec.
/// @return  null when this build of FFmpeg has no such encoder
TESSADRIN_API const AVCodec* FindEncoder(AVCodecID id, const std::string& implementation);

/// The same by text identifier.
/// @throws Conf::FormatException  no codec carries `textId`.
TESSADRIN_API const AVCodec* FindEncoder(const std::string& textId, const std::string& implementation);

/// The pairs of codec and implementation for which one decoder is named, whether or not this build of FFmpeg
/// has it; ascending by codec, then by the implementation's text.
TESSADRIN_API std::vector<std::pair<AVCodecID, std::string>> GetCustomFFDecodersList();

/// The same for encoders.
TESSADRIN_API std::vector<std::pair<AVCodecID, std::string>> GetCustomFFEncodersList();

/// FFmpeg's description of what FindDecoder() returns, for people; empty when that is null or has none.
TESSADRIN_API std::string DecoderLongNameFromCodec(AVCodecID id, const std::string& implementation);

/// FFmpeg's description of what FindEncoder() returns, for people; empty when that is null or has none.
TESSADRIN_API std::string EncoderLongNameFromCodec(AVCodecID id, const std::string& implementation);

/// The device formats a codec can work with, by whatever method; empty for one that uses no device.
/// @pre `codec` is not null
TESSADRIN_API std::unordered_set<AVPixelFormat> GetSupportedHWPixelFormats(const AVCodec* codec);

/// The names of all codecs in this build of FFmpeg, one a line below "Decoders:" and "Encoders:", each list
/// in byte order, an empty line between the two. Empty when neither is asked for.
TESSADRIN_API std::string TraceFFCodecs(bool decoders, bool encoders);

/// True for every codec, whatever its kind: the pipeline hands all subtitles on as text.
TESSADRIN_API bool IsTextSubtitle(AVCodecID id);

/// Whether the context is one of a known subtitle codec; false for null, video and audio.
TESSADRIN_API bool IsValidCodec(const AVCodecContext* context);

}  // namespace Quorva::Proc
