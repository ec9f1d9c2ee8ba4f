#include "tools/isolation/FileBroker.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/isolation/PipeStore.h"
#include "tools/support/Failure.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

// O_NONBLOCK: a pipe without a writer must not hold up everybody.
constexpr int FLAGS = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

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

/// Refuses what has no positions to read at.
Descriptor Checked(const std::string& path, int number)
{
    if (number < 0)
        ThrowSystem(path, errno);
    Descriptor descriptor(number);
    struct stat status{};
    if (fstat(number, &status) < 0)
        ThrowSystem(path, errno);
    if (S_ISDIR(status.st_mode))
        ThrowSystem(path, EISDIR);
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))
        ThrowInput(path, "not a regular file", FailureKind::Unreadable);
    fcntl(number, F_SETFL, fcntl(number, F_GETFL) & ~O_NONBLOCK);  // no effect on regular files either way
    return descriptor;
}

[[noreturn]] void ThrowOutside(const std::string& path)
{
    ThrowInput(path, "outside the folder of the file that refers to it; --allow-outside permits that",
               FailureKind::Unreadable);
}

/// `path` from `folder` on; empty where it leads elsewhere even before links are looked at.
std::string Below(const std::string& folder, const std::string& path)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(path, error).lexically_normal();
    // The file's own name resolves its folder's links too.
    const std::filesystem::path parent = std::filesystem::weakly_canonical(whole.parent_path(), error);
    const std::string relative = (parent / whole.filename()).lexically_relative(folder).native();
    return error || relative.starts_with("..") || relative.empty() ? std::string() : relative;
}

}  // namespace

FileBroker::FileBroker(std::string first, const BrokerOptions& options)
    : first(std::move(first)), options(options)
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
    if (inputs++ > options.maxInputs)
        ThrowInput(path, fmt::format("more than {} further files", options.maxInputs),
                   FailureKind::Unreadable);
    if (path != first)
        return OpenFurther(path);
    Descriptor descriptor = OpenNamedInput(path);
    if (folder.empty() && path != "-")
        RememberFolder();
    return descriptor;
}

void FileBroker::RememberFolder()
{
    const std::filesystem::path parent = std::filesystem::absolute(first).parent_path();
    folder = std::filesystem::canonical(parent).native();
    beneath = Descriptor(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor FileBroker::OpenFurther(const std::string& path)
{
    if (options.allowOutside)
        return Checked(path, open(path.c_str(), FLAGS));
    const std::string relative = folder.empty() ? std::string() : Below(folder, path);
    if (relative.empty())
        ThrowOutside(path);
    open_how how{};
    how.flags = FLAGS;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    const long number = syscall(SYS_openat2, beneath.Get(), relative.c_str(), &how, sizeof how);
    if (number < 0 && errno == EXDEV)
        ThrowOutside(path);
    if (number >= 0 || errno != ENOSYS)
        return Checked(path, static_cast<int>(number));
    // Linux before 5.6: no links at all below the folder, checked by the name that the kernel gives it.
    Descriptor descriptor = Checked(path, openat(beneath.Get(), relative.c_str(), FLAGS | O_NOFOLLOW));
    const auto real = std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", descriptor.Get()));
    if (real != std::filesystem::path(folder) / relative)
        ThrowOutside(path);
    return descriptor;
}

}  // namespace Quorva::Tool
