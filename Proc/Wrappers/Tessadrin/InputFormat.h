/// @file
/// Which demuxers the pipeline uses and under which format names, and what an input file is.
/// Formats are named by the texts of Conf::IFormatFile::FORMAT_*, or by FFmpeg's name of the demuxer where
/// the pipeline has none of its own. The tables never change: every call here is safe on any thread.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/ProcessingSupport.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace Quorva::Proc {

/// Finds out what a file is, as far as its first bytes tell.
///
/// The formats usual for the file's extension come first: one of them is taken when its demuxer recognises
/// the bytes and the bytes don't name another format. Otherwise FFmpeg's general search decides, from a score
/// of 25 upwards. Give 64 KiB where you can: 128 bytes are not enough for elementary streams and MPEG-TS.
///
/// @param probe   at most 2 GiB are looked at; see MovieProbe for the padding behind its buffer
/// @param result  format, score (0 to 100) and ImplNames::FFMPEG when the file is recognised. On entry it may
///                hold what another detector found: the extension's formats must score higher, and a demuxer
///                of theirs that scores the same clears the format, also when both scores are 0. A format
///                with a score above 0 that survives this gets ImplNames::FFMPEG as its implementation:
///                keep a copy to tell who found it.
/// @throws ProcException  "Unknown file format": FFmpeg recognises the file by a demuxer that the pipeline
///                        doesn't know. The result's score is then FFmpeg's.
TESSADRIN_API void DetectFileInputFormat(const MovieProbe& probe, ProbeResult& result);

/// Detects the format of an input by looking at as much of it as that takes, as FFmpeg's programs do.
///
/// Looks at the first 64 KiB as DetectFileInputFormat() does. Where that finds nothing, looks at 2 KiB, 4 KiB
/// and so on up to 1 MiB and takes the first answer with a score above 25: damage further on can hide what
/// the start shows. Where the input begins with ID3v2 or APEv2 tags that the first 64 KiB are full of, or
/// where those give no more than a score of 25, looks behind the tags in the same way, and what is found
/// there with a higher score is the answer. Reads little more than 1 MiB at most, and doesn't ask for the
/// input's size, which may be unknown.
///
/// @param input   not null; read from its start and left at the position where it was
/// @param result  receives format, score and ImplNames::FFMPEG where the input is recognised. On entry it may
///                hold an earlier answer, which only a higher score replaces.
/// @return        position behind the tags, by the sizes that they claim: 0 without any, and beyond the end
/// of
///                the input where one claims too much. FFmpeg's demuxers skip ID3v2 tags when they open a
///                file, but those that go by positions in the file (MP4's, MXF's) need a stream that begins
///                there.
/// @throws ProcException  "Unknown file format", as DetectFileInputFormat(); the result is unchanged.
/// @throws                what the input throws; one that can't seek does so before anything is read.
TESSADRIN_API uint64_t DetectInputFormat(const boost::intrusive_ptr<Core::IDataInput>& input,
                                         ProbeResult& result);

/// The format of a file that FFmpeg has opened. Where one demuxer serves several formats this looks at the
/// streams and the metadata, and may read the file's first 128 bytes again by the context's url.
///
/// The url is read as FFmpeg reads it: one "file:" at its start is the protocol and not part of the path. A
/// file whose own name begins so is reached by "./file:name" or "file:file:name". Other protocols aren't
/// opened, and custom I/O leaves no url: use the overload below for both.
/// @param context  opened for reading
/// @throws ProcException      "Unknown file format": the pipeline doesn't know the demuxer, or the context is
///                            null or not opened for reading.
/// @throws Core::IOException  the url names nothing that can be read.
TESSADRIN_API std::string GetContainerFormat(AVFormatContext* context);

/// The same for a file that was opened through a stream of the caller's: where the first bytes are needed,
/// they and the extension are those of `probe`, and the url isn't looked at.
/// @param context  opened for reading
/// @param probe    of the same file; 128 bytes are enough
/// @throws ProcException  as above.
TESSADRIN_API std::string GetContainerFormat(AVFormatContext* context, const MovieProbe& probe);

/// FFmpeg's names of the 354 demuxers that the pipeline knows, in no particular order. This build of FFmpeg
/// may lack some of them.
TESSADRIN_API std::vector<std::string> GetFFMPEGKnownInputFormats();

/// The formats that can be read, and the demuxers that read them. Formats that are only recognised, such as
/// animated WebP and HEIF, are left out, as is JPEG XL where FFmpeg has no decoder for it.
/// The reference stays valid until the process ends.
TESSADRIN_API const std::unordered_map<std::string, const AVInputFormat*>& GetFFMPEGSupportedInputFormats();

/// Whether an opened file holds one still picture: a GIF of one frame, or a format that never holds more.
/// @param format   as GetContainerFormat() gives it
/// @param context  looked at for a GIF only; null counts as one without streams
TESSADRIN_API bool IsSingleImageContainer(const std::string& format, AVFormatContext* context);

}  // namespace Quorva::Proc
