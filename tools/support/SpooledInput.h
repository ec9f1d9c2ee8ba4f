/// @file
/// Inputs that can only be read from start to end, as files.
#pragma once

#include <cstdint>
#include <string>

namespace Quorva::Tool {

/// An input without positions (a pipe, a device), of which all that was read is kept in a file without a
/// name, in the folder for temporary files (TMPDIR, or else /tmp). The file goes with the process.
class SpooledInput {
public:
    static constexpr uint64_t maxSize = uint64_t{16} << 30;  ///< bytes kept of one input

    /// Returns the spooled input at `path`, where "-" is standard input, or null where the path can be opened
    /// and read in any order. The same path gives the same object, since its bytes come only once; it lives
    /// as long as the process. Opening a named pipe doesn't wait for its writer.
    /// @throws Core::IOException  a folder, a socket, a terminal, or it can't be opened
    static SpooledInput* Find(const std::string& path);

    /// @param descriptor  read from, never closed
    /// @param subject     start of the messages: "standard input ", or nothing
    /// @param limit       bytes
    SpooledInput(int descriptor, std::string subject, uint64_t limit = maxSize);
    SpooledInput(const SpooledInput&) = delete;
    SpooledInput& operator=(const SpooledInput&) = delete;
    ~SpooledInput();

    /// A path that opens what is kept.
    std::string GetPath() const;

    /// Reads on until `size` bytes are kept or the input has ended. Waits for a writer; an Interruption ends
    /// the waiting.
    /// @throws Core::IOException  it can't be read or kept, was interrupted, or is longer than the limit.
    void Fill(uint64_t size);
    void FillAll() { Fill(UINT64_MAX); }

private:
    bool ReadPiece();
    [[noreturn]] void ThrowUnreadable(const std::string& reason) const;
    [[noreturn]] void ThrowUnkept(int error) const;

    const int input;
    const std::string subject;
    const uint64_t limit;
    uint64_t kept = 0;
    bool ended = false;
    int file = -1;
};

}  // namespace Quorva::Tool
