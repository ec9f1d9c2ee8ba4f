/// @file
/// FFmpeg's messages in the pipeline's log.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"

#include <cstdarg>

namespace Quorva::Proc {

/// Writes one message of FFmpeg as one record: level word, source, ": " and at most 1023 bytes of text. The
/// library installs it with av_log_set_callback() while it loads and leaves it there; it may be called on any
/// thread until the process ends.
///
/// Dropped are messages above av_log_get_level(), a few known to be noise, and whatever came with the same
/// format string within the last five seconds. FFmpeg's errors and worse become ERROR records, none of which
/// ends the process, its warnings WARNING records; the rest become INFO records where FLAGS_v is at least 31.
///
/// A message that there is no memory for is lost.
///
/// A sink of the logging library must not throw, as that library's own callers would not survive it: it ends
/// the process. One that logs through FFmpeg in turn must do so in WaitTillSent(), on the thread it is called
/// on: send() runs under that library's own lock.
///
/// A sink must not fork(): the bridge's lock is held, and the child couldn't release it.
///
/// @param context    null, or FFmpeg's object whose first member is its AVClass
/// @param level      AV_LOG_*; colour bits are ignored
/// @param format     as of printf; null is ignored
/// @throws std::system_error  a lock cannot be taken.
TESSADRIN_API void FFMpegLogCallback(void* context, int level, const char* format, va_list arguments);

}  // namespace Quorva::Proc
