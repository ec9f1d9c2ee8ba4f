#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"

namespace Quorva::Proc {

void Cancellation::RequestStop() noexcept { stop = true; }

void Cancellation::SetDeadline(Clock::time_point time) noexcept
{
    deadline = time.time_since_epoch().count();
}

void Cancellation::SetDeadline(Clock::duration time) noexcept
{
    const Clock::time_point now = Clock::now();
    SetDeadline(time > Clock::time_point::max() - now ? Clock::time_point::max() : now + time);
}

void Cancellation::ClearDeadline() noexcept { deadline = NEVER; }

void Cancellation::Reset() noexcept
{
    ClearDeadline();
    stop = false;
}

bool Cancellation::IsStopRequested() const noexcept
{
    if (stop)
        return true;
    const int64_t time = deadline;
    return time != NEVER && Clock::now().time_since_epoch().count() >= time;
}

AVIOInterruptCB Cancellation::GetInterruptCallback() const noexcept
{
    const auto ask = [](void* self) -> int {
        return static_cast<const Cancellation*>(self)->IsStopRequested();
    };
    return {ask, const_cast<Cancellation*>(this)};  // FFmpeg's pointer isn't const; the object isn't changed
}

}  // namespace Quorva::Proc
