/// @file
/// Byte streams, byte blobs, and the exceptions of input, output and memory.
#pragma once

#include "host/Exception.h"
#include "host/Export.h"
#include "host/Filesystem.h"
#include "host/RefCounting.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quorva {

/// A run of bytes that never changes.
class QUORVA_HOST_API IBlob : public virtual IRefCountable {
public:
    virtual const uint8_t* GetData() const noexcept = 0;  ///< null only when the size is 0
    virtual uint64_t GetSize() const noexcept = 0;        ///< bytes

protected:
    ~IBlob() override;
};

/// A blob that owns `bytes`.
QUORVA_HOST_API boost::intrusive_ptr<const IBlob> MakeBlob(std::vector<uint8_t> bytes);

namespace Core {

class QUORVA_HOST_API CoreException : public virtual Exception {
public:
    CoreException() = default;
    CoreException(const CoreException&) = default;
    ~CoreException() override;
};

class QUORVA_HOST_API IOException : public virtual CoreException {
public:
    IOException() = default;
    IOException(const IOException&) = default;
    ~IOException() override;
};

/// Memory that could not be had. Description and size are members of its own: Boost's wrapper copies only the
/// attached values of a virtual base.
class QUORVA_HOST_API MemoryException : public virtual CoreException {
public:
    /// Dimensions of the frame whose picture memory could not be allocated, in pixels.
    using TagFrameWidth = boost::error_info<struct TagFrameWidthName, int>;
    using TagFrameHeight = boost::error_info<struct TagFrameHeightName, int>;

    /// @param size  bytes that were asked for
    MemoryException(std::string description, uint64_t size);
    MemoryException(const MemoryException&) = default;
    ~MemoryException() override;

    const char* what() const noexcept override;
    /// What `what()` gives.
    const std::string& GetDescription() const noexcept { return description; }
    uint64_t GetSize() const noexcept { return size; }  ///< bytes that were asked for

private:
    std::string description;
    uint64_t size;
};

/// A readable, seekable stream of bytes. One thread at a time.
class QUORVA_HOST_API IDataInput : public virtual IRefCountable {
public:
    /// Reads up to `size` bytes from the current position and moves past them.
    /// @return bytes read; less than `size` only at the end, 0 when nothing is left, never more than `size`:
    ///         readers call CheckedRead(), which ends a stream that breaks this rule.
    /// @throws IOException  the medium refuses; the position stays, whatever the buffer holds then.
    virtual uint64_t Read(uint8_t* buffer, uint64_t size) = 0;
    virtual uint64_t GetSize() = 0;  ///< whole length in bytes
    /// @return the new position. Positions past the end are allowed, those before the start are not.
    /// @throws IOException  the position would lie before the start or beyond 2^63 - 1.
    virtual uint64_t MoveBy(int64_t offset) = 0;
    /// @throws IOException  as MoveBy().
    virtual void MoveTo(uint64_t position) = 0;
    /// Name of what is read, as UTF-8: a file's path, or any text with an extension, or nothing.
    virtual const std::string& GetName() const noexcept = 0;

protected:
    ~IDataInput() override;
};

/// Reads from `stream` for callers that pass the count on to code which trusts it, as FFmpeg does.
/// @return as IDataInput::Read(), and never more than `size`
/// @throws IOException  the stream refuses, or claims to have read more than `size` bytes.
QUORVA_HOST_API uint64_t CheckedRead(IDataInput& stream, uint8_t* buffer, uint64_t size);

/// A writable, seekable stream of bytes. One thread at a time.
class QUORVA_HOST_API IDataOutput : public virtual IRefCountable {
public:
    /// Writes all of `size` bytes at the current position, growing the stream where needed.
    /// @throws IOException  fewer bytes were taken, as on a full disk; how many is not defined.
    virtual void Write(const uint8_t* buffer, uint64_t size) = 0;
    virtual uint64_t GetSize() = 0;
    /// Cuts or extends with zeros; the position stays.
    virtual void SetSize(uint64_t size) = 0;
    virtual uint64_t MoveBy(int64_t offset) = 0;  ///< as IDataInput::MoveBy()
    virtual void MoveTo(uint64_t position) = 0;   ///< as IDataInput::MoveTo()

protected:
    ~IDataOutput() override;
};

/// A file, read with positioned reads and no buffer of its own: read it in large pieces.
class QUORVA_HOST_API DataInputFile {
public:
    /// @throws IOException  naming the path and the system's reason: no such file, no permission, a folder, a
    ///                      pipe or terminal, which have no positions.
    static boost::intrusive_ptr<IDataInput> Create(const ioPath& path);
    /// A file that is open already, for example one received from another process.
    /// @param descriptor  open for reading; owned by the stream, and closed even if this throws
    /// @param name        returned by GetName(), and quoted in errors
    /// @throws IOException  the descriptor is not that of a file or device with positions.
    static boost::intrusive_ptr<IDataInput> Create(int descriptor, std::string name);
};

/// Bytes in memory as an input.
class QUORVA_HOST_API DataInputMemory {
public:
    /// @param name  what GetName() gives
    static boost::intrusive_ptr<IDataInput> Create(std::vector<uint8_t> bytes, std::string name = {});
};

/// A new or emptied file. Bytes are with the system when Write() returns; the stream's end closes the file.
class QUORVA_HOST_API DataOutputFile {
public:
    /// @throws IOException  naming the path and the system's reason.
    static boost::intrusive_ptr<IDataOutput> Create(const ioPath& path);
    /// A file that is open already. Its content and position stay; writing begins at its start.
    /// @param descriptor  open for writing; owned by the stream, and closed even if this throws
    /// @param name        quoted in errors
    /// @throws IOException  the descriptor is not that of a file or device with positions.
    static boost::intrusive_ptr<IDataOutput> Create(int descriptor, std::string name);
};

}  // namespace Core
}  // namespace Quorva
