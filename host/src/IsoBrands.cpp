#include "host/ProcessingSupport.h"
#include "host/src/FormatTexts.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace Quorva::Proc {
namespace {

using namespace Quorva::Details;  // NOLINT(google-build-using-namespace): the F_ texts

struct Row {
    std::string_view brand;  ///< four characters
    std::string_view format;
};

#define BRAND(brand, format) Row{brand, format},
constexpr Row rows[] = {
#include "host/Rows/IsoBrands.inc"
};
#undef BRAND

static_assert(std::ranges::adjacent_find(rows, std::ranges::greater_equal(), &Row::brand) == std::end(rows));
static_assert(std::ranges::all_of(rows, [](const Row& row) { return row.brand.size() == 4; }));

}  // namespace

std::string ConvertISOBMFFToFileFormat(uint32_t brand)
{
    const char text[] = {static_cast<char>(brand), static_cast<char>(brand >> 8),
                         static_cast<char>(brand >> 16), static_cast<char>(brand >> 24)};
    const std::string_view wanted(text, sizeof text);
    const Row* const found = std::ranges::lower_bound(rows, wanted, {}, &Row::brand);
    return found != std::end(rows) && found->brand == wanted ? std::string(found->format) : std::string();
}

std::vector<std::string> GetKnownISOBaseMediaFileFormats()
{
    // A ring tone has the brand of other Apple audio; only its extension tells.
    std::vector<std::string> formats = {std::string(F_MOV), std::string(F_MP4), std::string(F_M4R)};
    for (const Row& row : rows)
        if (std::ranges::find(formats, row.format) == formats.end())
            formats.emplace_back(row.format);
    return formats;
}

}  // namespace Quorva::Proc
