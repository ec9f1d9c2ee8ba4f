#include "host/CodecDescriptions.h"
#include "host/Media.h"

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"
#include "tests/support/Frames.h"

#include <cstring>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::ChannelLayout;
using Conf::FormatException;
using Conf::SampleFormats;
using Conf::SampleInfo;
using Core::MemoryException;

TEST(VideoData, HasRoomForEveryFormatThatLiesInMemory)
{
    const IDataVideo::Picture picture = {33, 17, 16, 15};
    int made = 0;
    for (const PixFmtDescription& description : PixFmtDescription::GetSupportedList()) {
        SCOPED_TRACE(description.GetName());
        const auto format = static_cast<AVPixelFormat>(description.format);
        if (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_HWACCEL) {
            EXPECT_THROW(MakeRefCounted<VideoData>(picture, description.format), FormatException);
            continue;
        }
        const auto video = MakeRefCounted<VideoData>(picture, description.format);
        EXPECT_EQ(video->GetPixelFormat(), description.format);
        EXPECT_EQ(video->GetPicture().aspectX, 16);
        const AVFrame& frame = *video->GetFrame();
        EXPECT_EQ(av_cmp_q(frame.sample_aspect_ratio, {16, 15}), 0);
        // Writes every byte that a picture of this size has.
        const int size = av_image_get_buffer_size(format, frame.width, frame.height, 1);
        const std::vector<uint8_t> bytes(static_cast<size_t>(size), 0x5a);
        uint8_t* planes[4] = {};
        int lines[4] = {};
        ASSERT_EQ(av_image_fill_arrays(planes, lines, bytes.data(), format, 33, 17, 1), size);
        av_image_copy2(frame.data, frame.linesize, planes, lines, format, frame.width, frame.height);
        ++made;
    }
    EXPECT_EQ(made, 214);
}

TEST(VideoData, SharesOrTakesOver)
{
    FramePtr frame(NewFrame(AV_PIX_FMT_GRAY8, 8, 4).release());
    boost::intrusive_ptr<const IDataVideo> shared = MakeRefCounted<VideoData>(*frame);
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 2);
    EXPECT_EQ(shared->GetFrame()->data[0], frame->data[0]);
    EXPECT_EQ(shared->GetPicture().width, 8);
    shared.reset();
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 1);

    const AVFrame* const address = frame.get();
    const auto taken = MakeRefCounted<VideoData>(std::move(frame));
    EXPECT_EQ(taken->GetFrame(), address);
    EXPECT_EQ(taken->GetPixelFormat(), PixFmt::GRAY);

    // Memory that nobody counts is copied.
    uint8_t pixels[2][64] = {{7}};
    AVFrame borrowed = *taken->GetFrame();
    borrowed.buf[0] = nullptr;
    borrowed.data[0] = pixels[0];
    borrowed.linesize[0] = 64;
    borrowed.extended_data = borrowed.data;
    borrowed.height = 2;
    const auto copy = MakeRefCounted<VideoData>(borrowed);
    EXPECT_NE(copy->GetFrame()->data[0], pixels[0]);
    EXPECT_EQ(copy->GetFrame()->data[0][0], 7);
}

TEST(VideoData, Refusals)
{
    EXPECT_THROW(VideoData({0, 17}, PixFmt::NV12), FormatException);
    EXPECT_EQ(FailureOf<FormatException>([] { VideoData({1, 1}, PixFmt::NONE); }),
              (Failure{"No picture of pixel format -1 with 1 x 1 pixels", "VideoData", "Media"}));
    const FramePtr empty(av_frame_alloc());
    EXPECT_EQ(FailureOf<FormatException>([&] { VideoData{*empty}; }).description, "The frame holds nothing");

    const AllocationLimit scarce(10'000);
    try {
        VideoData({640, 480}, PixFmt::YUV420P);
        ADD_FAILURE();
    } catch (const MemoryException& e) {
        EXPECT_EQ(e.GetSize(), 640u * 480 * 3 / 2);
        EXPECT_EQ(*boost::get_error_info<MemoryException::TagFrameWidth>(e), 640);
        EXPECT_EQ(*boost::get_error_info<MemoryException::TagFrameHeight>(e), 480);
    }
}

TEST(AudioData, HasRoomInEveryPlaneOfEveryLayout)
{
    for (int layout = 1; layout <= static_cast<int>(ChannelLayout::StereoDownmix); ++layout)
        for (const auto format : {SampleFormats::S16, SampleFormats::FLTP}) {
            const SampleInfo info(48000, format, static_cast<ChannelLayout>(layout));
            SCOPED_TRACE(*info.layout->name + ' ' + info.format->name);
            const auto audio = MakeRefCounted<AudioData>(info, 1001);
            const AVFrame& frame = *audio->GetFrame();
            const AVChannelLayout expected = AVChannelLayoutFromQuorva(info.layout->layout);
            EXPECT_EQ(av_channel_layout_compare(&frame.ch_layout, &expected), 0);
            EXPECT_EQ(frame.sample_rate, 48000);
            const int planes = info.format->planar ? info.layout->channels : 1;
            for (int plane = 0; plane < planes; ++plane)
                std::memset(frame.extended_data[plane], plane, 1001u * info.GetSampleSizePerPlane());
            for (int plane = 0; plane < planes; ++plane)
                EXPECT_EQ(frame.extended_data[plane][0], plane) << "planes share memory";
        }
}

TEST(AudioData, CountsWhatIsFilled)
{
    AudioData* const audio = new AudioData({44100, SampleFormats::S16, ChannelLayout::Stereo}, 100);
    const boost::intrusive_ptr<IDataAudio> owner = audio;
    EXPECT_EQ(owner->GetSampleCount(), 100);
    audio->SetSampleCount(7);
    EXPECT_EQ(owner->GetSampleCount(), 7);
    EXPECT_EQ(owner->GetFrame()->nb_samples, 7);
    EXPECT_EQ(FailureOf<FormatException>([&] { audio->SetSampleCount(101); }),
              (Failure{"101 samples in room for 100", "SetSampleCount", "Media"}));
    EXPECT_THROW(audio->SetSampleCount(-1), FormatException);
    audio->SetSampleCount(100);
    EXPECT_EQ(owner->GetSampleCount(), 100);
}

TEST(AudioData, SharesAFrameOfItsKind)
{
    const SampleInfo sixteen(48000, SampleFormats::S16P, ChannelLayout::Hexadecagonal);
    const auto first = MakeRefCounted<AudioData>(sixteen, 10);
    AVFrame& frame = *first->GetFrame();
    auto second = MakeRefCounted<AudioData>(frame, sixteen);
    for (int plane = 0; plane < 16; ++plane)
        EXPECT_EQ(second->GetFrame()->extended_data[plane], frame.extended_data[plane]);
    EXPECT_EQ(av_buffer_get_ref_count(frame.extended_buf[7]), 2);
    second.reset();
    EXPECT_EQ(av_buffer_get_ref_count(frame.extended_buf[7]), 1);

    EXPECT_EQ(FailureOf<FormatException>([&] {
                  AudioData(frame, {48000, SampleFormats::S16P, ChannelLayout::Stereo});
              }).description,
              "A frame of 16 channels in sample format 6 is not stereo, s16p");
    EXPECT_THROW(AudioData(frame, {48000, SampleFormats::S16, ChannelLayout::Hexadecagonal}),
                 FormatException);
}

TEST(AudioData, Refusals)
{
    const SampleInfo stereo(48000, SampleFormats::FLT, ChannelLayout::Stereo);
    EXPECT_EQ(FailureOf<FormatException>([&] { AudioData(stereo, 0); }),
              (Failure{"No sound of 0 samples at 48000 Hz, sample format flt, layout stereo", "AudioData",
                       "Media"}));
    EXPECT_THROW(AudioData(stereo, -1), FormatException);
    EXPECT_THROW(AudioData(SampleInfo(), 10), FormatException);
    EXPECT_THROW(AudioData({0, SampleFormats::FLT, ChannelLayout::Stereo}, 10), FormatException);

    const AllocationLimit scarce(10'000);
    try {
        AudioData(stereo, 100'000);
        ADD_FAILURE();
    } catch (const MemoryException& e) {
        EXPECT_EQ(e.GetSize(), 800'000u);
    }
}

TEST(SubtitleData, TakesTheRectanglesOver)
{
    AVSubtitle subtitle = {};
    subtitle.num_rects = 1;
    subtitle.rects = static_cast<AVSubtitleRect**>(av_mallocz(sizeof(AVSubtitleRect*)));
    subtitle.rects[0] = static_cast<AVSubtitleRect*>(av_mallocz(sizeof(AVSubtitleRect)));
    subtitle.rects[0]->type = SUBTITLE_TEXT;
    subtitle.rects[0]->text = av_strdup("here");
    subtitle.pts = 40;

    const auto data = MakeRefCounted<SubtitleData>(std::move(subtitle));
    EXPECT_EQ(subtitle.num_rects, 0u);
    EXPECT_EQ(subtitle.rects, nullptr);
    EXPECT_EQ(data->GetSubtitle().pts, 40);
    EXPECT_STREQ(data->GetSubtitle().rects[0]->text, "here");
}  // a leak would show

TEST(CodecDescription, IsTheInterfaceOfItsKind)
{
    using Conf::IFormatCodec;
    const auto video = MakeRefCounted<Conf::VideoCodecDescription>();
    video->codecID = Conf::IFormatCodecVideo::CODEC_ID_VP9;
    video->frameCropping = {1, 2, 3, 4};
    const boost::intrusive_ptr<const IFormatCodec> codec = video;
    EXPECT_EQ(codec->GetCodecID(), Conf::IFormatCodecVideo::CODEC_ID_VP9);
    EXPECT_EQ(codec->GetKind(), IFormatCodec::Kind::Video);
    EXPECT_FALSE(codec->ExistsProfile());
    const auto& picture = dynamic_cast<const Conf::IFormatCodecVideo&>(*codec);
    EXPECT_FALSE(picture.ExistsDisplayMatrix());
    EXPECT_TRUE(picture.ExistsFrameCropping());
    EXPECT_EQ(picture.GetFrameCropping().right, 4u);
    EXPECT_EQ(dynamic_cast<const Conf::IFormatCodecAudio*>(codec.get()), nullptr);
    EXPECT_EQ(MakeRefCounted<Conf::AudioCodecDescription>()->GetKind(), IFormatCodec::Kind::Audio);
    EXPECT_EQ(MakeRefCounted<Conf::SubtitleCodecDescription>()->GetKind(), IFormatCodec::Kind::Subtitle);
    EXPECT_EQ(MakeRefCounted<Conf::OtherCodecDescription>()->GetKind(), IFormatCodec::Kind::Other);
}

}  // namespace
}  // namespace Quorva::Proc
