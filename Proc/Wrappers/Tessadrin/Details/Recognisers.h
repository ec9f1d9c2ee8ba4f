// What tells apart the formats that share a demuxer. None of them touches the result's implementation, and
// one that recognises nothing leaves the result as it was. They read the input map of GetLoaded(), which is
// complete before any of them can be called.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/ProcessingSupport.h"

#include <array>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Quorva::Proc::Details {

/// Refines a result from a file's first bytes.
using ProbeRecogniser = void(const MovieProbe& probe, ProbeResult& result);
/// Refines a result from a file that FFmpeg has opened.
/// @param probe  the file's first bytes for those that need them; null to read them again by the context's
///               url, and to leave the result alone without one
using ContextRecogniser = void(AVFormatContext* context, const MovieProbe* probe, ProbeResult& result);

namespace FromProbe {
/// The format of the image demuxer that scores higher than all others.
ProbeRecogniser ImageSequence;
/// The first known document type that stands anywhere behind an EBML magic.
ProbeRecogniser Matroska;
/// By the major brand; one that is cut off counts as unknown. By the file's extension where there is none.
ProbeRecogniser IsoMedia;
ProbeRecogniser Swf;
ProbeRecogniser Gif;
/// Still or animated, whichever demuxer scores higher; still when both do alike. So does Png.
ProbeRecogniser JpegXL;
ProbeRecogniser Png;
ProbeRecogniser WebP;
}  // namespace FromProbe

namespace FromContext {
/// By the codec of the only stream.
ContextRecogniser ImageCodec;
ContextRecogniser Matroska;
/// By the metadata's major brand; without one by the file's extension.
ContextRecogniser IsoMedia;
ContextRecogniser Swf;
ContextRecogniser Gif;
ContextRecogniser JpegXL;
ContextRecogniser Png;
ContextRecogniser WebP;
}  // namespace FromContext

using InputMap = std::unordered_map<std::string, const AVInputFormat*>;

/// What FFmpeg's probes take. Refers to the probe.
AVProbeData ProbeDataOf(const MovieProbe& probe) noexcept;

/// The format of `demuxer`'s file: the one it always has, or what its recogniser finds, or else its name.
/// @throws ProcException  the pipeline doesn't know the demuxer.
void GetFormatID(const AVInputFormat* demuxer, const MovieProbe& probe, ProbeResult& result);

/// The demuxers that read one kind of picture each: all that share image2's header reader, in the order of
/// `demuxers`, but image2 itself; then GIF's.
/// @param formats  only its demuxers count
/// @throws std::out_of_range  image2 or GIF are not in `formats`.
std::vector<const AVInputFormat*> CollectImageDemuxers(const InputMap& formats,
                                                       std::span<const AVInputFormat* const> demuxers);

/// Names the format of the demuxer that scores higher than all others; a tie at the top names nothing.
void RecogniseImage(std::span<const AVInputFormat* const> imageDemuxers, const MovieProbe& probe,
                    ProbeResult& result);

/// A picture's demuxers, for files that hold one and for files that hold several.
struct StillAndAnimated {
    /// @throws std::out_of_range  one of the two is not in `formats`.
    StillAndAnimated(const InputMap& formats, const std::string& stillKey, const std::string& animatedKey);

    const AVInputFormat* still;
    const AVInputFormat* animated;
};

}  // namespace Quorva::Proc::Details
