/// @file
/// What containers hold, as far as FFmpeg doesn't say.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <string>
#include <vector>

namespace Quorva::Tool {

/// One container, or one kind of file in it.
struct Container {
    AVCodecID video = AV_CODEC_ID_NONE;  ///< encoded to by default; none: no moving pictures
    AVCodecID audio = AV_CODEC_ID_NONE;
    int videos = 1;  ///< how many streams it holds
    int audios = 1;
    int subtitles = 0;
    bool covers = false;       ///< holds pictures beside the sound
    bool attachments = false;  ///< holds files of any kind; covers become some
    bool rotation = false;     ///< holds display matrices
    bool cropping = false;
};

/// @param format  the pipeline's name, which may say more than the muxer's
/// @param path    of the file, which may say more still
Container ContainerOf(const std::string& format, const AVOutputFormat& muxer, const std::string& path);

/// Whether the container holds the codec, by FFmpeg's word or, where it has none, by ours.
bool Holds(const AVOutputFormat& muxer, AVCodecID codec);

/// Whether streams of the codec go into the container as they are without being asked to: players expect them
/// there, and they need no other packing than they come in.
bool IsUsual(const AVOutputFormat& muxer, AVCodecID codec);

/// Whether sound may pause for long in the container: packets have times of their own, and players obey them.
bool StoresGaps(const AVOutputFormat& muxer);

/// Sample rates that the container demands of a codec; empty: any.
std::vector<int> SampleRatesOf(const AVOutputFormat& muxer, AVCodecID codec);

/// The muxer of a format that can be written: one of the pipeline's, or webvtt, which is the program's alone.
/// Null for others.
const AVOutputFormat* FindMuxer(const std::string& format);

/// The output format for a path, by its extension; empty when none is known that can be written.
std::string FormatForPath(const std::string& path);

}  // namespace Quorva::Tool
