#include "tools/isolation/ControlChannel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Quorva::Tool {

namespace {

struct Header {
    char kind;
    char reserved[7];
    uint64_t number;
};

/// Room for one descriptor.
union DescriptorRoom {
    char bytes[CMSG_SPACE(sizeof(int))];
    cmsghdr aligned;
};

msghdr Describe(iovec (&parts)[2])
{
    msghdr description{};
    description.msg_iov = parts;
    description.msg_iovlen = 2;
    return description;
}

ssize_t Uninterrupted(auto call)
{
    ssize_t result;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

Descriptor TakeDescriptor(msghdr& description)
{
    const cmsghdr* const control = CMSG_FIRSTHDR(&description);
    if (!control || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS ||
        control->cmsg_len != CMSG_LEN(sizeof(int)))
        return {};
    int number = -1;
    std::memcpy(&number, CMSG_DATA(control), sizeof number);
    return Descriptor(number);
}

}  // namespace

Descriptor::~Descriptor()
{
    if (number >= 0)
        close(number);
}

bool SendMessage(int socket, const ControlMessage& message, bool wait)
{
    if (message.payload.size() > ControlMessage::MAX_SIZE) {
        errno = EMSGSIZE;
        return false;
    }
    Header header{static_cast<char>(message.kind), {}, message.number};
    iovec parts[] = {
        {&header,                                   sizeof header         },
        {const_cast<char*>(message.payload.data()), message.payload.size()}
    };
    msghdr description = Describe(parts);
    DescriptorRoom room{};
    if (message.descriptor) {
        description.msg_control = room.bytes;
        description.msg_controllen = sizeof room.bytes;
        cmsghdr* const control = CMSG_FIRSTHDR(&description);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(sizeof(int));
        const int number = message.descriptor.Get();
        std::memcpy(CMSG_DATA(control), &number, sizeof number);
    }
    const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
    return Uninterrupted([&] { return sendmsg(socket, &description, flags); }) >= 0;
}

ControlMessage ReceiveMessage(int socket, bool wait, bool descriptors)
{
    using Kind = ControlMessage::Kind;
    thread_local char buffer[ControlMessage::MAX_SIZE];
    Header header{};
    iovec parts[] = {
        {&header, sizeof header},
        {buffer,  sizeof buffer}
    };
    msghdr description = Describe(parts);
    DescriptorRoom room{};
    if (descriptors) {
        description.msg_control = room.bytes;
        description.msg_controllen = sizeof room.bytes;
    }
    const int flags = MSG_CMSG_CLOEXEC | (wait ? 0 : MSG_DONTWAIT);
    errno = 0;
    const ssize_t size = Uninterrupted([&] { return recvmsg(socket, &description, flags); });
    ControlMessage message;
    if (size <= 0)
        return message;
    if (descriptors)
        message.descriptor = TakeDescriptor(description);
    const bool whole = size >= static_cast<ssize_t>(sizeof header) && !(description.msg_flags & MSG_TRUNC);
    message.kind = whole && header.kind ? static_cast<Kind>(header.kind) : Kind::Broken;
    message.number = header.number;
    if (whole)
        message.payload.assign(buffer, static_cast<size_t>(size) - sizeof header);
    return message;
}

bool IsDisconnected() { return errno != EAGAIN && errno != EWOULDBLOCK; }

}  // namespace Quorva::Tool
