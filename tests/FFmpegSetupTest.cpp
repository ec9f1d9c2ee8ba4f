#include "Proc/Wrappers/Tessadrin/Details/FFmpegSetup.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/Failure.h"

namespace Quorva::Proc {
namespace {

using testing::StartsWith;

TEST(CheckPixelFormats, ComparesEveryPartOfADescription)
{
    const auto rgba = PixFmtDescription(PixFmt::RGBA, "mine", 4, 0, 0,
                                        PixFmtDescription::FLAG_RGB | PixFmtDescription::FLAG_ALPHA);
    const auto yuv = PixFmtDescription(PixFmt::YUV420P, "mine", 3, 1, 1, PixFmtDescription::FLAG_PLANAR);
    const auto changed = [](PixFmtDescription description, auto change) {
        change(description);
        return description;
    };
    const struct {
        const char* what;
        PixFmtDescription description;
        const char* theirs;
    } wrong[] = {
        {"components",       changed(rgba, [](auto& d) { d.components = 3; }),                        "rgba"   },
        {"horizontal shift", changed(yuv,  [](auto& d) { d.chromaShiftX = 0; }),                      "yuv420p"},
        {"vertical shift",   changed(yuv,  [](auto& d) { d.chromaShiftY = 2; }),                      "yuv420p"},
        {"planar flag",      changed(yuv,  [](auto& d) { d.flags = 0; }),                             "yuv420p"},
        {"RGB flag",         changed(rgba, [](auto& d) { d.flags = PixFmtDescription::FLAG_ALPHA; }), "rgba"   },
        {"alpha flag",       changed(rgba, [](auto& d) { d.flags = PixFmtDescription::FLAG_RGB; }),   "rgba"   },
        {"number",           changed(yuv,  [](auto& d) { d.format = static_cast<PixFmt>(9999); }),    "none"   },
    };
    using Details::CheckPixelFormats;
    for (const auto& row : wrong) {
        SCOPED_TRACE(row.what);
        const std::string text =
            "Bad pixel format descriptions: mine (QUORVA) != " + std::string(row.theirs) + " (FFMPEG)";
        EXPECT_EQ(LogicFailureOf([&] { CheckPixelFormats({rgba, row.description, yuv}); }),
                  (Failure{text, "operator ()", "Tessadrin"}));
    }
    EXPECT_NO_THROW(CheckPixelFormats({rgba, yuv})) << "flags that neither side compares are left alone";
    for (const uint32_t flags : {0u, PixFmtDescription::FLAG_ALPHA})
        EXPECT_NO_THROW(CheckPixelFormats({PixFmtDescription(PixFmt::PAL8, "palette", 1, 0, 0, flags)}));
    EXPECT_NO_THROW(CheckPixelFormats(PixFmtDescription::GetSupportedList()));
}

TEST(CheckRuntimeVersion, RefusesLongerStructures)
{
    const int major = LIBAVUTIL_VERSION_MAJOR, minor = LIBAVUTIL_VERSION_MINOR;
    const struct {
        int major, minor;
        bool accepted;
    } rows[] = {
        {major,     minor,     true },
        {major,     minor - 1, true },
        {major,     minor + 1, false},
        {major + 1, 0,         false},
        {major - 1, minor,     false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.major << '.' << row.minor);
        const auto check = [&] { Details::CheckRuntimeVersion(AV_VERSION_INT(row.major, row.minor, 255)); };
        if (row.accepted)
            EXPECT_NO_THROW(check());
        else
            EXPECT_THAT(LogicFailureOf(check).description, StartsWith("Compiled for libavutil "));
    }
}

}  // namespace
}  // namespace Quorva::Proc
