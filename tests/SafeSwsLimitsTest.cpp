// Parameters with which FFmpeg's scaler would end the process.
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"

#include "tests/support/Failure.h"
#include "tests/support/Frames.h"

#include <climits>
#include <limits>

namespace Quorva::Proc {
namespace {

using Conf::YCbCrMatrix;

TEST(SafeSwsLimits, ParametersThatWouldEndTheProcessAreRefused)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN(), standard = SWS_PARAM_DEFAULT;
    const auto other = YCbCrMatrix::BT2020NCL;
    const struct {
        AVPixelFormat from, to;
        int height, flags;
        double first, second;
        bool refused;
        YCbCrMatrix matrix = YCbCrMatrix::BT709;
    } rows[] = {
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, 0, 0, true},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, -1, 0, true},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, nan, 0, true},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, INT_MAX, 0, true},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, 1e-300, 0, false},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 40, SWS_LANCZOS, standard, 0, false},
        {AV_PIX_FMT_GRAY8, AV_PIX_FMT_GRAY8, 32, SWS_LANCZOS, 0, 0, false}, // nothing to scale
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA, 32, SWS_LANCZOS, 0, 0, false},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P, 32, SWS_LANCZOS, 0, 0, true},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 32, SWS_LANCZOS, 0, 0, false, other},
        {AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_YUV420P10LE, 32, SWS_LANCZOS, 0, 0, true, other},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 32, SWS_LANCZOS, 3, 0, false, other},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_X, -3, 0, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_X, 3, 0, false},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_GAUSS, -3, 0, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_GAUSS, nan, 0, false},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_GRAY8, 40, SWS_GAUSS, -3, 0, false},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_BICUBIC, 12, standard, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, 0, nan, standard, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_BICUBLIN, standard, -100, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB565LE, 40, SWS_BICUBIC, 1, 1, false},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB565LE, 32, SWS_BICUBIC | SWS_ACCURATE_RND, 12, 0, true},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_BGRA, 40, SWS_BICUBIC, 12, 0, false},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_GBRP, 40, SWS_BICUBIC, 12, 0, false},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 40, SWS_BICUBIC, 1e6, 0, false},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 40, SWS_BICUBIC, 1e6, 0, true, other},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P10LE, 40, SWS_BICUBIC, 1e6, 0, false, other},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV410P, 40, SWS_FAST_BILINEAR | SWS_BILINEAR, 0, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        SwsCtxParams params{
            {32,                                    32,         row.from, YCbCrMatrix::BT709},
            {row.to == AV_PIX_FMT_YUV410P ? 8 : 32, row.height, row.to,   row.matrix        },
            row.flags
        };
        params.params = {row.first, row.second};
        if (row.refused) {
            EXPECT_EQ(FailureOf<SafeSwsContext::Exception>([&] { SafeSwsContext{params}; }),
                      (Failure{"Can't init SW Scale context", "SafeSwsContext", "SafeSwsContext"}));
            continue;
        }
        const Frame source = NewFrame(row.from, 32, 32), target = NewFrame(row.to, 32, row.height);
        for (size_t i = 0; i < source->buf[0]->size; ++i)  // the planes of small pictures are in one buffer
            source->buf[0]->data[i] = i * i % 7 < 3 ? 255 : 0;
        EXPECT_EQ(SafeSwsContext(params).Scale(SwsSource(source), SwsDestination(target)), row.height);
    }
}

TEST(SafeSwsLimits, RowsThatSplitSamplesAreRefused)
{
    const SafeSwsContext context(SwsCtxParams{
        {32, 32, AV_PIX_FMT_YUV420P10LE},
        {32, 32, AV_PIX_FMT_P010LE     }
    });
    const Frame source = NewFrame(AV_PIX_FMT_YUV420P10LE, 32, 32),
                target = NewFrame(AV_PIX_FMT_P010LE, 32, 32);
    EXPECT_EQ(context.Scale(*source, *target), 32);
    for (int* const size : {&source->linesize[1], &target->linesize[0]}) {
        --*size;
        EXPECT_EQ(context.Scale(*source, *target), AVERROR(EINVAL));
        EXPECT_EQ(context.Scale(SwsSource(source), SwsDestination(target)), AVERROR(EINVAL));
        ++*size;
    }
}

}  // namespace
}  // namespace Quorva::Proc
