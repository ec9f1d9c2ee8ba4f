// Owners of FFmpeg's objects, where FFmpeg is used by hand.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <memory>

struct FreeByFFmpeg {
    void operator()(AVIOContext* io) const
    {
        av_freep(&io->buffer);  // FFmpeg may have replaced the one it was given
        avio_context_free(&io);
    }
    void operator()(AVFormatContext* context) const
    {
        if (context->iformat)
            avformat_close_input(&context);
        else
            avformat_free_context(context);
    }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <class T>
using Owned = std::unique_ptr<T, FreeByFFmpeg>;
