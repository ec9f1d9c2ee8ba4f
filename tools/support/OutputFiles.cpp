#include "tools/support/OutputFiles.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/RefCounting.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace Quorva::Tool {

namespace {

constinit std::mutex mutex;              ///< for all objects: which there are, and which files they have
constinit OutputFiles* first = nullptr;  ///< the latest object

std::string ReasonOf(int error) { return std::system_category().message(error); }

[[noreturn]] void ThrowFileFailure(const std::string& what)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(what) << TagFailureKind(FailureKind::Unwritable));
}

[[noreturn]] void ThrowNoWayBack()
{
    ThrowFileFailure("this format has to be written to a file: in a pipe there is no way back");
}

/// Creates a file in the folder of `path` under a name that was free; the mode is the user's.
/// @return  its name, and a descriptor that the caller owns
std::pair<std::string, int> CreateProvisional(const std::string& path)
{
    for (int attempt = 0;; ++attempt) {
        std::string provisional = attempt == 0 ? path + ".part" : fmt::format("{}.part{}", path, attempt);
        const int descriptor = ::open(provisional.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0)
            return {std::move(provisional), descriptor};
        if (errno != EEXIST || attempt == 1000)
            ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(errno)));
    }
}

/// Gives a new file the owner, as far as the system allows, and the permissions of the one that it replaces.
/// @param additional  permissions that the file needs until it is complete
void TakeOverPermissions(int descriptor, const std::string& path, mode_t additional)
{
    struct stat old{};
    if (::stat(path.c_str(), &old) < 0 || !S_ISREG(old.st_mode))
        return;
    // Neither result matters: a user can't give files away, and some file systems have no modes.
    [[maybe_unused]] const int owned = ::fchown(descriptor, old.st_uid, old.st_gid);
    [[maybe_unused]] const int moded = ::fchmod(descriptor, (old.st_mode & 0777) | additional);
}

/// Where the links at `path` lead, whether or not something is there.
std::filesystem::path FollowLinks(std::filesystem::path path)
{
    constexpr int most = 40;  // as the kernel has it
    std::error_code error;
    for (int count = 0; std::filesystem::is_symlink(path, error); ++count) {
        if (count == most)
            ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(ELOOP)));
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

int Rename(const std::string& from, const std::string& to, bool replace)
{
    if (replace)
        return ::rename(from.c_str(), to.c_str());
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    // A file system without; a link doesn't replace either.
    if (::link(from.c_str(), to.c_str()) < 0)
        return -1;
    return ::unlink(from.c_str());
}

/// Waits for the reader of a named pipe, which open() would do whatever the signals.
/// @return  a descriptor that the caller owns, or -1 with errno set
int OpenForWriting(const std::string& path)
{
    struct stat status{};
    const bool isPipe = ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    while (true) {
        const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | (isPipe ? O_NONBLOCK : 0));
        if (descriptor >= 0 || !isPipe || (errno != ENXIO && errno != EINTR))
            return descriptor;
        if (Interruption::IsWanted())
            ThrowFileFailure("stopped: no reader has opened it");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

/// Takes bytes as they come.
class StreamOutput final : public RefCounted<Core::IDataOutput> {
public:
    StreamOutput(int descriptor, bool owned) : descriptor(descriptor), owned(owned)
    {
        struct stat status{};
        waits = ::fstat(descriptor, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
    }
    ~StreamOutput() override
    {
        if (owned)
            ::close(descriptor);
    }

    void Write(const uint8_t* buffer, uint64_t size) override
    {
        while (size > 0) {
            if (waits)
                AwaitReader();
            // So many bytes never block a pipe that has room.
            const ssize_t count =
                ::write(descriptor, buffer, waits ? std::min<uint64_t>(size, PIPE_BUF) : size);
            if (count < 0 && (errno == EINTR || errno == EAGAIN))
                continue;
            if (count <= 0)
                ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(count == 0 ? ENOSPC : errno)));
            buffer += count;
            size -= static_cast<uint64_t>(count);
            written += static_cast<uint64_t>(count);
        }
    }
    uint64_t GetSize() override { return written; }
    void SetSize(uint64_t) override { ThrowNoWayBack(); }
    uint64_t MoveBy(int64_t offset) override
    {
        if (offset != 0)
            ThrowNoWayBack();
        return written;
    }
    void MoveTo(uint64_t position) override
    {
        if (position != written)
            ThrowNoWayBack();
    }

private:
    /// Waits until the pipe has room, or its reader is gone. After a stop the reader gets a second.
    void AwaitReader() const
    {
        constexpr int interval = 100;  // ms
        constexpr int most = 10;       // intervals
        for (int stopped = 0; stopped <= most && !Interruption::IsUrgent();) {
            pollfd waiting{descriptor, POLLOUT, 0};
            if (::poll(&waiting, 1, interval) > 0)
                return;
            stopped += Interruption::IsWanted() ? 1 : 0;
        }
        ThrowFileFailure("stopped before the end: its reader takes nothing");
    }

    const int descriptor;
    const bool owned;
    bool waits = false;  ///< a pipe or a socket, which another process empties
    uint64_t written = 0;
};

}  // namespace

OutputFiles::OutputFiles(bool overwrite, bool keep, Links links)
    : overwrite(overwrite), keep(keep), links(links)
{
    const std::lock_guard lock(mutex);
    next = std::exchange(first, this);
}

OutputFiles::~OutputFiles()
{
    const std::lock_guard lock(mutex);
    Delete();
    OutputFiles** link = &first;
    while (*link != this)
        link = &(*link)->next;
    *link = next;
}

void OutputFiles::Delete() noexcept
{
    if (!keep)
        for (const File& file : files)
            ::unlink(file.provisional.c_str());  // a failure could not be reported
    files.clear();
}

void OutputFiles::Discard() noexcept
{
    const std::lock_guard lock(mutex);
    Delete();
}

void OutputFiles::DiscardAll() noexcept
{
    mutex.lock();  // for good
    for (OutputFiles* object = first; object; object = object->next)
        object->Delete();
}

void OutputFiles::Check(const std::string& path) const
{
    struct stat status{};
    if (!overwrite && ::lstat(path.c_str(), &status) == 0)
        ThrowFileFailure("is there already; --overwrite replaces it");
}

boost::intrusive_ptr<Core::IDataOutput> OutputFiles::Create(const std::string& path)
{
    const int descriptor = CreateDescriptor(path);
    return Core::DataOutputFile::Create(descriptor, files.back().provisional);
}

int OutputFiles::CreateDescriptor(const std::string& path)
{
    Check(path);
    const std::string place = links == Links::Follow ? FollowLinks(path).native() : path;
    std::unique_lock lock(mutex);
    auto [provisional, descriptor] = CreateProvisional(place);
    File& file = files.emplace_back();
    file.path = place;
    file.provisional = std::move(provisional);
    lock.unlock();
    struct stat status{};
    if (::fstat(descriptor, &status) < 0) {
        const int error = errno;
        ::close(descriptor);
        ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(error)));
    }
    file.device = status.st_dev;
    file.inode = status.st_ino;
    if (overwrite)
        TakeOverPermissions(descriptor, place, S_IRUSR | S_IWUSR);
    return descriptor;
}

/// Writes back what the system still holds, which may fail only now. The name must still be that of the file
/// that was created: what another process put there is not moved into place.
void OutputFiles::Synchronise(const File& file) const
{
    const int descriptor = ::open(file.provisional.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat status{};
    int error = descriptor < 0 || ::fstat(descriptor, &status) < 0 ? errno : 0;
    const bool same = !error && status.st_dev == file.device && status.st_ino == file.inode;
    if (same && ::fsync(descriptor) < 0)
        error = errno;
    if (same && overwrite)
        TakeOverPermissions(descriptor, file.path, 0);
    if (descriptor >= 0)
        ::close(descriptor);
    if (error == ELOOP || (!error && !same))
        ThrowFileFailure(fmt::format("another process has replaced {}", file.provisional));
    if (error && error != EINVAL)  // EINVAL: a file system without
        ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(error)));
}

void OutputFiles::Commit()
{
    while (!files.empty()) {
        const File& file = files.front();
        Synchronise(file);
        const std::lock_guard lock(mutex);
        if (Rename(file.provisional, file.path, overwrite) < 0)
            ThrowFileFailure(fmt::format("can't be put in its place: {}", ReasonOf(errno)));
        files.erase(files.begin());
    }
}

std::vector<std::string> OutputFiles::GetUnfinished() const
{
    std::vector<std::string> paths;
    for (const File& file : files)
        paths.push_back(file.provisional);
    return paths;
}

std::string NumberFault(const std::string& path)
{
    constexpr int mostDigits = 18;  // what FFmpeg has room for
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    int numbers = 0;
    bool hasOther = false;
    for (size_t begin = path.find('%'); begin != std::string::npos;) {
        size_t end = begin + 1;
        int digits = 0;
        for (; end < path.size() && isDigit(path[end]); ++end)
            digits = std::min(10 * digits + path[end] - '0', mostDigits + 1);
        const char kind = end < path.size() ? path[end] : ' ';
        if (kind == 'd' && digits > mostDigits)
            return fmt::format("a number of more than {} digits is too long", mostDigits);
        // A percent sign before other characters is one.
        if (kind != 'd' && (std::isalpha(static_cast<unsigned char>(kind)) || kind == '%'))
            return fmt::format("'{}' is no place for a number", path.substr(begin, end + 1 - begin));
        kind == 'd' ? void(++numbers) : void(hasOther = true);
        begin = path.find('%', end);
    }
    if (numbers > 1)
        return "there is more than one place for the number";
    return numbers == 1 && hasOther ? "there is a percent sign beside the number" : "";
}

bool IsStreamPath(const std::string& path)
{
    struct stat status{};
    return path == "-" ||
           (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode));
}

boost::intrusive_ptr<Core::IDataOutput> OpenStreamOutput(const std::string& path)
{
    if (path == "-")
        return MakeRefCounted<StreamOutput>(STDOUT_FILENO, false);
    const int descriptor = OpenForWriting(path);
    if (descriptor < 0)
        ThrowFileFailure(fmt::format("can't be opened for writing: {}", ReasonOf(errno)));
    return MakeRefCounted<StreamOutput>(descriptor, true);
}

}  // namespace Quorva::Tool
