/// @file
/// FFmpeg's input and output over host streams, for those who want no exception to pass through FFmpeg.
///
/// What a stream throws ends at the callback: it is kept, FFmpeg learns of an input or output error, and
/// returns in its own way, with nothing lost and nothing half done. The caller then asks for the failure:
///
///     Proc::StreamFailure failure;
///     Proc::GuardedIO io(stream, Proc::GuardedIO::SIZE, failure);
///     context->pb = io.Get();
///     const int result = av_write_trailer(context);
///     failure.Check();  // throws what the stream threw
///
/// With the bare callbacks of Tessadrin.CustomIO.h a trailer must not be written after a throw. Here it may:
/// once a stream has failed, nothing is written any more, as what comes after a hole is of no use.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"
#include "host/FoundationIO.h"

#include <exception>

namespace Quorva::Proc {

/// What the streams of one file threw first. One thread at a time.
class TESSADRIN_API StreamFailure {
public:
    StreamFailure() = default;
    StreamFailure(const StreamFailure&) = delete;
    StreamFailure& operator=(const StreamFailure&) = delete;

    /// Whether a stream has thrown.
    bool IsSet() const noexcept { return first != nullptr; }
    /// @throws  what was kept, if anything was; it stays kept.
    void Check() const;
    /// For catch blocks: keeps the exception that is being handled, unless there is one already.
    void Keep() noexcept;

private:
    std::exception_ptr first;
};

/// Owns an AVIOContext and its buffer, and a reference to the stream below. Neither copied nor moved: FFmpeg
/// holds a pointer to it, in AVIOContext::opaque.
class TESSADRIN_API GuardedIO {
public:
    static constexpr int SIZE = 256 * 1024;  ///< bytes; a buffer that makes up for the calls

    /// For reading, from the stream's present position.
    /// @param stream   not null
    /// @param size     of the buffer, bytes
    /// @param failure  keeps what streams throw; outlives this object
    /// @throws Core::MemoryException  context or buffer can't be allocated.
    GuardedIO(boost::intrusive_ptr<Core::IDataInput> stream, int size, StreamFailure& failure);
    /// For writing.
    /// @param seekable  whether FFmpeg may go back, as in a file and not in a pipe
    GuardedIO(boost::intrusive_ptr<Core::IDataOutput> stream, bool seekable, int size,
              StreamFailure& failure);
    /// As the first two, and once `cancellation` requests a stop, nothing reaches the stream any more: reads,
    /// writes and seeks return AVERROR_EXIT. That isn't a failure of the stream: `failure` keeps nothing.
    /// @param cancellation  outlives this object; asked before each call of the stream
    GuardedIO(boost::intrusive_ptr<Core::IDataInput> stream, int size, StreamFailure& failure,
              const Cancellation& cancellation);
    GuardedIO(boost::intrusive_ptr<Core::IDataOutput> stream, bool seekable, int size, StreamFailure& failure,
              const Cancellation& cancellation);
    GuardedIO(const GuardedIO&) = delete;
    GuardedIO& operator=(const GuardedIO&) = delete;
    /// Frees both. What FFmpeg has not written is lost: call `avio_flush` before, or write the trailer.
    ~GuardedIO();

    AVIOContext* Get() const noexcept { return context; }
    AVIOContext* operator->() const noexcept { return context; }
    /// The object that a context belongs to.
    static GuardedIO& Of(const AVIOContext* context) { return *static_cast<GuardedIO*>(context->opaque); }

private:
    void Allocate(int size, bool writing, bool seekable);
    static int Read(void* opaque, uint8_t* buffer, int size);
    static int Write(void* opaque, const uint8_t* buffer, int size);
    static int64_t Seek(void* opaque, int64_t offset, int whence);

    boost::intrusive_ptr<Core::IDataInput> input;  ///< one of these two
    boost::intrusive_ptr<Core::IDataOutput> output;
    StreamFailure& failure;
    AVIOContext* context = nullptr;  ///< owned, and its buffer
};

}  // namespace Quorva::Proc
