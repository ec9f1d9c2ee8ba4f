#include "host/Colour.h"

namespace Quorva::Proc {
namespace {

constexpr YCbCrCoefficients bt601 = {0.299f, 0.587f, 0.114f};
constexpr YCbCrCoefficients bt709 = {0.2126f, 0.7152f, 0.0722f};
constexpr YCbCrCoefficients fcc = {0.30f, 0.59f, 0.11f};
constexpr YCbCrCoefficients smpte240m = {0.212f, 0.701f, 0.087f};
constexpr YCbCrCoefficients bt2020 = {0.2627f, 0.6780f, 0.0593f};

}  // namespace

const YCbCrCoefficients& GetYCbCrCoefficients(Conf::YCbCrMatrix matrix) noexcept
{
    using enum Conf::YCbCrMatrix;
    switch (matrix) {
        case BT709:
            return bt709;
        case FCC:
            return fcc;
        case SMPTE240M:
            return smpte240m;
        case BT2020NCL:
        case BT2020CL:
            return bt2020;
        default:
            return bt601;
    }
}

}  // namespace Quorva::Proc
