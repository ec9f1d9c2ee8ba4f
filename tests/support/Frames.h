// Pictures to work on.
#pragma once

#include "tests/support/Owned.h"

#include <gtest/gtest.h>

using Frame = Owned<AVFrame>;

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
