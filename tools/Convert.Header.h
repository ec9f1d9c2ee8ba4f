/// @file
/// Trials of a muxer's header in memory, before anything is promised or written.
#pragma once

#include "tools/Convert.h"

#include <string>

namespace Quorva::Tool {

/// Returns why the muxer refuses the stream as a copy, in FFmpeg's words; empty when it accepts it, or when
/// that shows only together with other streams.
/// @param treatment  Copy or Attach
/// @param path       of the output
std::string RefusalOfCopy(const AVStream& source, StreamPlan::Treatment treatment,
                          const AVOutputFormat& muxer, const std::string& path);

/// Returns whether the muxer accepts the streams of an output where it can seek.
/// @param output  described; its header may have failed
bool AcceptsWithSeeking(const AVFormatContext& output);

}  // namespace Quorva::Tool
