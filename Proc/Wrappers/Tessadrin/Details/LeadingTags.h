// Tags that stand before the media in a file.
#pragma once

#include "host/FoundationIO.h"

#include <cstdint>

namespace Quorva::Proc::Details {

/// Returns the position behind the tags at the start of `input`, by the sizes that they claim: it may lie
/// beyond the end. 0 when there are none. Counts APEv2 tags, then ID3v2 tags. Moves the input; reads some
/// bytes of each.
/// @throws Core::IOException  the input's own
uint64_t FindMediaStart(Core::IDataInput& input);

}  // namespace Quorva::Proc::Details
