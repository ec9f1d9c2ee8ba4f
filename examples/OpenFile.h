// A file of any supported format, opened over a stream of the pipeline: what most examples begin with.
#pragma once

#include "Fail.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.h"

#include <memory>
#include <optional>
#include <utility>

struct Close {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

class OpenFile {
public:
    using Input = boost::intrusive_ptr<Quorva::Core::IDataInput>;
    explicit OpenFile(const char* path) : OpenFile(Quorva::Core::DataInputFile::Create(path)) {}
    explicit OpenFile(Input input) : stream(std::move(input))
    {
        using namespace Quorva::Proc;
        ProbeResult found;
        DetectInputFormat(stream, found);
        const auto& demuxers = GetFFMPEGSupportedInputFormats();
        const auto demuxer = demuxers.find(found.format);
        if (demuxer == demuxers.end())
            Fail(stream->GetName() + ": '" + found.format + "' is not read here");
        io.emplace(stream, GuardedIO::SIZE, failure);
        AVFormatContext* fresh = avformat_alloc_context();
        fresh->pb = io->Get();
        fresh->io_open = [](auto...) { return AVERROR(EPERM); };  // what playlists name stays closed
        const int result = avformat_open_input(&fresh, stream->GetName().c_str(), demuxer->second, nullptr);
        context.reset(fresh);  // null where it failed
        Check(result);
        Check(avformat_find_stream_info(context.get(), nullptr));
    }

    AVFormatContext* operator->() const { return context.get(); }
    /// The stream that a player would show, or -1.
    int Best(AVMediaType kind) const { return av_find_best_stream(context.get(), kind, -1, -1, nullptr, 0); }

    /// @return false at the end
    bool Read(AVPacket* packet)
    {
        av_packet_unref(packet);
        const int result = Quorva::Proc::av_read_frame_fixed(context.get(), packet);
        return result != AVERROR_EOF && Check(result);
    }

    /// An open decoder for a stream.
    Quorva::Proc::SafeCodecContext OpenDecoder(int index)
    {
        using namespace Quorva::Proc;
        const AVStream* source = context->streams[index];
        const AVCodec* decoder = FindDecoder(source->codecpar->codec_id, ImplNames::FFMPEG);
        SafeCodecContext codec(decoder);
        Check(avcodec_parameters_to_context(codec.get(), source->codecpar));
        codec->pkt_timebase = source->time_base;
        Check(avcodec_open2(codec.get(), decoder, nullptr));
        return codec;
    }

private:
    bool Check(int result) const
    {
        using namespace Quorva::Proc;
        failure.Check();  // what the stream threw is the better reason
        if (result < 0)
            Fail(GetErrorDescriptionFFMPEG(result));
        return true;
    }

    const Input stream;
    Quorva::Proc::StreamFailure failure;
    std::optional<Quorva::Proc::GuardedIO> io;
    std::unique_ptr<AVFormatContext, Close> context;  // last: closed before what it reads from
};
