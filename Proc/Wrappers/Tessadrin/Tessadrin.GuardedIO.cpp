#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <utility>

namespace Quorva::Proc {

namespace {

/// A stream and its cancellation, which thus needs no member of GuardedIO: callers were compiled with its
/// size.
class CancellableInput final : public RefCounted<Core::IDataInput> {
public:
    CancellableInput(boost::intrusive_ptr<Core::IDataInput> inner, const Cancellation& cancellation)
        : cancellation(cancellation), inner(std::move(inner))
    {
    }
    uint64_t Read(uint8_t* buffer, uint64_t size) override { return inner->Read(buffer, size); }
    uint64_t GetSize() override { return inner->GetSize(); }
    uint64_t MoveBy(int64_t offset) override { return inner->MoveBy(offset); }
    void MoveTo(uint64_t position) override { inner->MoveTo(position); }
    const std::string& GetName() const noexcept override { return inner->GetName(); }

    const Cancellation& cancellation;

private:
    const boost::intrusive_ptr<Core::IDataInput> inner;
};

class CancellableOutput final : public RefCounted<Core::IDataOutput> {
public:
    CancellableOutput(boost::intrusive_ptr<Core::IDataOutput> inner, const Cancellation& cancellation)
        : cancellation(cancellation), inner(std::move(inner))
    {
    }
    void Write(const uint8_t* buffer, uint64_t size) override { inner->Write(buffer, size); }
    uint64_t GetSize() override { return inner->GetSize(); }
    void SetSize(uint64_t size) override { inner->SetSize(size); }
    uint64_t MoveBy(int64_t offset) override { return inner->MoveBy(offset); }
    void MoveTo(uint64_t position) override { inner->MoveTo(position); }

    const Cancellation& cancellation;

private:
    const boost::intrusive_ptr<Core::IDataOutput> inner;
};

/// Whether a stream has a cancellation, which requests a stop.
template <class Cancellable, class Stream>
bool IsStopped(const boost::intrusive_ptr<Stream>& stream)
{
    const auto* const cancellable = dynamic_cast<const Cancellable*>(stream.get());
    return cancellable && cancellable->cancellation.IsStopRequested();
}

}  // namespace

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

GuardedIO::GuardedIO(boost::intrusive_ptr<Core::IDataInput> stream, int size, StreamFailure& failure,
                     const Cancellation& cancellation)
    : GuardedIO(MakeRefCounted<CancellableInput>(std::move(stream), cancellation), size, failure)
{
}

GuardedIO::GuardedIO(boost::intrusive_ptr<Core::IDataOutput> stream, bool seekable, int size,
                     StreamFailure& failure, const Cancellation& cancellation)
    : GuardedIO(MakeRefCounted<CancellableOutput>(std::move(stream), cancellation), seekable, size, failure)
{
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
    if (IsStopped<CancellableInput>(self.input))
        return AVERROR_EXIT;
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
    if (IsStopped<CancellableOutput>(self.output))
        return AVERROR_EXIT;
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
    if (IsStopped<CancellableInput>(self.input) || IsStopped<CancellableOutput>(self.output))
        return AVERROR_EXIT;
    try {
        return self.input ? FFSeekRCallback(AsOpaque(self.input.get()), offset, whence)
                          : FFSeekWCallback(AsOpaque(self.output.get()), offset, whence);
    } catch (...) {
        self.failure.Keep();
        return AVERROR(EIO);
    }
}

}  // namespace Quorva::Proc
