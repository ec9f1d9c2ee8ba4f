#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"

#include <climits>
#include <memory>

namespace Quorva::Proc {

using Core::MemoryException;
using Details::Raise;

namespace {

struct Free {
    void operator()(void* memory) const noexcept { av_free(memory); }
};

struct Release {
    void operator()(AVPacket* packet) const noexcept { ReleasePacket(&packet); }
};

/// Deprecated, because it ties the caller to the structure's size; this unit allocates the structure anyway,
/// and FFmpeg has no other call that sets its defaults.
void InitPacket(AVPacket* packet)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    av_init_packet(packet);
#pragma GCC diagnostic pop
    packet->data = nullptr;
    packet->size = 0;
}

constexpr size_t largestPayload = INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE;

}  // namespace

AVPacket* CreatePacket(size_t size)
{
    std::unique_ptr<AVPacket, Free> packet(static_cast<AVPacket*>(av_malloc(sizeof(AVPacket))));
    if (!packet)
        Raise(MemoryException("Unable to allocate memory for AVPacket", sizeof(AVPacket)));
    if (size == 0)
        InitPacket(packet.get());
    else if (size > largestPayload || av_new_packet(packet.get(), static_cast<int>(size)) != 0)
        Raise(MemoryException("Unable to allocate memory for packet", size));
    return packet.release();
}

AVPacket* CopyPacket(const AVPacket* source)
{
    if (!source)
        return nullptr;
    std::unique_ptr<AVPacket, Release> packet(CreatePacket(0));
    if (av_packet_ref(packet.get(), source) < 0)
        Raise(MemoryException("Unable to duplicate packet", static_cast<uint64_t>(source->size)));
    return packet.release();
}

void ReleasePacket(AVPacket** packet)
{
    if (!packet || !*packet)
        return;
    av_packet_unref(*packet);
    av_free(*packet);
    *packet = nullptr;
}

}  // namespace Quorva::Proc
