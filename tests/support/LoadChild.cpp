// Loads the library at run time, the way a plug-in is loaded: LoadChild, which isn't linked to it. StartChild
// is the same program linked to it, so that the library is loaded when it starts.
// Usage: LoadChild LIBRARY; support/OtherFFmpeg.cpp is part of it.

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/Exception.h"

#include <dlfcn.h>
#include <boost/core/demangle.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/throw_exception.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>

namespace {

/// As a host's crash reporter would: what was thrown and where, and whether the call stack is there.
[[noreturn]] void ReportAndAbort()
{
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::exception& e) {
        const std::string* const attached = boost::get_error_info<Quorva::TagCallStack>(e);
        const std::string stack = attached ? "\n" + *attached : e.what();
        std::fprintf(stderr, "handler: %s in %s, call stack %s\n",
                     boost::core::demangle(typeid(e).name()).c_str(),
                     boost::get_throw_location(e).function_name(),
                     stack.find("\n#0 ") == std::string::npos ? "lost" : "kept");
    }
    std::abort();
}

/// Called before the initialisers of shared libraries.
[[gnu::section(".preinit_array"), gnu::used]] void (*installHandler)() = [] {
    std::set_terminate(ReportAndAbort);
};

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
