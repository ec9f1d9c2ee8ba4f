#include "tools/isolation/Worker.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/PipeStore.h"
#include "tools/support/Failure.h"
#include "tools/support/FurtherFiles.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

constinit Details::WorkerLink* currentLink = nullptr;

[[noreturn]] void ThrowRefused(const ControlMessage& answer)
{
    // From the parent, who is trusted.
    const std::string text = answer.payload.empty() ? "the parent process is gone" : answer.payload.substr(1);
    const auto kind =
        answer.payload.empty() ? FailureKind::Internal : static_cast<FailureKind>(answer.payload[0]);
    Proc::Details::Raise(Core::IOException() << TagDescription(text) << TagFailureKind(kind));
}

Descriptor Request(ControlMessage::Kind kind, const std::string& path, bool wantsDescriptor = true)
{
    if (!currentLink)
        Proc::Details::Throw<Core::IOException>("'{}' is requested outside of a worker", path);
    ControlMessage request;
    request.kind = kind;
    request.payload = path;
    ControlMessage answer = currentLink->Ask(std::move(request));
    if (answer.kind != ControlMessage::Kind::Opened || (wantsDescriptor && !answer.descriptor))
        ThrowRefused(answer);
    return std::move(answer.descriptor);
}

}  // namespace

Details::LinkInUse::LinkInUse(WorkerLink& link) noexcept { currentLink = &link; }
Details::LinkInUse::~LinkInUse() { currentLink = nullptr; }

Descriptor RequestFurther(FurtherFiles& files, const std::string& path)
{
    return currentLink ? Request(ControlMessage::Kind::Input, path) : Descriptor(files.Open(path));
}

Descriptor RequestInput(const std::string& path)
{
    return currentLink ? Request(ControlMessage::Kind::Input, path) : OpenNamedInput(path);
}

Descriptor RequestSpool(const std::string& path)
{
    return currentLink ? Request(ControlMessage::Kind::Spool, path) : OpenSpoolFile(path);
}

Descriptor RequestOutput(const std::string& path) { return Request(ControlMessage::Kind::Output, path); }

boost::intrusive_ptr<Core::IDataOutput> OpenOutput(const std::string& path)
{
    return Core::DataOutputFile::Create(RequestOutput(path).Release(), path);
}

void CheckOutput(const std::string& path) { Request(ControlMessage::Kind::Check, path, false); }
void CommitOutputs() { Request(ControlMessage::Kind::Commit, {}, false); }

void SendRecord(std::string_view bytes)
{
    if (bytes.size() > ControlMessage::MAX_SIZE)
        Proc::Details::Throw<Core::IOException>("a record of {} bytes is too long", bytes.size());
    if (!currentLink)
        return;
    ControlMessage message;
    message.kind = ControlMessage::Kind::Record;
    message.payload = bytes;
    currentLink->Send(std::move(message));
}

}  // namespace Quorva::Tool
