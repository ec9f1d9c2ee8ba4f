#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"

#include <cstdio>
#include <exception>

namespace Quorva::Proc::Details {

namespace {

/// A load that fails ends the process here, with the reason. Thrown on, the exception would reach a caller of
/// dlopen() with the loader's lock held and a half-built library callable. The host's terminate handler finds
/// it as the current exception, with all that it carries.
Loaded Load() noexcept
{
    try {
        return Loaded();
    } catch (...) {
        std::fprintf(stderr, "Tessadrin can't be loaded: %s.\n", DescribeLoadFailure().c_str());
        std::terminate();
    }
}

const Loaded loaded = Load();

}  // namespace

const Loaded& GetLoaded() noexcept { return loaded; }

}  // namespace Quorva::Proc::Details
