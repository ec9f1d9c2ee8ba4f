#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"

#include "Proc/Wrappers/Tessadrin/Details/ScalerLimits.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "host/Colour.h"
#include "host/ProcessingSupport.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace Quorva::Proc {

using Conf::YCbCrMatrix;
using Details::Raise;
using Details::Throw;

namespace {

struct FullRangeRow {
    AVPixelFormat deprecated;
    AVPixelFormat limited;
};

// clang-format off
constexpr FullRangeRow fullRangeRows[] = {
    {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P},
    {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
    {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P},
    {AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUV440P},
    {AV_PIX_FMT_YUVJ411P, AV_PIX_FMT_YUV411P},
};
// clang-format on

/// The format to hand to the scaler. A deprecated full-range format becomes its twin, and `range` 1.
AVPixelFormat WithoutRange(AVPixelFormat format, std::optional<int>& range)
{
    const auto found = std::ranges::find(fullRangeRows, format, &FullRangeRow::deprecated);
    if (found == std::end(fullRangeRows))
        return format;
    range = 1;
    return found->limited;
}

std::string NameOf(AVPixelFormat format)
{
    const char* name = av_get_pix_fmt_name(format);
    return name ? name : std::to_string(static_cast<int>(format));
}

AVPixelFormat GetInputPixelFormat(const SwsCtxParams& params, std::optional<int>& range)
{
    if (!IsSwScalingSupportedAsInput(params.src.format))
        Throw<EffectException>("'{}' pixel format is not supported for converter input",
                               NameOf(params.src.format));
    return WithoutRange(params.src.format, range);
}

AVPixelFormat GetOutputPixelFormat(const SwsCtxParams& params, std::optional<int>& range)
{
    if (!IsSwScalingSupportedAsOutput(params.dst.format))
        Throw<EffectException>("'{}' pixel format is not supported for converter output",
                               NameOf(params.dst.format));
    return WithoutRange(params.dst.format, range);
}

/// YUV whose two chroma components share a plane.
bool IsSemiPlanar(const AVPixFmtDescriptor& descriptor)
{
    return (descriptor.flags & AV_PIX_FMT_FLAG_PLANAR) && !(descriptor.flags & AV_PIX_FMT_FLAG_RGB) &&
           descriptor.nb_components >= 2 && descriptor.comp[1].plane == descriptor.comp[2].plane;
}

std::array<int, 4> ComputeCoefficients(YCbCrMatrix matrix)
{
    const auto& [Kr, Kg, Kb] = GetYCbCrCoefficients(matrix);
    constexpr double scale = 65536.0 * 255 / 224;  // 16.16, chroma of limited range
    const double kr = Kr;
    const double kb = Kb;
    const float blue = Kb / Kg;  // the quotients in single precision, like the weights
    const float red = Kr / Kg;
    const double values[] = {
        std::round(2 * ((1 - kr) * scale)),
        std::round(2 * ((1 - kb) * scale)),
        std::round(2 * (static_cast<double>(blue) * scale * (1 - kb))),
        std::round(2 * (static_cast<double>(red) * scale * (1 - kr))),
    };
    std::array<int, 4> table = {};
    for (size_t i = 0; i < table.size(); ++i) {
        // FFmpeg divides by these: a matrix without weights of its own would end the process there.
        if (!std::isfinite(values[i]) || values[i] == 0)
            return ComputeCoefficients(YCbCrMatrix::SMPTE170M);
        table[i] = static_cast<int>(values[i]);
    }
    return table;
}

/// Ranges, brightness, contrast and saturation stay as the scaler chose them.
/// @return  false when FFmpeg could not set up the step through RGB that two different matrices need: the
///          first picture would end the process
bool ReplaceTables(SwsContext* context, const SwsCtxParams& p)
{
    if (p.src.matrix == YCbCrMatrix::Unspecified || p.dst.matrix == YCbCrMatrix::Unspecified)
        return true;
    int* oldSource = nullptr;
    int* oldTarget = nullptr;
    int sourceRange = 0, targetRange = 0, brightness = 0, contrast = 0, saturation = 0;
    // Fails for a null context only.
    sws_getColorspaceDetails(context, &oldSource, &sourceRange, &oldTarget, &targetRange, &brightness,
                             &contrast, &saturation);
    return sws_setColorspaceDetails(context, SafeSwsContext::GetCoefficients(p.src.matrix), sourceRange,
                                    SafeSwsContext::GetCoefficients(p.dst.matrix), targetRange, brightness,
                                    contrast, saturation) >= 0;
}

bool HasEffect(const SwsFilter* filter)
{
    return filter &&
           std::ranges::any_of(std::array{filter->lumH, filter->lumV, filter->chrH, filter->chrV},
                               [](const SwsVector* vector) { return vector && vector->length > 1; });
}

void SetOptions(SwsContext* context, const SwsCtxParams& p, int threads)
{
    const auto set = [&](const char* name, auto value) { AVOptSetter(context, name, 0).Set(value); };

    set("srcw", p.src.width);
    set("srch", p.src.height);
    std::optional<int> sourceRange;
    set("src_format", GetInputPixelFormat(p, sourceRange));
    if (sourceRange)
        set("src_range", *sourceRange);
    set("dstw", p.dst.width);
    set("dsth", p.dst.height);
    std::optional<int> targetRange;
    set("dst_format", GetOutputPixelFormat(p, targetRange));
    if (targetRange)
        set("dst_range", *targetRange);
    set("sws_flags", Details::GetSafeFlags(p));
    if (p.params) {
        set("param0", p.params->first);
        set("param1", p.params->second);
        if (Details::AreDangerous(p)) {
            // FFmpeg refuses a window as wide as this, exactly where it would build the filter in question.
            set("sws_flags", (p.flags & ~Details::scalerAlgorithms) | SWS_LANCZOS);
            set("param0", 1000.0);
        }
    }
    if (threads != 1)
        set("threads", threads);
}

/// Whether all that FFmpeg would do is copy semi-planar pictures: it leaves their chroma unwritten then.
bool IsPlainCopy(const SwsCtxParams& p, const AVPixFmtDescriptor& descriptor)
{
    return p.src.width == p.dst.width && p.src.height == p.dst.height && p.src.format == p.dst.format &&
           IsSemiPlanar(descriptor) && !HasEffect(p.src.filter) && !HasEffect(p.dst.filter) &&
           !Details::ChangesColours(p);
}

/// v / 2^shift, rounded up.
constexpr int64_t CeilShift(int64_t v, int shift) { return -((-v) >> shift); }

/// @param d  of a semi-planar format
void CopyPlanes(const AVPixFmtDescriptor& d, int width, int height, const SwsSource& src, int sliceY,
                int sliceH, const SwsDestination& dst)
{
    for (int plane = 0; plane < 4 && dst.data[plane] && src.data[plane]; ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        const int shiftX = chroma ? d.log2_chroma_w : 0;
        const int shiftY = chroma ? d.log2_chroma_h : 0;
        int64_t rowLength = CeilShift(width, shiftX);
        if (d.comp[plane].depth > 8)
            rowLength *= 2;
        if (plane == 1)
            rowLength *= 2;
        const int64_t firstRow = CeilShift(sliceY, shiftY);
        // A slice that begins on an odd row is rounded up twice and could reach one row below the plane.
        const int64_t rowCount = std::min(CeilShift(sliceH, shiftY), CeilShift(height, shiftY) - firstRow);
        if (firstRow < 0 || rowCount <= 0)
            continue;
        CopyPlane(
            Details::PlaneTemplate<true>(src.data[plane], src.linesize[plane], rowLength, rowCount, 0, false),
            Details::PlaneTemplate<false>(dst.data[plane] + dst.linesize[plane] * firstRow,
                                          dst.linesize[plane], rowLength, rowCount, 0, false));
    }
}

/// Whether each 16-bit word of each plane is one sample, in its low bits. Packed formats such as X2BGR10 have
/// components with the same shift, but share words.
bool HasPlainWords(const AVPixFmtDescriptor& d)
{
    const std::span components(d.comp, d.nb_components);
    return std::ranges::all_of(components, [&](const AVComponentDescriptor& component) {
        const auto sharing = std::ranges::count(components, component.plane, &AVComponentDescriptor::plane);
        return component.depth > 8 && component.depth < 16 && component.depth == d.comp[0].depth &&
               component.shift == 0 && component.offset % 2 == 0 && component.step == 2 * sharing;
    });
}

/// The bits of a word that lie above the sample's depth; 0 where FFmpeg masks them itself.
uint16_t GetStrayBits(AVPixelFormat format)
{
    const AVPixFmtDescriptor& d = *GetPixelFormatDescription(format);
    if (!HasPlainWords(d))
        return 0;
    const auto bits = static_cast<uint16_t>(0xffff << d.comp[0].depth);
    const bool swapped =
        ((d.flags & AV_PIX_FMT_FLAG_BE) != 0) == (std::endian::native == std::endian::little);
    return swapped ? static_cast<uint16_t>(bits >> 8 | bits << 8) : bits;
}

/// Whether FFmpeg takes the slice: inside of the picture, and from and to whole rows of chroma.
bool IsSliceOf(const SwsItem& item, int sliceY, int sliceH)
{
    if (sliceY < 0 || sliceH < 0 || sliceY > item.height - sliceH)
        return false;
    const int unit = 1 << GetPixelFormatDescription(item.format)->log2_chroma_h;
    return sliceY % unit == 0 && (sliceH % unit == 0 || sliceY + sliceH == item.height);
}

/// Whether rows of 16-bit samples begin within a sample: FFmpeg's conversion to P010 and P016 asserts that
/// none do.
bool SplitsSamples(const SwsCtxParams& p, const int (&source)[4], const int (&target)[4])
{
    const auto splits = [](const SwsItem& item, const int(&linesize)[4]) {
        return GetPixelFormatDescription(item.format)->comp[0].depth > 8 &&
               std::ranges::any_of(linesize, [](int size) { return size % 2 != 0; });
    };
    return IsSemiPlanar(*GetPixelFormatDescription(p.dst.format)) &&
           (splits(p.src, source) || splits(p.dst, target));
}

/// A slice whose samples may exceed the depth of their format, as those of raw video: FFmpeg's tables for RGB
/// have no room for what it makes of them.
class CleanSlice {
public:
    CleanSlice(const SwsItem& item, uint16_t strayBits, const SwsSource& src, int rows) : source(src)
    {
        const AVPixFmtDescriptor& d = *GetPixelFormatDescription(item.format);
        for (int plane = 0; plane < 4 && src.data[plane]; ++plane) {
            const bool chroma = plane == 1 || plane == 2;
            const auto height = static_cast<int>(CeilShift(rows, chroma ? d.log2_chroma_h : 0));
            const int width = av_image_get_linesize(item.format, item.width, plane) / 2;  // words
            if (width > 0 && height > 0 && IsStray(plane, width, height, strayBits))
                Replace(plane, width, height, strayBits);
        }
    }

    const SwsSource& Get() const noexcept { return source; }

private:
    const uint8_t* Row(int plane, int y) const
    {
        return source.data[plane] + static_cast<ptrdiff_t>(y) * source.linesize[plane];
    }

    bool IsStray(int plane, int width, int height, uint16_t strayBits) const
    {
        uint16_t all = 0;
        for (int y = 0; y < height; ++y) {
            const uint8_t* const row = Row(plane, y);
            for (int x = 0; x < width; ++x) {
                uint16_t word;
                std::memcpy(&word, row + 2 * static_cast<ptrdiff_t>(x), sizeof word);
                all |= word;
            }
        }
        return all & strayBits;
    }

    /// Samples that are too large become the largest.
    void Replace(int plane, int width, int height, uint16_t strayBits)
    {
        std::vector<uint16_t>& words = planes[plane];
        words.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
        for (int y = 0; y < height; ++y)
            std::memcpy(&words[static_cast<size_t>(y) * static_cast<size_t>(width)], Row(plane, y),
                        2 * static_cast<size_t>(width));
        for (uint16_t& word : words)
            if (word & strayBits)
                word = static_cast<uint16_t>(~strayBits);
        source.data[plane] = reinterpret_cast<const uint8_t*>(words.data());
        source.linesize[plane] = 2 * width;
    }

    SwsSource source;
    std::vector<uint16_t> planes[4];
};

}  // namespace

SafeSwsContext::Exception::~Exception() = default;

std::string SwsItem::GetDescription() const
{
    const char* name = av_get_pix_fmt_name(format);
    return name ? fmt::format("{} ({}:{})", name, width, height) : std::string();
}

const AVFrame& Details::GetAVFrameRef(const AVFrame* frame)
{
    if (!frame)
        Throw<ProcException>("AVFrame pointer is null");
    return *frame;
}

SafeSwsContext::SafeSwsContext(const SwsCtxParams& p, int threads)
{
    SafeSwsContext fresh;
    fresh.params = p;
    if (p.src == p.dst) {
        const AVPixFmtDescriptor* descriptor = GetPixelFormatDescription(p.src.format);
        if (descriptor && IsSemiPlanar(*descriptor)) {
            fresh.copyDescriptor = descriptor;
            Swap(fresh);
            return;
        }
    }

    fresh.context = sws_alloc_context();
    if (!fresh.context)
        Throw<ProcException>("Can't allocate SW Scale context");
    SetOptions(fresh.context, p, threads);
    if (sws_init_context(fresh.context, p.src.filter, p.dst.filter) < 0 || !ReplaceTables(fresh.context, p))
        Raise(Exception(p) << TagDescription("Can't init SW Scale context"));

    const AVPixFmtDescriptor& target = *GetPixelFormatDescription(p.dst.format);
    if (IsPlainCopy(p, target))
        fresh.unwritten = &target;
    if (target.flags & AV_PIX_FMT_FLAG_RGB)
        fresh.strayBits = GetStrayBits(p.src.format);
    Swap(fresh);
}

int SafeSwsContext::Scale(const SwsSource& src, int sliceY, int sliceH, const SwsDestination& dst) const
{
    if (copyDescriptor) {
        CopyPlanes(*copyDescriptor, params.src.width, params.dst.height, src, sliceY, sliceH, dst);
        return params.dst.height;
    }
    // FFmpeg refuses most of these itself, with the same code, and reads outside of the picture for the
    // others.
    if (!context || !IsSliceOf(params.src, sliceY, sliceH) ||
        SplitsSamples(params, src.linesize, dst.linesize))
        return AVERROR(EINVAL);
    const auto scale = [&](const SwsSource& source) {
        return sws_scale(context, source.data, source.linesize, sliceY, sliceH, dst.data, dst.linesize);
    };
    const int rows = strayBits ? scale(CleanSlice(params.src, strayBits, src, sliceH).Get()) : scale(src);
    if (unwritten && rows > 0)
        CopyPlanes(*unwritten, params.src.width, params.dst.height, src, sliceY, sliceH, dst);
    return rows;
}

int SafeSwsContext::Scale(const SwsSource& src, const SwsDestination& dst) const
{
    return Scale(src, 0, params.src.height, dst);
}

int SafeSwsContext::Scale(const AVFrame& source, AVFrame& target) const
{
    // Of FFmpeg's two calls only the one for frames makes use of threads. It would allocate another picture
    // for a target whose own isn't reference-counted.
    const SwsSource from(source);
    const SwsDestination to(target);
    if (!context || strayBits || unwritten || (target.data[0] && !target.buf[0]) ||
        SplitsSamples(params, from.linesize, to.linesize))
        return Scale(from, to);
    const int result = sws_scale_frame(context, &target, &source);
    return result < 0 ? result : params.dst.height;
}

const int* SafeSwsContext::GetCoefficients(YCbCrMatrix matrix)
{
    static constinit std::mutex mutex;
    static std::map<YCbCrMatrix, std::array<int, 4>> tables;
    const std::lock_guard lock(mutex);
    auto found = tables.find(matrix);
    if (found == tables.end())
        found = tables.emplace(matrix, ComputeCoefficients(matrix)).first;
    return found->second.data();
}

}  // namespace Quorva::Proc
