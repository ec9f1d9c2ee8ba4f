#include "tools/isolation/PipeStore.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

// O_NONBLOCK: a named pipe without a writer would block here, whatever the signals.
constexpr int FLAGS = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

using Key = std::pair<dev_t, ino_t>;

[[noreturn]] void ThrowUnusable(const std::string& reason, FailureKind kind = FailureKind::Unreadable)
{
    Proc::Details::Raise(Core::IOException() << TagDescription(reason) << TagFailureKind(kind));
}

std::string ReasonOf(int error) { return std::system_category().message(error); }

std::string SubjectOf(const std::string& path) { return path == "-" ? "standard input " : ""; }

Descriptor Duplicate(const Descriptor& descriptor)
{
    Descriptor copy(fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, 0));
    if (!copy)
        ThrowUnusable("can't be opened: " + ReasonOf(errno));
    return copy;
}

std::map<Key, Descriptor>& Pipes()
{
    static std::map<Key, Descriptor> pipes;
    return pipes;
}

bool HasPositions(const struct stat& status)
{
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode) || S_ISDIR(status.st_mode);
}

[[noreturn]] void ThrowUnopened(const std::string& path, int error)
{
    ThrowUnusable(fmt::format("Can't open '{}' for reading: {}", path, ReasonOf(error)),
                  error == ENOENT || error == ENOTDIR ? FailureKind::NotFound : FailureKind::Unreadable);
}

Descriptor OpenPipe(const std::string& path, const struct stat& status)
{
    const std::string subject = SubjectOf(path);
    if (S_ISSOCK(status.st_mode) && path != "-")
        ThrowUnusable("is a socket, which can't be opened as a file: use a named pipe");
    const Key key(status.st_dev, status.st_ino);
    if (const auto known = Pipes().find(key); known != Pipes().end())
        return Duplicate(known->second);
    Descriptor pipe(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), FLAGS));
    if (!pipe)
        ThrowUnopened(path, errno);
    if (isatty(pipe.Get()))
        ThrowUnusable(subject + "is a terminal: put a file or a pipe there");
    return Duplicate(Pipes().emplace(key, std::move(pipe)).first->second);
}

}  // namespace

std::string TemporaryFolderPath()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    return error ? "/tmp" : folder.native();
}

Descriptor OpenNamedInput(const std::string& path)
{
    struct stat status{};
    if ((path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status)) < 0)
        ThrowUnopened(path, errno);
    if (!HasPositions(status))
        return OpenPipe(path, status);
    if (S_ISDIR(status.st_mode))
        ThrowUnusable(SubjectOf(path) + "is a folder: name a file in it");
    Descriptor file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), FLAGS));
    if (!file)
        ThrowUnopened(path, errno);
    return file;
}

Descriptor OpenSpoolFile(const std::string& path)
{
    static std::map<Key, Descriptor> files;
    struct stat status{};
    if ((path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status)) < 0)
        ThrowUnopened(path, errno);
    Descriptor& file = files[Key(status.st_dev, status.st_ino)];
    if (!file) {
        std::string name = TemporaryFolderPath() + "/tessadrin-XXXXXX";
        file = Descriptor(mkostemp(name.data(), O_CLOEXEC));
        if (!file)
            ThrowUnusable(fmt::format("{}can't be kept in {}: {}; TMPDIR may name another folder",
                                      SubjectOf(path), TemporaryFolderPath(), ReasonOf(errno)));
        unlink(name.c_str());  // should that fail, an empty name is left behind and nothing else
    }
    return Duplicate(file);
}

}  // namespace Quorva::Tool
