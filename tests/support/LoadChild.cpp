// Loads the library at run time, the way a plug-in is loaded. Not linked to it.
// Usage: LoadChild LIBRARY normal|wrong|missing|nomov

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

namespace {

std::string mode;

template <class Function>
Function* Next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

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

// The functions of these names that the library finds: a program's own come before those of libraries.
extern "C" {

TESSADRIN_API const AVPixFmtDescriptor* av_pix_fmt_desc_get(AVPixelFormat format)
{
    const AVPixFmtDescriptor* real = Next(av_pix_fmt_desc_get, "av_pix_fmt_desc_get")(format);
    if (mode == "missing" && format == AV_PIX_FMT_NV12)
        return nullptr;
    if (mode == "wrong" && format == AV_PIX_FMT_RGB24) {
        static AVPixFmtDescriptor wrong;
        wrong = *real;
        wrong.nb_components = 4;
        return &wrong;
    }
    return real;
}

TESSADRIN_API const AVInputFormat* av_demuxer_iterate(void** position)
{
    const auto next = Next(av_demuxer_iterate, "av_demuxer_iterate");
    const AVInputFormat* demuxer = next(position);
    if (mode == "nomov" && demuxer && std::string_view(demuxer->name).starts_with("mov,"))
        demuxer = next(position);
    return demuxer;
}

TESSADRIN_API int avformat_network_init(void)
{
    std::fputs("network on\n", stderr);
    return Next(avformat_network_init, "avformat_network_init")();
}

TESSADRIN_API int avformat_network_deinit(void)
{
    std::fputs("network off\n", stderr);
    return Next(avformat_network_deinit, "avformat_network_deinit")();
}

}  // extern "C"

int main(int argc, char** argv)
try {
    if (argc != 3)
        return 64;
    mode = argv[2];
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
