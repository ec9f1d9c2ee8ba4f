#include "tools/isolation/DescriptorStreams.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/ReportProgress.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

namespace {

using Core::IOException;
using Proc::Details::Throw;

constexpr uint64_t MAX_POSITION = std::numeric_limits<int64_t>::max();
constexpr uint64_t MAX_PIECE = uint64_t{1} << 30;  // a single system call moves less than 2 GiB

std::string ReasonOf(int error) { return std::system_category().message(error); }

/// What both directions have in common: a descriptor, its name, and a position of one's own.
class Position {
public:
    Position(Descriptor descriptor, std::string name)
        : descriptor(std::move(descriptor)), name(std::move(name))
    {
    }

    uint64_t GetSize() const
    {
        const off_t size = ::lseek(descriptor.Get(), 0, SEEK_END);  // knows the size of devices, too
        if (size < 0)
            Throw<IOException>("Can't get the size of '{}': {}", name, ReasonOf(errno));
        return static_cast<uint64_t>(size);
    }
    uint64_t MoveBy(int64_t offset)
    {
        int64_t moved = 0;
        if (__builtin_add_overflow(static_cast<int64_t>(value), offset, &moved) || moved < 0)
            Throw<IOException>("Can't move by {} from {} in '{}'", offset, value, name);
        return value = static_cast<uint64_t>(moved);
    }
    void MoveTo(uint64_t target)
    {
        if (target > MAX_POSITION)
            Throw<IOException>("Can't move to {} in '{}'", target, name);
        value = target;
    }

    const Descriptor descriptor;
    const std::string name;
    uint64_t value = 0;
};

class DescriptorInput final : public RefCounted<Core::IDataInput> {
public:
    DescriptorInput(Descriptor descriptor, std::string name) : at(std::move(descriptor), std::move(name)) {}

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        size = std::min(size, MAX_POSITION - at.value);
        uint64_t done = 0;
        while (done < size) {
            const ssize_t count =
                ::pread(at.descriptor.Get(), buffer + done, std::min(size - done, MAX_PIECE),
                        static_cast<off_t>(at.value + done));
            if (count == 0)
                break;
            if (count > 0)
                done += static_cast<uint64_t>(count);
            else if (errno != EINTR)
                Throw<IOException>("Can't read '{}' at {}: {}", at.name, at.value + done, ReasonOf(errno));
        }
        at.value += done;
        return done;
    }
    uint64_t GetSize() override { return at.GetSize(); }
    uint64_t MoveBy(int64_t offset) override { return at.MoveBy(offset); }
    void MoveTo(uint64_t target) override { at.MoveTo(target); }
    const std::string& GetName() const noexcept override { return at.name; }

private:
    Position at;
};

class DescriptorOutput final : public RefCounted<Core::IDataOutput> {
public:
    DescriptorOutput(Descriptor descriptor, std::string name) : at(std::move(descriptor), std::move(name)) {}

    void Write(const uint8_t* buffer, uint64_t size) override
    {
        while (size > 0) {
            const ssize_t count = ::pwrite(at.descriptor.Get(), buffer, std::min(size, MAX_PIECE),
                                           static_cast<off_t>(at.value));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                Throw<IOException>("Can't write '{}' at {}: {}", at.name, at.value,
                                   ReasonOf(count == 0 ? ENOSPC : errno));
            buffer += count;
            size -= static_cast<uint64_t>(count);
            at.value += static_cast<uint64_t>(count);
            ReportProgress();
        }
    }
    uint64_t GetSize() override { return at.GetSize(); }
    void SetSize(uint64_t size) override
    {
        if (size > MAX_POSITION || ::ftruncate(at.descriptor.Get(), static_cast<off_t>(size)) < 0)
            Throw<IOException>("Can't set the size of '{}': {}", at.name, ReasonOf(errno));
    }
    uint64_t MoveBy(int64_t offset) override { return at.MoveBy(offset); }
    void MoveTo(uint64_t target) override { at.MoveTo(target); }

private:
    Position at;
};

}  // namespace

boost::intrusive_ptr<Core::IDataInput> MakeDescriptorInput(Descriptor descriptor, std::string name)
{
    return MakeRefCounted<DescriptorInput>(std::move(descriptor), std::move(name));
}

boost::intrusive_ptr<Core::IDataOutput> MakeDescriptorOutput(Descriptor descriptor, std::string name)
{
    return MakeRefCounted<DescriptorOutput>(std::move(descriptor), std::move(name));
}

}  // namespace Quorva::Tool
