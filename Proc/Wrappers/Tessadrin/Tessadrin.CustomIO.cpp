#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string_view>

namespace Quorva::Proc {

namespace {

/// FFmpeg's positions are signed.
int64_t ToFFmpeg(uint64_t position)
{
    return position > uint64_t{std::numeric_limits<int64_t>::max()} ? -1 : static_cast<int64_t>(position);
}

template <class Stream>
int64_t MoveToEnd(Stream& stream)
{
    const int64_t end = ToFFmpeg(stream.GetSize());
    if (end >= 0)
        stream.MoveTo(static_cast<uint64_t>(end));
    return end;
}

/// Skipping doesn't help: nothing is there, or someone wants an end.
bool IsFinal(int error)
{
    return error == AVERROR(ENOENT) || error == AVERROR(ENXIO) || error == AVERROR(ENODEV) ||
           error == AVERROR_EOF || error == AVERROR_EXIT;
}

/// Whether the caller has requested a stop, which some demuxers report as an error of another kind.
bool IsStopped(const AVFormatContext& context)
{
    const AVIOInterruptCB& ask = context.interrupt_callback;
    return (context.pb && context.pb->error == AVERROR_EXIT) || (ask.callback && ask.callback(ask.opaque));
}

int64_t GetLength(AVIOContext* io)
{
    const int64_t size = avio_size(io);
    return size >= 0 ? size : avio_seek(io, 0, SEEK_CUR);
}

/// An error makes FFmpeg believe that the end is reached as well, and then it doesn't try to read.
void ForgetEnd(AVIOContext* io)
{
    if (io)
        io->eof_reached = 0;
}

constexpr int retryLimit = 20;
constexpr int64_t skipStep = 1024;         // bytes
constexpr int64_t shortestRest = 102'400;  // bytes; with less ahead, an error is the end

/// Where `mark` comes next.
/// @return  its place, INT64_MAX when there is none, -1 when that can't be told
int64_t FindMark(AVIOContext* io, int64_t from, std::string_view mark)
{
    ForgetEnd(io);
    if (avio_seek(io, from, SEEK_SET) < 0)
        return -1;
    std::array<char, 32'768> piece;
    size_t kept = 0;  // of the piece before, which may end within the mark
    for (int64_t at = from;;) {
        const int count = avio_read(io, reinterpret_cast<unsigned char*>(piece.data() + kept),
                                    static_cast<int>(piece.size() - kept));
        if (count <= 0)
            return count == AVERROR_EOF || count == 0 ? INT64_MAX : -1;
        const std::string_view seen(piece.data(), kept + static_cast<size_t>(count));
        if (const size_t found = seen.find(mark); found != seen.npos)
            return at + static_cast<int64_t>(found);
        kept = std::min(seen.size(), mark.size() - 1);
        at += static_cast<int64_t>(seen.size() - kept);
        std::copy_n(seen.end() - static_cast<ptrdiff_t>(kept), kept, piece.begin());
    }
}

/// Steps that can be left out. Ogg's demuxer looks for a page in the 64 KiB ahead of where it stands, at
/// every step, in vain as long as none begins there: in 40 MB of anything else that is 40,000 times.
/// @param position  of the next step
/// @return          that of the last step before the next page begins, or of the last step there is
int64_t LastVainStep(AVFormatContext* context, int64_t position, int64_t length)
{
    if (!context->iformat || !context->iformat->name || std::string_view(context->iformat->name) != "ogg")
        return position;
    const int64_t page = FindMark(context->pb, position, "OggS");
    if (page < 0)
        return position;
    const int64_t last = (length - shortestRest - 1 - (position - skipStep)) / skipStep;
    return position + skipStep * std::min((page - position) / skipStep, last);
}

}  // namespace

int FFReadCallback(void* opaque, uint8_t* buffer, int size)
{
    if (!opaque || !buffer || size <= 0)
        return AVERROR_EOF;
    auto& stream = *static_cast<Core::IDataInput*>(opaque);
    const uint64_t count = Core::CheckedRead(stream, buffer, static_cast<uint64_t>(size));
    return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

int64_t FFSeekRCallback(void* opaque, int64_t offset, int whence)
{
    if (!opaque || offset < 0)
        return -1;
    auto& stream = *static_cast<Core::IDataInput*>(opaque);
    switch (whence) {
        case SEEK_SET:
            stream.MoveTo(static_cast<uint64_t>(offset));
            return offset;
        case SEEK_CUR:
            return ToFFmpeg(stream.MoveBy(offset));
        case SEEK_END:
            return MoveToEnd(stream);
        case AVSEEK_SIZE:
            return ToFFmpeg(stream.GetSize());
        default:
            return -1;
    }
}

int FFWriteCallback(void* opaque, const uint8_t* buffer, int size)
{
    if (!opaque || !buffer || size <= 0)
        return -1;
    static_cast<Core::IDataOutput*>(opaque)->Write(buffer, static_cast<uint64_t>(size));
    return size;
}

int64_t FFSeekWCallback(void* opaque, int64_t offset, int whence)
{
    if (!opaque || offset < 0)
        return -1;
    auto& stream = *static_cast<Core::IDataOutput*>(opaque);
    switch (whence) {
        case SEEK_SET:
            if (static_cast<uint64_t>(offset) > stream.GetSize())
                stream.SetSize(static_cast<uint64_t>(offset));
            stream.MoveTo(static_cast<uint64_t>(offset));
            return offset;
        case SEEK_CUR:
            return ToFFmpeg(stream.MoveBy(offset));
        case SEEK_END:
            return MoveToEnd(stream);
        case AVSEEK_SIZE:
            return ToFFmpeg(stream.GetSize());
        default:
            return -1;
    }
}

namespace {

/// Goes on where FFmpeg gave a packet after an error, or none; kept out of the way of good input.
/// @param position  of the medium before FFmpeg was called; the smallest number there is without one
[[gnu::noinline, gnu::cold]] int Recover(AVFormatContext* context, AVPacket* packet, int result,
                                         int64_t position)
{
    AVIOContext* const io = context->pb;
    int retries = 0;
    int64_t length = AV_NOPTS_VALUE;
    for (;;) {
        if (result >= 0) {
            if (io && io->error) {
                io->error = 0;  // otherwise the end would be reported as the error that was got past
                ForgetEnd(io);  // the error's: the next call has to read
            }
            return result;
        }
        if (IsStopped(*context))
            return AVERROR_EXIT;
        if (IsFinal(result))
            return result;
        if (result == AVERROR(EAGAIN) && retries < retryLimit) {
            ++retries;
            ForgetEnd(io);
        } else {
            if (position <= 0)
                return result;
            if (length < 0)
                length = GetLength(io);
            if (length < 0 || length - position <= shortestRest)
                return result;
            retries = 0;
            position = LastVainStep(context, position + skipStep, length);
            ForgetEnd(io);
            if (av_seek_frame(context, -1, position, AVSEEK_FLAG_BYTE) < 0)
                return result;
        }
        // Buffered seeks may take FFmpeg back; following it there would skip the same bytes for ever.
        if (io)
            position = std::max(position, io->pos);
        result = av_read_frame(context, packet);
    }
}

}  // namespace

int av_read_frame_fixed(AVFormatContext* context, AVPacket* packet)
{
    if (!context || !packet)
        return AVERROR(EINVAL);
    const AVIOContext* const io = context->pb;  // null for demuxers that open their own input
    const int64_t position = io ? io->pos : AV_NOPTS_VALUE;
    const int result = av_read_frame(context, packet);
    if (result >= 0 && (!io || !io->error))
        return result;
    return Recover(context, packet, result, position);
}

}  // namespace Quorva::Proc
