#include "host/RefCounting.h"

namespace Quorva {

IRefCountable::~IRefCountable() = default;

void intrusive_ptr_add_ref(const IRefCountable* object) noexcept { object->AddRef(); }
void intrusive_ptr_release(const IRefCountable* object) noexcept { object->Release(); }

unsigned int RefCountImpl::AddRefImpl() const noexcept
{
    // A new reference is made from one that exists, which already ordered what came before.
    return count.fetch_add(1, std::memory_order_relaxed) + 1;
}

unsigned int RefCountImpl::ReleaseImpl() const noexcept
{
    unsigned int now = count.load(std::memory_order_relaxed);
    while (now != 0 &&
           !count.compare_exchange_weak(now, now - 1, std::memory_order_acq_rel, std::memory_order_relaxed)) {
    }
    return now == 0 ? 0 : now - 1;
}

}  // namespace Quorva
