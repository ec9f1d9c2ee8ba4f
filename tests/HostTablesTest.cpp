// The host's tables against FFmpeg, whose numbers and names they share.
#include "host/Colour.h"
#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"

#include <gmock/gmock.h>
#include <boost/throw_exception.hpp>

#include <cstdint>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/csp.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace Quorva {
namespace {

using Conf::ChannelLayout;
using Conf::DisplayMatrix;
using Conf::ImageOrientation;
using Conf::LayoutRecord;
using Conf::SampleFormatRecord;
using Conf::SampleFormats;
using Conf::SampleInfo;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using File = Conf::IFormatFile;

TEST(PixelFormats, EachIsAsFFmpegDescribesIt)
{
    ASSERT_EQ(PixFmtDescription::GetSupportedList().size(), AV_PIX_FMT_NB);
    for (int number = 0; number < AV_PIX_FMT_NB; ++number) {
        SCOPED_TRACE(number);
        const auto* const ours = PixFmtDescription::Find(static_cast<PixFmt>(number));
        const auto* const theirs = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(number));
        ASSERT_TRUE(ours && theirs);
        EXPECT_EQ(static_cast<int>(ours->format), number);
        EXPECT_STREQ(ours->GetName(), theirs->name);
        EXPECT_EQ(ours->components, theirs->nb_components);
        EXPECT_EQ(ours->chromaShiftX, theirs->log2_chroma_w);
        EXPECT_EQ(ours->chromaShiftY, theirs->log2_chroma_h);
        const auto flag = [&](uint64_t theirFlag, uint32_t ourFlag) {
            return theirs->flags & theirFlag ? ourFlag : 0;
        };
        EXPECT_EQ(ours->flags, flag(AV_PIX_FMT_FLAG_PLANAR, PixFmtDescription::FLAG_PLANAR) |
                                   flag(AV_PIX_FMT_FLAG_RGB, PixFmtDescription::FLAG_RGB) |
                                   flag(AV_PIX_FMT_FLAG_ALPHA, PixFmtDescription::FLAG_ALPHA));
    }
    for (const int number : {-1, int{AV_PIX_FMT_NB}, INT_MIN, INT_MAX})
        EXPECT_FALSE(PixFmtDescription::IsSupported(static_cast<PixFmt>(number))) << number;
}

constexpr uint64_t layoutMasks[] = {
    0,
    AV_CH_LAYOUT_MONO,
    AV_CH_LAYOUT_STEREO,
    AV_CH_LAYOUT_2POINT1,
    AV_CH_LAYOUT_2_1,
    AV_CH_LAYOUT_SURROUND,
    AV_CH_LAYOUT_3POINT1,
    AV_CH_LAYOUT_4POINT0,
    AV_CH_LAYOUT_4POINT1,
    AV_CH_LAYOUT_2_2,
    AV_CH_LAYOUT_QUAD,
    AV_CH_LAYOUT_5POINT0,
    AV_CH_LAYOUT_5POINT1,
    AV_CH_LAYOUT_5POINT0_BACK,
    AV_CH_LAYOUT_5POINT1_BACK,
    AV_CH_LAYOUT_6POINT0,
    AV_CH_LAYOUT_6POINT0_FRONT,
    AV_CH_LAYOUT_HEXAGONAL,
    AV_CH_LAYOUT_6POINT1,
    AV_CH_LAYOUT_6POINT1_BACK,
    AV_CH_LAYOUT_6POINT1_FRONT,
    AV_CH_LAYOUT_7POINT0,
    AV_CH_LAYOUT_7POINT0_FRONT,
    AV_CH_LAYOUT_7POINT1,
    AV_CH_LAYOUT_7POINT1_WIDE,
    AV_CH_LAYOUT_7POINT1_WIDE_BACK,
    AV_CH_LAYOUT_OCTAGONAL,
    AV_CH_LAYOUT_HEXADECAGONAL,
    AV_CH_LAYOUT_STEREO_DOWNMIX,
};

TEST(Layouts, NamesAndChannelsAreFFmpegs)
{
    for (int number = 1; number < static_cast<int>(std::size(layoutMasks)); ++number) {
        SCOPED_TRACE(number);
        AVChannelLayout theirs{};
        ASSERT_EQ(av_channel_layout_from_mask(&theirs, layoutMasks[number]), 0);
        char name[64];
        ASSERT_GT(av_channel_layout_describe(&theirs, name, sizeof name), 0);
        const LayoutRecord* const ours = LayoutRecord::Find(static_cast<ChannelLayout>(number));
        ASSERT_TRUE(ours);
        EXPECT_EQ(static_cast<int>(ours->layout), number);
        EXPECT_EQ(*ours->name, name);
        EXPECT_EQ(ours->channels, theirs.nb_channels);
    }
    EXPECT_EQ(LayoutRecord::Find(static_cast<ChannelLayout>(29)), nullptr);
    EXPECT_EQ(LayoutRecord::Find(static_cast<ChannelLayout>(-1)), nullptr);
}

TEST(Layouts, CountsLeadToFFmpegsDefaultOrToTheEmptyRecord)
{
    const LayoutRecord* const none = LayoutRecord::Find(ChannelLayout::None);
    for (int channels = -1; channels < 70; ++channels) {
        SCOPED_TRACE(channels);
        const LayoutRecord* const ours = LayoutRecord::Find(channels);
        ASSERT_TRUE(ours);
        AVChannelLayout theirs{};
        av_channel_layout_default(&theirs, std::max(channels, 0));
        const auto* const known = std::ranges::find(layoutMasks, theirs.u.mask);
        const bool usual =
            channels > 0 && theirs.order == AV_CHANNEL_ORDER_NATIVE && known != std::end(layoutMasks);
        EXPECT_EQ(static_cast<int>(ours->layout), usual ? known - layoutMasks : 0);
    }
    EXPECT_EQ(none->channels, 0);
    EXPECT_FALSE(none->name->empty());
}

TEST(Samples, RecordsAndSizesAreFFmpegs)
{
    for (int number = 0; number < AV_SAMPLE_FMT_NB; ++number) {
        SCOPED_TRACE(number);
        const auto theirs = static_cast<AVSampleFormat>(number);
        const auto* const ours = SampleFormatRecord::Find(static_cast<SampleFormats>(number));
        ASSERT_TRUE(ours);
        EXPECT_EQ(static_cast<int>(ours->format), number);
        EXPECT_EQ(ours->name, av_get_sample_fmt_name(theirs));
        EXPECT_EQ(ours->planar, av_sample_fmt_is_planar(theirs) != 0);
        const SampleInfo info(48000, ours->format, ChannelLayout::Layout5Point1);
        EXPECT_EQ(info.GetSampleSizePerPlane(), av_get_bytes_per_sample(theirs) * (ours->planar ? 1 : 6));
    }
    EXPECT_EQ(SampleFormatRecord::Find(SampleFormats::NONE), nullptr);
    EXPECT_EQ(SampleFormatRecord::Find(static_cast<SampleFormats>(AV_SAMPLE_FMT_NB)), nullptr);
    EXPECT_EQ(SampleInfo().GetSampleSizePerPlane(), 0);
    EXPECT_THROW(SampleInfo(1, SampleFormats::NONE, ChannelLayout::Mono), Conf::FormatException);
    EXPECT_THROW(SampleInfo(1, SampleFormats::S16, static_cast<ChannelLayout>(29)), Conf::FormatException);
}

TEST(LumaWeights, AreFFmpegsOrThoseOfBt601)
{
    int own = 0;
    for (int matrix = -1; matrix < 20; ++matrix) {
        SCOPED_TRACE(matrix);
        const auto& ours = Proc::GetYCbCrCoefficients(static_cast<Conf::YCbCrMatrix>(matrix));
        const auto* theirs = av_csp_luma_coeffs_from_avcsp(static_cast<AVColorSpace>(matrix));
        // FFmpeg's weights for RGB and YCgCo are of no use to anyone who divides by 1 - Kr.
        if (!theirs || matrix == AVCOL_SPC_RGB || matrix == AVCOL_SPC_YCGCO)
            theirs = av_csp_luma_coeffs_from_avcsp(AVCOL_SPC_SMPTE170M);
        else
            ++own;
        EXPECT_FLOAT_EQ(ours.Kr, static_cast<float>(av_q2d(theirs->cr)));
        EXPECT_FLOAT_EQ(ours.Kg, static_cast<float>(av_q2d(theirs->cg)));
        EXPECT_FLOAT_EQ(ours.Kb, static_cast<float>(av_q2d(theirs->cb)));
        EXPECT_NEAR(ours.Kr + ours.Kg + ours.Kb, 1, 1e-6);
    }
    EXPECT_EQ(own, 7);  // 709, FCC, 470BG, 170M, 240M, both 2020
}

TEST(Constants, NoTextNamesTwoThings)
{
    std::vector<std::string> codecs;
    std::vector<std::string> formats;
#define CODEC(name, text) codecs.push_back(Conf::IFormatCodec::CODEC_ID_##name);
#include "host/Rows/GenericCodecs.inc"
#undef CODEC
#define CODEC(name, text) codecs.push_back(Conf::IFormatCodecVideo::CODEC_ID_##name);
#include "host/Rows/VideoCodecs.inc"
#undef CODEC
#define CODEC(name, text) codecs.push_back(Conf::IFormatCodecAudio::CODEC_ID_##name);
#include "host/Rows/AudioCodecs.inc"
#undef CODEC
#define CODEC(name, text) codecs.push_back(Conf::IFormatCodecSubtitle::CODEC_ID_##name);
#include "host/Rows/SubtitleCodecs.inc"
#undef CODEC
#define FORMAT(name, text) formats.push_back(File::FORMAT_##name);
#include "host/Rows/Formats.inc"
#undef FORMAT
    EXPECT_EQ(codecs.size(), 358u);
    EXPECT_EQ(formats.size(), 142u);
    for (auto* const list : {&codecs, &formats}) {
        std::ranges::sort(*list);
        const auto twice = std::ranges::adjacent_find(*list);
        EXPECT_EQ(twice, list->end()) << *twice;
        EXPECT_NE(list->front(), "");
    }
}

/// Every extension of the table.
std::vector<std::string> Extensions()
{
    std::vector<std::string> extensions;
#define EXTENSION(extension, ...) extensions.push_back(extension);
#include "host/Rows/Extensions.inc"
#undef EXTENSION
    return extensions;
}

TEST(Extensions, LeadToEveryFileFormatAndToNothingElse)
{
    std::set<std::string> constants;
#define FORMAT(name, text) constants.insert(File::FORMAT_##name);
#include "host/Rows/Formats.inc"
#undef FORMAT
    std::set<std::string> missing = constants;
    for (const std::string& extension : Extensions()) {
        SCOPED_TRACE(extension);
        EXPECT_THAT(Conf::GetFormatsByExtension(extension), Not(IsEmpty()));
        for (const std::string& format : Conf::GetFormatsByExtension(extension)) {
            EXPECT_TRUE(constants.contains(format) || av_find_input_format(format.c_str())) << format;
            missing.erase(format);
        }
    }
    EXPECT_THAT(missing, testing::UnorderedElementsAre(File::FORMAT_IMAGE2, File::FORMAT_IMAGE2PIPE,
                                                       File::FORMAT_NULL, File::FORMAT_QUICKTIME));
}

TEST(Extensions, IncludeThoseThatFFmpegGivesToFilesOfOurFormats)
{
    std::set<std::string> constants;
#define FORMAT(name, text) constants.insert(text);
#include "host/Rows/Formats.inc"
#undef FORMAT
    constants.erase("image2");  // a hundred image formats; ours are listed one by one
    void* state = nullptr;
    while (const AVOutputFormat* const muxer = av_muxer_iterate(&state)) {
        if (!constants.contains(muxer->name) || !muxer->extensions)
            continue;
        std::istringstream names(muxer->extensions);
        for (std::string name; std::getline(names, name, ',');)
            EXPECT_THAT(Conf::GetFormatsByExtension(name), Not(IsEmpty())) << muxer->name << ": " << name;
    }
}

TEST(Extensions, PreferTheLikelyFormat)
{
    EXPECT_THAT(Conf::GetFormatsByExtension("mov"), ElementsAre(File::FORMAT_MOV, File::FORMAT_MP4));
    EXPECT_THAT(Conf::GetFormatsByExtension("WebP"), ElementsAre(File::FORMAT_WEBP, File::FORMAT_AWEBP));
    EXPECT_THAT(Conf::GetFormatsByExtension("mka"), ElementsAre(File::FORMAT_MKA, File::FORMAT_MATROSKA));
    EXPECT_THAT(Conf::GetFormatsByExtension("JPG"), ElementsAre(File::FORMAT_JPEG, File::FORMAT_MJPEG));
    EXPECT_THAT(Conf::GetFormatsByExtension("vtt"), ElementsAre("webvtt"));
    EXPECT_THAT(Conf::GetFormatsByExtension("m4a").front(), File::FORMAT_M4A);
    for (const char* const unknown : {"", ".mp4", "mp4 ", "docx", "\xC3\x9CMP"})
        EXPECT_THAT(Conf::GetFormatsByExtension(unknown), IsEmpty()) << unknown;
}

TEST(ImageContainers, AnimationsCountOnlyWhenAskedFor)
{
    const auto& still = Conf::GetImageContainerSet(Conf::AnimatedImages::Exclude);
    const auto& all = Conf::GetImageContainerSet(Conf::AnimatedImages::Include);
    for (const auto* const format : {&File::FORMAT_PNG, &File::FORMAT_JPEG, &File::FORMAT_WEBP,
                                     &File::FORMAT_HEIC, &File::FORMAT_TARGA, &File::FORMAT_RADIANCE_HDR}) {
        EXPECT_TRUE(still.contains(*format)) << *format;
        EXPECT_TRUE(all.contains(*format)) << *format;
    }
    for (const auto* const format : {&File::FORMAT_GIF, &File::FORMAT_APNG, &File::FORMAT_AWEBP,
                                     &File::FORMAT_AJPEGXL, &File::FORMAT_AVIF, &File::FORMAT_HEICS}) {
        EXPECT_FALSE(still.contains(*format)) << *format;
        EXPECT_TRUE(all.contains(*format)) << *format;
    }
    for (const auto* const format : {&File::FORMAT_MP4, &File::FORMAT_MJPEG, &File::FORMAT_IMAGE2})
        EXPECT_FALSE(all.contains(*format)) << *format;
}

uint32_t Brand(const char (&text)[5])
{
    return MKTAG(text[0], text[1], text[2], static_cast<unsigned char>(text[3]));
}

TEST(IsoBrands, NameTheFormat)
{
    const struct {
        const char (&brand)[5];
        const std::string& format;
    } rows[] = {
        {"isom", File::FORMAT_MP4  },
        {"mp42", File::FORMAT_MP4  },
        {"qt  ", File::FORMAT_MOV  },
        {"M4A ", File::FORMAT_M4A  },
        {"M4VH", File::FORMAT_M4V  },
        {"3gp5", File::FORMAT_3GP  },
        {"3g2a", File::FORMAT_3G2  },
        {"MSNV", File::FORMAT_PSP  },
        {"heic", File::FORMAT_HEIC },
        {"hevc", File::FORMAT_HEICS},
        {"mif1", File::FORMAT_HEIF },
        {"avis", File::FORMAT_AVIF },
        {"F4A ", File::FORMAT_F4A  },
        {"yt4 ", File::FORMAT_MP4  },
    };
    for (const auto& row : rows)
        EXPECT_EQ(Proc::ConvertISOBMFFToFileFormat(Brand(row.brand)), row.format) << row.brand;
    for (const uint32_t unknown :
         {0u, Brand("MP42"), Brand("QT  "), Brand("jp2 "), Brand("    "), UINT32_MAX})
        EXPECT_EQ(Proc::ConvertISOBMFFToFileFormat(unknown), "") << unknown;
}

TEST(IsoBrands, EveryFormatTheyNameIsKnown)
{
    const std::vector<std::string> known = Proc::GetKnownISOBaseMediaFileFormats();
    EXPECT_EQ(std::set<std::string>(known.begin(), known.end()).size(), known.size());
    EXPECT_THAT(known, AllOf(Contains(File::FORMAT_MOV), Contains(File::FORMAT_MP4)));
#define BRAND(brand, format) \
    EXPECT_THAT(known, Contains(Proc::ConvertISOBMFFToFileFormat(Brand(brand)))) << (brand);
#include "host/Rows/IsoBrands.inc"
#undef BRAND
}

/// Where the corners of a frame are shown: left, top, right, bottom.
std::array<int64_t, 4> ShownAt(const DisplayMatrix& matrix, const FrameSize& size)
{
    const auto& m = matrix.values;
    std::array<int64_t, 4> box = {INT64_MAX, INT64_MAX, INT64_MIN, INT64_MIN};
    for (const int64_t p : {0, size.width})
        for (const int64_t q : {0, size.height}) {
            const int64_t x = m[0] * p + m[3] * q + m[6];
            const int64_t y = m[1] * p + m[4] * q + m[7];
            box = {std::min(box[0], x), std::min(box[1], y), std::max(box[2], x), std::max(box[3], y)};
        }
    for (int64_t& edge : box)
        edge /= 1 << 16;
    return box;
}

TEST(DisplayMatrix, OrientationsAreFFmpegsTurnsAndFlips)
{
    const struct {
        ImageOrientation orientation;
        double clockwise;
        bool mirrored;  ///< left and right exchanged, before the turn
    } rows[] = {
        {ImageOrientation::Normal,           0,   false},
        {ImageOrientation::MirrorHorizontal, 0,   true },
        {ImageOrientation::Rotate180,        180, false},
        {ImageOrientation::MirrorVertical,   180, true },
        {ImageOrientation::Transpose,        270, true },
        {ImageOrientation::Rotate90,         90,  false},
        {ImageOrientation::Transverse,       90,  true },
        {ImageOrientation::Rotate270,        270, false},
    };
    const FrameSize size = {640, 480};
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.orientation));
        DisplayMatrix theirs;
        av_display_rotation_set(theirs.values.data(), row.clockwise);
        if (row.mirrored) {  // av_display_matrix_flip() mirrors after the turn
            theirs.values[0] = -theirs.values[0];
            theirs.values[1] = -theirs.values[1];
        }
        EXPECT_EQ(theirs.GetOrientation(), row.orientation);

        const DisplayMatrix ours = DisplayMatrix::FromOrientation(row.orientation, size);
        EXPECT_EQ(ours.GetOrientation(), row.orientation);
        const bool upright = std::fmod(row.clockwise, 180) == 0;
        EXPECT_EQ(ShownAt(ours, size),
                  (std::array<int64_t, 4>{0, 0, upright ? 640 : 480, upright ? 480 : 640}));
        if (!row.mirrored) {
            EXPECT_EQ(std::fmod(720 - av_display_rotation_get(ours.values.data()), 360), row.clockwise);
        }
    }
}

TEST(DisplayMatrix, WhatIsNoOrientationHasNone)
{
    DisplayMatrix matrix;
    av_display_rotation_set(matrix.values.data(), 45);
    EXPECT_EQ(matrix.GetOrientation(), std::nullopt);
    for (const std::size_t changed : {0u, 1u, 2u, 5u, 8u}) {
        matrix = {};
        matrix.values[changed] += 1 << 15;
        EXPECT_EQ(matrix.GetOrientation(), std::nullopt) << changed;
    }
    matrix = {};
    matrix.values[6] = matrix.values[7] = 123456;  // translation doesn't turn
    EXPECT_EQ(matrix.GetOrientation(), ImageOrientation::Normal);
}

TEST(DisplayMatrix, TranslationFitsAnyMatrixAndSize)
{
    DisplayMatrix matrix;
    av_display_rotation_set(matrix.values.data(), 30);
    matrix.CorrectTranslation({1920, 1080});
    const auto box = ShownAt(matrix, {1920, 1080});
    EXPECT_EQ(box[0], 0);
    EXPECT_EQ(box[1], 0);
    EXPECT_EQ(DisplayMatrix::FromOrientation(ImageOrientation::Rotate180, {40000, INT_MIN}).values[6],
              INT_MAX);
    matrix.values = {INT_MIN, INT_MIN, 0, INT_MIN, INT_MIN, 0, 0, 0, 1 << 30};
    matrix.CorrectTranslation({INT_MAX, INT_MAX});
    EXPECT_EQ(matrix.values[7], INT_MAX);
}

}  // namespace
}  // namespace Quorva
