#include "host/Exception.h"

#include <fmt/format.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace Quorva {
namespace {

constexpr int MAX_DEPTH = 128;  // innermost frames; what lies further out rarely explains a failure

/// "function+0x1f (library)", or what of it is known.
std::string DescribeAddress(const void* address)
{
    const auto value = reinterpret_cast<uintptr_t>(address);
    Dl_info info{};
    // The address is where the call returns to, which may be past the function's end when the callee doesn't
    // return; the call itself is before it.
    if (dladdr(reinterpret_cast<const void*>(value - 1), &info) == 0)
        return "(unknown)";
    std::string library = info.dli_fname ? info.dli_fname : "";
    library.erase(0, library.rfind('/') + 1);
    if (!info.dli_sname)
        return fmt::format("{}+{:#x}", library, value - reinterpret_cast<uintptr_t>(info.dli_fbase));
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
    return fmt::format("{}+{:#x} ({})", readable ? readable.get() : info.dli_sname,
                       value - reinterpret_cast<uintptr_t>(info.dli_saddr), library);
}

/// How many libraries have been unloaded so far: their addresses may come to mean something else.
unsigned long long UnloadCount()
{
    unsigned long long count = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            *static_cast<unsigned long long*>(result) = info->dlpi_subs;
            return 1;  // the first object carries the counter, as every other does
        },
        &count);
    return count;
}

/// A whole call stack, as programs throw at the same place again and again.
struct KnownStack {
    std::vector<void*> frames;
    std::string text;
};

struct NameCache {
    std::unordered_map<const void*, std::string> names;
    std::array<KnownStack, 16> stacks;  ///< the last ones, each at a place that its addresses choose
    unsigned long long unloads = 0;
};

constinit std::mutex cacheMutex;

/// Never destroyed: exceptions are thrown during exit as well.
NameCache& GetCache()
{
    static NameCache& cache = *new NameCache;
    return cache;
}

size_t PlaceOf(void* const* first, void* const* end)
{
    size_t place = 0;
    for (; first != end; ++first)
        place = (place ^ reinterpret_cast<uintptr_t>(*first)) * 0x9e3779b97f4a7c15;
    return place >> 32;
}

}  // namespace

__attribute__((noinline)) std::string GetCallStack()
{
    void* frames[MAX_DEPTH];
    const int depth = backtrace(frames, MAX_DEPTH);
    // Our own frame, and those of tools that stand between us and backtrace(), are of no interest.
    void** const end = frames + std::max(depth, 0);
    void** first = std::find(frames + 0, end, __builtin_return_address(0));
    if (first == end)
        first = std::min(frames + 1, end);
    if (first == end)
        return "#0 (no call stack)\n";

    const unsigned long long unloads = UnloadCount();
    const std::lock_guard lock(cacheMutex);
    NameCache& cache = GetCache();
    if (cache.unloads != unloads) {
        cache.names.clear();
        cache.stacks = {};
        cache.unloads = unloads;
    }
    KnownStack& known = cache.stacks[PlaceOf(first, end) % cache.stacks.size()];
    if (std::ranges::equal(std::ranges::subrange(first, end), known.frames))
        return known.text;

    std::string text;
    for (void** frame = first; frame != end; ++frame) {
        auto found = cache.names.find(*frame);
        if (found == cache.names.end())
            found = cache.names.emplace(*frame, DescribeAddress(*frame)).first;
        fmt::format_to(std::back_inserter(text), "#{:<3} {:#018x} {}\n", frame - first,
                       reinterpret_cast<uintptr_t>(*frame), found->second);
    }
    known = KnownStack{std::vector<void*>(first, end), text};
    return text;
}

}  // namespace Quorva
