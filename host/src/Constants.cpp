// The texts that name codecs, formats and implementations. They are built when this library loads, before any
// library that depends on it; inside this library other tables must not read them while it loads.
#include "host/MediaDescription.h"

namespace Quorva {
namespace Conf {

#define CODEC(name, text) const std::string IFormatCodec::CODEC_ID_##name = text;
#include "host/Rows/GenericCodecs.inc"
#undef CODEC
#define CODEC(name, text) const std::string IFormatCodecVideo::CODEC_ID_##name = text;
#include "host/Rows/VideoCodecs.inc"
#undef CODEC
#define CODEC(name, text) const std::string IFormatCodecAudio::CODEC_ID_##name = text;
#include "host/Rows/AudioCodecs.inc"
#undef CODEC
#define CODEC(name, text) const std::string IFormatCodecSubtitle::CODEC_ID_##name = text;
#include "host/Rows/SubtitleCodecs.inc"
#undef CODEC
#define FORMAT(name, text) const std::string IFormatFile::FORMAT_##name = text;
#include "host/Rows/Formats.inc"
#undef FORMAT

}  // namespace Conf

namespace Proc {

const std::string ImplNames::FFMPEG = "ffmpeg";
const std::string ImplNames::FFMPEG_FDK = "ffmpeg_fdk";
const std::string ImplNames::NVDEC = "nvdec";
const std::string ImplNames::DIRECTX = "directx";
const std::string ImplNames::QSV = "qsv";
const std::string ImplNames::NVENC = "nvenc";
const std::string ImplNames::AMF = "amf";

}  // namespace Proc
}  // namespace Quorva
