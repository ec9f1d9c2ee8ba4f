#include "host/MediaDescription.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <utility>

namespace Quorva {
namespace {

constexpr uint32_t P = PixFmtDescription::FLAG_PLANAR;
constexpr uint32_t R = PixFmtDescription::FLAG_RGB;
constexpr uint32_t A = PixFmtDescription::FLAG_ALPHA;

#define PIXFMT(enumerator, number, name, components, shiftX, shiftY, flags) \
    PixFmtDescription(PixFmt::enumerator, name, components, shiftX, shiftY, flags),
constexpr PixFmtDescription pixelFormats[] = {
#include "host/Rows/PixelFormats.inc"
};
#undef PIXFMT

constexpr bool NumbersAreIndexes()
{
    for (std::size_t i = 0; i < std::size(pixelFormats); ++i)
        if (static_cast<std::size_t>(pixelFormats[i].format) != i)
            return false;
    return true;
}
static_assert(NumbersAreIndexes());
static_assert(std::size(pixelFormats) == 228);

}  // namespace

const std::vector<PixFmtDescription>& PixFmtDescription::GetSupportedList()
{
    static const std::vector<PixFmtDescription> list(std::begin(pixelFormats), std::end(pixelFormats));
    return list;
}

const PixFmtDescription* PixFmtDescription::Find(PixFmt format) noexcept
{
    const auto index = static_cast<uint32_t>(format);
    return index < std::size(pixelFormats) ? &pixelFormats[index] : nullptr;
}

bool PixFmtDescription::IsSupported(PixFmt format) noexcept { return Find(format) != nullptr; }

namespace Conf {
namespace {

constexpr int ONE = 1 << 16;

/// The part of a display matrix that turns and mirrors.
struct Turn {
    ImageOrientation orientation;
    int a, b, c, d;
};

constexpr Turn turns[] = {
    {ImageOrientation::Normal,           ONE,  0,    0,    ONE },
    {ImageOrientation::MirrorHorizontal, -ONE, 0,    0,    ONE },
    {ImageOrientation::Rotate180,        -ONE, 0,    0,    -ONE},
    {ImageOrientation::MirrorVertical,   ONE,  0,    0,    -ONE},
    {ImageOrientation::Transpose,        0,    ONE,  ONE,  0   },
    {ImageOrientation::Rotate90,         0,    ONE,  -ONE, 0   },
    {ImageOrientation::Transverse,       0,    -ONE, -ONE, 0   },
    {ImageOrientation::Rotate270,        0,    -ONE, ONE,  0   },
};

/// How far a frame reaches below 0 along one axis, where its edges lead to `first` and `second`.
int Shift(int64_t first, int64_t second) noexcept
{
    const int64_t lowest = std::min<int64_t>({0, first, second, first + second});
    return static_cast<int>(std::min<int64_t>(-lowest, std::numeric_limits<int>::max()));
}

}  // namespace

DisplayMatrix DisplayMatrix::FromOrientation(ImageOrientation orientation, const FrameSize& size)
{
    DisplayMatrix matrix;
    for (const Turn& turn : turns)
        if (turn.orientation == orientation) {
            matrix.values[0] = turn.a;
            matrix.values[1] = turn.b;
            matrix.values[3] = turn.c;
            matrix.values[4] = turn.d;
        }
    matrix.CorrectTranslation(size);
    return matrix;
}

std::optional<ImageOrientation> DisplayMatrix::GetOrientation() const noexcept
{
    if (values[2] != 0 || values[5] != 0 || values[8] != 1 << 30)
        return std::nullopt;
    for (const Turn& turn : turns)
        if (values[0] == turn.a && values[1] == turn.b && values[3] == turn.c && values[4] == turn.d)
            return turn.orientation;
    return std::nullopt;
}

void DisplayMatrix::CorrectTranslation(const FrameSize& size) noexcept
{
    const int64_t width = std::max(size.width, 0);
    const int64_t height = std::max(size.height, 0);
    values[6] = Shift(values[0] * width, values[3] * height);
    values[7] = Shift(values[1] * width, values[4] * height);
}

}  // namespace Conf
}  // namespace Quorva
