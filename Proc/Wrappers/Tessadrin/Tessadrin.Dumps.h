/// @file
/// What a stage of the pipeline produced, for the eye: pictures as numbered BMP files, subtitles and packets
/// as text.
///
/// A file is named NAME_NNN_key=K.bmp: the caller's name, unchanged (it may hold a folder, which must exist),
/// how many dumps went under this name before in the process, three digits or more, and whether the picture
/// is a key frame, 1 or 0. An existing file is overwritten. Dumps of several threads are done one after the
/// other.
///
/// Nothing about a file that can't be written, or about a picture that isn't there, is thrown: it is one
/// record of severity ERROR that names the file or the dump.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/ProcessingSupport.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace Quorva::Proc {

/// The file that a dump under `name` writes.
/// @param number  how many dumps went under this name before
TESSADRIN_API std::string GetDumpFileName(const std::string& name, int number, bool key);

/// Writes `frame` as a BMP file of 32-bit, 24-bit or grey pixels, whichever loses least. Every fourth pixel
/// along the right and the bottom edge of the area `width` x `height`, in the picture's upper left corner, is
/// painted over, in black and white by turns.
///
/// The number is used up when the picture could be encoded, whether or not the file can be written. An
/// encoder that gives nothing leaves an empty file.
///
/// @param width, height  pixels; marks that would fall outside of the picture are left out, so that an
///                       area of no size has none
/// @param frame          in memory, not on a device
/// @throws ProcException          `frame` is null, or FFmpeg's scaler refuses it (EffectException for a
///                                format that it can't read); no file is written then, nor with any
///                                other exception
/// @throws Core::MemoryException  no memory for the converted picture, or a picture of no size
/// @throws EncoderException       this FFmpeg has no BMP encoder
TESSADRIN_API void AVFrame_SaveToBmp(int width, int height, const AVFrame* frame, const std::string& name);

/// The same for the whole of a picture; null is reported.
TESSADRIN_API void AVFrame_SaveToBmp(const boost::intrusive_ptr<const IDataVideo>& video,
                                     const std::string& name);

/// Writes the first rectangle of `subtitle`, as AVFrame_SaveToBmp() writes a picture. One that is no bitmap,
/// or no rectangle at all, is reported.
TESSADRIN_API void Subtitle_SaveToBmp(const AVSubtitle& subtitle, const std::string& name);

/// The same; null is reported.
TESSADRIN_API void Subtitle_SaveToBmp(const boost::intrusive_ptr<const IDataSubtitle>& subtitle,
                                      const std::string& name);

/// Returns what AVFrame_SaveToBmp() would write, for callers with a file or stream of their own. No number is
/// used up.
/// @throws  as AVFrame_SaveToBmp(), and ProcException when the encoder gives nothing.
TESSADRIN_API std::vector<uint8_t> AVFrame_ToBmp(int width, int height, const AVFrame* frame);

/// Returns what Subtitle_SaveToBmp() would write.
/// @throws  as AVFrame_ToBmp(), and ProcException when the first rectangle is not a bitmap.
TESSADRIN_API std::vector<uint8_t> Subtitle_ToBmp(const AVSubtitle& subtitle);

/// What all rectangles hold, with nothing between them: text as it is, ASS events as lines of a script, and
/// of a bitmap the first row of each of its planes, as bytes. Empty for none.
TESSADRIN_API std::string Subtitle_ToString(const AVSubtitle& subtitle);

/// A packet's fields on one line without an end, times in ticks of its stream: "1+: pts 3600, dts 0, dur
/// 1800, size 4213, flags 1", where + stands for a key frame. "NULL" for null. Digits are plain whatever the
/// stream's locale and flags are. Found without a using-declaration wherever this header is included.
TESSADRIN_API std::ostream& operator<<(std::ostream& stream, const AVPacket* packet);

}  // namespace Quorva::Proc

// AVPacket is a global type, so argument-dependent lookup searches here. Without this a packet would be
// printed as an address outside of Quorva::Proc.
using Quorva::Proc::operator<<;
