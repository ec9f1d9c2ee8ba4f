#include "tools/isolation/FileBroker.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/isolation/PipeStore.h"
#include "tools/support/Failure.h"

#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowInput(const std::string& path, const std::string& reason, FailureKind kind)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(fmt::format("can't open '{}': {}", path, reason))
                         << TagFailureKind(kind));
}

[[noreturn]] void ThrowSystem(const std::string& path, int error)
{
    ThrowInput(path, std::system_category().message(error),
               error == ENOENT || error == ENOTDIR ? FailureKind::NotFound : FailureKind::Unreadable);
}

}  // namespace

FileBroker::FileBroker(std::string first, const BrokerOptions& options)
    : first(std::move(first)),
      further(this->first, {.allowOutside = options.allowOutside, .maxOpenings = options.maxInputs}),
      options(options)
{
}

ControlMessage FileBroker::Answer(const ControlMessage& request)
{
    ControlMessage answer;
    answer.kind = ControlMessage::Kind::Opened;
    try {
        answer.descriptor = Open(request);
    } catch (...) {
        const Failure failure = CurrentFailure({});
        answer.kind = ControlMessage::Kind::Refused;
        answer.payload = static_cast<char>(failure.kind) + failure.description.substr(0, PATH_MAX + 256);
    }
    return answer;
}

Descriptor FileBroker::Open(const ControlMessage& request)
{
    const std::string& path = request.payload;
    if (path.find('\0') != std::string::npos || path.size() >= PATH_MAX)
        ThrowSystem(path.substr(0, 64), ENAMETOOLONG);
    if (request.kind == ControlMessage::Kind::Input)
        return OpenInput(path);
    if (request.kind == ControlMessage::Kind::Spool && path == first)
        return OpenSpoolFile(path);
    if (request.kind == ControlMessage::Kind::Output && options.openOutput)
        return options.openOutput(path);
    if (request.kind == ControlMessage::Kind::Check && options.checkOutput)
        return options.checkOutput(path), Descriptor();
    if (request.kind == ControlMessage::Kind::Commit && options.commitOutputs)
        return options.commitOutputs(), Descriptor();
    ThrowInput(path, "this command writes no files", FailureKind::Unwritable);
}

Descriptor FileBroker::OpenInput(const std::string& path)
{
    return path == first ? OpenNamedInput(path) : Descriptor(further.Open(path));
}

}  // namespace Quorva::Tool
