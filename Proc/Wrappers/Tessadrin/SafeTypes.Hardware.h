/// @file
/// Hardware devices, pools of frames in their memory, and frames that own theirs.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.UniquePtr.h"
#include "host/FoundationIO.h"
#include "host/MediaDescription.h"

#include <memory>
#include <utility>
#include <vector>

namespace Quorva::Proc {

/// What pictures a device takes.
struct HWFramesConstraints {
    std::vector<AVPixelFormat> validHwFormats;  ///< of its own memory; empty where FFmpeg names none
    std::vector<AVPixelFormat> validSwFormats;  ///< that can be in there; likewise
    int minWidth = 0;                           ///< pixels, these four
    int minHeight = 0;
    int maxWidth = 0;
    int maxHeight = 0;
};

/// Owns one AVFrame and, where it allocated that itself, the picture in it. Movable, not copyable; a
/// moved-from object is empty. One thread at a time.
class SafeFrame {
public:
    /// A frame without a picture.
    /// @throws Core::MemoryException  it cannot be allocated.
    SafeFrame() : frame(av_frame_alloc())
    {
        if (!frame)
            Details::Raise(
                Core::MemoryException("Unable to allocate memory for AVFrame struct", sizeof(AVFrame)));
    }
    /// A frame with a picture of undefined contents, rows aligned to 32 bytes. No key frame. FFmpeg counts
    /// the references to the picture: it may be written to by FFmpeg, and kept longer than this object.
    /// @param width, height   pixels
    /// @param sarNum, sarDen  shape of the pixels
    /// @throws Core::MemoryException  frame or picture cannot be allocated, as for formats and sizes that
    ///                                FFmpeg has no layout for; then with TagFrameWidth and TagFrameHeight.
    TESSADRIN_API SafeFrame(const Conf::ColorSpace& colorSpace, AVPixelFormat format, int width, int height,
                            int sarNum, int sarDen);
    SafeFrame(SafeFrame&& other) noexcept
        : frame(std::exchange(other.frame, nullptr)), ownsData(std::exchange(other.ownsData, false))
    {
    }
    SafeFrame& operator=(SafeFrame&& other) noexcept
    {
        SafeFrame(std::move(other)).Swap(*this);
        return *this;
    }
    ~SafeFrame()
    {
        if (ownsData)
            av_freep(&frame->data[0]);
        av_frame_free(&frame);
    }

    AVFrame* get() const noexcept { return frame; }  ///< owned by this object; null when moved from
    AVFrame* operator->() const noexcept { return frame; }
    /// Whether the picture is the one that the constructor allocated.
    bool OwnsData() const noexcept { return ownsData || OwnsPicture(frame); }
    void Swap(SafeFrame& other) noexcept
    {
        std::swap(frame, other.frame);
        std::swap(ownsData, other.ownsData);
    }

private:
    TESSADRIN_API static bool OwnsPicture(const AVFrame* frame) noexcept;

    AVFrame* frame;         ///< owned
    bool ownsData = false;  ///< its picture is to be freed by av_freep(); no longer set, since 1.1
};

/// A reference to a hardware device, or to a pool of frames on one; both are FFmpeg's and counted by it. A
/// pool keeps its device alive. Movable, not copyable. One thread at a time; objects on different threads may
/// share a device or pool.
class TESSADRIN_API SafeBuffer {
public:
    SafeBuffer() = default;
    /// A further reference to the device or pool; empty when it cannot be had.
    /// @param buffer  not null; stays the caller's
    /// @throws ProcException  it is neither.
    explicit SafeBuffer(AVBufferRef* buffer);
    /// A new device.
    /// @param device   which one, null for the first; the meaning depends on the type, as for
    ///                 `av_hwdevice_ctx_create`
    /// @param options  may be null
    /// @throws ProcException  there is none, or it refuses.
    SafeBuffer(AVHWDeviceType type, const char* device, AVDictionary* options, int flags);
    SafeBuffer(SafeBuffer&&) noexcept = default;
    SafeBuffer& operator=(SafeBuffer&&) noexcept = default;

    /// For FFmpeg's functions, which take references of their own; null when empty.
    AVBufferRef* Get() const noexcept { return buffer.get(); }
    explicit operator bool() const noexcept { return buffer.get() != nullptr; }

    /// The device, or that of the pool. Valid as long as this object.
    /// @throws ProcException  neither a device nor a pool.
    const AVHWDeviceContext* GetDeviceContext() const;
    /// The pool. Valid as long as this object.
    /// @throws ProcException  no pool.
    AVHWFramesContext* GetFramesContext();
    const AVHWFramesContext* GetFramesContext() const;
    /// A further reference to the pool's device.
    /// @throws ProcException  no pool.
    SafeBuffer GetDeviceContextBuffer();

    /// What the device, or that of the pool, takes.
    /// @param hwconfig  of one kind of use, see `av_hwdevice_hwconfig_alloc`; null for any
    /// @return          null when FFmpeg knows of no constraints
    /// @throws ProcException  neither a device nor a pool.
    std::unique_ptr<HWFramesConstraints> GetFramesConstraints(const void* hwconfig);

    /// A pool on the device, or on that of the pool, for the first of its hardware formats. The caller may
    /// change more of it, then calls InitFramesContext().
    /// @param size      pixels
    /// @param poolSize  frames to allocate in advance; 0: as they are needed
    /// @throws ProcException  neither a device nor a pool, or the device doesn't take `swFormat`.
    SafeBuffer AllocFramesContextBuffer(const FrameSize& size, PixFmt swFormat, int poolSize);
    /// Makes the pool ready, once.
    /// @throws ProcException  no pool, or the device refuses.
    void InitFramesContext();

    /// Gives `frame` a picture of the pool, in place of the one it has. The frame keeps the pool alive. A
    /// failure leaves the frame as it was.
    /// @param frame  not null; its buffers are released, its other fields stay
    /// @throws ProcException  no pool.
    /// @throws Quorva::Exception  there is no picture to be had, as from a pool that isn't ready.
    void AllocFrame(AVFrame* frame) const;
    /// A new frame with a picture of the pool.
    /// @throws  as above, and Core::MemoryException
    SafeFrame AllocFrame(const Conf::ColorSpace& colorSpace) const;

private:
    using Owner = Details::UniquePtr<AVBufferRef, Details::CustomDeleterAVBufferUnref>;

    AVBufferRef* GetDeviceReference() const;

    Owner buffer;
};

}  // namespace Quorva::Proc
