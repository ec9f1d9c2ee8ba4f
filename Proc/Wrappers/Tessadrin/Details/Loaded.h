// What the library builds while it is loaded.
#pragma once

#include "Proc/Wrappers/Tessadrin/Details/CodecMaps.h"
#include "Proc/Wrappers/Tessadrin/Details/Selection.h"

namespace Quorva::Proc::Details {

/// The load sequence: members are built from top to bottom and dropped from bottom to top.
/// No other object of the library has a dynamic initialiser.
struct Loaded {
    CodecMaps codecs;
    Selection selection;
};

/// The one instance; complete before any caller of the library runs, read-only afterwards.
const Loaded& GetLoaded() noexcept;

}  // namespace Quorva::Proc::Details
