#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
#include "tests/support/Failure.h"

#include <array>
#include <atomic>
#include <climits>
#include <cmath>
#include <memory>
#include <numeric>
#include <thread>
#include <type_traits>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::YCbCrMatrix;

static_assert(!std::is_copy_constructible_v<SafeSwsContext> && !std::is_copy_assignable_v<SafeSwsContext>);
static_assert(std::is_nothrow_move_constructible_v<SafeSwsContext>);
static_assert(std::is_base_of_v<SwsCtxParams, SafeSwsContext::Exception>);

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

Frame NewFrame(AVPixelFormat format, int width, int height)
{
    Frame frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}

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
        {size,  size, from, fromMatrix},
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

TEST(SafeSwsContext, EqualSemiPlanarSidesAreCopiedRowByRow)
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

TEST(SafeSwsContext, SlicesOutsideThePictureCopyNothing)
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

TEST(SafeSwsContext, OnlyEqualSemiPlanarSidesAreCopied)
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

TEST(SafeSwsContext, FlagsAndParametersReachTheScaler)
{
    const Frame source = NewFrame(AV_PIX_FMT_GRAY8, 16, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            source->data[0][y * source->linesize[0] + x] = static_cast<uint8_t>(x < 8 ? 0 : 255);
    const auto row = [&](int flags, const std::optional<std::pair<double, double>>& parameters) {
        const Frame target = NewFrame(AV_PIX_FMT_GRAY8, 48, 16);
        const SafeSwsContext context({
            {16, 16, AV_PIX_FMT_GRAY8},
            {48, 16, AV_PIX_FMT_GRAY8},
            flags, parameters
        });
        EXPECT_EQ(context.Scale(SwsSource(*source), SwsDestination(*target)), 16);
        return std::vector<uint8_t>(target->data[0], target->data[0] + 48);
    };
    const auto nearest = row(SWS_POINT, {});
    EXPECT_THAT(nearest, testing::Each(testing::AnyOf(0, 255)));
    const auto cubic = row(SWS_BICUBIC, {});
    EXPECT_NE(cubic, nearest);
    // The cubic's parameters, here of a B-spline: no ringing, a softer edge. FFmpeg's own are 0 and 0.6.
    const auto spline = row(SWS_BICUBIC, std::pair(1.0, 0.0));
    EXPECT_NE(spline, cubic);
    EXPECT_EQ(row(SWS_BICUBIC, std::pair(0.0, 0.6)), cubic);
    EXPECT_NE(row(SWS_BICUBIC, std::pair(1.0, 0.6)), spline) << "the second is lost";
}

TEST(SwsItem, DescribesItself)
{
    EXPECT_EQ((SwsItem{1920, 1080, AV_PIX_FMT_NV12}.GetDescription()), "nv12 (1920:1080)");
    EXPECT_EQ(SwsItem().GetDescription(), "");
    EXPECT_EQ((SwsItem{1, 1, AV_PIX_FMT_NB}.GetDescription()), "");
}

bool IsDefault(const SwsCtxParams& params)
{
    return params.src == SwsItem() && params.dst == SwsItem() && params.flags == 1 && !params.params;
}

TEST(SafeSwsContext, EmptyObjects)
{
    const SafeSwsContext empty;
    EXPECT_FALSE(empty);
    EXPECT_TRUE(IsDefault(empty.GetParams()));
    EXPECT_EQ(empty.GetParams().src.format, -1);
    EXPECT_EQ(static_cast<int>(empty.GetParams().dst.matrix), 2);
    EXPECT_EQ(empty.Scale(SwsSource(), SwsDestination()), AVERROR(EINVAL));
    EXPECT_EQ(empty.Scale(SwsSource(), 0, 8, SwsDestination()), AVERROR(EINVAL));
}

TEST(SafeSwsContext, MovesAndSwaps)
{
    const SwsItem nv12 = {16, 16, AV_PIX_FMT_NV12};
    SwsCtxParams scaling =
        Conversion(AV_PIX_FMT_YUV420P, YCbCrMatrix::BT709, AV_PIX_FMT_RGB24, YCbCrMatrix::BT709);
    scaling.params = {1.0, 0.0};
    for (const SwsCtxParams& params : {
             scaling, SwsCtxParams{nv12, nv12}
    }) {
        SCOPED_TRACE(params.src.GetDescription());
        const Frame source = NewFrame(params.src.format, 16, 16),
                    target = NewFrame(params.dst.format, 16, 16);
        const auto isWhole = [&](const SafeSwsContext& context) {
            return context && context.GetParams().src == params.src &&
                   context.GetParams().dst == params.dst && context.GetParams().flags == params.flags &&
                   context.GetParams().params == params.params &&
                   context.Scale(SwsSource(source), SwsDestination(target)) == 16;
        };
        const auto isEmpty = [](const SafeSwsContext& context) {
            return !context && IsDefault(context.GetParams());
        };
        SafeSwsContext first(params);
        EXPECT_TRUE(isWhole(first));
        SafeSwsContext second = std::move(first);
        EXPECT_TRUE(isEmpty(first) && isWhole(second));
        SafeSwsContext& itself = second;
        second = std::move(itself);
        EXPECT_TRUE(isWhole(second));
        first.Swap(second);
        EXPECT_TRUE(isWhole(first) && isEmpty(second));
        second = SafeSwsContext(scaling);
        second = std::move(first);  // frees what it had
        EXPECT_TRUE(isEmpty(first) && isWhole(second));
        second.Reset();
        second.Reset();
        EXPECT_TRUE(isEmpty(second));
    }
}

TEST(SafeSwsContext, RefusedFormatsAreQuoted)
{
    const struct {
        AVPixelFormat from, to;
        const char* quoted;
        bool input;
    } rows[] = {
        {AV_PIX_FMT_VAAPI,   AV_PIX_FMT_YUV420P,     "vaapi",       true },
        {AV_PIX_FMT_NONE,    AV_PIX_FMT_NONE,        "-1",          true },
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_BAYER_BGGR8, "bayer_bggr8", false},
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE,        "-1",          false},
    };
    for (const auto& row : rows) {
        const std::string side = row.input ? "input" : "output";
        EXPECT_EQ(
            FailureOf<EffectException>([&] {
                SafeSwsContext{
                    SwsCtxParams{{16, 16, row.from}, {16, 16, row.to}}
                };
            }),
            (Failure{"'" + std::string(row.quoted) + "' pixel format is not supported for converter " + side,
                     row.input ? "GetInputPixelFormat" : "GetOutputPixelFormat", "SafeSwsContext"}));
    }
}

TEST(SafeSwsContext, RefusedOptionsAreNamed)
{
    const auto failure = [](int width, int height, int dstWidth, int dstHeight) {
        return FailureOf<ProcException>([=] {
            SafeSwsContext(SwsCtxParams{
                {width,    height,    AV_PIX_FMT_YUV420P},
                {dstWidth, dstHeight, AV_PIX_FMT_RGB24  }
            });
        });
    };
    const auto named = [](const std::string& option) {
        return Failure{"'" + option + "' option is out of range", "CheckResult", "Tessadrin"};
    };
    EXPECT_EQ(failure(0, 16, 16, 16), named("srcw"));
    EXPECT_EQ(failure(16, -1, 16, 16), named("srch"));
    EXPECT_EQ(failure(16, 16, 0, 16), named("dstw"));
    EXPECT_EQ(failure(16, 16, 16, INT_MIN), named("dsth"));
}

TEST(SafeSwsContext, RefusedConversionsCarryTheirParameters)
{
    SwsCtxParams params =
        Conversion(AV_PIX_FMT_YUV420P, YCbCrMatrix::BT709, AV_PIX_FMT_RGB24, YCbCrMatrix::FCC);
    params.flags = SWS_POINT | SWS_BICUBIC;
    params.params = {0.25, 0.5};
    EXPECT_EQ(FailureOf<SafeSwsContext::Exception>([&] { SafeSwsContext{params}; }),
              (Failure{"Can't init SW Scale context", "SafeSwsContext", "SafeSwsContext"}));
    try {
        SafeSwsContext{params};
    } catch (const ProcException& e) {
        const auto& carried = dynamic_cast<const SwsCtxParams&>(e);
        EXPECT_EQ(carried.src, params.src);
        EXPECT_EQ(carried.dst, params.dst);
        EXPECT_EQ(carried.flags, params.flags);
        EXPECT_EQ(carried.params, params.params);
    }
}

TEST(SafeSwsContext, WithoutMemory)
{
    const SwsCtxParams params =
        Conversion(AV_PIX_FMT_YUV420P, YCbCrMatrix::BT709, AV_PIX_FMT_RGB24, YCbCrMatrix::BT709);
    const auto failure = [&](size_t most) {
        av_max_alloc(most);
        Failure found;
        try {
            SafeSwsContext{params};
        } catch (const ProcException& e) {
            found = PlaceOf(e, e.what());
        }
        av_max_alloc(INT_MAX);
        return found;
    };
    EXPECT_EQ(failure(1), (Failure{"Can't allocate SW Scale context", "SafeSwsContext", "SafeSwsContext"}));
    // Half-way, whatever FFmpeg misses first: nothing leaks, and the next attempt succeeds.
    int refused = 0;
    for (size_t most = 16; most < 100'000; most += most / 2)
        refused += !failure(most).description.empty();
    EXPECT_GT(refused, 5);
    EXPECT_TRUE(SafeSwsContext(params));
}

TEST(SwsSource, TakesPlanesFromWhateverHoldsAFrame)
{
    const Frame frame = NewFrame(AV_PIX_FMT_YUVA420P, 16, 16);
    const AVFrame* const pointer = frame.get();
    for (const SwsSource& source : {SwsSource(*pointer), SwsSource(pointer), SwsSource(frame)})
        for (int plane = 0; plane < 4; ++plane) {
            EXPECT_EQ(source.data[plane], frame->data[plane]);
            EXPECT_EQ(source.linesize[plane], frame->linesize[plane]);
        }
    EXPECT_EQ(SwsDestination(frame).data[3], frame->data[3]);

    const Failure refused = {"AVFrame pointer is null", "GetAVFrameRef", "SafeSwsContext"};
    const AVFrame* const null = nullptr;
    EXPECT_EQ(FailureOf<ProcException>([&] { SwsSource{null}; }), refused);
    EXPECT_EQ(FailureOf<ProcException>([&] { SwsDestination{null}; }), refused);
    EXPECT_EQ(FailureOf<ProcException>([] { SwsDestination{Frame()}; }), refused);
}

}  // namespace
}  // namespace Quorva::Proc
