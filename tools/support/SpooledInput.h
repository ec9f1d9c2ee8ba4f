/// @file
/// Inputs that can only be read from start to end, as files.
#pragma once

#include "host/FoundationIO.h"
#include "tools/isolation/ControlChannel.h"

#include <cstdint>
#include <string>

namespace Quorva::Tool {

/// An input without positions (a pipe, a device), of which all that was read is kept in a file. Objects, and
/// processes, that share a pipe and its file go on where another has stopped; one reads at a time.
class SpooledInput {
public:
    static constexpr uint64_t maxSize = uint64_t{16} << 30;  ///< bytes kept of one input

    /// @param input    read from
    /// @param file     kept in: what is in it is the beginning of the input. Its position is not 0 once the
    ///                 input has ended, and has no other meaning.
    /// @param subject  start of the messages: "standard input ", or nothing
    /// @param limit    bytes
    SpooledInput(Descriptor input, Descriptor file, std::string subject, uint64_t limit = maxSize);

    /// Whether what is open there has no positions.
    static bool IsNeeded(int descriptor);

    /// A stream of what is kept, also of what is added later.
    /// @throws Core::IOException  the system refuses
    boost::intrusive_ptr<Core::IDataInput> Open() const;

    /// Reads on until `size` bytes are kept or the input has ended. Waits for a writer, which counts as
    /// progress (see ReportProgress()); an Interruption ends the waiting.
    /// @throws Core::IOException  it can't be read or kept, was interrupted, or is longer than the limit.
    void Fill(uint64_t size);
    void FillAll() { Fill(UINT64_MAX); }

private:
    void Lock();
    bool ReadPiece();
    void WriteKept(const char* piece, size_t size);
    [[noreturn]] void ThrowUnreadable(const std::string& reason) const;
    [[noreturn]] void ThrowUnkept(int error) const;

    const Descriptor input;
    const Descriptor file;
    const std::string subject;
    const uint64_t limit;
    uint64_t kept = 0;
};

}  // namespace Quorva::Tool
