#include "host/FoundationIO.h"
#include "host/src/Throw.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <source_location>
#include <system_error>
#include <utility>

static_assert(sizeof(off_t) == 8, "files may be larger than 2 GiB");

namespace Quorva {

ioPath::ioPath(const char* text) : path(text ? text : "") {}
ioPath::ioPath(const std::string& text) : path(text) {}
ioPath::ioPath(std::filesystem::path path) : path(std::move(path)) {}

std::string ioPath::GetExtension() const
{
    std::string extension = path.extension().native();
    extension.erase(0, 1);
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return extension;
}

namespace {

class VectorBlob final : public RefCounted<IBlob> {
public:
    explicit VectorBlob(std::vector<uint8_t> bytes) : bytes(std::move(bytes)) {}
    const uint8_t* GetData() const noexcept override { return bytes.data(); }
    uint64_t GetSize() const noexcept override { return bytes.size(); }

private:
    const std::vector<uint8_t> bytes;
};

}  // namespace

boost::intrusive_ptr<const IBlob> MakeBlob(std::vector<uint8_t> bytes)
{
    return MakeRefCounted<VectorBlob>(std::move(bytes));
}

namespace Core {

using Quorva::Details::Throw;

namespace {

constexpr uint64_t MAX_POSITION = std::numeric_limits<int64_t>::max();
constexpr uint64_t MAX_PIECE = uint64_t{1} << 30;  // a single system call moves less than 2 GiB

std::string ReasonOf(int error) { return std::system_category().message(error); }

/// An open file that knows its path.
class FileHandle {
public:
    FileHandle(const ioPath& path, int flags) : path(path.GetText())
    {
        // Without O_NONBLOCK a named pipe would keep us waiting for its other end; files don't care.
        do
            descriptor = ::open(this->path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
        while (descriptor < 0 && errno == EINTR);
        Examine();
    }
    /// @param descriptor  owned from now on
    FileHandle(int descriptor, std::string name) : path(std::move(name)), descriptor(descriptor)
    {
        Examine();
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle()
    {
        if (descriptor >= 0)
            ::close(descriptor);  // a destructor could tell nobody of a failure
    }

    const std::string path;
    int descriptor;
    int failure = 0;  ///< the system's reason why this is no file with a position

private:
    void Examine()
    {
        struct stat status{};
        if (descriptor < 0 || ::fstat(descriptor, &status) < 0 || ::lseek(descriptor, 0, SEEK_END) < 0)
            failure = errno;
        else if (S_ISDIR(status.st_mode))
            failure = EISDIR;
    }
};

/// The place of a member function that leaves the check of its argument to one of those below.
struct Caller {
    const char* function = __builtin_FUNCTION();
    std::source_location place = std::source_location::current();
};

/// The position `offset` bytes from `position`.
uint64_t Moved(uint64_t position, int64_t offset, const std::string& name, const Caller& caller)
{
    int64_t moved = 0;
    if (__builtin_add_overflow(static_cast<int64_t>(position), offset, &moved) || moved < 0)
        Throw<IOException>(fmt::format("Can't move by {} from {} in '{}'", offset, position, name),
                           caller.function, caller.place);
    return static_cast<uint64_t>(moved);
}

uint64_t Checked(uint64_t position, const std::string& name, const Caller& caller)
{
    if (position > MAX_POSITION)
        Throw<IOException>(fmt::format("Can't move to {} in '{}'", position, name), caller.function,
                           caller.place);
    return position;
}

uint64_t SizeOf(const FileHandle& file, const Caller& caller)
{
    // Other descriptors may share the position of a file, as that of a spooled pipe.
    struct stat status{};
    if (::fstat(file.descriptor, &status) == 0 && S_ISREG(status.st_mode))
        return static_cast<uint64_t>(status.st_size);
    // Unlike fstat() this knows the size of devices.
    const off_t size = ::lseek(file.descriptor, 0, SEEK_END);
    if (size < 0)
        Throw<IOException>(fmt::format("Can't get the size of '{}': {}", file.path, ReasonOf(errno)),
                           caller.function, caller.place);
    return static_cast<uint64_t>(size);
}

class FileInput final : public RefCounted<IDataInput> {
public:
    explicit FileInput(const ioPath& path) : file(path, O_RDONLY) {}
    FileInput(int descriptor, std::string name) : file(descriptor, std::move(name)) {}

    int GetFailure() const noexcept { return file.failure; }

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        size = std::min(size, MAX_POSITION - position);
        uint64_t done = 0;
        while (done < size) {
            const ssize_t count = ::pread(file.descriptor, buffer + done, std::min(size - done, MAX_PIECE),
                                          static_cast<off_t>(position + done));
            if (count == 0)
                break;
            if (count > 0)
                done += static_cast<uint64_t>(count);
            else if (errno != EINTR)
                Throw<IOException>(
                    fmt::format("Can't read '{}' at {}: {}", file.path, position + done, ReasonOf(errno)));
        }
        position += done;
        return done;
    }

    uint64_t GetSize() override { return SizeOf(file, {}); }
    uint64_t MoveBy(int64_t offset) override { return position = Moved(position, offset, file.path, {}); }
    void MoveTo(uint64_t target) override { position = Checked(target, file.path, {}); }
    const std::string& GetName() const noexcept override { return file.path; }

private:
    const FileHandle file;
    uint64_t position = 0;
};

class MemoryInput final : public RefCounted<IDataInput> {
public:
    MemoryInput(std::vector<uint8_t> bytes, std::string name) : bytes(std::move(bytes)), name(std::move(name))
    {
    }

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        if (position >= bytes.size())
            return 0;
        const uint64_t count = std::min<uint64_t>(size, bytes.size() - position);
        std::copy_n(bytes.data() + position, count, buffer);
        position += count;
        return count;
    }

    uint64_t GetSize() override { return bytes.size(); }
    uint64_t MoveBy(int64_t offset) override { return position = Moved(position, offset, name, {}); }
    void MoveTo(uint64_t target) override { position = Checked(target, name, {}); }
    const std::string& GetName() const noexcept override { return name; }

private:
    const std::vector<uint8_t> bytes;
    const std::string name;
    uint64_t position = 0;
};

class FileOutput final : public RefCounted<IDataOutput> {
public:
    explicit FileOutput(const ioPath& path) : file(path, O_WRONLY | O_CREAT | O_TRUNC) {}
    FileOutput(int descriptor, std::string name) : file(descriptor, std::move(name)) {}

    int GetFailure() const noexcept { return file.failure; }

    void Write(const uint8_t* buffer, uint64_t size) override
    {
        if (size > MAX_POSITION - position)
            Throw<IOException>(
                fmt::format("Can't write '{}' at {}: {}", file.path, position, ReasonOf(EFBIG)));
        uint64_t done = 0;
        while (done < size) {
            const ssize_t count = ::pwrite(file.descriptor, buffer + done, std::min(size - done, MAX_PIECE),
                                           static_cast<off_t>(position + done));
            if (count > 0)
                done += static_cast<uint64_t>(count);
            else if (count == 0 || errno != EINTR)
                Throw<IOException>(fmt::format("Can't write '{}' at {}: {}", file.path, position + done,
                                               ReasonOf(count == 0 ? ENOSPC : errno)));
        }
        position += done;
    }

    uint64_t GetSize() override { return SizeOf(file, {}); }

    void SetSize(uint64_t size) override
    {
        int result = -1;
        if (size > MAX_POSITION)
            errno = EFBIG;
        else
            do
                result = ::ftruncate(file.descriptor, static_cast<off_t>(size));
            while (result < 0 && errno == EINTR);
        if (result < 0)
            Throw<IOException>(
                fmt::format("Can't set the size of '{}' to {}: {}", file.path, size, ReasonOf(errno)));
    }

    uint64_t MoveBy(int64_t offset) override { return position = Moved(position, offset, file.path, {}); }
    void MoveTo(uint64_t target) override { position = Checked(target, file.path, {}); }

private:
    const FileHandle file;
    uint64_t position = 0;
};

}  // namespace

uint64_t CheckedRead(IDataInput& stream, uint8_t* buffer, uint64_t size)
{
    const uint64_t count = stream.Read(buffer, size);
    if (count > size)
        Throw<IOException>(
            fmt::format("Broken stream '{}': it claims to have read {} bytes, but {} were requested",
                        stream.GetName(), count, size));
    return count;
}

boost::intrusive_ptr<IDataInput> DataInputFile::Create(const ioPath& path)
{
    auto input = MakeRefCounted<FileInput>(path);
    if (const int error = input->GetFailure())
        Throw<IOException>(fmt::format("Can't open '{}' for reading: {}", path.GetText(), ReasonOf(error)));
    return input;
}

boost::intrusive_ptr<IDataInput> DataInputFile::Create(int descriptor, std::string name)
{
    auto input = MakeRefCounted<FileInput>(descriptor, name);
    if (const int error = input->GetFailure())
        Throw<IOException>(fmt::format("Can't use '{}' for reading: {}", name, ReasonOf(error)));
    return input;
}

boost::intrusive_ptr<IDataInput> DataInputMemory::Create(std::vector<uint8_t> bytes, std::string name)
{
    return MakeRefCounted<MemoryInput>(std::move(bytes), std::move(name));
}

boost::intrusive_ptr<IDataOutput> DataOutputFile::Create(const ioPath& path)
{
    auto output = MakeRefCounted<FileOutput>(path);
    if (const int error = output->GetFailure())
        Throw<IOException>(fmt::format("Can't open '{}' for writing: {}", path.GetText(), ReasonOf(error)));
    return output;
}

boost::intrusive_ptr<IDataOutput> DataOutputFile::Create(int descriptor, std::string name)
{
    auto output = MakeRefCounted<FileOutput>(descriptor, name);
    if (const int error = output->GetFailure())
        Throw<IOException>(fmt::format("Can't use '{}' for writing: {}", name, ReasonOf(error)));
    return output;
}

}  // namespace Core
}  // namespace Quorva
