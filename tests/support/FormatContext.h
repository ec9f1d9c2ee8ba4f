// A file as FFmpeg would have opened it, without a file.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <vector>

class FormatContext {
public:
    struct Stream {
        AVMediaType kind;
        AVCodecID codec;
        int64_t frames = 0;
    };

    explicit FormatContext(const char* demuxer, const std::vector<Stream>& streams = {})
        : context(avformat_alloc_context())
    {
        context->iformat = av_find_input_format(demuxer);
        for (const Stream& wanted : streams) {
            AVStream* stream = avformat_new_stream(context, nullptr);
            stream->codecpar->codec_type = wanted.kind;
            stream->codecpar->codec_id = wanted.codec;
            stream->nb_frames = wanted.frames;
        }
    }
    FormatContext(const FormatContext&) = delete;
    FormatContext& operator=(const FormatContext&) = delete;
    ~FormatContext() { avformat_free_context(context); }

    FormatContext& Url(const std::string& url)
    {
        context->url = av_strdup(url.c_str());
        return *this;
    }
    FormatContext& Metadata(const char* key, const std::string& value)
    {
        av_dict_set(&context->metadata, key, value.c_str(), 0);
        return *this;
    }
    AVFormatContext* Get() const { return context; }

private:
    AVFormatContext* context;
};
