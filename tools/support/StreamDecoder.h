/// @file
/// Streams of a file, decoded.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"

#include <functional>
#include <memory>
#include <string>

namespace Quorva::Tool {

struct DeletePacket {
    void operator()(AVPacket* packet) const { Proc::ReleasePacket(&packet); }
};
using PacketPointer = std::unique_ptr<AVPacket, DeletePacket>;

/// A decoder and its stream, of pictures or sound.
class StreamDecoder {
public:
    /// Takes one decoded frame, in the usual memory; may change it.
    using TakeFrame = std::function<void(AVFrame&)>;

    /// @param threads         FFmpeg's for the decoder; 0: as there are cores
    /// @param implementation  whose decoder it is; some fill the memory of a device, which is opened then
    /// @throws Quorva::Exception  the decoder refuses the stream, or there is no such device.
    StreamDecoder(const AVCodec* codec, const AVStream& source, int threads,
                  const std::string& implementation);
    /// What can't be decoded is counted and passed over.
    /// @param packet  null: everything that the decoder still holds
    /// @throws Core::MemoryException, and what `take` throws.
    void Decode(const AVPacket* packet, const TakeFrame& take);

    /// Packets that nothing was made of, and FFmpeg's result for the first of them; 0 for none.
    uint64_t GetDamaged() const { return damaged; }
    int GetFirstResult() const { return firstResult; }

private:
    void Receive(const TakeFrame& take);
    void Count(int result);

    Proc::SafeCodecContext context;
    Proc::SafeFrame frame;
    uint64_t damaged = 0;
    int firstResult = 0;
};

/// Returns an open decoder of a subtitle stream.
/// @throws Quorva::Exception  the decoder refuses the stream.
Proc::SafeCodecContext OpenSubtitleDecoder(const AVCodec& codec, const AVStream& source);

}  // namespace Quorva::Tool
