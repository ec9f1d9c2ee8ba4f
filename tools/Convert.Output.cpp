#include "tools/Convert.Output.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>
#include <boost/exception/get_error_info.hpp>

#include <algorithm>
#include <span>

namespace Quorva::Tool {

namespace {

constexpr int IO_BUFFER = 256 * 1024;

[[noreturn]] void ThrowNoMemory(const char* what, uint64_t size)
{
    Proc::Details::Raise(Core::MemoryException(fmt::format("Unable to allocate memory for {}", what), size));
}

[[noreturn]] void ThrowEmpty()
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription("nothing came of it: no packet was written")
                                               << TagFailureKind(FailureKind::InvalidData));
}

bool IsAttachment(const AVStream* stream) { return stream->codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT; }

[[noreturn]] void ThrowStopped()
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription("stopped at once, as asked twice")
                                               << TagFailureKind(FailureKind::Unwritable));
}

}  // namespace

/// One host stream and FFmpeg's view of it.
struct Output::Target {
    Output* owner = nullptr;
    boost::intrusive_ptr<Core::IDataOutput> stream;
    AVIOContext* io = nullptr;  ///< owned, and its buffer
};

void Output::FreeTarget::operator()(Target* target) const noexcept
{
    if (target->io)
        av_freep(&target->io->buffer);  // FFmpeg may have replaced the one it was given
    avio_context_free(&target->io);
    delete target;
}

Output::TargetPointer Output::MakeTarget(boost::intrusive_ptr<Core::IDataOutput> stream, bool seekable)
{
    TargetPointer target(new Target{this, std::move(stream), nullptr});
    auto* buffer = static_cast<unsigned char*>(av_malloc(IO_BUFFER));
    if (!buffer)
        ThrowNoMemory("the output buffer", IO_BUFFER);
    target->io =
        avio_alloc_context(buffer, IO_BUFFER, 1, target.get(), nullptr, Put, seekable ? Seek : nullptr);
    if (!target->io) {
        av_free(buffer);
        ThrowNoMemory("the output context", sizeof(AVIOContext));
    }
    return target;
}

/// In a catch block: the first failure counts.
int Output::KeepFailure()
{
    if (failure)
        return AVERROR(EIO);
    try {
        throw;
    } catch (Core::IOException& e) {
        if (!boost::get_error_info<TagFailureKind>(e))
            e << TagFailureKind(FailureKind::Unwritable);
        failure = std::current_exception();
    } catch (...) {
        failure = std::current_exception();
    }
    return AVERROR(EIO);
}

int Output::Put(void* opaque, const uint8_t* buffer, int size)
{
    Target& target = *static_cast<Target*>(opaque);
    if (target.owner->failure)
        return AVERROR(EIO);  // what comes after a hole is of no use
    try {
        return Proc::FFWriteCallback(target.stream.get(), buffer, size);
    } catch (...) {
        return target.owner->KeepFailure();
    }
}

int64_t Output::Seek(void* opaque, int64_t offset, int whence)
{
    Target& target = *static_cast<Target*>(opaque);
    try {
        return Proc::FFSeekWCallback(target.stream.get(), offset, whence);
    } catch (...) {
        return target.owner->KeepFailure();
    }
}

int Output::OpenPicture(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                        AVDictionary**)
{
    Output& output = *static_cast<Output*>(context->opaque);
    if (!(flags & AVIO_FLAG_WRITE))
        return AVERROR(EACCES);
    try {
        *io = output.MakeTarget(output.files.Create(url), true).release()->io;
        return 0;
    } catch (...) {
        return output.KeepFailure();
    }
}

int Output::ClosePicture(AVFormatContext*, AVIOContext* io)
{
    if (!io)
        return 0;
    const TargetPointer target(static_cast<Target*>(io->opaque));
    avio_flush(io);
    target->owner->closedBytes += static_cast<uint64_t>(std::max<int64_t>(avio_tell(io), 0));
    return io->error;
}

Output::Output(const Plan& plan, const ConvertOptions& options, OutputFiles& files) : files(files)
{
    AVFormatContext* fresh = nullptr;
    const int result = avformat_alloc_output_context2(&fresh, plan.muxer, nullptr, options.output.c_str());
    context.reset(fresh);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("{} can't be written", plan.format), result);
    context->opaque = this;
    if (plan.images) {
        context->io_open = OpenPicture;
        context->io_close2 = ClosePicture;
        return;
    }
    const bool isStream = IsStreamPath(options.output);
    file = MakeTarget(isStream ? OpenStreamOutput(options.output) : files.Create(options.output), !isStream);
    context->pb = file->io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
}

Output::~Output() = default;

void Output::Check(const char* what, int result)
{
    if (failure)
        std::rethrow_exception(failure);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("{} {}", context->oformat->name, what), result);
}

AVStream& Output::AddStream()
{
    AVStream* const stream = Proc::CreateStream(context.get(), nullptr);
    if (!stream)
        ThrowNoMemory("a stream", sizeof(AVStream));
    lastDts.push_back(AV_NOPTS_VALUE);
    return *stream;
}

void Output::Begin()
{
    const int result = avformat_write_header(context.get(), nullptr);
    if (result < 0 && !failure && file && !file->io->seekable)
        ThrowFFmpegFailure(
            fmt::format("{} refuses these streams, or can't be written into a pipe", context->oformat->name),
            result);
    Check("refuses these streams", result);
    begun = true;
}

/// Muxers refuse time stamps of decoding that stand still or go back, as damaged inputs have them.
void Output::Repair(AVPacket& packet, AVStream& stream)
{
    int64_t& last = lastDts[static_cast<size_t>(stream.index)];
    if (packet.dts != AV_NOPTS_VALUE && packet.pts != AV_NOPTS_VALUE && packet.dts > packet.pts)
        packet.dts = packet.pts;
    if (packet.dts == AV_NOPTS_VALUE)
        return;
    const AVMediaType kind = stream.codecpar->codec_type;
    if (last != AV_NOPTS_VALUE && (kind == AVMEDIA_TYPE_VIDEO || kind == AVMEDIA_TYPE_AUDIO)) {
        const int64_t least = last + (context->oformat->flags & AVFMT_TS_NONSTRICT ? 0 : 1);
        if (packet.dts < least) {
            if (packet.pts != AV_NOPTS_VALUE)
                packet.pts = std::max(packet.pts, least);
            packet.dts = least;
        }
    }
    last = packet.dts;
}

void Output::Write(AVPacket& packet, int stream, AVRational timeBase)
{
    if (Interruption::IsUrgent())
        ThrowStopped();
    AVStream& target = *context->streams[stream];
    av_packet_rescale_ts(&packet, timeBase, target.time_base);
    packet.stream_index = stream;
    packet.pos = -1;
    Repair(packet, target);
    if (packet.pts != AV_NOPTS_VALUE)
        position = std::max(
            position,
            Proc::stream_to_global(packet.pts + std::max<int64_t>(packet.duration, 0), target.time_base));
    ++packets;
    Check("refuses a packet", av_interleaved_write_frame(context.get(), &packet));
}

void Output::Finish()
{
    if (packets == 0 && !std::ranges::any_of(std::span(context->streams, context->nb_streams), IsAttachment))
        ThrowEmpty();
    Check("refuses the last packets", av_interleaved_write_frame(context.get(), nullptr));
    const int result = av_write_trailer(context.get());
    if (file)
        avio_flush(file->io);
    Check("can't be ended", result);
    if (file) {
        Check("can't be ended", file->io->error);
        closedBytes += static_cast<uint64_t>(std::max<int64_t>(avio_size(file->io), avio_tell(file->io)));
        context->pb = nullptr;
        file.reset();
    }
}

uint64_t Output::GetBytes() const
{
    return closedBytes + (file ? static_cast<uint64_t>(std::max<int64_t>(avio_tell(file->io), 0)) : 0);
}

}  // namespace Quorva::Tool
