// Builds the load sequence once, in a process that is made of the library's files but for the one that does
// so while it is loaded; then throws once. Prints seconds on the processor up to main(), for the sequence and
// for the throw; the sequence's allocations and bytes; the bytes that the throw keeps.
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tests/support/FailingAllocator.h"

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

double ProcessSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double HeapBytes() { return static_cast<double>(mallinfo2().uordblks); }

volatile bool wanted = true;  // or else the compiler would know that nothing returns

[[gnu::noinline]] void ThrowAt(int depth)
{
    if (depth > 0)
        ThrowAt(depth - 1);
    else if (wanted)
        Quorva::Proc::Details::Throw<Quorva::Proc::ProcException>("for the first time");
    std::puts("");  // no tail call
}

}  // namespace

int main()
{
    const double toMain = ProcessSeconds();
    const long allocations = FailingAllocator::GetAllocations();
    const double bytes = HeapBytes(), start = ProcessSeconds();
    const Quorva::Proc::Details::Loaded loaded;
    const double load = ProcessSeconds() - start;
    const long allocated = FailingAllocator::GetAllocations() - allocations;
    const double loadBytes = HeapBytes() - bytes;

    const double before = HeapBytes(), throwStart = ProcessSeconds();
    try {
        ThrowAt(18);
    } catch (const Quorva::Proc::ProcException&) {
    }
    const double thrown = ProcessSeconds() - throwStart;
    std::printf("%.9f %.9f %.9f %ld %.0f %.0f\n", toMain, load, thrown, allocated, loadBytes,
                HeapBytes() - before);
}
