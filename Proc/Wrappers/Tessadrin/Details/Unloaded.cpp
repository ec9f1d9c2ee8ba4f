// In place of Tessadrin.cpp, for programs that build the load sequence themselves.
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"

#include <cstdlib>

namespace Quorva::Proc::Details {

const Loaded& GetLoaded() noexcept { std::abort(); }

}  // namespace Quorva::Proc::Details
