// Lets FFmpeg run out of memory.
#pragma once

extern "C" {
#include <libavutil/mem.h>
}

#include <climits>
#include <cstddef>

/// While it lives, FFmpeg gets no more than `bytes` at once.
class ScarceMemory {
public:
    explicit ScarceMemory(size_t bytes) { av_max_alloc(bytes); }
    ~ScarceMemory() { av_max_alloc(INT_MAX); }  // FFmpeg's own limit
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};
