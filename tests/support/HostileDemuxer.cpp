// Preloaded, takes the place of a function of FFmpeg's, and does to files what their names say.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavformat/avformat.h>

__attribute__((visibility("default"))) int avformat_find_stream_info(AVFormatContext* context,
                                                                     AVDictionary** options)
{
    const auto isCalled = [context](const char* name) { return std::strstr(context->url, name) != nullptr; };
    if (isCalled("crash"))
        *static_cast<volatile int*>(nullptr) = 1;
    for (volatile unsigned i = 0; isCalled("spin");)
        i = i + 1;
    while (isCalled("eat"))
        *static_cast<volatile char*>(std::malloc(1 << 16)) = 1;
    const auto original =
        reinterpret_cast<decltype(&avformat_find_stream_info)>(dlsym(RTLD_NEXT, "avformat_find_stream_info"));
    return original(context, options);
}
}
