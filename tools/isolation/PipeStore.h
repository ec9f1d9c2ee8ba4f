/// @file
/// Inputs that users name, among them those that have no positions and whose bytes come only once.
#pragma once

#include "tools/isolation/ControlChannel.h"

#include <string>

namespace Quorva::Tool {

/// Opens what a user named: a file, a device, a pipe, or "-" for standard input. Opening a named pipe doesn't
/// wait for its writer. A pipe stays open in this process, so that it can be read again after the process
/// that read it first has ended.
/// @return  a descriptor of its own; a folder opens too, and can't be read
/// @throws Core::IOException  with TagFailureKind: a socket, a terminal, or it can't be opened
Descriptor OpenNamedInput(const std::string& path);

/// The file without a name in which the bytes of such a pipe are kept, in the folder for temporary files
/// (TMPDIR, or else /tmp): the same one for the same pipe as long as this process lives.
/// @throws Core::IOException  with TagFailureKind: the file can't be created
Descriptor OpenSpoolFile(const std::string& path);

/// TMPDIR, or else /tmp.
std::string TemporaryFolderPath();

}  // namespace Quorva::Tool
