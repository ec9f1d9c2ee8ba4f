/// @file
/// FFmpeg's messages in the pipeline's log.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"

#include <cstdarg>

namespace Quorva::Proc {

TESSADRIN_API void FFMpegLogCallback(void* context, int level, const char* format, va_list arguments);

}  // namespace Quorva::Proc
