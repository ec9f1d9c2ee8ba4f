/// @file
/// Frames by value.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc {

/// One AVFrame and the references it holds. Copies take references of their own; a moved-from wrapper, like a
/// new one, is as `av_frame_alloc` makes it. Never throws.
///
/// A plane array of its own (`extended_data` other than `data`) belongs to the frame, as everywhere in
/// FFmpeg. Moves and assignments keep that of audio with planes in it, and free any other with `av_free`: a
/// picture's planes all have room in `data`.
class TESSADRIN_API AVFrameWrapper {
public:
    AVFrameWrapper() noexcept;
    /// A new reference to the buffers of `source` with its properties; a picture or sound without reference
    /// counting is copied. Empty when FFmpeg refuses: no memory, or a source that holds nothing.
    explicit AVFrameWrapper(const AVFrame& source) noexcept;
    AVFrameWrapper(const AVFrameWrapper& other) noexcept;
    AVFrameWrapper(AVFrameWrapper&& other) noexcept;
    ~AVFrameWrapper();

    AVFrameWrapper& operator=(AVFrameWrapper&& other) noexcept;
    /// As the constructor; `source` may be the wrapper's own frame.
    AVFrameWrapper& operator=(const AVFrame& source) noexcept;
    AVFrameWrapper& operator=(const AVFrameWrapper& other) noexcept;

    /// The held frame, never null; valid as long as the wrapper. Moving the wrapper empties the frame at the
    /// old address.
    AVFrame* operator->() noexcept { return &frame; }
    const AVFrame* operator->() const noexcept { return &frame; }
    /// The same, for functions of FFmpeg; use `std::addressof` for the wrapper's own address.
    AVFrame* operator&() noexcept { return &frame; }
    const AVFrame* operator&() const noexcept { return &frame; }

private:
    void Swap(AVFrameWrapper& other) noexcept;

    AVFrame frame = {};
};

}  // namespace Quorva::Proc
