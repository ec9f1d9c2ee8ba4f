#include "tools/support/FurtherFiles.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Failure.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace Quorva::Tool {

namespace {

namespace fs = std::filesystem;

// O_NONBLOCK: opening a pipe must not wait for its writer.
constexpr int openFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

constinit FurtherFilesPolicy currentPolicy;

[[noreturn]] void ThrowNotOpened(const std::string& path, const std::string& reason,
                                 FailureKind kind = FailureKind::Unreadable)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(fmt::format("'{}' was not opened: {}", path, reason))
                         << TagFailureKind(kind));
}

[[noreturn]] void ThrowSystem(const std::string& path, int error)
{
    ThrowNotOpened(path, std::system_category().message(error),
                   error == ENOENT || error == ENOTDIR ? FailureKind::NotFound : FailureKind::Unreadable);
}

[[noreturn]] void ThrowOutside(const std::string& path, bool hasFolder)
{
    ThrowNotOpened(path, hasFolder ? "it is outside the folder of the file that names it; --allow-outside "
                                     "permits that"
                                   : "the input that names it has no folder; --allow-outside permits that");
}

/// The descriptor, if it is that of a regular file.
int CheckedFile(const std::string& path, int descriptor)
{
    if (descriptor < 0)
        ThrowSystem(path, errno);
    struct stat status{};
    const int error = fstat(descriptor, &status) < 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
    if (error == 0 && S_ISREG(status.st_mode))
        return descriptor;
    close(descriptor);
    if (error != 0)
        ThrowSystem(path, error);
    ThrowNotOpened(path, "not a regular file");
}

/// For kernels before 5.6 and sandboxes without openat2(): where the file is, checked once it is open.
int OpenAndCheckPlace(int folder, const fs::path& place, const std::string& relative)
{
    const int descriptor = openat(folder, relative.c_str(), openFlags | O_NOFOLLOW);
    if (descriptor < 0)
        return descriptor;
    std::error_code error;
    if (fs::read_symlink(fmt::format("/proc/self/fd/{}", descriptor), error) == place / relative && !error)
        return descriptor;
    close(descriptor);
    errno = EXDEV;
    return -1;
}

}  // namespace

const FurtherFilesPolicy& FurtherFiles::GetPolicy() noexcept { return currentPolicy; }

void FurtherFiles::SetPolicy(const FurtherFilesPolicy& policy) noexcept { currentPolicy = policy; }

FurtherFiles::FurtherFiles(const std::string& first, const FurtherFilesPolicy& policy) : policy(policy)
{
    if (first == "-")
        return;
    std::error_code error;
    const fs::path parent = fs::canonical(fs::absolute(first, error).parent_path(), error);
    const fs::path top = error ? fs::path() : *std::next(parent.begin(), parent.has_relative_path());
    if (error || top == "dev" || top == "proc")
        return;
    folder = parent.native();
    beneath = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

FurtherFiles::~FurtherFiles()
{
    if (beneath >= 0)
        close(beneath);
}

int FurtherFiles::Open(const std::string& path)
{
    if (++openings > policy.maxOpenings)
        ThrowNotOpened(path, fmt::format("more than {} files for one input", policy.maxOpenings));
    if (policy.allowOutside)
        return CheckedFile(path, open(path.c_str(), openFlags));
    return CheckedFile(path, OpenInFolder(path));
}

int FurtherFiles::OpenInFolder(const std::string& path) const
{
    // Links are resolved here, so that those with absolute targets may lead back into the folder; the kernel
    // then follows none, as one might have been put there since.
    std::error_code missing, error;
    const fs::path whole = fs::absolute(path, error);
    fs::path place = fs::canonical(whole, missing);
    if (missing)
        place = fs::weakly_canonical(whole, error);
    const std::string relative = error ? std::string() : place.lexically_relative(folder).native();
    if (beneath < 0 || relative.empty() || relative == ".." || relative.starts_with("../"))
        ThrowOutside(path, beneath >= 0);
    if (missing)
        ThrowSystem(path, missing.value());
    open_how how{};
    how.flags = openFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
    long descriptor = syscall(SYS_openat2, beneath, relative.c_str(), &how, sizeof how);
    if (descriptor < 0 && (errno == ENOSYS || errno == EPERM))
        descriptor = OpenAndCheckPlace(beneath, folder, relative);
    if (descriptor < 0 && (errno == EXDEV || errno == ELOOP))
        ThrowOutside(path, true);
    return static_cast<int>(descriptor);
}

}  // namespace Quorva::Tool
