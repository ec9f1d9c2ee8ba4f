#include "Proc/Wrappers/Tessadrin/Details/ScalerLimits.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace Quorva::Proc::Details {

using Conf::YCbCrMatrix;

namespace {

/// Whether FFmpeg's RGB of the conversion, be it only a step between two matrices, comes from its tables.
bool HasTables(const SwsCtxParams& p, const AVPixFmtDescriptor& source, const AVPixFmtDescriptor& target)
{
    const int depth = target.comp[0].depth;
    const bool wholeChroma = p.flags & SWS_FULL_CHR_H_INT || (!source.log2_chroma_w && !source.log2_chroma_h);
    if (!(target.flags & AV_PIX_FMT_FLAG_RGB)) {
        const bool deepStep = depth > 8 && depth <= 16;  // 48 bits, else 24
        return !(source.flags & AV_PIX_FMT_FLAG_RGB) && ChangesColours(p) && !deepStep && !wholeChroma;
    }
    // With chroma for each pixel FFmpeg computes the colours of true-colour targets, and clips them.
    const bool computed =
        (wholeChroma || p.dst.width % 2) && av_get_bits_per_pixel(&target) >= 24 && depth == 8;
    return !(target.flags & AV_PIX_FMT_FLAG_PLANAR) && depth < 16 && !computed;
}

/// Whether FFmpeg filters rows of the source into sums that it looks up in its tables for RGB. The tables
/// cover five times the range of samples, and nothing checks the sums.
bool LooksUpFilteredRows(const SwsCtxParams& p)
{
    const AVPixFmtDescriptor& source = *GetPixelFormatDescription(p.src.format);
    const AVPixFmtDescriptor& target = *GetPixelFormatDescription(p.dst.format);
    const bool filtered =
        p.src.height != p.dst.height || source.log2_chroma_h || p.flags & SWS_SRC_V_CHR_DROP_MASK;
    return filtered && HasTables(p, source, target);
}

}  // namespace

bool ChangesColours(const SwsCtxParams& p)
{
    if (p.src.matrix == YCbCrMatrix::Unspecified || p.dst.matrix == YCbCrMatrix::Unspecified)
        return false;  // the scaler's own, on both sides
    return !std::ranges::equal(std::span(SafeSwsContext::GetCoefficients(p.src.matrix), 4),
                               std::span(SafeSwsContext::GetCoefficients(p.dst.matrix), 4));
}

int GetSafeFlags(const SwsCtxParams& p)
{
    const AVPixFmtDescriptor* descriptor = GetPixelFormatDescription(p.dst.format);
    const bool fast = (p.flags & scalerAlgorithms) == SWS_FAST_BILINEAR && descriptor;
    return fast && AV_CEIL_RSHIFT(p.dst.width, descriptor->log2_chroma_w) == 2
               ? p.flags ^ (SWS_FAST_BILINEAR | SWS_BILINEAR)
               : p.flags;
}

bool AreDangerous(const SwsCtxParams& p)
{
    const auto [first, second] = *p.params;
    switch (p.flags & scalerAlgorithms) {
        case SWS_LANCZOS:
            return !(first > 0 && first < 1e6);  // above, an int overflows; NaN is neither
        case SWS_X:
        case SWS_GAUSS:
            return first < 0 && LooksUpFilteredRows(p);  // weights that grow with the distance
        case 0:                                          // FFmpeg's default is the cubic
        case SWS_BICUBIC:
        case SWS_BICUBLIN: {
            const double b = first == SWS_PARAM_DEFAULT ? 0 : first;
            const double c = second == SWS_PARAM_DEFAULT ? 0.6 : second;
            // The weights of a sample add up to 1, their absolute values to at most 1 plus this sum. With
            // both directions filtered the tables suffice up to 1.45.
            return !(std::abs(b) * 2 / 3 + std::abs(c) / 2 <= 1.45) && LooksUpFilteredRows(p);
        }
        default:
            return false;
    }
}

}  // namespace Quorva::Proc::Details
