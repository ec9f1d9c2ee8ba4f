#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"

#include "tests/support/Frames.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <thread>
#include <utility>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::YCbCrMatrix;

using Colour = std::array<int, 3>;

/// One colour everywhere; samples of 8 bits, of three planes or three in one.
Frame Flat(AVPixelFormat format, const Colour& colour, int size = 16)
{
    Frame frame = NewFrame(format, size, size);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            for (int i = 0; i < 3; ++i)
                (format == AV_PIX_FMT_RGB24 ? frame->data[0][y * frame->linesize[0] + 3 * x + i]
                                            : frame->data[i][y * frame->linesize[i] + x]) =
                    static_cast<uint8_t>(colour[i]);
    return frame;
}

/// The colour in the middle.
Colour Middle(const AVFrame& frame)
{
    Colour colour;
    for (int i = 0; i < 3; ++i)
        colour[i] = frame.format == AV_PIX_FMT_RGB24
                        ? frame.data[0][frame.height / 2 * frame.linesize[0] + 3 * (frame.width / 2) + i]
                        : frame.data[i][frame.height / 2 * frame.linesize[i] + frame.width / 2];
    return colour;
}

struct Weights {
    double kr, kb;
};
constexpr Weights bt601 = {0.299, 0.114}, bt709 = {0.2126, 0.0722}, bt2020 = {0.2627, 0.0593},
                  smpte240 = {0.212, 0.087}, fcc = {0.30, 0.11};

/// By the definition of Y'CbCr.
Colour Encode(const Colour& rgb, const Weights& weights, bool full = false)
{
    const double r = rgb[0] / 255.0, g = rgb[1] / 255.0, b = rgb[2] / 255.0;
    const double y = weights.kr * r + (1 - weights.kr - weights.kb) * g + weights.kb * b;
    const double scale = full ? 255 : 219, chroma = full ? 255 : 224;
    return {static_cast<int>(std::lround((full ? 0 : 16) + scale * y)),
            std::min(static_cast<int>(std::lround(128 + chroma * (b - y) / (2 * (1 - weights.kb)))), 255),
            std::min(static_cast<int>(std::lround(128 + chroma * (r - y) / (2 * (1 - weights.kr)))), 255)};
}

constexpr int accurate = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;

SwsCtxParams Conversion(AVPixelFormat from, YCbCrMatrix fromMatrix, AVPixelFormat to, YCbCrMatrix toMatrix,
                        int size = 16)
{
    return {
        {size, size, from, fromMatrix},
        {size, size, to, toMatrix},
        accurate, {}
    };
}

Colour Convert(const Colour& colour, const SwsCtxParams& params)
{
    const Frame source = Flat(params.src.format, colour, params.src.width);
    const Frame target = NewFrame(params.dst.format, params.dst.width, params.dst.height);
    EXPECT_EQ(SafeSwsContext(params).Scale(SwsSource(source), SwsDestination(target)), params.dst.height);
    return Middle(*target);
}

constexpr Colour colours[] = {
    {255, 0,   0  },
    {0,   255, 0  },
    {0,   0,   255},
    {255, 255, 255},
    {0,   0,   0  },
    {200, 60,  120},
};

void ExpectNear(const Colour& found, const Colour& expected, int tolerance)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(found[i], expected[i], tolerance) << i;
}

TEST(SafeSwsContext, ColoursFollowTheMatrices)
{
    const struct {
        YCbCrMatrix matrix;
        Weights weights;
    } rows[] = {
        {YCbCrMatrix::BT709,     bt709   },
        {YCbCrMatrix::FCC,       fcc     },
        {YCbCrMatrix::BT470BG,   bt601   },
        {YCbCrMatrix::SMPTE170M, bt601   },
        {YCbCrMatrix::SMPTE240M, smpte240},
        {YCbCrMatrix::BT2020NCL, bt2020  },
        {YCbCrMatrix::BT2020CL,  bt2020  },
    };
    for (const auto& row : rows)
        for (const Colour& colour : colours) {
            SCOPED_TRACE(testing::Message()
                         << static_cast<int>(row.matrix) << ": " << testing::PrintToString(colour));
            const Colour encoded = Encode(colour, row.weights);
            ExpectNear(
                Convert(encoded, Conversion(AV_PIX_FMT_YUV444P, row.matrix, AV_PIX_FMT_RGB24, row.matrix)),
                colour, 2);
            ExpectNear(
                Convert(colour, Conversion(AV_PIX_FMT_RGB24, row.matrix, AV_PIX_FMT_YUV444P, row.matrix)),
                encoded, 2);
            for (const auto& other : rows)
                ExpectNear(Convert(encoded, Conversion(AV_PIX_FMT_YUV444P, row.matrix, AV_PIX_FMT_YUV444P,
                                                       other.matrix)),
                           Encode(colour, other.weights), 3);
        }
}

TEST(SafeSwsContext, AnUnspecifiedMatrixLeavesTheScalersOwn)
{
    const Colour colour = {200, 60, 120};
    for (const auto& [from, to] : {
             std::pair(YCbCrMatrix::BT709, YCbCrMatrix::Unspecified),
             {YCbCrMatrix::Unspecified, YCbCrMatrix::BT709}
    })
        ExpectNear(Convert(Encode(colour, bt601), Conversion(AV_PIX_FMT_YUV444P, from, AV_PIX_FMT_RGB24, to)),
                   colour, 2);
}

/// A grey picture of `luma` and no colour.
Frame Grey(AVPixelFormat format, int luma)
{
    Frame frame = NewFrame(format, 16, 16);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane ? AV_CEIL_RSHIFT(16, av_pix_fmt_desc_get(format)->log2_chroma_h) : 16;
        std::fill_n(frame->data[plane], rows * frame->linesize[plane], plane ? 128 : luma);
    }
    return frame;
}

std::atomic<int> complaints;

TEST(SafeSwsContext, DeprecatedFormatsAreFullRangeAndLogNothing)
{
    const auto first = [](const Frame& source, AVPixelFormat format, YCbCrMatrix matrix) {
        const Frame target = NewFrame(format, 16, 16);
        const auto from = static_cast<AVPixelFormat>(source->format);
        const SafeSwsContext context(Conversion(from, matrix, format, matrix));
        EXPECT_EQ(context.Scale(SwsSource(source), SwsDestination(target)), 16);
        return int{target->data[0][0]};
    };
    const std::pair<AVPixelFormat, AVPixelFormat> rows[] = {
        {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P},
        {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
        {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P},
        {AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUV440P},
        {AV_PIX_FMT_YUVJ411P, AV_PIX_FMT_YUV411P},
    };
    complaints = 0;
    av_log_set_callback(
        [](void*, int level, const char*, va_list) { complaints += level <= AV_LOG_WARNING; });
    for (const auto& [full, limited] : rows)
        for (const auto matrix : {YCbCrMatrix::BT709, YCbCrMatrix::Unspecified}) {
            SCOPED_TRACE(av_get_pix_fmt_name(full));
            for (const int grey : {0, 16, 100, 235, 255}) {
                const Frame rgb = Flat(AV_PIX_FMT_RGB24, {grey, grey, grey});
                const int inLimited = 16 + (grey * 219 + 127) / 255;
                EXPECT_NEAR(first(Grey(full, grey), AV_PIX_FMT_RGB24, matrix), grey, 1);
                EXPECT_NEAR(first(Grey(limited, inLimited), AV_PIX_FMT_RGB24, matrix), grey, 2);
                EXPECT_NEAR(first(rgb, full, matrix), grey, 1);
                EXPECT_NEAR(first(rgb, limited, matrix), inLimited, 1);
                EXPECT_NEAR(first(Grey(full, grey), limited, matrix), inLimited, 1)
                    << "one side's range for both";
            }
        }
    av_log_set_callback(FFMpegLogCallback);
    EXPECT_EQ(complaints, 0);
}

TEST(SafeSwsContext, MatricesWithoutWeightsDoNoHarm)
{
    const Colour colour = {200, 60, 120};
    for (const int matrix : {0, 3, 8, 11, 12, 13, 14, 15, 16, 17, 18, 255, -1}) {
        SCOPED_TRACE(matrix);
        const auto unknown = static_cast<YCbCrMatrix>(matrix);
        ExpectNear(Convert(Encode(colour, bt601),
                           Conversion(AV_PIX_FMT_YUV444P, unknown, AV_PIX_FMT_RGB24, unknown)),
                   colour, 2);
        ExpectNear(Convert(Encode(colour, bt709),
                           Conversion(AV_PIX_FMT_YUV444P, YCbCrMatrix::BT709, AV_PIX_FMT_YUV444P, unknown)),
                   Encode(colour, bt601), 3);
    }
}

TEST(GetCoefficients, AreFFmpegsWhereBothHaveTheMatrix)
{
    const auto table = [](const int* values) {
        return std::array{values[0], values[1], values[2], values[3]};
    };
    for (const auto matrix : {YCbCrMatrix::BT709, YCbCrMatrix::FCC, YCbCrMatrix::BT470BG,
                              YCbCrMatrix::SMPTE170M, YCbCrMatrix::SMPTE240M, YCbCrMatrix::BT2020NCL}) {
        SCOPED_TRACE(static_cast<int>(matrix));
        const int* ours = SafeSwsContext::GetCoefficients(matrix);
        const int* theirs = sws_getCoefficients(static_cast<int>(matrix));
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(ours[i], theirs[i], 1) << i;  // FFmpeg cuts where we round
        EXPECT_EQ(SafeSwsContext::GetCoefficients(matrix), ours);
    }
    EXPECT_EQ(table(SafeSwsContext::GetCoefficients(YCbCrMatrix::SMPTE170M)),
              (std::array{104597, 132201, 25675, 53279}));
    EXPECT_EQ(table(SafeSwsContext::GetCoefficients(YCbCrMatrix::BT709)),
              (std::array{117489, 138438, 13975, 34925}));
    EXPECT_EQ(SafeSwsContext::GetCoefficients(YCbCrMatrix::BT2020NCL)[0], 110014);
}

TEST(GetCoefficients, OneTableForAllThreads)
{
    std::array<const int*, 8> found = {};
    std::vector<std::thread> threads;
    for (const int*& pointer : found)
        threads.emplace_back([&pointer] {
            for (int matrix = 100; matrix < 150; ++matrix)
                pointer = SafeSwsContext::GetCoefficients(static_cast<YCbCrMatrix>(matrix));
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(found, testing::Each(found[0]));
}

}  // namespace
}  // namespace Quorva::Proc
