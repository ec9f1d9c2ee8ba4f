#include "host/Exception.h"

#include <fmt/format.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <unordered_map>

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

struct NameCache {
    std::unordered_map<const void*, std::string> names;
    unsigned long long unloads = 0;
};

constinit std::mutex cacheMutex;

/// Never destroyed: exceptions are thrown during exit as well.
NameCache& GetCache()
{
    static NameCache& cache = *new NameCache;
    return cache;
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
    std::string text;
    const std::lock_guard lock(cacheMutex);
    NameCache& cache = GetCache();
    if (cache.unloads != unloads) {
        cache.names.clear();
        cache.unloads = unloads;
    }
    for (void** frame = first; frame != end; ++frame) {
        auto found = cache.names.find(*frame);
        if (found == cache.names.end())
            found = cache.names.emplace(*frame, DescribeAddress(*frame)).first;
        fmt::format_to(std::back_inserter(text), "#{:<3} {:#018x} {}\n", frame - first,
                       reinterpret_cast<uintptr_t>(*frame), found->second);
    }
    return text;
}

}  // namespace Quorva
