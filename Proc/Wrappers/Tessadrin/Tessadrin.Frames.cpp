#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"

#include <memory>
#include <utility>

namespace Quorva::Proc {

namespace {

/// Makes `frame`, copied byte for byte from the place `former`, whole again: `extended_data` usually points
/// into the frame itself. Only sound with more than AV_NUM_DATA_POINTERS planes has an array elsewhere.
void Repoint(AVFrame& frame, const AVFrame& former) noexcept
{
    const bool elsewhere = frame.extended_data != former.data;
    const bool sound = frame.width <= 0 && frame.height <= 0 && frame.data[0];
    if (elsewhere && sound)
        return;
    if (elsewhere)
        av_free(frame.extended_data);  // belongs to the frame, and no one could reach it any more
    frame.extended_data = frame.data;
}

}  // namespace

AVFrameWrapper::AVFrameWrapper() noexcept { av_frame_unref(&frame); }

AVFrameWrapper::AVFrameWrapper(const AVFrame& source) noexcept : AVFrameWrapper()
{
    av_frame_ref(&frame, &source);  // a failure leaves the frame unreferenced, which is how it is reported
}

AVFrameWrapper::AVFrameWrapper(const AVFrameWrapper& other) noexcept : AVFrameWrapper(other.frame) {}

AVFrameWrapper::AVFrameWrapper(AVFrameWrapper&& other) noexcept : AVFrameWrapper() { Swap(other); }

AVFrameWrapper::~AVFrameWrapper() { av_frame_unref(&frame); }

AVFrameWrapper& AVFrameWrapper::operator=(AVFrameWrapper&& other) noexcept
{
    if (this != std::addressof(other))
        AVFrameWrapper(std::move(other)).Swap(*this);
    return *this;
}

AVFrameWrapper& AVFrameWrapper::operator=(const AVFrame& source) noexcept
{
    AVFrameWrapper(source).Swap(*this);
    return *this;
}

AVFrameWrapper& AVFrameWrapper::operator=(const AVFrameWrapper& other) noexcept
{
    return this == std::addressof(other) ? *this : *this = other.frame;
}

void AVFrameWrapper::Swap(AVFrameWrapper& other) noexcept
{
    std::swap(frame, other.frame);
    Repoint(frame, other.frame);
    Repoint(other.frame, frame);
}

}  // namespace Quorva::Proc
