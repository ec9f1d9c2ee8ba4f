/// @file
/// What code that reads strangers' files calls, be it in a worker or not.
#pragma once

#include "host/FoundationIO.h"
#include "tools/isolation/ControlChannel.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/isolation/ReportProgress.h"

#include <string>
#include <string_view>

namespace Quorva::Tool {

class FileBroker;
class FurtherFiles;

/// A descriptor of a file that the input names. During IsolatedWork::Process() the parent opens it, by the
/// rules of FurtherFiles; otherwise `files` does.
/// @throws Core::IOException  with TagFailureKind
Descriptor RequestFurther(FurtherFiles& files, const std::string& path);

/// A descriptor of the file that Process() is about, whatever kind of file that is: see OpenNamedInput().
/// @throws Core::IOException  with TagFailureKind
Descriptor RequestInput(const std::string& path);

/// A descriptor for a SpooledInput's file, for the file that Process() is about.
/// @throws Core::IOException  with TagFailureKind
Descriptor RequestSpool(const std::string& path);

/// A descriptor of a file to write, from IsolatedWork::OpenOutput().
/// @throws Core::IOException  with TagFailureKind; always, outside of Process()
Descriptor RequestOutput(const std::string& path);

/// RequestOutput(), as a stream.
boost::intrusive_ptr<Core::IDataOutput> OpenOutput(const std::string& path);

/// Passes to IsolatedWork::CheckOutput() and IsolatedWork::CommitOutputs(). The second one is for when all
/// outputs have been closed.
/// @throws Core::IOException  with TagFailureKind
void CheckOutput(const std::string& path);
void CommitOutputs();

/// Hands bytes, at most ControlMessage::MAX_SIZE, to IsolatedWork::Record(). Outside of Process() they are
/// lost.
/// @throws Core::IOException  too many bytes, or the parent is gone
void SendRecord(std::string_view bytes);

namespace Details {

/// Where requests go; one at a time in a process.
class WorkerLink {
public:
    virtual ~WorkerLink() = default;
    virtual ControlMessage Ask(ControlMessage request) = 0;  ///< Input, Output: gives the answer
    virtual void Send(ControlMessage message) = 0;           ///< Record
};

/// Makes `link` the process's own while it lives.
class LinkInUse {
public:
    explicit LinkInUse(WorkerLink& link) noexcept;
    LinkInUse(const LinkInUse&) = delete;
    LinkInUse& operator=(const LinkInUse&) = delete;
    ~LinkInUse();
};

/// What a new worker is given.
struct WorkerStart {
    pid_t parent;
    int control;         ///< socket
    int output, errors;  ///< pipes
    WorkerState* state;
};

/// The life of a worker, from behind the fork to the end of its one file.
[[noreturn]] void LiveAsWorker(const WorkerStart& start, IsolatedWork& work, const Sandbox& sandbox,
                               const IsolationOptions& options) noexcept;

}  // namespace Details

}  // namespace Quorva::Tool
