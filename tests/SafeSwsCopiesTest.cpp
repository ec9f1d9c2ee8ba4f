// Pictures that the scaler's owner copies by itself, as FFmpeg would leave part of them unwritten.
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "tests/support/Frames.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::YCbCrMatrix;

/// A picture in memory of exactly its size, or with a tail that belongs to somebody else.
struct Tight {
    Tight(AVPixelFormat format, int width, int height, int gap, int tail)
        : descriptor(*av_pix_fmt_desc_get(format))
    {
        for (int plane = 0; plane < 2; ++plane) {
            length[plane] = av_image_get_linesize(format, width, plane);
            stride[plane] = length[plane] + gap;
            rows[plane] = plane ? AV_CEIL_RSHIFT(height, descriptor.log2_chroma_h) : height;
            bytes[plane].assign(static_cast<size_t>(stride[plane]) * rows[plane] - gap + tail, 0xEE);
        }
    }

    /// The planes from luma row `y` on.
    template <class Planes>
    Planes From(int y)
    {
        Planes planes;
        for (int plane = 0; plane < 2; ++plane) {
            const int row = plane ? AV_CEIL_RSHIFT(y, descriptor.log2_chroma_h) : y;
            planes.data[plane] = bytes[plane].data() + static_cast<size_t>(row) * stride[plane];
            planes.linesize[plane] = stride[plane];
        }
        return planes;
    }

    const AVPixFmtDescriptor& descriptor;
    int length[2], stride[2], rows[2];
    std::vector<uint8_t> bytes[2];
};

void CopyInSlices(AVPixelFormat format, int width, int height, int step)
{
    SCOPED_TRACE(testing::Message() << av_get_pix_fmt_name(format) << ' ' << width << 'x' << height << " by "
                                    << step);
    const SwsItem side = {width, height, format};
    const SafeSwsContext context(SwsCtxParams{side, side});
    Tight source(format, width, height, 5, 0), target(format, width, height, 2, 200);
    for (auto& plane : source.bytes)
        std::iota(plane.begin(), plane.end(), uint8_t{0});
    for (int y = 0; y < height; y += step)
        EXPECT_EQ(context.Scale(source.From<SwsSource>(y), y, std::min(step, height - y),
                                target.From<SwsDestination>(0)),
                  height);
    for (int plane = 0; plane < 2; ++plane)
        for (size_t i = 0; i < target.bytes[plane].size(); ++i) {
            const size_t row = i / target.stride[plane], column = i % target.stride[plane];
            const bool inside = row < static_cast<size_t>(source.rows[plane]) &&
                                column < static_cast<size_t>(source.length[plane]);
            ASSERT_EQ(target.bytes[plane][i],
                      inside ? source.bytes[plane][row * source.stride[plane] + column] : 0xEE)
                << plane << ' ' << row << ' ' << column;
        }
}

TEST(SafeSwsCopies, EqualSemiPlanarSidesAreCopiedRowByRow)
{
    int formats = 0;
    for (const AVPixFmtDescriptor* d = nullptr; (d = av_pix_fmt_desc_next(d));) {
        if (!(d->flags & AV_PIX_FMT_FLAG_PLANAR) || (d->flags & AV_PIX_FMT_FLAG_RGB) ||
            d->comp[1].plane != 1 || d->comp[2].plane != 1)
            continue;
        ++formats;
        for (const int height : {8, 9, 17})
            for (const int width : {1, 7, 32})
                for (const int step : {1, 3, 5, height})  // 5 ends 8 rows with three from an odd one on
                    CopyInSlices(av_pix_fmt_desc_get_id(d), width, height, step);
    }
    EXPECT_EQ(formats, 25);
}

TEST(SafeSwsCopies, SlicesOutsideThePictureCopyNothing)
{
    const SwsItem side = {8, 8, AV_PIX_FMT_NV12};
    const SafeSwsContext context(SwsCtxParams{side, side});
    Tight source(side.format, 8, 8, 0, 0), target(side.format, 8, 8, 0, 0);
    source.bytes[0].assign(64, 1);
    for (const auto& [y, rows] : {
             std::pair(-2, 2), {8,       2      },
               {0,       0      },
               {4,       -1     },
               {INT_MAX, INT_MAX}
    })
        EXPECT_EQ(context.Scale(source.From<SwsSource>(0), y, rows, target.From<SwsDestination>(0)), 8);
    EXPECT_THAT(target.bytes[0], testing::Each(0xEE));
    // A missing plane on either side ends the copy.
    SwsSource luma = source.From<SwsSource>(0);
    luma.data[1] = nullptr;
    EXPECT_EQ(context.Scale(luma, target.From<SwsDestination>(0)), 8);
    EXPECT_THAT(target.bytes[0], testing::Each(1));
    EXPECT_THAT(target.bytes[1], testing::Each(0xEE));
}

TEST(SafeSwsCopies, OnlyEqualSemiPlanarSidesAreCopied)
{
    // A copy says the picture's height whatever was copied, the scaler how many rows it wrote.
    const auto copies = [](const SwsCtxParams& params) {
        const Frame source = NewFrame(params.src.format, 16, 16),
                    target = NewFrame(params.dst.format, 16, 16);
        return SafeSwsContext(params).Scale(SwsSource(source), 0, 8, SwsDestination(target)) == 16;
    };
    const auto both = [](AVPixelFormat format) {
        return SwsCtxParams{
            {16, 16, format},
            {16, 16, format}
        };
    };
    EXPECT_TRUE(copies(both(AV_PIX_FMT_NV12)));
    EXPECT_TRUE(copies(both(AV_PIX_FMT_P010BE)));
    for (const auto format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGBA, AV_PIX_FMT_GBRP, AV_PIX_FMT_YUYV422,
                              AV_PIX_FMT_GRAY8, AV_PIX_FMT_YA8, AV_PIX_FMT_YUVA420P})
        EXPECT_FALSE(copies(both(format))) << av_get_pix_fmt_name(format);

    SwsCtxParams matrices = both(AV_PIX_FMT_NV12);
    matrices.src.matrix = YCbCrMatrix::BT709;
    EXPECT_FALSE(copies(matrices));
    const std::unique_ptr<SwsFilter, void (*)(SwsFilter*)> filter(sws_getDefaultFilter(1, 0, 0, 0, 0, 0, 0),
                                                                  sws_freeFilter);
    SwsCtxParams filtered = both(AV_PIX_FMT_NV12);
    filtered.dst.filter = filter.get();
    EXPECT_FALSE(copies(filtered));
    filtered.src.filter = filter.get();
    EXPECT_TRUE(copies(filtered));
}

// What FFmpeg's scaler would take for a copy: it leaves the chroma as it was.
TEST(SafeSwsCopies, SemiPlanarSidesThatDifferInNameOnlyKeepTheirChroma)
{
    const std::unique_ptr<SwsFilter, void (*)(SwsFilter*)> filter(sws_getDefaultFilter(0, 0, 0, 0, 0, 0, 0),
                                                                  sws_freeFilter);
    for (const auto format : {AV_PIX_FMT_NV12, AV_PIX_FMT_NV21, AV_PIX_FMT_P010LE, AV_PIX_FMT_P016LE,
                              AV_PIX_FMT_NV16, AV_PIX_FMT_NV24, AV_PIX_FMT_P210LE, AV_PIX_FMT_P416LE})
        for (const auto& [from, to] : {
                 std::pair(YCbCrMatrix::Unspecified, YCbCrMatrix::BT709),
                 {YCbCrMatrix::BT470BG, YCbCrMatrix::SMPTE170M}
        })
            for (SwsFilter* const without : {static_cast<SwsFilter*>(nullptr), filter.get()}) {
                SCOPED_TRACE(av_get_pix_fmt_name(format));
                const Frame source = NewFrame(format, 32, 16), target = NewFrame(format, 32, 16);
                for (const auto& [frame, value] : {
                         std::pair(&source, 0x40), {&target, 0x99}
                })
                    std::memset((*frame)->buf[0]->data, value,
                                (*frame)->buf[0]->size);  // all planes are in it
                const SwsCtxParams params{
                    {32, 16, format, from, without},
                    {32, 16, format, to}
                };
                EXPECT_EQ(SafeSwsContext(params).Scale(SwsSource(source), SwsDestination(target)), 16);
                for (int plane = 0; plane < 2; ++plane)
                    for (int x = 0; x < 32; ++x)
                        ASSERT_EQ(target->data[plane][target->linesize[plane] * 7 + x], 0x40)
                            << plane << ", " << x;
            }
}

}  // namespace
}  // namespace Quorva::Proc
