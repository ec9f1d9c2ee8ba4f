/// @file
/// What container parsers meet: codecs as numeric tags. Texts are returned by value.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"

#include <string>

namespace Quorva::Proc {

/// The video codec of a four-character code, its first character in the lowest byte. The table of AVI is
/// asked first, that of QuickTime for what the first doesn't know, each for the exact code and then for one
/// that differs in letter case. A code unknown to both gives the text of Conf::IFormatCodec::CODEC_ID_NONE.
/// @throws Conf::FormatException  the pipeline has no text for FFmpeg's codec.
TESSADRIN_API std::string FindCodecVideoID(unsigned int tag);

/// The audio codec of a 16-bit WAVE format code or a four-character code: as FindCodecVideoID(), WAVE first.
/// @throws Conf::FormatException  as FindCodecVideoID().
TESSADRIN_API std::string FindCodecAudioID(unsigned int tag);

/// Video first; audio for what the video tables don't know. Small numbers are video too: 1 is a video codec,
/// not WAVE's PCM.
/// @throws Conf::FormatException  as FindCodecVideoID(), even where the audio tables know the tag.
TESSADRIN_API std::string FindCodecID(unsigned int tag);

/// The codec of an MPEG-4 object type indication, as found in MP4 elementary stream descriptors; empty when
/// the number isn't known. Where a number stands for two codecs, the usual one.
TESSADRIN_API std::string FindMP4CodecID(unsigned int tag);

}  // namespace Quorva::Proc
