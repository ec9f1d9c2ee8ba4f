#pragma once

#include "Proc/Wrappers/Tessadrin/Details/Recognisers.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Quorva::Proc::Details {

/// What the pipeline knows of one demuxer.
struct KnownInputFormat {
    std::string_view format{};                 ///< static text; empty when the demuxer's name is the format's
    ProbeRecogniser* fromProbe = nullptr;      ///< may be null
    ContextRecogniser* fromContext = nullptr;  ///< may be null
};

/// Every demuxer of this FFmpeg, in its order.
std::vector<const AVInputFormat*> AllDemuxers();

/// Which demuxers the pipeline uses and under which format names.
struct InputCatalogue {
    /// @param demuxers         in FFmpeg's order: the first that claims a format keeps it
    /// @param isoMediaFormats  the formats of the ISO base media family
    /// @throws std::out_of_range  a demuxer that serves several formats is missing.
    explicit InputCatalogue(
        std::span<const AVInputFormat* const> demuxers = AllDemuxers(),
        const std::vector<std::string>& isoMediaFormats = GetKnownISOBaseMediaFileFormats());

    /// By demuxer name; both are static text.
    boost::unordered_flat_map<std::string_view, KnownInputFormat> known;
    InputMap formats;

    /// Null when the pipeline doesn't know the demuxer.
    /// @param demuxer  its name; null where it has none
    const KnownInputFormat* Find(const char* demuxer) const noexcept;
};

/// The formats that callers are offered: those of the catalogue that can be decoded, but for the ones whose
/// files are detected and then refused.
InputMap SupportedInputFormats(const InputMap& formats, bool hasJpegXLDecoder);

/// The extension's part of the detection: each proposal must be confirmed by its demuxer's probe and by the
/// recognisers, with a higher score than `result` holds.
/// @param candidates  format names, most preferred first
void DetectAmong(const std::vector<std::string>& candidates, const InputMap& formats, const MovieProbe& probe,
                 ProbeResult& result);

}  // namespace Quorva::Proc::Details
