/// @file
/// An allocator for the whole program that can be told to fail. In a plain build it is the C library's malloc
/// family that is replaced, and with it FFmpeg's and every other library's memory; sanitizers have replaced
/// that already, so there it is `operator new` alone.
#pragma once

#include <cstddef>

namespace FailingAllocator {

enum class Mode { Once, Lasting };

/// From now on the allocations of this thread are counted, and the `nth` fails; when Lasting, so do all after
/// it.
void Arm(int nth, Mode mode) noexcept;
/// Ends that.
/// @return  whether an allocation was refused
bool Disarm() noexcept;

/// Blocks of the process that were allocated and not freed, as far as this allocator sees them.
long GetLiveBlocks() noexcept;

/// Allocations of this thread so far.
long GetAllocations() noexcept;

}  // namespace FailingAllocator
