/// @file
/// Chapters of the output, moved as the times of the streams are.
#pragma once

#include "tools/Convert.Gaps.h"
#include "tools/Convert.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Quorva::Tool {

/// Whether the chapters are to be described at the output's end, as only then all jumps are known: the index
/// of the input leaves room for a jump, and the muxer can write chapters at the end as well.
/// @param maxGap  jumps beyond that are closed up, microseconds; nothing: none is
bool DescribesChaptersLast(const AVFormatContext& output, const AVFormatContext& input,
                           std::optional<int64_t> maxGap);

/// Describes the chapters of the input that are in the output. A chapter that begins within a jump begins
/// behind it.
void DescribeChapters(AVFormatContext& output, const AVFormatContext& input, const Plan& plan,
                      const std::vector<TimeJump>& jumps);

}  // namespace Quorva::Tool
