// The key mark of a frame, which FFmpeg keeps in two places.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc::Details {

/// Sets the flag, and the deprecated field that older code still reads.
inline void SetKeyFrame(AVFrame& frame, bool key) noexcept
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    frame.key_frame = key;
#pragma GCC diagnostic pop
    frame.flags = key ? frame.flags | AV_FRAME_FLAG_KEY : frame.flags & ~AV_FRAME_FLAG_KEY;
}

/// Whether the flag is set, or the field, which may be all that older code sets.
inline bool IsKeyFrame(const AVFrame& frame) noexcept
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return frame.flags & AV_FRAME_FLAG_KEY || frame.key_frame;
#pragma GCC diagnostic pop
}

}  // namespace Quorva::Proc::Details
