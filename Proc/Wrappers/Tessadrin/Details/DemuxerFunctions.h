// The two questions that FFmpeg doesn't answer: which functions a demuxer probes and opens a file with.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc::Details {

using ReadProbe = int (*)(const AVProbeData*);
using ReadHeader = int (*)(AVFormatContext*);

/// The head of libavformat's private FFInputFormat, of which every AVInputFormat is the first member.
struct DemuxerHead {
    AVInputFormat p;
    AVCodecID rawCodec;
    int privateDataSize;
    int internalFlags;
    ReadProbe readProbe;
    ReadHeader readHeader;
};

/// Scores a file's first bytes from 0 to 100. Null for a demuxer that can't tell, and for every demuxer when
/// this libavformat isn't laid out as DemuxerHead says.
/// @param demuxer  of libavformat; not null
ReadProbe av_input_format_get_read_probe_func(const AVInputFormat* demuxer) noexcept;

/// Tells demuxers of one family: they share it. Null when this libavformat isn't laid out as DemuxerHead
/// says.
/// @param demuxer  of libavformat; not null
ReadHeader av_input_format_get_read_header_func(const AVInputFormat* demuxer) noexcept;

/// Whether DemuxerHead holds for these demuxers: whatever it finds in them is null or code of the library
/// that holds the demuxer, and a probe that it finds scores a known file as FFmpeg's own search does.
/// @param demuxers  as av_demuxer_iterate(); at least one
bool ProveDemuxerHead(const AVInputFormat* (*iterate)(void** position)) noexcept;

}  // namespace Quorva::Proc::Details
