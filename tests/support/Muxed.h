/// @file
/// Containers made in memory, in any length, over the library's own output callbacks.
#pragma once

#include <cstdint>
#include <vector>

/// One stream of noise, so that it is as long as its bit rate says; the same bytes each time.
///
/// @param muxer    FFmpeg's name
/// @param encoder  FFmpeg's name: of video, 64 by 64 at 25 a second, or of audio, 48000 Hz stereo
/// @param frames   pictures, or blocks of samples as long as the encoder wants them
/// @param bitRate  bits a second, where the encoder heeds it
/// @throws std::runtime_error  naming the step that FFmpeg refused
std::vector<uint8_t> Mux(const char* muxer, const char* encoder, int frames, int64_t bitRate);
