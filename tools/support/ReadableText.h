/// @file
/// Subtitle files in any character set.
#pragma once

#include "tools/support/OpenedInput.h"

namespace Quorva::Tool {

/// `input` as UTF-8 where it is a text file of subtitles in another character set, or else unchanged. The set
/// is detected once for the whole file, as Core::CharsetEncoding does. Files above 16 MiB are unchanged.
/// @throws Core::IOException  the file can't be read
DetectedInput WithReadableText(DetectedInput input);

}  // namespace Quorva::Tool
