/// @file
/// Owner of one FFmpeg object.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <utility>

namespace Quorva::Proc::Details {

/// Drops one reference.
struct CustomDeleterAVBufferUnref {
    void operator()(AVBufferRef* buffer) const noexcept { av_buffer_unref(&buffer); }
};

/// Closes and frees the context with everything in it.
struct CustomDeleterAVFreeCodecCtx {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
};

/// One pointer to an FFmpeg object, null when empty; `Deleter` is called for any other value. Unlike
/// `std::unique_ptr` it goes where FFmpeg expects the object, or a place for one.
template <class T, class Deleter>
class UniquePtr {
public:
    UniquePtr() noexcept {}  // defaulted, the exported instantiation would leave it out
    /// Takes the object over; null makes an empty owner.
    explicit UniquePtr(T* object) noexcept : pointer(object) {}
    UniquePtr(UniquePtr&& other) noexcept : pointer(other.release()) {}
    UniquePtr& operator=(UniquePtr&& other) noexcept
    {
        reset(other.release());  // from itself: empty first, so that it finds nothing to delete
        return *this;
    }
    ~UniquePtr() { reset(nullptr); }

    T* get() const noexcept { return pointer; }
    operator T*() const noexcept { return pointer; }
    T* operator->() const noexcept { return pointer; }
    /// Where FFmpeg may write a new object.
    /// @pre  the owner is empty; what it holds would be lost.
    T** operator&() noexcept { return &pointer; }

    /// @return  what was held; the caller's from now on
    T* release() noexcept { return std::exchange(pointer, nullptr); }
    /// Takes `fresh` over, then deletes what was held before.
    /// @pre  `fresh` is not what is held.
    void reset(T* fresh) noexcept
    {
        if (T* const former = std::exchange(pointer, fresh))
            Deleter()(former);
    }
    void swap(UniquePtr& other) noexcept { std::swap(pointer, other.pointer); }

private:
    T* pointer = nullptr;
};

extern template class TESSADRIN_API UniquePtr<AVBufferRef, CustomDeleterAVBufferUnref>;

}  // namespace Quorva::Proc::Details
