#include "tools/support/SpooledInput.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowUnusable(const std::string& description)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(description) << TagFailureKind(FailureKind::Unreadable));
}

std::string TemporaryFolder()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    return error ? "/tmp" : folder.native();
}

/// @return  a descriptor, or -1 with errno set
int OpenNamelessFile()
{
    std::string name = TemporaryFolder() + "/tessadrin-XXXXXX";
    const int file = ::mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0)
        ::unlink(name.c_str());  // should that fail, an empty name is left behind and nothing else
    return file;
}

/// Waits until there is something to read, or the end.
/// @return  0, the system's reason, or ECANCELED
int WaitForInput(int descriptor)
{
    constexpr int interval = 200;  // ms; a signal may come just before poll() and not end it
    while (!Interruption::IsWanted()) {
        pollfd waiting{descriptor, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, interval);
        if (ready > 0)
            return 0;
        if (ready < 0 && errno != EINTR)
            return errno;
    }
    return ECANCELED;
}

}  // namespace

SpooledInput* SpooledInput::Find(const std::string& path)
{
    const bool standard = path == "-";
    const std::string subject = standard ? "standard input " : "";
    struct stat status{};
    if ((standard ? ::fstat(STDIN_FILENO, &status) : ::stat(path.c_str(), &status)) != 0 ||
        S_ISREG(status.st_mode) || S_ISBLK(status.st_mode))
        return nullptr;
    if (S_ISDIR(status.st_mode))
        ThrowUnusable(subject + "is a folder: name a file in it");
    if (S_ISSOCK(status.st_mode) && !standard)
        ThrowUnusable("is a socket, which can't be opened as a file: use a named pipe");

    static std::map<std::pair<dev_t, ino_t>, SpooledInput> inputs;
    const std::pair key(status.st_dev, status.st_ino);
    if (const auto known = inputs.find(key); known != inputs.end())
        return &known->second;
    // Otherwise a named pipe would block here until a writer comes, whatever the signals.
    const int descriptor = standard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        ThrowUnusable(fmt::format("can't be opened: {}", std::strerror(errno)));
    if (::isatty(descriptor))
        ThrowUnusable(subject + "is a terminal: put a file or a pipe there");
    return &inputs.try_emplace(key, descriptor, subject).first->second;
}

SpooledInput::SpooledInput(int descriptor, std::string subject, uint64_t limit)
    : input(descriptor), subject(std::move(subject)), limit(limit), file(OpenNamelessFile())
{
    if (file < 0)
        ThrowUnkept(errno);
}

SpooledInput::~SpooledInput() { ::close(file); }

std::string SpooledInput::GetPath() const { return fmt::format("/dev/fd/{}", file); }

void SpooledInput::Fill(uint64_t size)
{
    while (!ended && kept < size)
        ended = !ReadPiece();
}

/// @return false at the end
bool SpooledInput::ReadPiece()
{
    char piece[64 * 1024];
    ssize_t count = -1;
    do {
        if (const int error = WaitForInput(input); error == ECANCELED)
            ThrowUnreadable("was not read to its end");
        else if (error != 0)
            ThrowUnreadable(fmt::format("can't be read: {}", std::strerror(error)));
        count = ::read(input, piece, sizeof piece);
    } while (count < 0 && (errno == EINTR || errno == EAGAIN));
    if (count < 0)
        ThrowUnreadable(fmt::format("can't be read: {}", std::strerror(errno)));
    if (static_cast<uint64_t>(count) > limit - kept)
        ThrowUnreadable(fmt::format(
            "is longer than {} bytes, the most that is kept of an input without positions: save it to a file",
            limit));
    for (ssize_t done = 0; done < count;) {
        const ssize_t written = ::write(file, piece + done, static_cast<size_t>(count - done));
        if (written > 0)
            done += written;
        else if (written == 0 || errno != EINTR)
            ThrowUnkept(written == 0 ? ENOSPC : errno);
    }
    kept += static_cast<uint64_t>(count);
    return count > 0;
}

void SpooledInput::ThrowUnreadable(const std::string& reason) const { ThrowUnusable(subject + reason); }

void SpooledInput::ThrowUnkept(int error) const
{
    ThrowUnreadable(fmt::format("can't be kept in {}: {}; TMPDIR may name another folder", TemporaryFolder(),
                                std::strerror(error)));
}

}  // namespace Quorva::Tool
