// Loads the library at run time, the way a plug-in is loaded. Not linked to it.
// Usage: LoadChild LIBRARY; support/OtherFFmpeg.cpp is part of it.

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

struct Farewell {
    ~Farewell() { av_log(nullptr, AV_LOG_ERROR, "from a static destructor\n"); }
};

/// Built before the library is loaded, and so destroyed after it.
const Farewell farewell;

bool LoadAndUnload(const char* library)
{
    // By pointer: dlopen() is declared to throw nothing, which would end the process for an exception that
    // escapes.
    void* (*volatile load)(const char*, int) = dlopen;
    void* handle = load(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "%s\n", dlerror());
        return false;
    }
    return dlclose(handle) == 0;
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc != 2)
        return 64;
    // Registered before the library is loaded, and so called after its tables are gone.
    std::atexit([] { av_log(nullptr, AV_LOG_ERROR, "from atexit\n"); });
    for (int times = 0; times < 2; ++times)
        if (!LoadAndUnload(argv[1]))
            return 1;
    av_log(nullptr, AV_LOG_ERROR, "after unload\n");
    std::fputs("end of main\n", stderr);
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "escaped: %s\n", e.what());
    return 2;
}
