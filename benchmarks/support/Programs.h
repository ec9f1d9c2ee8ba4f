/// @file
/// Rows about whole programs, where each round is a process.
#pragma once

#include "benchmarks/support/Pairs.h"

#include <string>
#include <vector>

namespace Benchmarks {

/// What the load sequence takes, by what the process takes up to main().
std::vector<Result> MeasureLoad();
/// A conversion, beside FFmpeg's own program with the same settings: processor, wall clock, memory.
/// @throws std::runtime_error  the streams are not the same to the bit
std::vector<Result> MeasureConvert();
/// Draws how time and memory grow with a file's length, into docs/growth.svg.
void DrawGrowth();

}  // namespace Benchmarks
