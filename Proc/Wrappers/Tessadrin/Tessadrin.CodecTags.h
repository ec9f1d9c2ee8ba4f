/// @file
/// What container parsers meet: codecs as numeric tags. Texts are returned by value.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"

#include <string>

namespace Quorva::Proc {

// A tag is a four-character code with the first character in the lowest byte, or a 16-bit WAVE format code.
// AVI and WAVE know it first; QuickTime is asked only for what they don't know. A tag that neither knows gives
// the text of Conf::IFormatCodec::CODEC_ID_NONE.
// All throw Conf::FormatException when FFmpeg maps the tag to a codec that the pipeline has no text for.

TESSADRIN_API std::string FindCodecVideoID(unsigned int tag);
TESSADRIN_API std::string FindCodecAudioID(unsigned int tag);

/// Video first; audio for what the video tables don't know. A tag whose video codec has no text throws, even
/// where the audio tables know it.
TESSADRIN_API std::string FindCodecID(unsigned int tag);

/// The codec of an MPEG-4 object type indication, as found in MP4 elementary stream descriptors; empty when the
/// number isn't known. Where a number stands for two codecs, the usual one.
TESSADRIN_API std::string FindMP4CodecID(unsigned int tag);

}  // namespace Quorva::Proc
