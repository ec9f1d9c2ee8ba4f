/// @file
/// Options that commands which read strangers' files have in common.
#pragma once

#include "tools/InputOptions.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/support/FileList.h"

namespace CLI {
class App;
}

namespace Quorva::Tool {

enum class IsolationFlags {
    OneFile,  ///< no --jobs
    Jobs,
};

/// Adds --isolate, --timeout, those of AddInputOptions() and, for commands that take many files, --jobs.
/// @param options        outlives the command, as `input` does; complete when the command line has been read
/// @param defaultMemory  for the help
void AddIsolation(CLI::App& command, IsolationOptions& options, InputOptions& input, IsolationFlags flags,
                  const char* defaultMemory);
/// ApplyInputOptions(), for workers as well as for this process.
void ApplyIsolation(IsolationOptions& options, const InputOptions& input, uint64_t defaultMemory);

/// Adds FILE, --files-from and --null.
/// @param options  outlives the command
void AddFileList(CLI::App& command, FileListOptions& options);
/// @throws CLI::ParseError  no file is named, or standard input is wanted twice
void CheckFileList(const FileListOptions& options);

}  // namespace Quorva::Tool
