#include "Proc/Wrappers/Tessadrin/Details/FFmpegSetup.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/Failure.h"

#include <stdexcept>

namespace Quorva::Proc {
namespace {

using testing::StartsWith;

/// The first line of what `action` says in a std::logic_error, and the place; empty when it says nothing.
template <class Action>
Failure RefusalOf(Action action)
{
    try {
        action();
    } catch (const std::logic_error& e) {
        const std::string text = e.what();
        EXPECT_GT(text.size(), text.find('\n') + 10) << "no call stack";
        return PlaceOf(e, text.substr(0, text.find('\n')));
    }
    return {};
}

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
    const auto refusal = [](std::vector<PixFmtDescription> list) {
        return RefusalOf([&] { Details::CheckPixelFormats(list); });
    };
    for (const auto& row : wrong) {
        SCOPED_TRACE(row.what);
        const std::string text =
            "Bad pixel format descriptions: mine (QUORVA) != " + std::string(row.theirs) + " (FFMPEG)";
        EXPECT_EQ(refusal({rgba, row.description, yuv}), (Failure{text, "operator ()", "Tessadrin"}));
    }
    EXPECT_EQ(refusal({rgba, yuv}), Failure()) << "flags that neither side compares are left alone";
    for (const uint32_t flags : {0u, PixFmtDescription::FLAG_ALPHA})
        EXPECT_EQ(refusal({PixFmtDescription(PixFmt::PAL8, "palette", 1, 0, 0, flags)}), Failure());
    EXPECT_EQ(refusal(PixFmtDescription::GetSupportedList()), Failure());
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
        const Failure refusal =
            RefusalOf([&] { Details::CheckRuntimeVersion(AV_VERSION_INT(row.major, row.minor, 255)); });
        if (row.accepted)
            EXPECT_EQ(refusal, Failure());
        else
            EXPECT_THAT(refusal.description, StartsWith("Compiled for libavutil "));
    }
}

}  // namespace
}  // namespace Quorva::Proc
