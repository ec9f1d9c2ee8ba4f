#include "tools/support/OutputFiles.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/RefCounting.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

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

/// Makes an empty file that wasn't there, in the folder of `path`; the mode is the user's.
std::string MakeProvisional(const std::string& path)
{
    for (int attempt = 0;; ++attempt) {
        const std::string provisional =
            attempt == 0 ? path + ".part" : fmt::format("{}.part{}", path, attempt);
        const int descriptor = ::open(provisional.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0) {
            ::close(descriptor);  // nothing was written that could fail
            return provisional;
        }
        if (errno != EEXIST || attempt == 1000)
            ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(errno)));
    }
}

/// What the system still holds back may be refused only now.
void Synchronise(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const int result = descriptor < 0 ? -1 : ::fsync(descriptor);
    const int error = errno;
    if (descriptor >= 0)
        ::close(descriptor);
    if (result < 0 && error != EINVAL)  // EINVAL: a file system without
        ThrowFileFailure(fmt::format("can't be written: {}", ReasonOf(error)));
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

/// Takes bytes as they come.
class StreamOutput final : public RefCounted<Core::IDataOutput> {
public:
    StreamOutput(int descriptor, bool owned) : descriptor(descriptor), owned(owned) {}
    ~StreamOutput() override
    {
        if (owned)
            ::close(descriptor);
    }

    void Write(const uint8_t* buffer, uint64_t size) override
    {
        while (size > 0) {
            const ssize_t count = ::write(descriptor, buffer, size);
            if (count < 0 && errno == EINTR)
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
    const int descriptor;
    const bool owned;
    uint64_t written = 0;
};

}  // namespace

OutputFiles::~OutputFiles()
{
    if (!keep)
        for (const File& file : files)
            ::unlink(file.provisional.c_str());  // a destructor could tell nobody of a failure
}

void OutputFiles::Check(const std::string& path) const
{
    struct stat status{};
    if (!overwrite && ::lstat(path.c_str(), &status) == 0)
        ThrowFileFailure("is there already; --overwrite replaces it");
}

boost::intrusive_ptr<Core::IDataOutput> OutputFiles::Create(const std::string& path)
{
    Check(path);
    // A link stays, what it names is replaced.
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    const std::string place = error ? path : target.native();
    files.push_back({MakeProvisional(place), place});
    return Core::DataOutputFile::Create(ioPath(files.back().provisional));
}

void OutputFiles::Commit()
{
    while (!files.empty()) {
        const File& file = files.front();
        Synchronise(file.provisional);
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
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0)
        ThrowFileFailure(fmt::format("can't be opened for writing: {}", ReasonOf(errno)));
    return MakeRefCounted<StreamOutput>(descriptor, true);
}

}  // namespace Quorva::Tool
