/// @file
/// Pictures through a hardware device and back.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"

#include <map>
#include <string>
#include <tuple>

namespace Quorva::Tool {

/// A device, and a pool on it for each kind of picture met so far.
class HardwareRoundTrip {
public:
    /// @param type  FFmpeg's name of a type of devices, as "opencl"; the first of them is taken
    /// @throws Proc::ProcException  no such type, or no such device here
    explicit HardwareRoundTrip(const std::string& type);

    /// The picture as it comes back from the device, with the properties of `picture`.
    /// @throws Quorva::Exception  the device doesn't take such pictures, or fails
    Proc::SafeFrame operator()(const AVFrame& picture);

private:
    Proc::SafeBuffer& PoolFor(const AVFrame& picture);

    const std::string type;
    Proc::SafeBuffer device;
    std::map<std::tuple<int, int, int>, Proc::SafeBuffer> pools;  ///< by format, width and height
};

}  // namespace Quorva::Tool
