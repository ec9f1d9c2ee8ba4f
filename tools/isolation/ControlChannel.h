/// @file
/// Messages between a worker and its parent, and the descriptors that go with them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace Quorva::Tool {

/// An open descriptor with one owner.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : number(number) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor();

    int Get() const noexcept { return number; }  ///< -1: none
    explicit operator bool() const noexcept { return number >= 0; }
    int Release() noexcept { return std::exchange(number, -1); }

private:
    int number = -1;
};

struct ControlMessage {
    enum class Kind : char {
        None = 0,         ///< nothing came: the other side is gone, or, where waiting isn't wanted, not yet
        Task = 'T',       ///< parent: number of a file, its folder's error, a zero, its path
        Opened = 'O',     ///< parent: a descriptor
        Refused = 'E',    ///< parent: one byte FailureKind, and the reason
        Input = 'I',      ///< worker: a path to read
        Spool = 'S',      ///< worker: the path of a pipe, to keep its bytes in a file
        Output = 'W',     ///< worker: a path to write
        Check = 'H',      ///< worker: a path that it will write
        Commit = 'C',     ///< worker: what it has written is complete
        Record = 'R',     ///< worker: bytes for the caller
        Complaint = '!',  ///< worker: a line for WriteComplaint()
        Line = 'L',       ///< worker: a line for WriteLine()
        Done = 'X',       ///< worker: the file's exit code
        Broken = '?',     ///< what came is no message
    };

    static constexpr size_t MAX_SIZE = 65536;  ///< bytes of a payload

    Kind kind = Kind::None;
    std::string payload;
    uint64_t number = 0;    ///< of a task; of an end: the exit code
    Descriptor descriptor;  ///< of Opened
};

/// Sends one message. Returns false, with errno, where the other side is gone, doesn't read (EAGAIN, when
/// not `wait`), or the payload is longer than MAX_SIZE (EMSGSIZE).
bool SendMessage(int socket, const ControlMessage& message, bool wait);

/// Receives one message.
/// @param wait         whether to wait for it
/// @param descriptors  whether to accept a descriptor; otherwise the kernel drops those that come
ControlMessage ReceiveMessage(int socket, bool wait, bool descriptors);

/// Whether the message of kind None that ReceiveMessage() gave means that the other side is gone. Looks at
/// errno; to be asked at once.
bool IsDisconnected();

}  // namespace Quorva::Tool
