/// @file
/// Work on many files, each of which may be hostile, and what may be asked for when it is run.
#pragma once

#include "tools/isolation/ControlChannel.h"
#include "tools/isolation/Sandbox.h"
#include "tools/support/Failure.h"
#include "tools/support/FileWalk.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Quorva::Tool {

struct IsolationOptions {
    bool isolate = true;  ///< false: everything in this process, for debuggers; no limit holds
    size_t jobs = 1;      ///< files at a time
    bool ordered = true;  ///< results in the order of the files, or else as they are ready
    bool spare = true;    ///< fork workers ahead of their tasks
    /// Stops a worker that has not called ReportProgress(), nor written anything, for as long; 0: never.
    std::chrono::milliseconds timeout{60000};
    /// What a worker may have in addition to what it was forked with, bytes; 0: no limit.
    uint64_t maxMemory = uint64_t{1} << 30;
    /// Whether a stop lets workers end their files well, as an Interruption does; otherwise they are killed.
    bool finishOnStop = true;
    /// Between the first wish to stop and the kill; nothing: as long as it takes.
    std::optional<std::chrono::milliseconds> patience;
    void (*discard)() = nullptr;  ///< without isolation, removes unfinished files before the process ends
    std::chrono::milliseconds grace{5000};  ///< between the second wish to stop and the kill
    bool allowOutside = false;              ///< inputs outside of the first one's folder
    SandboxOptions sandbox;
};

/// What became of one file.
struct FileResult {
    int code = 0;  ///< what Process() returned; not meaningful with a failure
    /// The worker did not reach its end: Crashed, Memory or Timeout.
    std::optional<Failure> failure;
    bool stopped = false;  ///< killed, because the user wants to stop
};

/// A command's work, with a part that runs in the parent and one that runs in workers. A worker is forked
/// from the parent: it sees the object as it was then, and nothing that it changes comes back.
class IsolatedWork {
public:
    virtual ~IsolatedWork() = default;

    /// In the parent: gives the next file. Files are numbered from 0 in the order in which they are given.
    virtual NextFile Next(WalkedFile& file) = 0;
    /// In the parent: -1 where Next() never gives Nothing; otherwise what to wait for then.
    virtual int GetWaitDescriptor() const { return -1; }

    /// In a worker: works on one file. Files are opened by RequestInput() and OpenOutput(); what is printed
    /// appears when it is the file's turn. Exceptions are printed, and make code 1. A wish to stop shows in
    /// Interruption::IsWanted(); RunIsolated() has the Interruption, and there must be no other.
    virtual int Process(size_t index, const WalkedFile& file) = 0;

    /// In the parent: the file's output begins.
    virtual void Begin(size_t, const WalkedFile&) {}
    /// In the parent: what Process() sent by SendRecord(), in its place among what it printed.
    virtual void Record(size_t, std::string_view) {}
    /// In the parent: the file's output has ended.
    virtual void Done(size_t index, const WalkedFile& file, const FileResult& result) = 0;

    /// In the parent: opens a file that Process() wants to write. The request isn't to be trusted. It may
    /// come before Begin().
    /// @throws Quorva::Exception  with TagFailureKind; the default refuses
    virtual Descriptor OpenOutput(size_t index, const std::string& path);
    /// In the parent: whether OpenOutput() would refuse, asked before long work; the default refuses.
    virtual void CheckOutput(size_t index, const std::string& path);
    /// In the parent: Process() has closed its outputs, and they are complete; the default refuses.
    virtual void CommitOutputs(size_t index);
};

/// Runs the work, each file in a process of its own. While it runs, one wish to stop (see Interruption) ends
/// the files that were begun, a second one drops them. The calling process must have one thread.
/// @return  false after a signal to stop; Done() was called for files that were begun
/// @throws Quorva::Exception  no worker can be started
bool RunIsolated(IsolatedWork& work, const IsolationOptions& options);

}  // namespace Quorva::Tool
