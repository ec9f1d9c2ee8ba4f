#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"

#include "tests/support/Allocation.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace Quorva::Proc {
namespace {

static_assert(sizeof(AVFrameWrapper) == sizeof(AVFrame));
static_assert(std::is_nothrow_move_constructible_v<AVFrameWrapper> &&
              std::is_nothrow_move_assignable_v<AVFrameWrapper> &&
              std::is_nothrow_copy_constructible_v<AVFrameWrapper>);

enum class Kind { EMPTY, VIDEO, STEREO, SIXTEEN_CHANNELS };
constexpr Kind allKinds[] = {Kind::EMPTY, Kind::VIDEO, Kind::STEREO, Kind::SIXTEEN_CHANNELS};

/// As from a decoder: reference-counted planes, a timestamp, metadata.
AVFrameWrapper MakeFrame(Kind kind)
{
    AVFrameWrapper frame;
    if (kind == Kind::EMPTY)
        return frame;
    if (kind == Kind::VIDEO) {
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = 33;
        frame->height = 17;
    } else {
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->nb_samples = 100;
        frame->sample_rate = 48000;
        av_channel_layout_default(&frame->ch_layout, kind == Kind::STEREO ? 2 : 16);
    }
    EXPECT_EQ(av_frame_get_buffer(&frame, 0), 0);
    frame->pts = 42;
    av_dict_set(&frame->metadata, "key", "value", 0);
    for (int i = 0; i < AV_NUM_DATA_POINTERS && frame->buf[i]; ++i)
        std::memset(frame->buf[i]->data, i + 1, frame->buf[i]->size);
    for (int i = 0; i < frame->nb_extended_buf; ++i)
        std::memset(frame->extended_buf[i]->data, i + 101, frame->extended_buf[i]->size);
    return frame;
}

int PlanesOf(Kind kind)
{
    return kind == Kind::SIXTEEN_CHANNELS ? 16 : kind == Kind::STEREO ? 2 : kind == Kind::VIDEO ? 3 : 0;
}

void ExpectEmpty(const AVFrameWrapper& frame)
{
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->extended_data, frame->data);
    EXPECT_EQ(frame->pts, AV_NOPTS_VALUE);
    EXPECT_EQ(frame->format, -1);
    EXPECT_EQ(frame->width, 0);
    EXPECT_EQ(frame->nb_samples, 0);
    EXPECT_EQ(frame->metadata, nullptr);
    EXPECT_EQ(frame->ch_layout.nb_channels, 0);
}

/// That the frame is the one MakeFrame() made, and whole.
void ExpectMade(const AVFrameWrapper& frame, Kind kind)
{
    if (kind == Kind::EMPTY)
        return ExpectEmpty(frame);
    EXPECT_EQ(frame->pts, 42);
    EXPECT_EQ(av_dict_count(frame->metadata), 1);
    EXPECT_EQ(frame->extended_data == frame->data, kind != Kind::SIXTEEN_CHANNELS);
    for (int i = 0; i < PlanesOf(kind); ++i) {
        ASSERT_NE(frame->extended_data[i], nullptr) << i;
        const bool extended = i >= AV_NUM_DATA_POINTERS;
        if (!extended) {
            EXPECT_EQ(frame->extended_data[i], frame->data[i]);
        }
        if (kind != Kind::VIDEO) {
            EXPECT_EQ(frame->extended_data[i][399], extended ? i - AV_NUM_DATA_POINTERS + 101 : i + 1);
        }
    }
}

int OwnersOf(const AVFrameWrapper& frame)
{
    return frame->buf[0] ? av_buffer_get_ref_count(frame->buf[0]) : 0;
}

TEST(AVFrameWrapper, NewOnesAreAsFFmpegMakesThem)
{
    AVFrame* reference = av_frame_alloc();
    AVFrameWrapper frame;
    ExpectEmpty(frame);
    EXPECT_EQ(frame->color_range, reference->color_range);
    EXPECT_EQ(frame->colorspace, reference->colorspace);
    EXPECT_EQ(frame->sample_aspect_ratio.den, reference->sample_aspect_ratio.den);
    EXPECT_EQ(frame->best_effort_timestamp, AV_NOPTS_VALUE);
    av_frame_free(&reference);

    EXPECT_EQ(static_cast<void*>(&frame), static_cast<void*>(std::addressof(frame)));
    const AVFrameWrapper& constant = frame;
    EXPECT_EQ(&constant, constant.operator->());
}

TEST(AVFrameWrapper, CopiesShareThePlanes)
{
    for (const Kind kind : allKinds) {
        SCOPED_TRACE(static_cast<int>(kind));
        const AVFrameWrapper source = MakeFrame(kind);
        {
            const AVFrameWrapper copy(source), fromFrame(*&source);
            ExpectMade(copy, kind);
            ExpectMade(fromFrame, kind);
            EXPECT_EQ(copy->data[0], source->data[0]);
            EXPECT_EQ(OwnersOf(source), kind == Kind::EMPTY ? 0 : 3);

            AVFrameWrapper assigned = MakeFrame(Kind::VIDEO);
            const AVFrameWrapper former = assigned;
            assigned = source;
            ExpectMade(assigned, kind);
            EXPECT_EQ(OwnersOf(former), 1);
            assigned = *&former;
            ExpectMade(assigned, Kind::VIDEO);
        }
        EXPECT_EQ(OwnersOf(source), kind == Kind::EMPTY ? 0 : 1);
    }
}

TEST(AVFrameWrapper, MovesTakeEverythingAndLeaveNothing)
{
    for (const Kind kind : allKinds)
        for (const Kind former : allKinds) {
            SCOPED_TRACE(testing::Message()
                         << static_cast<int>(kind) << " over " << static_cast<int>(former));
            AVFrameWrapper source = MakeFrame(kind);
            const AVFrameWrapper witness = source;
            AVFrameWrapper moved(std::move(source));
            ExpectMade(moved, kind);
            ExpectEmpty(source);

            AVFrameWrapper target = MakeFrame(former);
            const AVFrameWrapper old = target;
            target = std::move(moved);
            ExpectMade(target, kind);
            ExpectEmpty(moved);
            EXPECT_EQ(OwnersOf(old), former == Kind::EMPTY ? 0 : 1);
            EXPECT_EQ(OwnersOf(witness), kind == Kind::EMPTY ? 0 : 2);

            source = target;  // an emptied one can be used again
            ExpectMade(source, kind);
        }
}

TEST(AVFrameWrapper, AssignmentFromItselfChangesNothing)
{
    for (const Kind kind : allKinds) {
        SCOPED_TRACE(static_cast<int>(kind));
        AVFrameWrapper frame = MakeFrame(kind);
        AVFrameWrapper& same = frame;
        const uint8_t* const plane = frame->data[0];
        frame = same;
        ExpectMade(frame, kind);
        frame = std::move(same);
        ExpectMade(frame, kind);
        frame = *&frame;
        ExpectMade(frame, kind);
        EXPECT_EQ(frame->data[0], plane);
        EXPECT_EQ(OwnersOf(frame), kind == Kind::EMPTY ? 0 : 1);
    }
}

TEST(AVFrameWrapper, RefusedReferencesLeaveDefaults)
{
    AVFrameWrapper nothing;
    nothing->width = nothing->height = 16;
    nothing->pts = 42;
    ExpectEmpty(AVFrameWrapper(nothing));  // a size and a time, but no planes to refer to

    const AVFrameWrapper source = MakeFrame(Kind::SIXTEEN_CHANNELS);
    const AllocationLimit limit(64);  // less than the plane pointers of sixteen channels
    AVFrameWrapper copy(source);
    ExpectEmpty(copy);
    EXPECT_EQ(OwnersOf(source), 1);
}

TEST(AVFrameWrapper, PlanesWithoutReferencesAreCopied)
{
    uint8_t pixels[16 * 16] = {1, 2, 3};
    AVFrame borrowed = {};
    borrowed.format = AV_PIX_FMT_GRAY8;
    borrowed.width = borrowed.height = 16;
    borrowed.data[0] = pixels;
    borrowed.linesize[0] = 16;
    borrowed.extended_data = borrowed.data;
    const AVFrameWrapper copy(borrowed);
    ASSERT_NE(copy->buf[0], nullptr);
    EXPECT_NE(copy->data[0], pixels);
    EXPECT_EQ(std::memcmp(copy->data[0], pixels, 16), 0);
}

TEST(AVFrameWrapper, PlanePointersThatNobodyNeedsAreFreed)
{
    // Sixteen planes without sound in them, and a picture with pointers of its own.
    for (const bool picture : {false, true}) {
        AVFrameWrapper frame;
        frame->extended_data = static_cast<uint8_t**>(av_calloc(16, sizeof(uint8_t*)));
        if (picture)
            frame->width = 16;
        AVFrameWrapper moved = std::move(frame);
        EXPECT_EQ(moved->extended_data, moved->data);
        EXPECT_EQ(frame->extended_data, frame->data);
    }
}

}  // namespace
}  // namespace Quorva::Proc
