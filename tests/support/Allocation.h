// Want of memory, at will.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <climits>
#include <cstddef>

/// While it lives, FFmpeg's allocator refuses more than `bytes` at a time. For the whole process.
class AllocationLimit {
public:
    explicit AllocationLimit(size_t bytes) { av_max_alloc(bytes); }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit() { av_max_alloc(INT_MAX); }  // FFmpeg's own
};
