/// @file
/// One worker, as its parent sees it.
#pragma once

#include "tools/isolation/ControlChannel.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/isolation/ReportProgress.h"

#include <sys/resource.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace Quorva::Tool {

/// How a worker ended.
struct WorkerEnd {
    int status = 0;       ///< as waitpid() has it
    uint64_t memory = 0;  ///< its largest resident size, bytes
    bool outOfMemory = false;
};

/// A forked worker, its channels and its page. Killed and reaped by the destructor where that has not
/// happened.
class WorkerProcess {
public:
    /// Forks. Standard output and error of the worker are pipes; one for both, where this process's own go to
    /// the same place and their order has to survive.
    /// @throws Quorva::Exception  the system refuses
    WorkerProcess(IsolatedWork& work, const Sandbox& sandbox, const IsolationOptions& options);
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;
    ~WorkerProcess();

    void Signal(int signal) const;
    /// Kills it, if it isn't dead, and reaps it.
    WorkerEnd Reap();
    uint64_t GetProgress() const noexcept { return state->progress.load(std::memory_order_relaxed); }

    Descriptor control;  ///< of the parent's side, as all
    Descriptor output;
    Descriptor errors;  ///< none where `output` takes both

private:
    struct Unmap {
        void operator()(WorkerState* page) const noexcept;
    };

    std::unique_ptr<WorkerState, Unmap> state;
    pid_t process = 0;  ///< 0: reaped
};

/// Hands what was printed to standard output over.
/// @throws Quorva::Exception  it can't be written: no use in reading more files
void FlushOutput();

/// Whether standard output and error of this process are the same file or terminal.
bool IsOutputShared();

}  // namespace Quorva::Tool
