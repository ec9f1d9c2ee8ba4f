// The memory statistics of the process.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.MemStat.h"

#include <mutex>

namespace Quorva::Proc::Details {

struct MemStatState {
    std::recursive_mutex period;      ///< held by a MemLocker for its whole life; never taken below the other
    std::recursive_mutex numbers;     ///< guards the pointer, and the record that is current
    MemStatRecord* record = nullptr;  ///< the current one; its MemStat's
};

MemStatState& GetMemStatState() noexcept;

}  // namespace Quorva::Proc::Details
