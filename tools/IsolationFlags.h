/// @file
/// Options that commands which read strangers' files have in common.
#pragma once

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

/// Adds --isolate, --timeout, --max-memory, --allow-outside and, for commands that take many files, --jobs.
/// @param options  outlives the command; complete when the command line has been read
void AddIsolation(CLI::App& command, IsolationOptions& options, IsolationFlags flags);

/// Adds FILE, --files-from and --null.
/// @param options  outlives the command
void AddFileList(CLI::App& command, FileListOptions& options);
/// @throws CLI::ParseError  no file is named, or standard input is wanted twice
void CheckFileList(const FileListOptions& options);

}  // namespace Quorva::Tool
