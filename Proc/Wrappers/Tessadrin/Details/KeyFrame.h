// The key mark of a frame, which FFmpeg keeps in two places.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc::Details {

/// Sets the flag, and the deprecated field that older code still reads. To read the mark, look at the flag.
inline void SetKeyFrame(AVFrame& frame, bool key) noexcept
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    frame.key_frame = key;
#pragma GCC diagnostic pop
    frame.flags = key ? frame.flags | AV_FRAME_FLAG_KEY : frame.flags & ~AV_FRAME_FLAG_KEY;
}

}  // namespace Quorva::Proc::Details
