#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <utility>

namespace Quorva::Proc {

void StreamFailure::Check() const
{
    if (first)
        std::rethrow_exception(first);
}

void StreamFailure::Keep() noexcept
{
    if (!first)
        first = std::current_exception();
}

GuardedIO::GuardedIO(boost::intrusive_ptr<Core::IDataInput> stream, int size, StreamFailure& failure)
    : input(std::move(stream)), failure(failure)
{
    Allocate(size, false, true);
}

GuardedIO::GuardedIO(boost::intrusive_ptr<Core::IDataOutput> stream, bool seekable, int size,
                     StreamFailure& failure)
    : output(std::move(stream)), failure(failure)
{
    Allocate(size, true, seekable);
}

void GuardedIO::Allocate(int size, bool writing, bool seekable)
{
    auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<size_t>(size)));
    if (buffer)
        context = avio_alloc_context(buffer, size, writing, this, writing ? nullptr : Read,
                                     writing ? Write : nullptr, seekable ? Seek : nullptr);
    if (!context) {
        av_free(buffer);
        Details::Raise(Core::MemoryException("Unable to allocate memory for input and output",
                                             static_cast<uint64_t>(size)));
    }
}

GuardedIO::~GuardedIO()
{
    av_freep(&context->buffer);  // FFmpeg may have replaced the one it was given
    avio_context_free(&context);
}

int GuardedIO::Read(void* opaque, uint8_t* buffer, int size)
{
    auto& self = *static_cast<GuardedIO*>(opaque);
    try {
        return FFReadCallback(AsOpaque(self.input.get()), buffer, size);
    } catch (...) {
        self.failure.Keep();
        return AVERROR(EIO);
    }
}

int GuardedIO::Write(void* opaque, const uint8_t* buffer, int size)
{
    auto& self = *static_cast<GuardedIO*>(opaque);
    if (self.failure.IsSet())
        return AVERROR(EIO);
    try {
        return FFWriteCallback(AsOpaque(self.output.get()), buffer, size);
    } catch (...) {
        self.failure.Keep();
        return AVERROR(EIO);
    }
}

int64_t GuardedIO::Seek(void* opaque, int64_t offset, int whence)
{
    auto& self = *static_cast<GuardedIO*>(opaque);
    if (self.output && self.failure.IsSet())
        return AVERROR(EIO);
    try {
        return self.input ? FFSeekRCallback(AsOpaque(self.input.get()), offset, whence)
                          : FFSeekWCallback(AsOpaque(self.output.get()), offset, whence);
    } catch (...) {
        self.failure.Keep();
        return AVERROR(EIO);
    }
}

}  // namespace Quorva::Proc
