#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"

#include "tests/support/Failure.h"

#include <set>
#include <string>

namespace Quorva::Proc {
namespace {

using Conf::ChannelLayout;
using Conf::LayoutRecord;
using Conf::SampleFormatRecord;
using Conf::SampleFormats;

constexpr int layoutCount = 29;

std::string NameOf(const AVChannelLayout& layout)
{
    char name[64] = "";
    EXPECT_GT(av_channel_layout_describe(&layout, name, sizeof name), 0);
    return name;
}

/// A layout of `channels` in another order than FFmpeg's native one.
AVChannelLayout Unordered(AVChannelOrder order, int channels)
{
    AVChannelLayout layout = {};
    layout.order = order;
    layout.nb_channels = channels;
    return layout;
}

TEST(ChannelLayout, IsFFmpegsLayoutOfTheSameNameBothWays)
{
    std::set<uint64_t> masks;
    for (int number = 1; number < layoutCount; ++number) {
        SCOPED_TRACE(number);
        const auto layout = static_cast<ChannelLayout>(number);
        const LayoutRecord& record = *LayoutRecord::Find(layout);
        const AVChannelLayout converted = AVChannelLayoutFromQuorva(layout);
        EXPECT_EQ(converted.order, AV_CHANNEL_ORDER_NATIVE);
        EXPECT_EQ(converted.nb_channels, record.channels);
        EXPECT_EQ(NameOf(converted), *record.name);
        EXPECT_EQ(QuorvaFromAVChannelLayout(converted), layout);
        EXPECT_TRUE(IsSupportedAVChannelLayoutMask(converted.u.mask));
        EXPECT_TRUE(masks.insert(AVChannelLayoutMaskFromQuorva(layout)).second);
    }
    EXPECT_EQ(AVChannelLayoutMaskFromQuorva(ChannelLayout::Hexadecagonal), 0x18003F737u);
}

TEST(ChannelLayout, NoneIsNoLayout)
{
    const AVChannelLayout none = AVChannelLayoutFromQuorva(ChannelLayout::None);
    EXPECT_TRUE(IsZeroed(&none));
    EXPECT_EQ(none.u.mask, 0u);
    EXPECT_EQ(AVChannelLayoutMaskFromQuorva(ChannelLayout::None), 0u);
    EXPECT_TRUE(IsSupportedAVChannelLayoutMask(0));
    EXPECT_EQ(QuorvaFromAVChannelLayoutMask(0), ChannelLayout::None);
}

TEST(ChannelLayout, OthersOfFFmpegsLayoutsAreRefused)
{
    const Failure refused = {"undefined convertion from FFMPEG layout", "QuorvaFromAVChannelLayoutMask",
                             "ChannelLayoutsConvertion"};
    std::set<std::string> others;
    void* state = nullptr;
    while (const AVChannelLayout* layout = av_channel_layout_standard(&state))
        if (!IsSupportedAVChannelLayoutMask(layout->u.mask)) {
            others.insert(NameOf(*layout));
            EXPECT_EQ(LogicFailureOf([&] { QuorvaFromAVChannelLayout(*layout); }), refused);
        }
    EXPECT_THAT(others, testing::SizeIs(9));
    EXPECT_THAT(others, testing::IsSupersetOf({"3.1.2", "22.2"}));

    for (int bit = 0; bit < 64; ++bit)  // nothing is approximated
        EXPECT_EQ(IsSupportedAVChannelLayoutMask(uint64_t{1} << bit), bit == AV_CHAN_FRONT_CENTER) << bit;
    EXPECT_EQ(LogicFailureOf([] { QuorvaFromAVChannelLayoutMask(1); }), refused);
}

TEST(ChannelLayout, NumbersOutsideTheEnumerationAreRefused)
{
    for (const int number : {-1, layoutCount})
        EXPECT_EQ(LogicFailureOf([&] { AVChannelLayoutFromQuorva(static_cast<ChannelLayout>(number)); }),
                  (Failure{"undefined convertion from ChannelLayout", "AVChannelLayoutMaskFromQuorva",
                           "ChannelLayoutsConvertion"}));
}

TEST(DefaultAVChannelLayout, IsFFmpegsDefaultOrNone)
{
    for (int channels = 1; channels <= 16; ++channels) {
        SCOPED_TRACE(channels);
        const AVChannelLayout ours = DefaultAVChannelLayout(channels);
        AVChannelLayout theirs = {};
        av_channel_layout_default(&theirs, channels);
        EXPECT_EQ(IsZeroed(&ours), channels > 8 && channels < 16);
        if (!IsZeroed(&ours)) {
            EXPECT_EQ(av_channel_layout_compare(&ours, &theirs), 0);
        }
    }
    for (const int channels : {-1, 0, 17, 255, 256}) {
        const AVChannelLayout none = DefaultAVChannelLayout(channels);
        EXPECT_TRUE(IsZeroed(&none)) << channels;
    }
}

TEST(QuorvaFromAVChannelLayout, OnlyTheCountMattersInOtherOrders)
{
    for (const auto order : {AV_CHANNEL_ORDER_UNSPEC, AV_CHANNEL_ORDER_CUSTOM, AV_CHANNEL_ORDER_AMBISONIC}) {
        AVChannelLayout layout = Unordered(order, 6);
        layout.u.mask = order == AV_CHANNEL_ORDER_CUSTOM ? 0 : AV_CH_LAYOUT_HEXAGONAL;  // a pointer if custom
        EXPECT_EQ(QuorvaFromAVChannelLayout(layout), LayoutRecord::Find(6)->layout);
        EXPECT_EQ(QuorvaFromAVChannelLayout(Unordered(order, 9)), ChannelLayout::None);
    }
}

TEST(ChannelLayout, Predicates)
{
    AVChannelLayout contradictory = AV_CHANNEL_LAYOUT_STEREO;
    contradictory.nb_channels = 3;
    // clang-format off
    const struct {
        const char* what;
        AVChannelLayout layout;
        bool valid, zeroed;
    } rows[] = {
        {"nothing",                     AVChannelLayout(),                      false, true },
        {"eight channels",              AV_CHANNEL_LAYOUT_7POINT1,              true,  false},
        {"sixteen channels",            AV_CHANNEL_LAYOUT_HEXADECAGONAL,        false, false},
        {"eight of unspecified order",  Unordered(AV_CHANNEL_ORDER_UNSPEC, 8),  true,  false},
        {"nine of unspecified order",   Unordered(AV_CHANNEL_ORDER_UNSPEC, 9),  false, false},
        {"native without channels",     Unordered(AV_CHANNEL_ORDER_NATIVE, 0),  false, false},
        {"a count that isn't the mask", contradictory,                          false, false},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(IsValid(row.layout), row.valid);
        EXPECT_EQ(IsZeroed(&row.layout), row.zeroed);
    }
    EXPECT_TRUE(IsZeroed(nullptr));

    EXPECT_TRUE(IsEqual(AV_CHANNEL_LAYOUT_STEREO, AV_CHANNEL_LAYOUT_STEREO_DOWNMIX));
    EXPECT_FALSE(IsEqual(AV_CHANNEL_LAYOUT_STEREO, AV_CHANNEL_LAYOUT_MONO));
    EXPECT_FALSE(IsEqual(AV_CHANNEL_LAYOUT_STEREO, Unordered(AV_CHANNEL_ORDER_UNSPEC, 2)));
}

TEST(SampleFormats, AreFFmpegsOfTheSameNameAndSize)
{
    int described = 0;
    for (int number = -1; number <= 12; ++number) {
        SCOPED_TRACE(number);
        const auto format = static_cast<SampleFormats>(number);
        const AVSampleFormat theirs = SampleFormatFFMPEGFromQuorva(format);
        EXPECT_EQ(SampleFormatQuorvaFromFFMPEG(theirs), format);
        const char* name = av_get_sample_fmt_name(theirs);
        const SampleFormatRecord* record = SampleFormatRecord::Find(format);
        ASSERT_EQ(name != nullptr, record != nullptr);
        if (!record)
            continue;
        ++described;
        EXPECT_EQ(record->name, name);
        EXPECT_EQ(record->planar, av_sample_fmt_is_planar(theirs) != 0);
        const Conf::SampleInfo info(48000, format, ChannelLayout::Layout5Point1);
        EXPECT_EQ(info.GetSampleSizePerPlane(), av_get_bytes_per_sample(theirs) * (record->planar ? 1 : 6));
    }
    EXPECT_EQ(described, 12);
}

}  // namespace
}  // namespace Quorva::Proc
