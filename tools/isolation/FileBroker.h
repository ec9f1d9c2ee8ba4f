/// @file
/// Opens files for workers, which can't.
#pragma once

#include "tools/isolation/ControlChannel.h"
#include "tools/support/FurtherFiles.h"

#include <cstdint>
#include <functional>
#include <string>

namespace Quorva::Tool {

struct BrokerOptions {
    /// Whether further inputs may lie outside of the folder that the first input lies in.
    bool allowOutside = false;
    /// Inputs of one file after its first: pieces of playlists, opened again or not.
    size_t maxInputs = FurtherFilesPolicy().maxOpenings;
    /// Opens an output. It is the caller who knows which paths the command was told to write, and who puts
    /// them in their places when the worker has succeeded; null: no outputs.
    /// @throws Quorva::Exception  with TagFailureKind: refused, or the system refuses
    std::function<Descriptor(const std::string& path)> openOutput;
    /// Early, whether an output can be opened; and, when outputs are complete, puts them in their places.
    /// They throw as openOutput does; null where that is.
    std::function<void(const std::string& path)> checkOutput;
    std::function<void()> commitOutputs;
};

/// Decides, for one task, which files its worker gets, and opens them: the first input
/// whatever it is, as the user named it, and what FurtherFiles permits. The
/// worker's requests are not trusted: they come from code that has read a stranger's file.
class FileBroker {
public:
    /// @param first    the file that the task is about
    /// @param options  outlives the object
    FileBroker(std::string first, const BrokerOptions& options);

    /// Answers a worker's request, of kind Input, Spool, Output, Check or Commit: with Opened or Refused.
    ControlMessage Answer(const ControlMessage& request);

private:
    Descriptor Open(const ControlMessage& request);
    Descriptor OpenInput(const std::string& path);

    const std::string first;
    FurtherFiles further;
    const BrokerOptions& options;
};

}  // namespace Quorva::Tool
