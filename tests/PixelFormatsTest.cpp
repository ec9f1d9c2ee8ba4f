#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

namespace Quorva::Proc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using List = std::vector<PixFmt>;

constexpr auto unknown = static_cast<PixFmt>(1000);

List Everything()
{
    List list;
    for (const PixFmtDescription& description : PixFmtDescription::GetSupportedList())
        list.push_back(description.format);
    return list;
}

TEST(PixelFormats, ConversionsKeepNumbersAndOrder)
{
    EXPECT_EQ(PixelFormatQuorvaFromFFMPEGSafe(AV_PIX_FMT_NV12), PixFmt::NV12);
    EXPECT_EQ(PixelFormatQuorvaFromFFMPEGSafe(AV_PIX_FMT_NONE), PixFmt::NONE);
    EXPECT_EQ(PixelFormatQuorvaFromFFMPEGSafe(static_cast<AVPixelFormat>(200)), static_cast<PixFmt>(200));
    EXPECT_THAT(PixelFormatsFFMPEGFromQuorva({PixFmt::RGB24, PixFmt::NONE, PixFmt::YUV420P, PixFmt::RGB24}),
                ElementsAre(AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB24));
    EXPECT_THAT(PixelFormatsQuorvaFromFFMPEG(
                    {AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE, AV_PIX_FMT_NB, AV_PIX_FMT_CUDA, AV_PIX_FMT_RGB24}),
                ElementsAre(PixFmt::RGB24, PixFmt::CUDA, PixFmt::RGB24));
}

TEST(PixelFormats, IntersectionFollowsTheFirstList)
{
    const PixFmt a = PixFmt::GRAY, b = PixFmt::RGB24, c = PixFmt::NV12;
    EXPECT_THAT(PixelFormatsIntersection({a, b, a}, {a}), ElementsAre(a, a));
    EXPECT_THAT(PixelFormatsIntersection({c, a, b}, {b, b, c}), ElementsAre(c, b));
    EXPECT_THAT(PixelFormatsIntersection({a, b}, {}), IsEmpty());
    EXPECT_THAT(PixelFormatsIntersection({}, {a}), IsEmpty());
}

TEST(PixelFormats, ScalerFilterDropsWhatEitherSideRefuses)
{
    // mediacodec: neither; xyz12be is read and written; yuv420p9 and bayer differ between the sides in
    // FFmpeg 7.1.
    const List all = Everything();
    const auto filter = [&](bool input, bool output) {
        return FilterPixelFormatsForSwScaling(all, input, output);
    };
    EXPECT_EQ(filter(false, false), all);
    EXPECT_EQ(filter(true, true), PixelFormatsIntersection(filter(true, false), filter(false, true)));
    for (const PixFmt format : all) {
        const auto ffmpeg = static_cast<AVPixelFormat>(format);
        SCOPED_TRACE(av_get_pix_fmt_name(ffmpeg));
        EXPECT_EQ(std::ranges::count(filter(true, false), format), IsSwScalingSupportedAsInput(ffmpeg));
        EXPECT_EQ(std::ranges::count(filter(false, true), format), IsSwScalingSupportedAsOutput(ffmpeg));
    }
    EXPECT_TRUE(IsSwScalingSupportedAsInput(AV_PIX_FMT_PAL8));
    EXPECT_FALSE(IsSwScalingSupportedAsOutput(AV_PIX_FMT_PAL8));
    EXPECT_THAT(
        FilterPixelFormatsForSwScaling({PixFmt::NONE, PixFmt::NV12, unknown, PixFmt::CUDA}, true, false),
        ElementsAre(PixFmt::NV12));
}

// What the function promises, step by step and with FFmpeg's own functions: a fold of pairs in which the
// losses to disregard stay the caller's, and the loss of the winner at the end.
struct Choice {
    PixFmt format;
    int loss;
    bool operator==(const Choice&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const Choice& choice)
    {
        return stream << static_cast<int>(choice.format) << " losing " << choice.loss;
    }
};

Choice NaiveChoice(const List& list, PixFmt source, bool hasAlpha, int disregarded)
{
    int winner = -1;
    for (const PixFmt format : list) {
        if (format == source)
            return {source, disregarded};
        int mask = disregarded;
        const int challenger = static_cast<int>(format);
        if (challenger != -1)
            winner = winner == -1
                         ? challenger
                         : av_find_best_pix_fmt_of_2(static_cast<AVPixelFormat>(winner),
                                                     static_cast<AVPixelFormat>(challenger),
                                                     static_cast<AVPixelFormat>(source), hasAlpha, &mask);
    }
    return {static_cast<PixFmt>(winner), av_get_pix_fmt_loss(static_cast<AVPixelFormat>(winner),
                                                             static_cast<AVPixelFormat>(source), hasAlpha)};
}

TEST(FindBestPixelFormatOfList, ChoosesAsPairwiseRankingDoes)
{
    List sparse;
    for (size_t i = 0; i < Everything().size(); i += 7)
        sparse.push_back(Everything()[i]);
    const List ofBitmaps = {PixFmt::BGRA, PixFmt::BGR24, PixFmt::GRAY};
    const List ofVideo = {PixFmt::NONE,    PixFmt::YUV420P, PixFmt::NONE,  PixFmt::YUV422P,
                          PixFmt::YUV444P, PixFmt::NV12,    PixFmt::P010LE};
    const List ofOthers = {PixFmt::PAL8, PixFmt::YUVA420P, PixFmt::GRAY16LE, PixFmt::RGB565LE, PixFmt::MONOW};
    const List lists[] = {ofBitmaps, ofVideo, ofOthers, sparse};
    for (const List& list : lists)
        for (const PixFmt source : Everything())
            for (const bool hasAlpha : {false, true})
                for (const int disregarded :
                     {0, FF_LOSS_ALPHA, FF_LOSS_CHROMA | FF_LOSS_COLORSPACE, 0xffff}) {
                    SCOPED_TRACE(testing::Message()
                                 << "list " << &list - lists << ", source " << static_cast<int>(source)
                                 << ", alpha " << hasAlpha << ", disregarded " << disregarded);
                    const Choice expected = NaiveChoice(list, source, hasAlpha, disregarded);
                    int loss = disregarded;
                    const PixFmt format = FindBestPixelFormatOfList(list, source, hasAlpha, &loss);
                    EXPECT_EQ((Choice{format, loss}), expected);
                    loss = disregarded;
                    const PixFmt same =
                        FindBestPixelFormatOfList(list, static_cast<AVPixelFormat>(source), hasAlpha, &loss);
                    EXPECT_EQ((Choice{same, loss}), expected);
                    if (disregarded == 0) {
                        EXPECT_EQ(FindBestPixelFormatOfList(list, source, hasAlpha, nullptr),
                                  expected.format);
                    }
                }
}

TEST(FindBestPixelFormatOfList, LossIsLeftAloneWhereNothingIsCompared)
{
    const struct {
        const char* name;
        List list;
        PixFmt source, expected;
        int loss;
    } rows[] = {
        {"empty list",        {},                                          PixFmt::NV12, PixFmt::NONE, 0 },
        {"nothing in it",     {PixFmt::NONE, PixFmt::NONE},                PixFmt::NV12, PixFmt::NONE, 0 },
        {"empty, no source",  {},                                          PixFmt::NONE, PixFmt::NONE, 0 },
        {"no source",         {PixFmt::NONE, PixFmt::GRAY, PixFmt::NV12},  PixFmt::NONE, PixFmt::GRAY, 77},
        {"the source itself", {PixFmt::GRAY, PixFmt::RGB24, PixFmt::NV12}, PixFmt::NV12, PixFmt::NV12, 77},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int loss = 77;
        EXPECT_EQ(FindBestPixelFormatOfList(row.list, row.source, true, &loss), row.expected);
        EXPECT_EQ(loss, row.loss);
        EXPECT_EQ(FindBestPixelFormatOfList(row.list, row.source, true, nullptr), row.expected);
    }
}

TEST(GetLineSize, IsFFmpegsForEveryPlaneThereIs)
{
    EXPECT_EQ(GetLineSize(PixFmt::YUV420P, 33, 0), 33);
    EXPECT_EQ(GetLineSize(PixFmt::YUV420P, 33, 1), 17);
    EXPECT_EQ(GetLineSize(PixFmt::NV12, 33, 1), 34);
    EXPECT_EQ(GetLineSize(PixFmt::YUV420P, 33, 3), 0);
    for (const int plane : {-1, 4, INT_MIN, INT_MAX})
        EXPECT_EQ(GetLineSize(PixFmt::YUV420P, 33, plane), AVERROR(EINVAL)) << plane;
    EXPECT_LT(GetLineSize(PixFmt::YUV420P, -1, 0), 0);
    for (const PixFmt format : {PixFmt::NONE, PixFmt::CUDA, unknown})
        EXPECT_LT(GetLineSize(format, 33, 0), 0);
}

TEST(PixelFormats, DepthAndAlphaOfEveryKind)
{
    const struct {
        AVPixelFormat format;
        int bits;
        bool alpha;
    } rows[] = {
        {AV_PIX_FMT_YUV420P10LE, 10, false},
        {AV_PIX_FMT_YUVA420P,    8,  true },
        {AV_PIX_FMT_RGB565LE,    6,  false},
        {AV_PIX_FMT_X2RGB10LE,   10, false},
        {AV_PIX_FMT_GBRAPF32LE,  32, true },
        {AV_PIX_FMT_PAL8,        8,  true },
        {AV_PIX_FMT_MONOWHITE,   1,  false},
        {AV_PIX_FMT_VAAPI,       0,  false},
        {AV_PIX_FMT_NONE,        0,  false},
        {AV_PIX_FMT_NB,          0,  false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(GetPixelChannelMaximalBits(row.format), row.bits);
        EXPECT_EQ(GetPixelChannelMaximalBits(GetPixelFormatDescription(row.format)), row.bits);
        EXPECT_EQ(HasAlpha(row.format), row.alpha);
    }
    EXPECT_EQ(GetPixelFormatDescription(AV_PIX_FMT_NV12)->name, std::string("nv12"));
    EXPECT_EQ(GetPixelFormatDescription(AV_PIX_FMT_NONE), nullptr);
    // The deepest component need not be the first.
    AVPixFmtDescriptor deepLast = *GetPixelFormatDescription(AV_PIX_FMT_RGBA);
    deepLast.comp[3].depth = 12;
    EXPECT_EQ(GetPixelChannelMaximalBits(&deepLast), 12);
    deepLast.nb_components = 0;
    EXPECT_EQ(GetPixelChannelMaximalBits(&deepLast), 8) << "the first component of none";
}

}  // namespace
}  // namespace Quorva::Proc
