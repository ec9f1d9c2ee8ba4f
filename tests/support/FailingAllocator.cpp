#include "tests/support/FailingAllocator.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> live;
// Read by allocations from the program's first instruction on.
constinit thread_local int countdown = 0;  ///< to the allocation that fails; 0 when disarmed
constinit thread_local bool lasting = false;
constinit thread_local bool refused = false;
constinit thread_local long allocations = 0;

bool Refuse() noexcept
{
    if (countdown == 0 || --countdown != 0)
        return false;
    countdown = lasting ? 1 : INT_MAX;
    return refused = true;
}

void* Count(void* block) noexcept
{
    live += block != nullptr;
    ++allocations;
    return block;
}

}  // namespace

void FailingAllocator::Arm(int nth, Mode mode) noexcept
{
    countdown = nth;
    lasting = mode == Mode::Lasting;
    refused = false;
}

bool FailingAllocator::Disarm() noexcept
{
    countdown = 0;
    return refused;
}

long FailingAllocator::GetLiveBlocks() noexcept { return live; }

long FailingAllocator::GetAllocations() noexcept { return allocations; }

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// All forms, as the sanitizers would have their own for the rest.
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return Refuse() ? nullptr : Count(std::malloc(size ? size : 1));
}
void* operator new(size_t size)
{
    void* const block = operator new(size, std::nothrow);
    return block ? block : throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return operator new(size, std::nothrow); }
void operator delete(void* block) noexcept
{
    live -= block != nullptr;
    std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { operator delete(block); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete[](void* block, size_t) noexcept { operator delete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { operator delete(block); }

#else

#pragma GCC visibility push(default)  // the libraries are to find them
extern "C" {

// The C library's own, under names that nothing replaces.
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

void* malloc(size_t size)
{
    if (!Refuse())
        return Count(__libc_malloc(size));
    errno = ENOMEM;
    return nullptr;
}

void* calloc(size_t count, size_t size)
{
    if (!Refuse())
        return Count(__libc_calloc(count, size));
    errno = ENOMEM;
    return nullptr;
}

void* realloc(void* block, size_t size)
{
    if (!block)
        return malloc(size);
    if (size != 0 && Refuse()) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const moved = __libc_realloc(block, size);
    live -= size == 0;  // freed
    return moved;
}

int posix_memalign(void** block, size_t alignment, size_t size)
{
    if (Refuse())
        return ENOMEM;
    *block = Count(__libc_memalign(alignment, size));
    return *block ? 0 : ENOMEM;
}

void* memalign(size_t alignment, size_t size)
{
    void* block;
    errno = posix_memalign(&block, alignment, size);
    return errno ? nullptr : block;
}

void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

void free(void* block)
{
    live -= block != nullptr;
    __libc_free(block);
}

}  // extern "C"
#pragma GCC visibility pop

#endif
