// What the library builds while it is loaded.
#pragma once

#include "Proc/Wrappers/Tessadrin/Details/CodecMaps.h"
#include "Proc/Wrappers/Tessadrin/Details/FFmpegSetup.h"
#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/OutputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/Selection.h"

namespace Quorva::Proc::Details {

/// The load sequence: members are built from top to bottom and dropped from bottom to top.
/// No other object of the library has a dynamic initialiser.
struct Loaded {
    CodecMaps codecs;
    Selection selection;
    FFmpegSetup ffmpeg;
    // The error texts, the log bridge's locks, the MP4 object types: constant data, nothing to build.
    InputCatalogue inputs;
    OutputCatalogue outputs;
};

/// The one instance; complete before any caller of the library runs, read-only afterwards.
const Loaded& GetLoaded() noexcept;

}  // namespace Quorva::Proc::Details
