#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/Media.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <numbers>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Quorva::Proc {
namespace {

using Audio = boost::intrusive_ptr<AudioData>;
using Conf::ChannelLayout;
using Conf::SampleFormats;
using Conf::SampleInfo;

static_assert(!std::is_copy_constructible_v<SafeSwrContext> && !std::is_copy_assignable_v<SafeSwrContext>);
static_assert(std::is_nothrow_move_constructible_v<SafeSwrContext> &&
              sizeof(SafeSwrContext) == sizeof(void*));

const SampleInfo s16(48000, SampleFormats::S16, ChannelLayout::Stereo);
const SampleInfo slow(44100, SampleFormats::FLT, ChannelLayout::Mono);
const SampleInfo fast(48000, SampleFormats::FLT, ChannelLayout::Mono);

Audio Room(const SampleInfo& info, int samples)
{
    const auto audio = MakeRefCounted<AudioData>(info, samples);
    const int planes = info.format->planar ? info.layout->channels : 1;
    for (int plane = 0; plane < planes; ++plane)
        std::memset(audio->GetFrame()->extended_data[plane], 0x55, samples * info.GetSampleSizePerPlane());
    return audio;
}

template <class T>
T* Samples(const Audio& audio, int plane = 0)
{
    return reinterpret_cast<T*>(audio->GetFrame()->extended_data[plane]);
}

/// A tone of 1 kHz, from sample `first` of the stream on.
Audio Tone(const SampleInfo& info, int first, int samples)
{
    Audio audio = Room(info, samples);
    for (int i = 0; i < samples; ++i)
        Samples<float>(audio)[i] =
            static_cast<float>(std::sin(2 * std::numbers::pi * 1000 * (first + i) / info.sampleRate));
    return audio;
}

/// All that comes out for `count` samples of the tone, in pieces and with the rest drained at the end.
std::vector<float> ConvertTone(SafeSwrContext& context, int count, int piece = 1000, int room = 1500)
{
    std::vector<float> result;
    const Audio out = Room(fast, room);
    const auto take = [&](int written) {
        result.insert(result.end(), Samples<float>(out), Samples<float>(out) + written);
        return written;
    };
    for (int first = 0; first < count; first += piece)
        take(context.Convert(Tone(slow, first, std::min(piece, count - first)), out, 0));
    while (take(context.Convert(nullptr, out, 0)) > 0) {
    }
    return result;
}

TEST(SafeSwrContext, WritesBehindTheOffsetInEveryPlane)
{
    for (const auto layout :
         {ChannelLayout::Mono, ChannelLayout::Layout5Point1, ChannelLayout::Hexadecagonal})
        for (const auto format : {SampleFormats::FLT, SampleFormats::FLTP}) {
            const SampleInfo in(48000, SampleFormats::S16, layout), out(48000, format, layout);
            SCOPED_TRACE(*out.layout->name + ' ' + out.format->name);
            const int channels = out.layout->channels;
            const Audio src = Room(in, 20);
            for (int i = 0; i < 20 * channels; ++i)
                Samples<int16_t>(src)[i] = static_cast<int16_t>(i * 37 - 5000);
            const Audio dst = Room(out, 130);
            const std::string_view frame(reinterpret_cast<const char*>(dst->GetFrame()), sizeof(AVFrame));
            const std::string before(frame);
            SafeSwrContext context(in, out);
            ASSERT_EQ(context.Convert(src, dst, 100), 20);
            EXPECT_TRUE(frame == before) << "the frame was changed";

            float untouched;
            std::memset(&untouched, 0x55, sizeof untouched);
            for (int i = 0; i < 130 * channels; ++i) {
                const int sample = i / channels, channel = i % channels;
                const float value =
                    out.format->planar ? Samples<float>(dst, channel)[sample] : Samples<float>(dst)[i];
                const float expected = sample < 100 || sample >= 120
                                           ? untouched
                                           : static_cast<float>((i - 100 * channels) * 37 - 5000) / 32768;
                ASSERT_EQ(value, expected) << sample << ' ' << channel;
            }
        }
}

TEST(SafeSwrContext, ResampledSoundIsAsLongAndSoundsTheSame)
{
    for (const int piece : {100, 1000, 22050}) {
        SafeSwrContext context(slow, fast);
        const std::vector<float> out = ConvertTone(context, 22050, piece);
        EXPECT_NEAR(static_cast<double>(out.size()), 24000, 1) << piece;
        for (size_t i = 100; i + 100 < out.size(); ++i)
            ASSERT_NEAR(out[i], std::sin(2 * std::numbers::pi * 1000 * static_cast<double>(i) / 48000), 1e-3)
                << i;
    }
    SafeSwrContext little(slow, fast);
    EXPECT_NEAR(static_cast<double>(ConvertTone(little, 22050, 5000, 70).size()), 24000, 1)
        << "what finds no room stays buffered";
}

TEST(SafeSwrContext, DelayIsWhatIsNotWrittenYet)
{
    SafeSwrContext context(slow, fast);
    EXPECT_EQ(context.GetDelay(48000), 0);
    const int written = context.Convert(Tone(slow, 0, 4410), Room(fast, 1000), 0);
    EXPECT_EQ(written, 1000);
    EXPECT_NEAR(context.GetDelay(48000), 4800 - written, 20);
    EXPECT_NEAR(context.GetDelay(1000), (4800.0 - written) / 48, 1);
}

TEST(SafeSwrContext, AnEmptySourceDrainsNothing)
{
    SafeSwrContext context(slow, fast), other(slow, fast);
    const Audio out = Room(fast, 5000);
    const int first = context.Convert(Tone(slow, 0, 1000), out, 0);
    ASSERT_EQ(other.Convert(Tone(slow, 0, 1000), out, 0), first);
    const Audio nothing = Room(slow, 1);
    nothing->SetSampleCount(0);
    nothing->GetFrame()->data[0] = nullptr;
    EXPECT_EQ(context.Convert(nothing, out, 0), 0);
    EXPECT_GT(context.Convert(nullptr, out, 0), 10);
    EXPECT_GT(other.Convert(nullptr, out, 0), 10);
}

TEST(SafeSwrContext, CompensationAddsAndDropsSamples)
{
    const auto lengthWith = [](int delta) {
        SafeSwrContext context(slow, fast);
        context.SetCompensation(delta, 20000);
        return static_cast<int>(ConvertTone(context, 22050).size());
    };
    const int plain = lengthWith(0);
    EXPECT_NEAR(lengthWith(200), plain + 200, 4);
    EXPECT_NEAR(lengthWith(-200), plain - 200, 4);
}

TEST(SafeSwrContext, SetUpAgainItActsAsANewOne)
{
    const SampleInfo same(44100, SampleFormats::FLT, ChannelLayout::Mono);
    for (const SampleInfo& target : {same, fast}) {
        SafeSwrContext used(s16, fast), fresh(slow, target);
        used.SetCompensation(500, 1000);
        used.Convert(Room(s16, 3000), Room(fast, 10), 0);
        used.Init(slow, target);
        EXPECT_EQ(used.GetDelay(1'000'000), 0);
        EXPECT_EQ(ConvertTone(used, 5000), ConvertTone(fresh, 5000));
    }
    SafeSwrContext context(slow, fast);
    context.Convert(Tone(slow, 0, 1000), Room(fast, 10), 0);
    context.ApplyChanges();
    EXPECT_EQ(context.GetDelay(48000), 0) << "initialised again, it holds nothing";
}

TEST(SafeSwrContext, MovesAndSwaps)
{
    SafeSwrContext first(slow, fast);
    SafeSwrContext second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_TRUE(second);
    SafeSwrContext& itself = second;
    second = std::move(itself);
    EXPECT_TRUE(second);
    first.Swap(second);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    second = SafeSwrContext(s16, s16);
    first = std::move(second);  // frees what it had
    EXPECT_EQ(first.Convert(Room(s16, 10), Room(s16, 10), 0), 10);
    EXPECT_FALSE(second);
    first.Reset();
    first.Reset();
    EXPECT_FALSE(first);
}

Failure Refused(const char* description, const char* function)
{
    return {description, function, "SafeSwrContext"};
}

TEST(SafeSwrContext, RefusedDescriptionsAreQuoted)
{
    const SampleInfo none(44100, SampleFormats::FLT, ChannelLayout::None);
    EXPECT_EQ(FailureOf<FilterException>([&] { SafeSwrContext(s16, none); }),
              Refused("Cannot create sample rate converter (AVERROR = -22). Input format: layout = stereo "
                      "sample rate = 48000 sample format = s16, output format: layout = none sample rate = "
                      "44100 sample format = flt.",
                      "Init"));
    SampleInfo backwards = s16;
    backwards.sampleRate = -1;
    SafeSwrContext context(slow, fast);
    EXPECT_EQ(
        FailureOf<FilterException>([&] { context.Init(backwards, fast); }),
        Refused("Cannot create sample rate converter (AVERROR = -34). Input format: layout = stereo "
                "sample rate = -1 sample format = s16, output format: layout = mono sample rate = 48000 "
                "sample format = flt.",
                "Init"));
    EXPECT_FALSE(context);

    const std::string name = "twenty-nine";
    const Conf::LayoutRecord unknown = {static_cast<ChannelLayout>(29), 2, &name};
    SampleInfo unheard = s16;
    unheard.layout = &unknown;
    context.Init(slow, fast);
    EXPECT_EQ(LogicFailureOf([&] { context.Init(s16, unheard); }).function, "AVChannelLayoutMaskFromQuorva");
    EXPECT_EQ(context.Convert(Tone(slow, 0, 100), Room(fast, 1000), 1000), 0) << "still what it was";

    const AllocationLimit scarce(1);
    const Failure starved = FailureOf<FilterException>([] { SafeSwrContext(s16, s16); });
    EXPECT_THAT(starved.description,
                testing::StartsWith("Cannot create sample rate converter (AVERROR = -12)."));
}

TEST(SafeSwrContext, AfterAFailedInitialisationNothingWorksAndNothingCrashes)
{
    SampleInfo still = slow;
    still.sampleRate = 0;
    const Failure refused = Refused("Cannot initialize context.", "ApplyChanges");
    EXPECT_EQ(FailureOf<FilterException>([&] { SafeSwrContext(still, fast); }), refused);
    SafeSwrContext context(slow, fast);
    EXPECT_EQ(FailureOf<FilterException>([&] { context.Init(still, fast); }), refused);
    EXPECT_TRUE(context);
    EXPECT_EQ(context.GetDelay(1000), 0);
    EXPECT_EQ(FailureOf<FilterException>([&] { context.ApplyChanges(); }), refused);
    EXPECT_EQ(FailureOf<FilterException>([&] { context.SetCompensation(1, 10); }),
              Refused("swr_set_compensation() failed", "SetCompensation"));
    EXPECT_EQ(FailureOf<FilterException>([&] { context.Convert(nullptr, Room(fast, 10), 0); }),
              Refused("swr_convert() failed", "Convert"));
    context.Init(slow, fast);
    EXPECT_GT(ConvertTone(context, 1000).size(), 1000u);
}

TEST(SafeSwrContext, AnEmptyObjectSaysSo)
{
    SafeSwrContext empty;
    const Failure refused = Refused("Sample rate converter not initialized.", "RequredExist");
    EXPECT_EQ(FailureOf<FilterException>([&] { empty.GetDelay(1000); }), refused);
    EXPECT_EQ(FailureOf<FilterException>([&] { empty.SetCompensation(0, 0); }), refused);
    EXPECT_EQ(FailureOf<FilterException>([&] { empty.ApplyChanges(); }), refused);
    EXPECT_EQ(FailureOf<FilterException>([&] { empty.Convert(nullptr, Room(fast, 1), 0); }), refused);
    EXPECT_EQ(FailureOf<FilterException>([&] { empty.Convert(nullptr, nullptr, 0); }),
              Refused("incorrect dst parameter.", "Convert"));
}

TEST(SafeSwrContext, RefusesRoomThatIsNotThere)
{
    const Failure refused = Refused("incorrect dst parameter.", "Convert");
    SafeSwrContext context(slow, fast);
    for (const int offset : {-1, 101, INT_MIN, INT_MAX})
        EXPECT_EQ(FailureOf<FilterException>([&] { context.Convert(nullptr, Room(fast, 100), offset); }),
                  refused)
            << offset;
    EXPECT_EQ(context.Convert(Tone(slow, 0, 10), Room(fast, 100), 100), 0) << "no room is room for none";

    const SampleInfo planar(48000, SampleFormats::S16P, ChannelLayout::Hexadecagonal);
    SafeSwrContext wide(s16, planar);
    const Audio src = Room(s16, 10), dst = Room(planar, 10);
    EXPECT_EQ(wide.Convert(src, dst, 0), 10);
    AVFrame& frame = *dst->GetFrame();
    uint8_t* const eleventh = std::exchange(frame.extended_data[10], nullptr);
    EXPECT_EQ(FailureOf<FilterException>([&] { wide.Convert(src, dst, 0); }), refused);
    frame.extended_data[10] = eleventh;
    uint8_t** const planes = std::exchange(frame.extended_data, frame.data);  // which holds eight
    EXPECT_EQ(FailureOf<FilterException>([&] { wide.Convert(src, dst, 0); }), refused);
    frame.extended_data = planes;

    // What can't be read is refused too.
    const Audio mute = Room(s16, 10);
    mute->GetFrame()->data[0] = nullptr;
    EXPECT_EQ(FailureOf<FilterException>([&] { wide.Convert(mute, dst, 0); }),
              Refused("swr_convert() failed", "Convert"));
}

TEST(SafeSwrContext, RefusesImpossibleCompensation)
{
    SafeSwrContext context(slow, fast);
    const std::pair<int, int> rows[] = {
        {1,       0      },
        {0,       -1     },
        {10,      10     },
        {11,      10     },
        {INT_MAX, 1      },
        {INT_MAX, INT_MAX}
    };
    for (const auto& [delta, distance] : rows)
        EXPECT_EQ(FailureOf<FilterException>([&, d = delta, c = distance] { context.SetCompensation(d, c); }),
                  Refused("swr_set_compensation() failed", "SetCompensation"))
            << delta << ' ' << distance;
    for (const auto& [delta, distance] : {
             std::pair(0, 0), {9,           10     },
               {INT_MIN,     1      },
               {INT_MAX - 1, INT_MAX}
    })
        context.SetCompensation(delta, distance);
    context.SetCompensation(0, 0);
    EXPECT_GT(ConvertTone(context, 1000).size(), 1000u);
}

}  // namespace
}  // namespace Quorva::Proc
