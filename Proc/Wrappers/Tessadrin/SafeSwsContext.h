/// @file
/// The scaler as an owning object: size, pixel format and colour matrix of pictures.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/MediaDescription.h"

#include <concepts>
#include <optional>
#include <string>
#include <utility>

namespace Quorva::Proc {

/// One side of a conversion.
struct TESSADRIN_API SwsItem {
    int width = 0;  ///< pixels
    int height = 0;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    Conf::YCbCrMatrix matrix = Conf::YCbCrMatrix::Unspecified;
    SwsFilter* filter = nullptr;  ///< not owned; must stay valid until the constructor of the context returns

    bool operator==(const SwsItem&) const = default;

    /// For people: "nv12 (1920:1080)"; empty when FFmpeg doesn't describe the format.
    std::string GetDescription() const;
};

/// A whole conversion.
struct SwsCtxParams {
    SwsItem src;                                                     ///< what is read
    SwsItem dst;                                                     ///< what is written
    int flags = SWS_FAST_BILINEAR;                                   ///< SWS_*: one algorithm, and modifiers
    std::optional<std::pair<double, double>> params = std::nullopt;  ///< the algorithm's two parameters
};

namespace Details {

/// @throws ProcException  "AVFrame pointer is null".
TESSADRIN_API const AVFrame& GetAVFrameRef(const AVFrame* frame);

}  // namespace Details

/// Owners of a frame, such as SafeFrame and std::unique_ptr.
template <class T>
concept FrameHolder = std::convertible_to<decltype(std::declval<const T&>().get()), const AVFrame*>;

/// Planes to read: pointers, and bytes from one row to the next. Refers to the frame's memory without a
/// reference of its own.
struct SwsSource {
    SwsSource() = default;
    /// The planes of a frame.
    explicit SwsSource(const AVFrame& frame)
    {
        for (int plane = 0; plane < 4; ++plane) {
            data[plane] = frame.data[plane];
            linesize[plane] = frame.linesize[plane];
        }
    }
    /// @throws ProcException  the pointer is null.
    explicit SwsSource(const AVFrame* frame) : SwsSource(Details::GetAVFrameRef(frame)) {}
    explicit SwsSource(const FrameHolder auto& holder) : SwsSource(Details::GetAVFrameRef(holder.get())) {}

    const uint8_t* data[4] = {};  ///< first byte of the first row; null where there is no such plane
    int linesize[4] = {};         ///< bytes from one row to the next; negative for rows that run upwards
};

/// Planes to write: as SwsSource.
struct SwsDestination {
    SwsDestination() = default;
    /// The planes of a frame.
    explicit SwsDestination(const AVFrame& frame)
    {
        for (int plane = 0; plane < 4; ++plane) {
            data[plane] = frame.data[plane];
            linesize[plane] = frame.linesize[plane];
        }
    }
    /// @throws ProcException  the pointer is null.
    explicit SwsDestination(const AVFrame* frame) : SwsDestination(Details::GetAVFrameRef(frame)) {}
    explicit SwsDestination(const FrameHolder auto& holder)
        : SwsDestination(Details::GetAVFrameRef(holder.get()))
    {
    }

    uint8_t* data[4] = {};  ///< as in SwsSource, both
    int linesize[4] = {};
};

/// Owns one scaler, or copies planes where nothing needs to be converted: when both sides are equal and the
/// format is semi-planar YUV (NV12 and its kin). Movable, not copyable; one thread at a time.
///
/// Where the target is RGB, FFmpeg 7.1 doesn't notice that it got no memory for its colour tables (65 KB),
/// and the process ends at the first picture.
class TESSADRIN_API SafeSwsContext {
public:
    class Exception;

    SafeSwsContext() = default;
    /// @throws EffectException  the scaler can't read or write one of the formats.
    /// @throws ProcException    the scaler can't be allocated, or refuses an option.
    /// @throws SafeSwsContext::Exception  the scaler can't be initialised, or the parameters are such that
    ///                                    FFmpeg would end the process: a Lanczos window that isn't positive,
    ///                                    and filters that amplify beyond its tables for RGB (cubics with
    ///                                    |B| 2/3 + |C| / 2 above 1.45, negative parameters of SWS_X and
    ///                                    SWS_GAUSS); carries the parameters.
    /// @param threads  for Scale() of whole frames; 0: as many as there are cores
    explicit SafeSwsContext(const SwsCtxParams& params, int threads = 1);
    SafeSwsContext(SafeSwsContext&& other) noexcept { Swap(other); }
    SafeSwsContext& operator=(SafeSwsContext&& other) noexcept
    {
        SafeSwsContext(std::move(other)).Swap(*this);
        return *this;
    }
    ~SafeSwsContext() { sws_freeContext(context); }

    explicit operator bool() const noexcept { return copyDescriptor || context; }
    /// What the object was built from; defaults in an empty one.
    const SwsCtxParams& GetParams() const noexcept { return params; }

    /// Converts one slice of a picture.
    ///
    /// @param src             planes of the slice; the pointers are at its first row
    /// @param sliceY, sliceH  first row and row count, in luma rows of the source
    /// @param dst             planes of the whole picture, params.dst.height rows
    /// @return                rows written, or the destination's height where planes are only copied;
    ///                        FFmpeg's negative code when the scaler refuses; AVERROR(EINVAL) when empty, for
    ///                        a slice that isn't part of the picture, of which nothing is read, and for rows
    ///                        of 16-bit samples whose distance is odd where the target is semi-planar
    /// @throws std::bad_alloc  samples exceed their format's depth, as raw video's may, and there is no
    ///                         memory for the slice without them: FFmpeg reads outside its tables there.
    int Scale(const SwsSource& src, int sliceY, int sliceH, const SwsDestination& dst) const;
    /// The whole picture.
    int Scale(const SwsSource& src, const SwsDestination& dst) const;

    /// The whole picture, by as many threads as were asked for; the same bytes as by one.
    /// @param source  of the size and format of the parameters
    /// @param target  likewise; a frame without a picture gets one. Where its picture isn't
    ///                reference-counted, one thread does the work
    /// @return        rows written; FFmpeg's negative code when the scaler refuses
    int Scale(const AVFrame& source, AVFrame& target) const;

    void Reset() noexcept { SafeSwsContext().Swap(*this); }
    void Swap(SafeSwsContext& other) noexcept
    {
        std::swap(params, other.params);
        std::swap(copyDescriptor, other.copyDescriptor);
        std::swap(unwritten, other.unwritten);
        std::swap(strayBits, other.strayBits);
        std::swap(context, other.context);
    }

    /// The four numbers (crv, cbu, cgu, cgv) that FFmpeg's scaler wants for a matrix, 16.16 fixed point, from
    /// the pipeline's luma weights. Computed once per matrix; the pointer stays valid as long as the process.
    /// A matrix without usable weights gives the numbers of BT.601. Safe on any thread.
    static const int* GetCoefficients(Conf::YCbCrMatrix matrix);

private:
    SwsCtxParams params;
    /// Set where planes are copied without a scaler. FFmpeg's, static.
    const AVPixFmtDescriptor* copyDescriptor = nullptr;
    /// Set when swscale copies only the luma plane. FFmpeg's, static.
    const AVPixFmtDescriptor* unwritten = nullptr;
    uint16_t strayBits = 0;         ///< mask of bits above the samples' depth, in memory order; 0: none
    SwsContext* context = nullptr;  ///< owned
};

/// A scaler that could not be initialised, with what was asked of it.
class TESSADRIN_API SafeSwsContext::Exception : public ProcException, public SwsCtxParams {
public:
    Exception() = default;
    /// @param asked  what was asked for
    explicit Exception(const SwsCtxParams& asked) : SwsCtxParams(asked) {}
    Exception(const Exception&) = default;
    ~Exception() override;
};

}  // namespace Quorva::Proc
