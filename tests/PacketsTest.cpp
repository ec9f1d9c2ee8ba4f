#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.UniquePtr.h"
#include "host/FoundationIO.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"

#include <climits>
#include <cstring>
#include <limits>
#include <type_traits>

namespace Quorva::Proc {
namespace {

using Core::MemoryException;

/// What `action` threw: its description, its place, and the size it tells.
template <class Action>
std::pair<Failure, uint64_t> MemoryFailureOf(Action action)
{
    uint64_t size = 0;
    const Failure failure = FailureOf<MemoryException>([&] {
        try {
            action();
        } catch (const MemoryException& e) {
            EXPECT_EQ(e.GetDescription(), e.what());
            EXPECT_FALSE(boost::get_error_info<TagDescription>(e));
            size = e.GetSize();
            throw;
        }
    });
    return {failure, size};
}

TEST(CreatePacket, EmptyOneHasDefaults)
{
    AVPacket* packet = CreatePacket(0);
    EXPECT_EQ(packet->data, nullptr);
    EXPECT_EQ(packet->size, 0);
    EXPECT_EQ(packet->buf, nullptr);
    EXPECT_EQ(packet->pts, AV_NOPTS_VALUE);
    EXPECT_EQ(packet->dts, AV_NOPTS_VALUE);
    EXPECT_EQ(packet->pos, -1);
    EXPECT_EQ(packet->side_data_elems, 0);
    EXPECT_EQ(packet->opaque_ref, nullptr);
    ReleasePacket(&packet);
    EXPECT_EQ(packet, nullptr);
}

TEST(CreatePacket, PayloadIsFollowedByZeroedPadding)
{
    for (const size_t size : {1, 100, 65536}) {
        AVPacket* packet = CreatePacket(size);
        ASSERT_EQ(static_cast<size_t>(packet->size), size);
        EXPECT_EQ(packet->pts, AV_NOPTS_VALUE);
        EXPECT_EQ(av_buffer_get_ref_count(packet->buf), 1);
        std::memset(packet->data, 0xff, size);
        for (int i = 0; i < AV_INPUT_BUFFER_PADDING_SIZE; ++i)
            EXPECT_EQ(packet->data[size + static_cast<size_t>(i)], 0);
        ReleasePacket(&packet);
    }
}

TEST(CreatePacket, SizesFFmpegCannotHoldAreRefused)
{
    // As an int, the last three would be 100, 0 and -1.
    for (const size_t size : {size_t{INT_MAX} - AV_INPUT_BUFFER_PADDING_SIZE + 1, size_t{INT_MAX},
                              (size_t{1} << 32) + 100, size_t{1} << 32, std::numeric_limits<size_t>::max()}) {
        const auto [failure, told] = MemoryFailureOf([=] { CreatePacket(size); });
        EXPECT_EQ(failure, (Failure{"Unable to allocate memory for packet", "CreatePacket", "Tessadrin"}));
        EXPECT_EQ(told, size);
    }
}

TEST(CreatePacket, WantOfMemoryIsReported)
{
    {
        const AllocationLimit limit(4096);
        const auto [failure, size] = MemoryFailureOf([] { CreatePacket(5000); });
        EXPECT_EQ(failure, (Failure{"Unable to allocate memory for packet", "CreatePacket", "Tessadrin"}));
        EXPECT_EQ(size, 5000u);
    }
    for (const size_t payload : {0, 10}) {
        const AllocationLimit limit(sizeof(AVPacket) - 1);
        const auto [failure, size] = MemoryFailureOf([=] { CreatePacket(payload); });
        EXPECT_EQ(failure, (Failure{"Unable to allocate memory for AVPacket", "CreatePacket", "Tessadrin"}));
        EXPECT_EQ(size, sizeof(AVPacket));
    }
}

TEST(CopyPacket, SharesThePayloadAndCopiesTheProperties)
{
    AVPacket* source = CreatePacket(100);
    source->pts = 7;
    source->stream_index = 3;
    source->flags = AV_PKT_FLAG_KEY;
    ASSERT_NE(av_packet_new_side_data(source, AV_PKT_DATA_SKIP_SAMPLES, 10), nullptr);

    AVPacket* copy = CopyPacket(source);
    EXPECT_EQ(copy->data, source->data);
    EXPECT_EQ(copy->size, 100);
    EXPECT_EQ(copy->pts, 7);
    EXPECT_EQ(copy->stream_index, 3);
    EXPECT_EQ(copy->flags, AV_PKT_FLAG_KEY);
    EXPECT_EQ(copy->side_data_elems, 1);
    EXPECT_EQ(av_buffer_get_ref_count(source->buf), 2);
    ReleasePacket(&source);
    EXPECT_EQ(av_buffer_get_ref_count(copy->buf), 1);
    ReleasePacket(&copy);
}

TEST(CopyPacket, PayloadWithoutReferencesIsDuplicated)
{
    uint8_t bytes[] = {1, 2, 3};
    AVPacket* source = CreatePacket(0);
    source->data = bytes;
    source->size = sizeof bytes;
    AVPacket* copy = CopyPacket(source);
    EXPECT_NE(copy->data, bytes);
    EXPECT_EQ(std::memcmp(copy->data, bytes, sizeof bytes), 0);
    EXPECT_EQ(av_buffer_get_ref_count(copy->buf), 1);
    ReleasePacket(&copy);

    // The copy is the only thing that needs so much.
    source->size = 5000;
    {
        const AllocationLimit limit(4096);
        const auto [failure, size] = MemoryFailureOf([=] { CopyPacket(source); });
        EXPECT_EQ(failure, (Failure{"Unable to duplicate packet", "CopyPacket", "Tessadrin"}));
        EXPECT_EQ(size, 5000u);
    }
    ReleasePacket(&source);
}

TEST(CopyPacket, NothingGivesNothing)
{
    EXPECT_EQ(CopyPacket(nullptr), nullptr);
    AVPacket* empty = CreatePacket(0);
    AVPacket* copy = CopyPacket(empty);
    EXPECT_EQ(copy->size, 0);
    ReleasePacket(&copy);
    ReleasePacket(&empty);
}

TEST(ReleasePacket, AcceptsNullAtBothLevels)
{
    ReleasePacket(nullptr);
    AVPacket* packet = nullptr;
    ReleasePacket(&packet);
    EXPECT_EQ(packet, nullptr);
}

using Buffer = Details::UniquePtr<AVBufferRef, Details::CustomDeleterAVBufferUnref>;
using Context = Details::UniquePtr<AVCodecContext, Details::CustomDeleterAVFreeCodecCtx>;

static_assert(!std::is_copy_constructible_v<Buffer> && !std::is_copy_assignable_v<Buffer>);
static_assert(std::is_nothrow_move_constructible_v<Buffer> && std::is_nothrow_move_assignable_v<Buffer>);

TEST(UniquePtr, ReleasesExactlyOnce)
{
    AVBufferRef* const witness = av_buffer_alloc(10);  // counts the owners below
    const auto owners = [=] { return av_buffer_get_ref_count(witness) - 1; };
    {
        Buffer first(av_buffer_ref(witness)), second(std::move(first));
        EXPECT_EQ(first.get(), nullptr);
        EXPECT_EQ(owners(), 1);

        Buffer third(av_buffer_ref(witness));
        AVBufferRef* const held = second.get();
        third = std::move(second);
        EXPECT_EQ(third.get(), held);
        EXPECT_EQ(second.get(), nullptr);
        EXPECT_EQ(owners(), 1);
        Buffer& same = third;
        third = std::move(same);
        EXPECT_EQ(third.get(), held);
        third = Buffer();
        EXPECT_EQ(owners(), 0);

        third.reset(av_buffer_ref(witness));
        third.reset(av_buffer_ref(witness));
        EXPECT_EQ(owners(), 1);
        first.swap(third);
        EXPECT_EQ(third.get(), nullptr);
        AVBufferRef* released = first.release();
        EXPECT_EQ(first.get(), nullptr);
        EXPECT_EQ(owners(), 1);
        av_buffer_unref(&released);

        *&first = av_buffer_ref(witness);  // as FFmpeg's functions write into it
        EXPECT_EQ(first->data, witness->data);
        EXPECT_EQ(av_buffer_get_ref_count(first), 2);
    }
    EXPECT_EQ(owners(), 0);
    AVBufferRef* last = witness;
    av_buffer_unref(&last);
}

TEST(UniquePtr, FreesCodecContextsWhole)
{
    Context context(avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_MPEG4)));
    context->extradata = static_cast<uint8_t*>(av_mallocz(100));  // a leak, were it only the context
    Context other = std::move(context);
    EXPECT_EQ(other->codec_id, AV_CODEC_ID_MPEG4);
}

}  // namespace
}  // namespace Quorva::Proc
