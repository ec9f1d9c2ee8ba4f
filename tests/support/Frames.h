// Pictures to work on.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <gtest/gtest.h>

#include <memory>

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

/// With memory, aligned as FFmpeg likes it, of no defined contents.
inline Frame NewFrame(AVPixelFormat format, int width, int height)
{
    Frame frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}
