/// @file
/// Frames of the pipeline over FFmpeg's. A library of its own, so that the rest of the host needs no FFmpeg.
#pragma once

#include "host/Export.h"
#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"
#include "host/RefCounting.h"

#include <memory>

namespace Quorva::Proc {

/// Frees a frame, and drops its references.
struct QUORVA_HOST_API FrameDeleter {
    /// @param frame  null is fine
    void operator()(AVFrame* frame) const noexcept;
};
/// Owns one frame and its references.
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

/// Frees a subtitle and its rectangles.
struct QUORVA_HOST_API SubtitleDeleter {
    /// @param subtitle  allocated with `new`
    void operator()(AVSubtitle* subtitle) const noexcept;
};
/// Owns one subtitle and its rectangles.
using SubtitlePtr = std::unique_ptr<AVSubtitle, SubtitleDeleter>;

/// A picture. What it describes is fixed when it is made: change the frame's contents, not its shape.
class QUORVA_HOST_API VideoData final : public RefCounted<IDataVideo> {
public:
    /// A picture to fill, its planes aligned as FFmpeg likes them and their contents undefined.
    /// @throws Conf::FormatException   there is no such picture: no size, a format of device memory, or no
    ///                                 format.
    /// @throws Core::MemoryException  with the tags of width and height.
    VideoData(const Picture& picture, PixFmt format);
    /// Shares the buffers of `frame`; copies those that aren't reference counted.
    /// @throws Conf::FormatException   the frame holds nothing.
    explicit VideoData(const AVFrame& frame);
    /// Takes the frame over.
    /// @pre  not null.
    explicit VideoData(FramePtr frame) noexcept;

    const Picture& GetPicture() const noexcept override { return picture; }
    PixFmt GetPixelFormat() const noexcept override { return format; }
    AVFrame* GetFrame() const noexcept override { return frame.get(); }

private:
    FramePtr frame;
    Picture picture;
    PixFmt format;
};

/// Samples, or room for them.
class QUORVA_HOST_API AudioData final : public RefCounted<IDataAudio> {
public:
    /// Room for `samples` per channel, their contents undefined.
    /// @throws Conf::FormatException   there is no such sound: no samples, rate or channels.
    /// @throws Core::MemoryException
    AudioData(const Conf::SampleInfo& info, int samples);
    /// Shares the buffers of `frame`; copies those that aren't reference counted.
    /// @throws Conf::FormatException   the frame holds nothing, or not what `info` says.
    AudioData(const AVFrame& frame, const Conf::SampleInfo& info);

    int GetSampleCount() const noexcept override;
    Conf::SampleInfo GetSampleInfo() const override { return info; }
    AVFrame* GetFrame() const noexcept override { return frame.get(); }

    /// How much of the room counts, once it is filled.
    /// @throws Conf::FormatException   more than there was at first, or less than nothing.
    void SetSampleCount(int samples);

private:
    FramePtr frame;
    Conf::SampleInfo info;
    int room;  ///< samples per channel
};

/// A subtitle.
class QUORVA_HOST_API SubtitleData final : public RefCounted<IDataSubtitle> {
public:
    /// Takes over what `subtitle` holds, and leaves it empty.
    explicit SubtitleData(AVSubtitle&& subtitle);

    const AVSubtitle& GetSubtitle() const noexcept override { return *subtitle; }

private:
    SubtitlePtr subtitle;
};

}  // namespace Quorva::Proc
