#include "Proc/Wrappers/Tessadrin/Tessadrin.MemStat.h"

#include "Proc/Wrappers/Tessadrin/Details/MemStatState.h"

#include <fmt/format.h>

namespace Quorva::Proc {

using Details::GetMemStatState;
using Details::MemStatState;

MemStatState& Details::GetMemStatState() noexcept
{
    static constinit MemStatState state;
    return state;
}

std::ostream& operator<<(std::ostream& stream, const MemStatRecord& record)
{
    std::string text = fmt::format("{}: {} bytes in {} of {} allocations, at most {} bytes", record.name,
                                   record.current, record.live, record.allocations, record.peak);
    for (const auto& [size, count] : record.bySize) {
        const auto live = record.liveBySize.find(size);
        text += fmt::format("\n  of {} bytes: {} of {}", size,
                            live == record.liveBySize.end() ? 0 : live->second, count);
    }
    return stream << text;
}

MemStat::MemStat(const char* name) : record(std::make_unique<MemStatRecord>())
{
    record->name = name ? name : "";
}

MemStat::~MemStat() = default;

MemStatRecord MemStat::GetSnapshot() const
{
    const std::lock_guard lock(GetMemStatState().numbers);
    return *record;
}

MemLocker::MemLocker(MemStat& stat, const char*)
{
    MemStatState& state = GetMemStatState();
    state.period.lock();
    const std::lock_guard lock(state.numbers);
    state.record = stat.record.get();
}

MemLocker::~MemLocker()
{
    MemStatState& state = GetMemStatState();
    {
        const std::lock_guard lock(state.numbers);
        state.record = nullptr;
    }
    state.period.unlock();
}

MemLocker& MemLocker::operator=(const MemLocker&) { return *this; }

}  // namespace Quorva::Proc
