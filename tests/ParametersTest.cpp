#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"

#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "host/CodecDescriptions.h"
#include "host/Media.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Owned.h"

extern "C" {
#include <libavutil/display.h>
}

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

namespace Quorva::Proc {
namespace {

using Conf::ChannelLayout;
using Conf::DisplayMatrix;
using Conf::FrameCropping;
using Conf::IFormatCodec;
using Conf::IFormatCodecAudio;
using Conf::IFormatCodecSubtitle;
using Conf::IFormatCodecVideo;
using Conf::ImageOrientation;
using Conf::SampleFormats;
using Core::MemoryException;

using Parameters = Owned<AVCodecParameters>;

Parameters NewParameters() { return Parameters(avcodec_parameters_alloc()); }

boost::intrusive_ptr<Conf::VideoCodecDescription> NewVideo(const std::string& codec)
{
    auto video = MakeRefCounted<Conf::VideoCodecDescription>();
    video->codecID = codec;
    video->width = 640;
    video->height = 360;
    return video;
}

const AVPacketSideData* Find(const AVCodecParameters& parameters, AVPacketSideDataType type)
{
    return av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
}

TEST(FormatCodecToCodecParameters, Video)
{
    const auto video = NewVideo(IFormatCodecVideo::CODEC_ID_H264);
    video->profile = AV_PROFILE_H264_HIGH;
    video->bitrate = 5'000'000;
    video->pixelAspectX = 64;
    video->pixelAspectY = 45;
    video->pixelFormat = PixFmt::YUV420P10LE;
    video->bitsPerPixel = 24;
    video->colorSpace = {AVCOL_PRI_BT709, AVCOL_TRC_SMPTE2084, AVCOL_SPC_BT2020_NCL};
    video->extradata = MakeBlob({1, 2, 3});
    const Parameters parameters = NewParameters();
    FormatCodecToCodecParameters(video, parameters.get());

    EXPECT_EQ(parameters->codec_type, AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(parameters->codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(parameters->profile, AV_PROFILE_H264_HIGH);
    EXPECT_EQ(parameters->width, 640);
    EXPECT_EQ(parameters->height, 360);
    EXPECT_EQ(av_cmp_q(parameters->sample_aspect_ratio, {64, 45}), 0);
    EXPECT_EQ(parameters->format, AV_PIX_FMT_YUV420P10LE);
    EXPECT_EQ(parameters->bits_per_coded_sample, 24);
    EXPECT_EQ(parameters->color_primaries, AVCOL_PRI_BT709);
    EXPECT_EQ(parameters->color_trc, AVCOL_TRC_SMPTE2084);
    EXPECT_EQ(parameters->color_space, AVCOL_SPC_BT2020_NCL);
    EXPECT_EQ(parameters->color_range, AVCOL_RANGE_UNSPECIFIED);
    EXPECT_EQ(parameters->bit_rate, 0);
    EXPECT_EQ(parameters->extradata_size, 3);
    EXPECT_EQ(parameters->nb_coded_side_data, 0);
}

TEST(FormatCodecToCodecParameters, WhatIsNotDescribedStays)
{
    const Parameters parameters = NewParameters();
    parameters->profile = 77;
    parameters->bits_per_coded_sample = 12;
    parameters->color_range = AVCOL_RANGE_JPEG;
    parameters->bit_rate = 9;
    parameters->frame_size = 3;
    parameters->block_align = 4;
    parameters->initial_padding = 5;
    FormatCodecToCodecParameters(NewVideo(IFormatCodecVideo::CODEC_ID_VP9), parameters.get());
    EXPECT_EQ(parameters->color_range, AVCOL_RANGE_JPEG);
    EXPECT_EQ(parameters->bit_rate, 9);
    const auto audio = MakeRefCounted<Conf::AudioCodecDescription>();
    audio->codecID = IFormatCodecAudio::CODEC_ID_AAC;
    FormatCodecToCodecParameters(audio, parameters.get());
    EXPECT_EQ(parameters->profile, 77);
    EXPECT_EQ(parameters->bits_per_coded_sample, 12);
    EXPECT_EQ(parameters->frame_size, 3);
    EXPECT_EQ(parameters->block_align, 4);
    EXPECT_EQ(parameters->initial_padding, 5);
}

TEST(FormatCodecToCodecParameters, DisplayMatrixTurnsForFFmpegAsItDoesForThePipeline)
{
    // FFmpeg counts degrees anticlockwise.
    const struct {
        ImageOrientation orientation;
        double rotation;
    } rows[] = {
        {ImageOrientation::Rotate90,         -90},
        {ImageOrientation::Rotate180,        180},
        {ImageOrientation::Rotate270,        90 },
        {ImageOrientation::MirrorHorizontal, 180},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.orientation));
        const auto video = NewVideo(IFormatCodecVideo::CODEC_ID_H264);
        video->displayMatrix = DisplayMatrix::FromOrientation(row.orientation, {0, 0});
        const Parameters parameters = NewParameters();
        FormatCodecToCodecParameters(video, parameters.get());
        const AVPacketSideData* entry = Find(*parameters, AV_PKT_DATA_DISPLAYMATRIX);
        ASSERT_TRUE(entry);
        ASSERT_EQ(entry->size, 36u);
        const auto* matrix = reinterpret_cast<const int32_t*>(entry->data);
        EXPECT_NEAR(std::remainder(av_display_rotation_get(matrix) - row.rotation, 360), 0, 1e-9);
        // With the translation of the stream's size, whatever it was before.
        const auto expected = DisplayMatrix::FromOrientation(row.orientation, {640, 360});
        EXPECT_EQ(std::memcmp(matrix, expected.values.data(), 36), 0);
    }
}

TEST(FormatCodecToCodecParameters, OnlyAnUprightPictureNeedsNoMatrix)
{
    const auto video = NewVideo(IFormatCodecVideo::CODEC_ID_H264);
    const Parameters parameters = NewParameters();
    video->displayMatrix = DisplayMatrix();
    video->displayMatrix->values[6] = 5 << 16;  // moved, but upright
    FormatCodecToCodecParameters(video, parameters.get());
    EXPECT_EQ(parameters->nb_coded_side_data, 0);

    int32_t values[9];
    av_display_rotation_set(values, 30);  // none of the eight orientations
    std::copy(values, values + 9, video->displayMatrix->values.begin());
    FormatCodecToCodecParameters(video, parameters.get());
    FormatCodecToCodecParameters(video, parameters.get());
    ASSERT_EQ(parameters->nb_coded_side_data, 1) << "one entry, however often it is filled";
    const auto* matrix = reinterpret_cast<const int32_t*>(parameters->coded_side_data[0].data);
    EXPECT_NEAR(av_display_rotation_get(matrix), av_display_rotation_get(values), 1e-9);
    EXPECT_EQ(values[6] | values[7], 0);
    EXPECT_NE(matrix[6] | matrix[7], 0) << "the picture would be shown outside its frame";
}

TEST(FormatCodecToCodecParameters, CroppingComesBack)
{
    const FrameCropping cropping = {2, 0x80000001, 6, 8};
    const auto video = NewVideo(IFormatCodecVideo::CODEC_ID_H264);
    video->frameCropping = cropping;
    video->displayMatrix = DisplayMatrix::FromOrientation(ImageOrientation::Rotate90, {});
    const Parameters parameters = NewParameters();
    FormatCodecToCodecParameters(video, parameters.get());
    EXPECT_EQ(parameters->nb_coded_side_data, 2);

    const AVPacketSideData* entry = Find(*parameters, AV_PKT_DATA_FRAME_CROPPING);
    ASSERT_TRUE(entry);
    ASSERT_EQ(entry->size, 16u);
    EXPECT_EQ(entry->data[0], 2);  // FFmpeg: little-endian top, bottom, left, right
    EXPECT_EQ(entry->data[12], 8);

    FrameCropping found;
    EXPECT_TRUE(GetFrameCroppingFromCodecParameters(found, parameters.get()));
    EXPECT_EQ(found, cropping);

    const std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(nullptr), [](AVCodecContext* c) { avcodec_free_context(&c); });
    FrameCropping unchanged = {9, 9, 9, 9};
    EXPECT_FALSE(GetFrameCroppingFromCodecContext(unchanged, context.get()));
    ASSERT_EQ(avcodec_parameters_to_context(context.get(), parameters.get()), 0);
    found = {};
    EXPECT_TRUE(GetFrameCroppingFromCodecContext(found, context.get()));
    EXPECT_EQ(found, cropping);

    // None at all, and one that is too short.
    const Parameters others = NewParameters();
    EXPECT_FALSE(GetFrameCroppingFromCodecParameters(unchanged, others.get()));
    ASSERT_TRUE(av_packet_side_data_new(&others->coded_side_data, &others->nb_coded_side_data,
                                        AV_PKT_DATA_FRAME_CROPPING, 15, 0));
    EXPECT_FALSE(GetFrameCroppingFromCodecParameters(unchanged, others.get()));
    EXPECT_EQ(unchanged, (FrameCropping{9, 9, 9, 9}));
}

TEST(FormatCodecToCodecParameters, SideDataThatFindsNoRoomIsLogged)
{
    LogCapture log;
    const auto video = NewVideo(IFormatCodecVideo::CODEC_ID_H264);
    video->frameCropping = FrameCropping{};
    const Parameters parameters = NewParameters();
    {
        const AllocationLimit scarce(1);
        FormatCodecToCodecParameters(video, parameters.get());
        EXPECT_THAT(log.Take(), testing::ElementsAre(LogRecord{google::GLOG_ERROR,
                                                               "Failed to generate a frame cropping data"}));
        video->displayMatrix = DisplayMatrix::FromOrientation(ImageOrientation::Rotate90, {});
        FormatCodecToCodecParameters(video, parameters.get());
        EXPECT_THAT(log.Take(), testing::ElementsAre(LogRecord{google::GLOG_ERROR,
                                                               "Failed to generate a display matrix data"}))
            << "after the matrix nothing more is tried";
    }
    EXPECT_EQ(log.GetUnit(), "Tessadrin");
    EXPECT_EQ(parameters->nb_coded_side_data, 0);
    EXPECT_EQ(parameters->width, 640);
}

TEST(FormatCodecToCodecParameters, Audio)
{
    const auto audio = MakeRefCounted<Conf::AudioCodecDescription>();
    audio->codecID = IFormatCodecAudio::CODEC_ID_AAC;
    audio->sampleInfo = {44100, SampleFormats::FLTP, ChannelLayout::Layout5Point1};
    audio->bitrate = (int64_t{3} << 32) + 128'000;  // narrowed
    audio->bitsPerSample = 20;
    audio->frameSize = 1024;
    audio->blockAlignment = 12;
    audio->initialPadding = 2048;
    const Parameters parameters = NewParameters();
    // What was there before owns memory.
    ASSERT_EQ(av_channel_layout_custom_init(&parameters->ch_layout, 3), 0);
    FormatCodecToCodecParameters(audio, parameters.get());

    EXPECT_EQ(parameters->codec_type, AVMEDIA_TYPE_AUDIO);
    EXPECT_EQ(parameters->codec_id, AV_CODEC_ID_AAC);
    char layout[32] = "";
    av_channel_layout_describe(&parameters->ch_layout, layout, sizeof layout);
    EXPECT_STREQ(layout, "5.1(side)");
    EXPECT_EQ(parameters->sample_rate, 44100);
    EXPECT_EQ(parameters->format, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(parameters->bit_rate, 128'000);
    EXPECT_EQ(parameters->bits_per_coded_sample, 20);
    EXPECT_EQ(parameters->frame_size, 1024);
    EXPECT_EQ(parameters->block_align, 12);
    EXPECT_EQ(parameters->initial_padding, 2048);

    // A layout without a mask leaves the count: unspecified order, as FFmpeg expects.
    const std::string name = "three of something";
    const Conf::LayoutRecord unmasked = {ChannelLayout::None, 3, &name};
    audio->sampleInfo.layout = &unmasked;
    FormatCodecToCodecParameters(audio, parameters.get());
    EXPECT_EQ(parameters->ch_layout.order, AV_CHANNEL_ORDER_UNSPEC);
    EXPECT_EQ(parameters->ch_layout.nb_channels, 3);

    const Conf::LayoutRecord unknown = {static_cast<ChannelLayout>(29), 4, &name};
    audio->sampleInfo.layout = &unknown;
    audio->frameSize = 99;
    EXPECT_EQ(LogicFailureOf([&] { FormatCodecToCodecParameters(audio, parameters.get()); }),
              (Failure{"undefined convertion from ChannelLayout", "AVChannelLayoutMaskFromQuorva",
                       "ChannelLayoutsConvertion"}));
    EXPECT_EQ(parameters->frame_size, 1024) << "nothing is written behind the layout";
}

TEST(FormatCodecToCodecParameters, SubtitlesAndTheRest)
{
    const auto subtitle = MakeRefCounted<Conf::SubtitleCodecDescription>();
    const auto other = MakeRefCounted<Conf::OtherCodecDescription>();
    const auto filled = [](auto description, const std::string& codec) {
        description->codecID = codec;
        description->extradata = MakeBlob({1});
        Parameters parameters = NewParameters();
        parameters->codec_type = AVMEDIA_TYPE_VIDEO;
        FormatCodecToCodecParameters(description, parameters.get());
        EXPECT_EQ(parameters->codec_type, AVMEDIA_TYPE_SUBTITLE);
        EXPECT_EQ(parameters->extradata_size, 1);
        return parameters->codec_id;
    };
    EXPECT_EQ(filled(subtitle, IFormatCodecSubtitle::CODEC_ID_SSA), AV_CODEC_ID_ASS);
    EXPECT_EQ(filled(subtitle, IFormatCodecSubtitle::CODEC_ID_MOV_TEXT), AV_CODEC_ID_MOV_TEXT);
    EXPECT_EQ(filled(other, IFormatCodecSubtitle::CODEC_ID_SSA), AV_CODEC_ID_SSA) << "only a subtitle's";
}

TEST(FormatCodecToCodecParameters, UnknownCodecLeavesEverything)
{
    const Parameters parameters = NewParameters();
    parameters->codec_id = AV_CODEC_ID_DVB_TELETEXT;
    const auto video = NewVideo("no such codec");
    video->extradata = MakeBlob({1});
    EXPECT_THROW(FormatCodecToCodecParameters(video, parameters.get()), Conf::FormatException);
    EXPECT_EQ(parameters->codec_id, AV_CODEC_ID_DVB_TELETEXT);
    EXPECT_EQ(parameters->width, 0);
    EXPECT_EQ(parameters->extradata, nullptr);
}

/// A blob that claims a size.
class HugeBlob final : public RefCounted<IBlob> {
public:
    explicit HugeBlob(uint64_t size) : size(size) {}
    const uint8_t* GetData() const noexcept override { return nullptr; }
    uint64_t GetSize() const noexcept override { return size; }

private:
    uint64_t size;
};

TEST(SetExtradata, ReplacesAndPads)
{
    const Parameters parameters = NewParameters();
    SetExtradata(parameters.get(), MakeBlob(std::vector<uint8_t>(100, 0xff)));
    SetExtradata(parameters.get(), MakeBlob(std::vector<uint8_t>(10, 7)));
    ASSERT_EQ(parameters->extradata_size, 10);
    for (int i = 0; i < 74; ++i)
        EXPECT_EQ(parameters->extradata[i], i < 10 ? 7 : 0) << i;
    for (const auto& nothing : {boost::intrusive_ptr<const IBlob>(), MakeBlob({})}) {
        SetExtradata(parameters.get(), MakeBlob({1}));
        SetExtradata(parameters.get(), nothing);
        EXPECT_EQ(parameters->extradata, nullptr);
        EXPECT_EQ(parameters->extradata_size, 0);
    }
}

TEST(SetExtradata, WhatFindsNoRoomLeavesNone)
{
    const Parameters parameters = NewParameters();
    const auto refused = [&](const boost::intrusive_ptr<const IBlob>& blob, uint64_t size) {
        SetExtradata(parameters.get(), MakeBlob({1, 2, 3}));
        const AllocationLimit scarce(1000);
        try {
            SetExtradata(parameters.get(), blob);
            ADD_FAILURE();
        } catch (const MemoryException& e) {
            EXPECT_EQ(e.GetSize(), size);
            EXPECT_TRUE(boost::get_error_info<TagCallStack>(e));
            EXPECT_EQ(PlaceOf(e, e.what()),
                      (Failure{"Failed to allocate extradata.", "SetExtradata", "Tessadrin"}));
        }
        EXPECT_EQ(parameters->extradata, nullptr);
        EXPECT_EQ(parameters->extradata_size, 0);
    };
    refused(MakeBlob(std::vector<uint8_t>(5000)), 5064);
    refused(MakeRefCounted<HugeBlob>(uint64_t{INT_MAX} - 63), uint64_t{INT_MAX} + 1);
    refused(MakeRefCounted<HugeBlob>((uint64_t{1} << 32) + 5), (uint64_t{1} << 32) + 69);
}

TEST(GetProperQuality, SpreadsTheScaleOverTheQuantizers)
{
    ASSERT_EQ(IFormatCodec::MIN_QUALITY, 1);
    ASSERT_EQ(IFormatCodec::MAX_QUALITY, 100);
    const struct {
        const std::string& codec;
        int64_t largest;
    } rows[] = {
        {IFormatCodecVideo::CODEC_ID_H264,       51},
        {IFormatCodecVideo::CODEC_ID_H265,       51},
        {IFormatCodecVideo::CODEC_ID_VP8,        63},
        {IFormatCodecVideo::CODEC_ID_VP9,        63},
        {IFormatCodecVideo::CODEC_ID_AV1,        63},
        {IFormatCodecVideo::CODEC_ID_MPEG2VIDEO, 51},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.codec);
        const auto video = NewVideo(row.codec);
        int64_t largest = 0;
        const auto at = [&](int64_t quality) {
            video->quality = quality;
            return GetProperQuality(video, largest);
        };
        for (int quality = 1; quality <= 100; ++quality)
            EXPECT_NEAR(static_cast<double>(at(quality)),
                        1 + static_cast<double>(row.largest - 1) * (quality - 1) / 99, 0.5 + 1e-9);
        EXPECT_EQ(largest, row.largest);
        for (const int64_t beyond : {int64_t{101}, INT64_MAX})
            EXPECT_EQ(at(beyond), row.largest);
        for (const int64_t beyond : {int64_t{0}, int64_t{-1000}, INT64_MIN})
            EXPECT_EQ(at(beyond), 1);
    }
}

TEST(GetAudioBitrate, IsComputedForPlainPcmAlone)
{
    const Parameters parameters = NewParameters();
    const auto of = [&](AVCodecID codec, int rate, int channels) {
        parameters->codec_id = codec;
        parameters->sample_rate = rate;
        parameters->ch_layout.nb_channels = channels;
        parameters->bit_rate = 777;
        return GetAudioBitrate(parameters.get());
    };
    EXPECT_EQ(of(AV_CODEC_ID_PCM_S24LE, 48000, 2), 2'304'000);
    EXPECT_EQ(of(AV_CODEC_ID_AAC, 48000, 2), 777);
    EXPECT_EQ(of(AV_CODEC_ID_PCM_S32LE, 1'000'000, 100), 3'200'000'000) << "more than 32 bits hold";
    EXPECT_EQ(of(AV_CODEC_ID_PCM_S32LE, INT_MAX, INT_MAX), INT64_MAX);
    EXPECT_EQ(of(AV_CODEC_ID_PCM_S32LE, INT_MIN, INT_MAX), INT64_MIN);
    EXPECT_EQ(of(AV_CODEC_ID_PCM_S32LE, INT_MIN, 255), INT64_C(8160) * INT_MIN);
    // FFmpeg knows the size of a sample too, for more codecs.
    for (int id = AV_CODEC_ID_FIRST_AUDIO; id <= AV_CODEC_ID_PCM_S24DAUD + 20; ++id) {
        const auto codec = static_cast<AVCodecID>(id);
        EXPECT_EQ(of(codec, 1, 1), id <= AV_CODEC_ID_PCM_S24DAUD ? av_get_exact_bits_per_sample(codec) : 777)
            << avcodec_get_name(codec);
    }
}

TEST(GetStreamAspect, PrefersTheStreamUnlessBothMeanTheSame)
{
    const struct {
        AVRational stream, codec, expected;
    } rows[] = {
        {{0, 1},       {4, 3},   {4, 3}      },
        {{16, 15},     {64, 45}, {16, 15}    },
        {{32, 30},     {16, 15}, {16, 15}    }, // the same: the smaller numbers
        {{0, 1},       {0, 1},   {1, 1}      },
        {{0, 0},       {0, 0},   {1, 1}      },
        {{10, 20},     {0, 1},   {1, 2}      },
        {{1, 20},      {0, 1},   {1, 1}      }, // too near to none
        {{16, 15},     {10, 10}, {1, 1}      }, // 0.07 apart: taken for the same
        {{20, 20},     {20, 19}, {20, 19}    },
        {{3, 0},       {4, 3},   {1, 1}      }, // the stream's, which is none
        {{-4, 3},      {8, 6},   {4, 3}      },
        {{4, -3},      {0, 1},   {1, 1}      },
        {{INT_MAX, 2}, {1, 1},   {INT_MAX, 2}},
    };
    const Parameters parameters = NewParameters();
    AVStream stream = {};
    stream.codecpar = parameters.get();
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.stream.num << ':' << row.stream.den << " and " << row.codec.num
                                        << ':' << row.codec.den);
        stream.sample_aspect_ratio = row.stream;
        parameters->sample_aspect_ratio = row.codec;
        int64_t num = -1, den = -1;
        GetStreamAspect(&stream, num, den);
        EXPECT_EQ(num, row.expected.num);
        EXPECT_EQ(den, row.expected.den);
    }
}

TEST(FillAvFrameParams, ShapeWithoutBuffers)
{
    const auto video = MakeRefCounted<VideoData>(IDataVideo::Picture{33, 17, 16, 15}, PixFmt::NV12);
    const FramePtr frame(av_frame_alloc());
    frame->flags = AV_FRAME_FLAG_KEY | AV_FRAME_FLAG_CORRUPT;
    frame->pts = 40;
    FillAvFrameParams(*frame, *video);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
    EXPECT_EQ(frame->width, 33);
    EXPECT_EQ(frame->height, 17);
    EXPECT_EQ(av_cmp_q(frame->sample_aspect_ratio, {16, 15}), 0);
    EXPECT_EQ(frame->flags, AV_FRAME_FLAG_CORRUPT) << "no key frame, and nothing else changed";
    EXPECT_EQ(frame->pts, 40);
    EXPECT_EQ(frame->buf[0], nullptr);
}

}  // namespace
}  // namespace Quorva::Proc
