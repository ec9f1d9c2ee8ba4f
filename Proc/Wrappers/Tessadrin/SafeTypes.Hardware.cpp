#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"

#include "Proc/Wrappers/Tessadrin/Details/KeyFrame.h"

#include <algorithm>
#include <utility>

namespace Quorva::Proc {

using Details::Raise;
using Details::Throw;

namespace {

constexpr int ALIGNMENT = 32;  // row alignment for FFmpeg's SIMD code, in bytes

/// Marks the buffers of SafeFrame's own pictures, as their opaque pointer.
constinit char ownPicture = 0;

/// An AVBufferRef has no type tag. These two structures differ in size from each other and from everything
/// else that FFmpeg's public interface keeps in buffers.
template <class Context>
Context* Contents(const AVBufferRef* buffer)
{
    return buffer && buffer->data && buffer->size == sizeof(Context)
               ? reinterpret_cast<Context*>(buffer->data)
               : nullptr;
}
static_assert(sizeof(AVHWDeviceContext) != sizeof(AVHWFramesContext));

std::vector<AVPixelFormat> ListOf(const AVPixelFormat* formats)
{
    std::vector<AVPixelFormat> list;
    for (; formats && *formats != AV_PIX_FMT_NONE; ++formats)
        list.push_back(*formats);
    return list;
}

void SetColorSpace(AVFrame& frame, const Conf::ColorSpace& colorSpace)
{
    frame.color_primaries = static_cast<AVColorPrimaries>(colorSpace.primaries);
    frame.color_trc = static_cast<AVColorTransferCharacteristic>(colorSpace.transfer);
    frame.colorspace = static_cast<AVColorSpace>(colorSpace.matrix);
}

/// Makes the memory of av_image_alloc() reference-counted. Without a buffer FFmpeg would replace `data` in a
/// frame that it writes to, and leave the memory to an owner that can't know.
/// @return  whether there was memory for the reference
bool CountReferences(AVFrame& frame, AVPixelFormat format, int height)
{
    ptrdiff_t strides[4];
    size_t sizes[4] = {};
    std::ranges::copy_n(frame.linesize, 4, strides);
    // The same layout was accepted by av_image_alloc() before.
    av_image_fill_plane_sizes(sizes, format, height, strides);
    const uint8_t* end = frame.data[0];
    for (int plane = 0; plane < 4 && frame.data[plane]; ++plane)
        end = std::max<const uint8_t*>(end, frame.data[plane] + sizes[plane]);
    frame.buf[0] = av_buffer_create(frame.data[0], static_cast<size_t>(end - frame.data[0]),
                                    av_buffer_default_free, &ownPicture, 0);
    return frame.buf[0];
}

/// av_hwframe_get_buffer() overwrites the references that a frame holds without releasing them.
void ReleaseBuffers(AVFrame& frame)
{
    for (AVBufferRef*& buffer : frame.buf)
        av_buffer_unref(&buffer);
    for (int i = 0; i < frame.nb_extended_buf; ++i)
        av_buffer_unref(&frame.extended_buf[i]);
    av_freep(&frame.extended_buf);
    frame.nb_extended_buf = 0;
    av_buffer_unref(&frame.hw_frames_ctx);
}

/// Moves what av_hwframe_get_buffer() sets, in place of the picture that `to` holds.
void MovePicture(AVFrame& from, AVFrame& to)
{
    ReleaseBuffers(to);
    if (to.extended_data != to.data)
        av_freep(&to.extended_data);
    std::ranges::swap_ranges(from.buf, to.buf);
    std::ranges::copy(from.data, to.data);
    std::ranges::copy(from.linesize, to.linesize);
    to.extended_data = to.data;
    to.hw_frames_ctx = std::exchange(from.hw_frames_ctx, nullptr);
    to.format = from.format;
    to.width = from.width;
    to.height = from.height;
}

}  // namespace

SafeFrame::SafeFrame(const Conf::ColorSpace& colorSpace, AVPixelFormat format, int width, int height,
                     int sarNum,
                     int sarDen)
    : SafeFrame()  // from here on the destructor frees the frame, whatever is thrown
{
    const bool allocated =
        av_image_alloc(frame->data, frame->linesize, width, height, format, ALIGNMENT) >= 0;
    if (!allocated || !CountReferences(*frame, format, height)) {
        av_freep(&frame->data[0]);
        const int size = av_image_get_buffer_size(format, width, height, ALIGNMENT);
        Raise(Core::MemoryException("Unable to allocate memory for AVFrame data",
                                    static_cast<uint64_t>(std::max(size, 0)))
              << Core::MemoryException::TagFrameWidth(width)
              << Core::MemoryException::TagFrameHeight(height));
    }
    SetColorSpace(*frame, colorSpace);
    frame->format = format;
    frame->width = width;
    frame->height = height;
    Details::SetKeyFrame(*frame, false);
    frame->sample_aspect_ratio = {sarNum, sarDen};
}

bool SafeFrame::OwnsPicture(const AVFrame* frame) noexcept
{
    return frame && frame->buf[0] && av_buffer_get_opaque(frame->buf[0]) == &ownPicture;
}

SafeBuffer::SafeBuffer(AVBufferRef* source) : buffer(av_buffer_ref(source))
{
    if (buffer && !Contents<AVHWDeviceContext>(buffer) && !Contents<AVHWFramesContext>(buffer))
        Throw<ProcException>("The buffer does not contain valid hardware context");
}

SafeBuffer::SafeBuffer(AVHWDeviceType type, const char* device, AVDictionary* options, int flags)
{
    if (av_hwdevice_ctx_create(&buffer, type, device, options, flags) != 0 || !buffer)
        Throw<ProcException>("Can't create hardware device context");
}

const AVHWDeviceContext* SafeBuffer::GetDeviceContext() const
{
    if (const auto* device = Contents<AVHWDeviceContext>(buffer))
        return device;
    const auto* frames = Contents<AVHWFramesContext>(buffer);
    if (!frames)
        Throw<ProcException>("The buffer does not contain a hardware device context");
    return frames->device_ctx;
}

AVHWFramesContext* SafeBuffer::GetFramesContext()
{
    return const_cast<AVHWFramesContext*>(std::as_const(*this).GetFramesContext());
}

const AVHWFramesContext* SafeBuffer::GetFramesContext() const
{
    const auto* frames = Contents<AVHWFramesContext>(buffer);
    if (!frames)
        Throw<ProcException>("The buffer does not contain a hardware frame context");
    return frames;
}

SafeBuffer SafeBuffer::GetDeviceContextBuffer() { return SafeBuffer(GetFramesContext()->device_ref); }

/// FFmpeg's functions about devices take a pool's reference for a device's, and crash.
AVBufferRef* SafeBuffer::GetDeviceReference() const
{
    const auto* frames = Contents<AVHWFramesContext>(buffer);
    return frames ? frames->device_ref : buffer.get();
}

std::unique_ptr<HWFramesConstraints> SafeBuffer::GetFramesConstraints(const void* hwconfig)
{
    GetDeviceContext();
    AVHWFramesConstraints* found = av_hwdevice_get_hwframe_constraints(GetDeviceReference(), hwconfig);
    if (!found)
        return nullptr;
    const auto free = [](AVHWFramesConstraints* constraints) { av_hwframe_constraints_free(&constraints); };
    const std::unique_ptr<AVHWFramesConstraints, decltype(free)> owner(found);
    return std::make_unique<HWFramesConstraints>(ListOf(found->valid_hw_formats),
                                                 ListOf(found->valid_sw_formats), found->min_width,
                                                 found->min_height, found->max_width, found->max_height);
}

SafeBuffer SafeBuffer::AllocFramesContextBuffer(const FrameSize& size, PixFmt swFormat, int poolSize)
{
    const auto constraints = GetFramesConstraints(nullptr);
    if (!constraints || constraints->validHwFormats.empty() || constraints->validSwFormats.empty())
        Throw<ProcException>("Can't retrieve supported pixel formats");
    SafeBuffer result;
    result.buffer.reset(av_hwframe_ctx_alloc(GetDeviceReference()));
    if (!result)
        Throw<ProcException>("Can't create hardware frames context");
    AVHWFramesContext& frames = *result.GetFramesContext();
    frames.format = constraints->validHwFormats.front();
    frames.sw_format = static_cast<AVPixelFormat>(swFormat);
    if (std::ranges::find(constraints->validSwFormats, frames.sw_format) == constraints->validSwFormats.end())
        Throw<ProcException>("Unsupported pixel format");
    frames.initial_pool_size = poolSize;
    frames.width = size.width;
    frames.height = size.height;
    return result;
}

void SafeBuffer::InitFramesContext()
{
    GetFramesContext();
    if (av_hwframe_ctx_init(buffer) != 0)
        Throw<ProcException>("Can't initialize hardware frames context");
}

void SafeBuffer::AllocFrame(AVFrame* frame) const
{
    GetFramesContext();
    // A failure releases what it had put into the frame and leaves pointers to it.
    const auto free = [](AVFrame* unused) { av_frame_free(&unused); };
    const std::unique_ptr<AVFrame, decltype(free)> fresh(av_frame_alloc());
    const int result = fresh ? av_hwframe_get_buffer(buffer, fresh.get(), 0) : AVERROR(ENOMEM);
    if (result == AVERROR(ENOMEM))
        Throw<Exception>("Not enough memory to create hardware frame");
    if (result < 0)
        Throw<Exception>("Can't create hardware frame, error = {}", result);
    MovePicture(*fresh, *frame);
}

SafeFrame SafeBuffer::AllocFrame(const Conf::ColorSpace& colorSpace) const
{
    SafeFrame frame;
    AllocFrame(frame.get());
    SetColorSpace(*frame.get(), colorSpace);
    return frame;
}

}  // namespace Quorva::Proc
