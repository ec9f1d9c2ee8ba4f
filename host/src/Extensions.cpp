#include "host/MediaDescription.h"
#include "host/src/FormatTexts.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <unordered_map>

namespace Quorva::Conf {
namespace {

using namespace Quorva::Details;  // NOLINT(google-build-using-namespace): the F_ texts

struct Row {
    std::string_view extension;
    std::array<std::string_view, 4> formats;  ///< most preferred first, then empty
};

#define EXTENSION(extension, ...) Row{extension, {__VA_ARGS__}},
constexpr Row rows[] = {
#include "host/Rows/Extensions.inc"
};
#undef EXTENSION

constexpr bool NamesNothingTwice(const Row& row)
{
    for (std::size_t i = 0; i < row.formats.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (!row.formats[i].empty() && row.formats[i] == row.formats[j])
                return false;
    return true;
}
static_assert(std::ranges::adjacent_find(rows, std::ranges::greater_equal(), &Row::extension) ==
              std::end(rows));
static_assert(std::ranges::all_of(rows, NamesNothingTwice));

/// One still image, if perhaps in several sizes or pages. Formats that FFmpeg alone names are given as text.
constexpr std::string_view stillImages[] = {
    F_BMP,      F_CRI,    F_DDS,          F_DPX,    F_EXR,     F_GEM, F_HEIC,        F_ICO,  F_JPEG,
    F_JPEG2000, F_JPEGLS, F_JPEGXL,       F_PAM,    F_PBM,     F_PCX, F_PFM,         F_PGM,  F_PGMYUV,
    F_PGX,      F_PHM,    F_PHOTOCD,      F_PICTOR, F_PIX,     F_PNG, F_PPM,         F_PSD,  F_PTX,
    F_QDRAW,    F_QOI,    F_RADIANCE_HDR, F_SGI,    F_SUNRAST, F_SVG, F_TARGA,       F_TIFF, F_VBN,
    F_WBMP,     F_WEBP,   F_XBM,          F_XFACE,  F_XPM,     F_XWD, "brender_pix", "msp"};

/// AVIF and HEIF name images and sequences alike; HEIC has a name of its own for sequences.
constexpr std::string_view animations[] = {F_AJPEGXL, F_APNG,  F_AVIF, F_AWEBP,
                                           F_GIF,     F_HEICS, F_HEIF, "fits"};

}  // namespace

const std::vector<std::string>& GetFormatsByExtension(const std::string& extension)
{
    using Map = std::unordered_map<std::string_view, std::vector<std::string>>;
    static const Map formats = [] {
        Map map;
        map.reserve(std::size(rows));
        for (const Row& row : rows) {
            std::vector<std::string>& list = map[row.extension];
            for (const std::string_view format : row.formats)
                if (!format.empty())
                    list.emplace_back(format);
        }
        return map;
    }();
    static const std::vector<std::string> none;

    std::string lower = extension;
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    const auto found = formats.find(lower);
    return found == formats.end() ? none : found->second;
}

const std::unordered_set<std::string>& GetImageContainerSet(AnimatedImages animated)
{
    using Set = std::unordered_set<std::string>;
    static const Set still = [] {
        Set set;
        for (const std::string_view format : stillImages)
            set.emplace(format);
        return set;
    }();
    static const Set all = [] {
        Set set = still;
        for (const std::string_view format : animations)
            set.emplace(format);
        return set;
    }();
    return animated == AnimatedImages::Include ? all : still;
}

}  // namespace Quorva::Conf
