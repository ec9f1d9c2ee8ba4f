#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"

#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"
#include "tests/support/Frames.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::YCbCrMatrix;

static_assert(!std::is_copy_constructible_v<SafeSwsContext> && !std::is_copy_assignable_v<SafeSwsContext>);
static_assert(std::is_nothrow_move_constructible_v<SafeSwsContext>);
static_assert(std::is_base_of_v<SwsCtxParams, SafeSwsContext::Exception>);

SwsCtxParams ToRgb(int flags)
{
    return {
        {16, 16, AV_PIX_FMT_YUV420P, YCbCrMatrix::BT709},
        {16, 16, AV_PIX_FMT_RGB24,   YCbCrMatrix::FCC  },
        flags
    };
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
    EXPECT_EQ(empty.Scale(SwsSource(), 0, 8, SwsDestination()), AVERROR(EINVAL));
}

TEST(SafeSwsContext, MovesAndSwaps)
{
    SwsCtxParams scaling = ToRgb(SWS_BICUBIC);
    scaling.params = {1.0, 0.0};
    const SwsItem nv12 = {16, 16, AV_PIX_FMT_NV12};
    for (const SwsCtxParams& params : {
             scaling, SwsCtxParams{nv12, nv12}
    }) {
        const Frame source = NewFrame(params.src.format, 16, 16),
                    target = NewFrame(params.dst.format, 16, 16);
        const auto isWhole = [&](const SafeSwsContext& context) {
            const SwsCtxParams& held = context.GetParams();
            return held.src == params.src && held.flags == params.flags && held.params == params.params &&
                   context && context.Scale(SwsSource(source), SwsDestination(target)) == 16;
        };
        const auto isEmpty = [](const SafeSwsContext& context) {
            return !context && IsDefault(context.GetParams());
        };
        SafeSwsContext first(params);
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

TEST(SafeSwsContext, NarrowChromaIsNoDivisionByZero)
{
    for (const int width : {5, 8, 9})
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV410P, AV_PIX_FMT_YUV411P}) {
            SCOPED_TRACE(testing::Message() << av_get_pix_fmt_name(format) << ' ' << width);
            const SafeSwsContext context(SwsCtxParams{
                {16,    16, AV_PIX_FMT_YUV420P},
                {width, 16, format            }
            });
            const Frame source = NewFrame(AV_PIX_FMT_YUV420P, 16, 16);
            const Frame target = NewFrame(format, width, 16);
            EXPECT_EQ(context.Scale(SwsSource(source), SwsDestination(target)), 16);
            EXPECT_EQ(context.GetParams().flags, SWS_FAST_BILINEAR);
        }
}

TEST(SafeSwsContext, ThreadsGiveTheSameBytes)
{
    constexpr int width = 642, height = 362;
    const struct {
        AVPixelFormat from, to;
        int flags;
        YCbCrMatrix matrix;
    } rows[] = {
        {AV_PIX_FMT_YUV420P,     AV_PIX_FMT_YUV420P, SWS_BICUBIC,                      YCbCrMatrix::Unspecified},
        {AV_PIX_FMT_YUV420P,     AV_PIX_FMT_BGRA,    SWS_BICUBIC | SWS_ACCURATE_RND,   YCbCrMatrix::BT709      },
        {AV_PIX_FMT_RGB24,       AV_PIX_FMT_YUV422P, SWS_LANCZOS | SWS_FULL_CHR_H_INP, YCbCrMatrix::BT709      },
        {AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_NV12,    SWS_BILINEAR,                     YCbCrMatrix::Unspecified},
        {AV_PIX_FMT_NV12,        AV_PIX_FMT_NV12,    SWS_BICUBIC,                      YCbCrMatrix::Unspecified}, // copied
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(av_get_pix_fmt_name(row.to));
        const bool copied = row.from == AV_PIX_FMT_NV12;
        const int newWidth = copied ? width : 320, newHeight = copied ? height : 500;
        const Frame source = NewFrame(row.from, width, height);
        for (int plane = 0; plane < 4 && source->buf[plane]; ++plane)
            for (size_t i = 0; i < source->buf[plane]->size; ++i)
                source->buf[plane]->data[i] = static_cast<uint8_t>(i % 251 & 3);
        const SwsCtxParams params{
            {width,    height,    row.from, row.matrix},
            {newWidth, newHeight, row.to,   row.matrix},
            row.flags
        };
        std::vector<uint8_t> pictures[2];
        for (const int threads : {1, 3}) {
            const Frame target = NewFrame(row.to, newWidth, newHeight);
            EXPECT_EQ(SafeSwsContext(params, threads).Scale(*source, *target), newHeight);
            std::vector<uint8_t>& picture = pictures[threads == 3];
            picture.resize(static_cast<size_t>(av_image_get_buffer_size(row.to, newWidth, newHeight, 1)));
            av_image_copy_to_buffer(picture.data(), static_cast<int>(picture.size()), target->data,
                                    target->linesize, row.to, newWidth, newHeight, 1);
        }
        EXPECT_TRUE(pictures[0] == pictures[1]);
    }
    AVFrame nothing = {};
    EXPECT_EQ(SafeSwsContext().Scale(nothing, nothing), AVERROR(EINVAL));
}

// Raw video can hold any words. FFmpeg looks things up in tables by them, and ends the process.
TEST(SafeSwsContext, SamplesBeyondTheirDepthAreTheLargest)
{
    constexpr int width = 53, height = 32;
    int formats = 0;
    for (const AVPixFmtDescriptor* d = nullptr; (d = av_pix_fmt_desc_next(d));) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(d);
        const int depth = d->comp[0].depth;
        if (depth <= 8 || depth >= 16 || d->comp[0].shift || !(d->flags & AV_PIX_FMT_FLAG_PLANAR) ||
            d->flags & AV_PIX_FMT_FLAG_FLOAT || !sws_isSupportedInput(format))
            continue;
        SCOPED_TRACE(d->name);
        ++formats;
        const Frame stray = NewFrame(format, width, height), clean = NewFrame(format, width, height);
        const bool swapped = d->flags & AV_PIX_FMT_FLAG_BE;
        uint32_t noise = 1;
        for (int plane = 0; plane < 4 && stray->buf[plane]; ++plane)
            for (size_t at = 0; at + 2 <= stray->buf[plane]->size; at += 2) {
                noise = noise * 1664525 + 1013904223;
                const uint32_t value = noise >> 31 ? 0xffff : noise >> 16 & 0xffff;
                const uint32_t largest = (1u << depth) - 1;
                for (const auto& [frame, sample] : {
                         std::pair(&stray, value), {&clean, std::min(value, largest)}
                }) {
                    (*frame)->buf[plane]->data[at + swapped] = static_cast<uint8_t>(sample);
                    (*frame)->buf[plane]->data[at + !swapped] = static_cast<uint8_t>(sample >> 8);
                }
            }
        for (const AVPixelFormat to : {AV_PIX_FMT_BGR565LE, AV_PIX_FMT_BGRA, AV_PIX_FMT_GBRP})
            for (const int flags : {SWS_BICUBIC, SWS_SINC, SWS_LANCZOS, SWS_SPLINE | SWS_ACCURATE_RND}) {
                const SafeSwsContext scaler(SwsCtxParams{
                    {width, height, format},
                    {width, height, to    },
                    flags
                });
                const Frame found = NewFrame(to, width, height), expected = NewFrame(to, width, height);
                // in two slices, which begin at a row of chroma
                SwsSource lower(stray);
                for (int plane = 0; plane < 4; ++plane)
                    lower.data[plane] +=
                        lower.linesize[plane] * (plane == 1 || plane == 2 ? 16 >> d->log2_chroma_h : 16);
                scaler.Scale(SwsSource(stray), 0, 16, SwsDestination(found));
                scaler.Scale(lower, 16, 16, SwsDestination(found));
                scaler.Scale(SwsSource(clean), SwsDestination(expected));
                const int length = av_image_get_linesize(to, width, 0);
                for (int y = 0; y < height; ++y)
                    ASSERT_TRUE(std::equal(found->data[0] + y * found->linesize[0],
                                           found->data[0] + y * found->linesize[0] + length,
                                           expected->data[0] + y * expected->linesize[0]))
                        << av_get_pix_fmt_name(to) << ", flags " << flags << ", row " << y;
            }
    }
    EXPECT_GT(formats, 40);
}

/// Samples of all values that the components have, written by FFmpeg; the bits between them are as in `fill`.
Frame Noise(AVPixelFormat format, int width, int height, bool fill)
{
    Frame frame = NewFrame(format, width, height);
    uint32_t noise = 1;
    const auto next = [&] { return (noise = noise * 1664525 + 1013904223) >> 8; };
    for (int plane = 0; plane < 4 && frame->buf[plane]; ++plane)
        for (size_t at = 0; at < frame->buf[plane]->size; ++at)
            frame->buf[plane]->data[at] = fill ? static_cast<uint8_t>(next()) : 0;
    const AVPixFmtDescriptor& d = *av_pix_fmt_desc_get(format);
    std::vector<uint32_t> row(static_cast<size_t>(width));
    for (int c = 0; c < (d.flags & AV_PIX_FMT_FLAG_PAL ? 1 : d.nb_components); ++c) {
        const bool chroma = (c == 1 || c == 2) && !(d.flags & AV_PIX_FMT_FLAG_RGB);
        const int columns = chroma ? AV_CEIL_RSHIFT(width, d.log2_chroma_w) : width;
        const int rows = chroma ? AV_CEIL_RSHIFT(height, d.log2_chroma_h) : height;
        for (int y = 0; y < rows; ++y) {
            for (uint32_t& value : row)
                value = d.flags & AV_PIX_FMT_FLAG_FLOAT
                            ? (d.comp[c].depth == 32 ? 0x3f000000 : 0x3800) + next() % 512
                            : static_cast<uint32_t>(next() & ((1ull << d.comp[c].depth) - 1));
            av_write_image_line2(row.data(), frame->data, frame->linesize, &d, 0, y, c, columns, 4);
        }
    }
    return frame;
}

std::vector<uint8_t> Pixels(const Frame& frame)
{
    const auto format = static_cast<AVPixelFormat>(frame->format);
    std::vector<uint8_t> pixels(
        static_cast<size_t>(av_image_get_buffer_size(format, frame->width, frame->height, 1)));
    av_image_copy_to_buffer(pixels.data(), static_cast<int>(pixels.size()), frame->data, frame->linesize,
                            format, frame->width, frame->height, 1);
    return pixels;
}

TEST(SafeSwsContext, GivesFFmpegsPixelsForEveryPairOfFormats)
{
    constexpr int width = 36, height = 20;
    int compared = 0;
    for (const AVPixFmtDescriptor* d = nullptr; (d = av_pix_fmt_desc_next(d));) {
        const AVPixelFormat from = av_pix_fmt_desc_get_id(d);
        if (!sws_isSupportedInput(from))
            continue;
        // Between the samples of words there may be anything but above them: that is another test's.
        const bool words =
            d->comp[0].depth > 8 && d->comp[0].depth < 16 && !d->comp[0].shift &&
            d->comp[0].step ==
                2 + 2 * (d->comp[0].plane == d->comp[d->nb_components - 1].plane) * (d->nb_components - 1);
        for (const bool fill : {false, true}) {
            if (fill && words)
                continue;
            const Frame source = Noise(from, width, height, fill);
            for (const AVPixelFormat to :
                 {AV_PIX_FMT_BGRA, AV_PIX_FMT_GBRP10, AV_PIX_FMT_GBRAP, AV_PIX_FMT_RGBA64, AV_PIX_FMT_RGB565,
                  AV_PIX_FMT_X2RGB10, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P10, AV_PIX_FMT_GRAY8,
                  AV_PIX_FMT_NV12, AV_PIX_FMT_P010}) {
                if (from == to)
                    continue;
                std::vector<uint8_t> expected[2];
                for (std::vector<uint8_t>& pixels : expected) {
                    const Frame target = NewFrame(to, width, height);
                    SwsContext* const context = sws_getContext(width, height, from, width, height, to,
                                                               SWS_BICUBIC, nullptr, nullptr, nullptr);
                    ASSERT_TRUE(context);
                    sws_scale(context, source->data, source->linesize, 0, height, target->data,
                              target->linesize);
                    sws_freeContext(context);
                    pixels = Pixels(target);
                }
                if (expected[0] != expected[1])
                    continue;  // FFmpeg leaves something unwritten
                ++compared;
                const Frame target = NewFrame(to, width, height);
                const SafeSwsContext scaler(SwsCtxParams{
                    {width, height, from},
                    {width, height, to  },
                    SWS_BICUBIC
                });
                scaler.Scale(SwsSource(source), SwsDestination(target));
                EXPECT_EQ(Pixels(target), expected[0])
                    << d->name << " to " << av_get_pix_fmt_name(to) << ' ' << fill;
            }
        }
    }
    EXPECT_GT(compared, 3000);
}

TEST(SafeSwsContext, SlicesOutsideThePictureAreRefusedUnread)
{
    const SafeSwsContext scaler(SwsCtxParams{
        {16, 24, AV_PIX_FMT_YUV420P10},
        {16, 24, AV_PIX_FMT_BGRA     }
    });
    const Frame target = NewFrame(AV_PIX_FMT_BGRA, 16, 24);
    SwsSource unreadable;
    std::ranges::fill(unreadable.data, reinterpret_cast<const uint8_t*>(64));
    std::ranges::fill(unreadable.linesize, 64);
    for (const auto& [y, rows] : {
             std::pair(0, 25),
             {20,      5000   },
             {-5,      5000   },
             {-4,      28     },
             {-1,      1      },
             {24,      2      },
             {4,       -4     },
             {2,       INT_MAX},
             {INT_MAX, INT_MAX},
             {INT_MIN, 0      },
             {1,       2      },
             {0,       3      }
    })
        EXPECT_EQ(scaler.Scale(unreadable, y, rows, SwsDestination(target)), AVERROR(EINVAL))
            << y << '+' << rows;
}

TEST(SafeSwsContext, RefusedSizesAreNamed)
{
    const auto failure = [](int srcw, int srch, int dstw, int dsth) {
        const SwsCtxParams params = {
            {srcw, srch, AV_PIX_FMT_YUV420P},
            {dstw, dsth, AV_PIX_FMT_RGB24  }
        };
        return FailureOf<ProcException>([&] { SafeSwsContext{params}; });
    };
    EXPECT_EQ(failure(0, 16, 16, 16), (Failure{"'srcw' option is out of range", "CheckResult", "Tessadrin"}));
    EXPECT_EQ(failure(16, -1, 16, 16).description, "'srch' option is out of range");
    EXPECT_EQ(failure(16, 16, 0, 16).description, "'dstw' option is out of range");
    EXPECT_EQ(failure(16, 16, 16, INT_MIN).description, "'dsth' option is out of range");
}

TEST(SafeSwsContext, RefusedConversionsCarryTheirParameters)
{
    SwsCtxParams params = ToRgb(SWS_POINT | SWS_BICUBIC);
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
    const SwsCtxParams params = ToRgb(SWS_BICUBIC);
    {
        const AllocationLimit scarce(1);
        EXPECT_EQ(FailureOf<ProcException>([&] { SafeSwsContext{params}; }),
                  (Failure{"Can't allocate SW Scale context", "SafeSwsContext", "SafeSwsContext"}));
    }
    // Half-way, whatever FFmpeg misses first: nothing leaks.
    int refused = 0;
    for (size_t most = 16; most < 100'000; most += most / 2) {
        const AllocationLimit scarce(most);
        try {
            SafeSwsContext{params};
        } catch (const ProcException&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 5);
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
