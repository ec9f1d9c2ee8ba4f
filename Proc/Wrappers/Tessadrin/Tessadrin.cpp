#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"

namespace Quorva::Proc::Details {

namespace {

const Loaded loaded;

}  // namespace

const Loaded& GetLoaded() noexcept { return loaded; }

}  // namespace Quorva::Proc::Details
