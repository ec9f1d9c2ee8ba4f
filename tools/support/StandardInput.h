/// @file
/// Standard input as a file.
#pragma once

#include <string>

namespace Quorva::Tool {

/// A path by which standard input can be read in any order, as media files are: what comes through a pipe is
/// first read to its end, into a file without a name that goes with the process.
/// @throws Core::IOException  it is a terminal, can't be read, or there is no room for it
std::string StandardInputPath();

}  // namespace Quorva::Tool
