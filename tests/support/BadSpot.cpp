// To be preloaded: a file with a spot that can't be read, as on a disk that decays.
//
// BAD_SPOT is "BEGIN END LASTING SUFFIX": the bytes, whether every attempt fails or the first one alone, and
// the end of the file's name.
#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

struct Spot {
    long begin = 0, end = 0;
    int lasting = 0;
    char suffix[64] = "";
};

Spot& GetSpot()
{
    static Spot spot = [] {
        Spot read;
        const char* const text = std::getenv("BAD_SPOT");
        if (!text ||
            std::sscanf(text, "%ld %ld %d %63s", &read.begin, &read.end, &read.lasting, read.suffix) != 4)
            std::abort();
        return read;
    }();
    return spot;
}

bool IsBad(int descriptor, size_t size, off_t at)
{
    Spot& spot = GetSpot();
    if (at >= spot.end || at + static_cast<off_t>(size) <= spot.begin)
        return false;
    char link[64], path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, path, sizeof path);
    if (length < 0 || !std::string_view(path, static_cast<size_t>(length)).ends_with(spot.suffix))
        return false;
    if (!spot.lasting)
        spot.begin = spot.end = 0;
    return true;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t pread(int descriptor, void* buffer, size_t size,
                                                                off_t at)
{
    if (IsBad(descriptor, size, at)) {
        errno = EIO;
        return -1;
    }
    static const auto real = reinterpret_cast<decltype(&pread)>(dlsym(RTLD_NEXT, "pread"));
    return real(descriptor, buffer, size, at);
}
