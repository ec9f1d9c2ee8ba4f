#include "tools/support/SpooledInput.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/PipeStore.h"
#include "tools/isolation/ReportProgress.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Quorva::Tool {

namespace {

constexpr int INTERVAL = 200;  ///< ms; a signal may come just before poll() and not end it

/// Waits until there is something to read, or the end.
/// @return  0, the system's reason, or ECANCELED
int WaitForInput(int descriptor)
{
    while (!Interruption::IsWanted()) {
        pollfd waiting{descriptor, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, INTERVAL);
        if (ready > 0)
            return 0;
        if (ready < 0 && errno != EINTR)
            return errno;
        ReportProgress();  // a slow writer is no fault of the reader
    }
    return ECANCELED;
}

/// Processes that share a file have the lock in turn.
int SetLock(int file, short kind)
{
    struct flock lock{};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return ::fcntl(file, F_SETLK, &lock);
}

class Unlock {
public:
    explicit Unlock(int file) noexcept : file(file) {}
    Unlock(const Unlock&) = delete;
    Unlock& operator=(const Unlock&) = delete;
    ~Unlock() { SetLock(file, F_UNLCK); }

private:
    const int file;
};

}  // namespace

SpooledInput::SpooledInput(Descriptor input, Descriptor file, std::string subject, uint64_t limit)
    : input(std::move(input)), file(std::move(file)), subject(std::move(subject)), limit(limit)
{
}

bool SpooledInput::IsNeeded(int descriptor)
{
    struct stat status{};
    return ::fstat(descriptor, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode);
}

boost::intrusive_ptr<Core::IDataInput> SpooledInput::Open() const
{
    const int copy = ::fcntl(file.Get(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        ThrowUnkept(errno);
    return Core::DataInputFile::Create(copy, fmt::format("/dev/fd/{}", copy));
}

void SpooledInput::Lock()
{
    while (SetLock(file.Get(), F_WRLCK) < 0) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR)
            return;  // a file system without locks: several readers at once are the user's own doing
        if (Interruption::IsWanted())
            ThrowUnreadable("was not read to its end");
        ::poll(nullptr, 0, INTERVAL / 10);
        ReportProgress();
    }
}

void SpooledInput::Fill(uint64_t size)
{
    Lock();
    const Unlock unlock(file.Get());
    struct stat status{};
    if (::fstat(file.Get(), &status) < 0)
        ThrowUnkept(errno);
    kept = static_cast<uint64_t>(status.st_size);
    while (kept < size && ::lseek(file.Get(), 0, SEEK_CUR) == 0)
        if (!ReadPiece())
            ::lseek(file.Get(), 1, SEEK_SET);
}

/// @return false at the end
bool SpooledInput::ReadPiece()
{
    char piece[64 * 1024];
    ssize_t count = -1;
    do {
        if (const int error = WaitForInput(input.Get()); error == ECANCELED)
            ThrowUnreadable("was not read to its end");
        else if (error != 0)
            ThrowUnreadable(fmt::format("can't be read: {}", std::strerror(error)));
        count = ::read(input.Get(), piece, sizeof piece);
    } while (count < 0 && (errno == EINTR || errno == EAGAIN));
    if (count < 0)
        ThrowUnreadable(fmt::format("can't be read: {}", std::strerror(errno)));
    if (static_cast<uint64_t>(count) > limit - kept)
        ThrowUnreadable(fmt::format(
            "is longer than {} bytes, the most that is kept of an input without positions: save it to a file",
            limit));
    WriteKept(piece, static_cast<size_t>(count));
    ReportProgress();
    return count > 0;
}

void SpooledInput::WriteKept(const char* piece, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::pwrite(file.Get(), piece, size, static_cast<off_t>(kept));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            ThrowUnkept(written == 0 ? ENOSPC : errno);
        piece += written;
        size -= static_cast<size_t>(written);
        kept += static_cast<uint64_t>(written);
    }
}

void SpooledInput::ThrowUnreadable(const std::string& reason) const
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(subject + reason) << TagFailureKind(FailureKind::Unreadable));
}

void SpooledInput::ThrowUnkept(int error) const
{
    ThrowUnreadable(fmt::format("can't be kept in {}: {}; TMPDIR may name another folder",
                                TemporaryFolderPath(), std::strerror(error)));
}

}  // namespace Quorva::Tool
