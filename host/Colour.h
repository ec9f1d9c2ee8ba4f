/// @file
/// Colour arithmetic.
#pragma once

#include "host/Export.h"
#include "host/MediaDescription.h"

namespace Quorva::Proc {

/// Luma weights of red, green and blue; their sum is 1.
struct YCbCrCoefficients {
    float Kr;  ///< of red
    float Kg;  ///< of green
    float Kb;  ///< of blue
};

/// The weights of `matrix`, in a record that lives as long as the process. Matrices without weights of their
/// own (RGB, unspecified, reserved, YCgCo, ICtCp and their kin) and unknown numbers give those of BT.601, so
/// that nobody divides by zero.
QUORVA_HOST_API const YCbCrCoefficients& GetYCbCrCoefficients(Conf::YCbCrMatrix matrix) noexcept;

}  // namespace Quorva::Proc
