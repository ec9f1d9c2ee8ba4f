#include "Proc/Wrappers/Tessadrin/SafeTypes.h"

#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"

#include <algorithm>
#include <memory>
#include <set>
#include <type_traits>

namespace Quorva::Proc {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

static_assert(CaseSensitiveHash()("") == 0xcbf29ce484222325);  // FNV-1a's published values
static_assert(CaseSensitiveHash()("a") == 0xaf63dc4c8601ec8c);
static_assert(CaseSensitiveHash()("foobar") == 0x85944171f73967e8);
static_assert(std::is_trivially_copyable_v<SafeEncoderCodec> && sizeof(SafeEncoderCodec) == sizeof(void*));
static_assert(!std::is_copy_constructible_v<SafeCodecContext> &&
              std::has_virtual_destructor_v<SafeCodecContext>);

/// Every encoder that can be had by codec and family.
std::vector<SafeEncoderCodec> AllEncoders()
{
    std::set<const AVCodec*> seen;
    std::vector<SafeEncoderCodec> encoders;
    for (const auto& [id, text] : GetFFCodecsMap())
        for (const std::string& family :
             {ImplNames::FFMPEG, ImplNames::NVENC, ImplNames::QSV, ImplNames::AMF})
            if (FindEncoder(id, family))
                if (const SafeEncoderCodec encoder(id, family); seen.insert(encoder.Get()).second)
                    encoders.push_back(encoder);
    EXPECT_GT(encoders.size(), 150u);
    return encoders;
}

SafeEncoderCodec Encoder(AVCodecID id) { return {id, ImplNames::FFMPEG}; }

bool IsVideo(const SafeEncoderCodec& encoder) { return encoder.Get()->type == AVMEDIA_TYPE_VIDEO; }

// The fields that the queries are built on are deprecated, and so an oracle of their own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::vector<AVPixelFormat> PixelFormatsOf(const AVCodec& codec)
{
    std::vector<AVPixelFormat> formats;
    for (const AVPixelFormat* format = codec.pix_fmts; format && *format != AV_PIX_FMT_NONE; ++format)
        formats.push_back(*format);
    return formats;
}

std::vector<std::pair<int, int>> FrameRatesOf(const AVCodec& codec)
{
    std::vector<std::pair<int, int>> rates;
    for (const AVRational* rate = codec.supported_framerates; rate && rate->num; ++rate)
        rates.emplace_back(rate->num, rate->den);
    return rates;
}
#pragma GCC diagnostic pop

std::vector<std::pair<int, int>> Pairs(const std::vector<AVRational>& rates)
{
    std::vector<std::pair<int, int>> pairs;
    for (const AVRational& rate : rates)
        pairs.emplace_back(rate.num, rate.den);
    return pairs;
}

TEST(SafeEncoderCodec, FormatsAndRatesAreTheEncodersOwn)
{
    int any = 0;
    for (const SafeEncoderCodec& encoder : AllEncoders()) {
        SCOPED_TRACE(encoder.Get()->name);
        if (!IsVideo(encoder)) {
            EXPECT_EQ(
                FailureOf<ProcException>([&] { encoder.GetSupportedFrameRates(); }),
                (Failure{"Unable to get supported frame rates", "GetSupportedFrameRates", "SafeTypes"}));
            const Failure formats = {"Unable to get supported pixel formats", "GetSupportedPixelFormats",
                                     "SafeTypes"};
            EXPECT_EQ(FailureOf<ProcException>([&] { encoder.GetSupportedPixelFormats(); }), formats);
            EXPECT_EQ(FailureOf<ProcException>([&] { encoder.GetSupportedPixFmts(); }), formats);
            continue;
        }
        const std::vector<AVPixelFormat> formats = PixelFormatsOf(*encoder.Get());
        EXPECT_EQ(encoder.GetSupportedPixelFormats(), formats);
        any += formats.empty();
        const std::vector<PixFmt> ours = encoder.GetSupportedPixFmts();
        EXPECT_TRUE(std::ranges::equal(ours, formats, [](PixFmt format, AVPixelFormat theirs) {
            return static_cast<int>(format) == theirs;
        })) << "the pipeline describes all of FFmpeg's formats";

        auto rates = FrameRatesOf(*encoder.Get());
        if (encoder.Get()->id == AV_CODEC_ID_MPEG1VIDEO)
            rates.resize(8);
        EXPECT_EQ(Pairs(encoder.GetSupportedFrameRates()), rates);
        EXPECT_EQ(encoder.GetSupportedFrameRate({25, 1}).has_value(), !rates.empty());
    }
    EXPECT_GT(any, 0) << "rawvideo takes any format";
    EXPECT_EQ(Encoder(AV_CODEC_ID_MPEG2VIDEO).GetSupportedFrameRates().size(), 62u);
}

TEST(SafeEncoderCodec, NearestFrameRate)
{
    const struct {
        AVCodecID codec;
        AVRational wanted, nearest;
    } rows[] = {
        {AV_CODEC_ID_MPEG2VIDEO, {30000, 1001}, {30000, 1001}},
        {AV_CODEC_ID_MPEG2VIDEO, {60000, 2002}, {30000, 1001}},
        {AV_CODEC_ID_MPEG1VIDEO, {120, 1},      {60, 1}      },
        {AV_CODEC_ID_MPEG1VIDEO, {15, 1},       {24000, 1001}}, // beyond the eight it would be 15
        {AV_CODEC_ID_MPEG1VIDEO, {25, 1},       {25, 1}      },
    };
    for (const auto& row : rows) {
        const auto found = Encoder(row.codec).GetSupportedFrameRate(row.wanted);
        ASSERT_TRUE(found);
        EXPECT_EQ(std::pair(found->num, found->den), std::pair(row.nearest.num, row.nearest.den))
            << row.wanted.num << '/' << row.wanted.den;
    }
}

TEST(SafeEncoderCodec, OptionsAreThoseOfAContext)
{
    int values = 0;
    for (const SafeEncoderCodec& encoder : AllEncoders()) {
        SCOPED_TRACE(encoder.Get()->name);
        const SafeCodecContext context(encoder.Get());
        NameSet expected, constants;
        const AVOption* option = nullptr;
        while (encoder.Get()->priv_class && (option = av_opt_next(context->priv_data, option))) {
            if (option->type == AV_OPT_TYPE_CONST) {
                constants.insert(option->name);
                continue;
            }
            expected.insert(option->name);
            if (constants.contains(option->name))
                continue;  // a constant of the same name stands before it, and is taken for it
            for (const std::string& value : encoder.GetOptionValues(option->name)) {
                ++values;
                EXPECT_TRUE(av_opt_find(context->priv_data, value.c_str(), option->unit, 0, 0)) << value;
                if (option->type == AV_OPT_TYPE_INT) {
                    EXPECT_EQ(av_opt_set(context->priv_data, option->name, value.c_str(), 0), 0)
                        << option->name << '=' << value;
                }
            }
        }
        EXPECT_EQ(encoder.GetSupportedOptions(), expected);
        EXPECT_THAT(encoder.GetOptionValues("no such option"), IsEmpty());
    }
    EXPECT_GT(values, 500);
}

TEST(SafeEncoderCodec, OptionValuesStandRightBehindTheirOption)
{
    const SafeEncoderCodec x264 = Encoder(AV_CODEC_ID_H264);
    ASSERT_STREQ(x264.Get()->name, "libx264");
    EXPECT_THAT(x264.GetOptionValues("motion-est"), UnorderedElementsAre("dia", "hex", "umh", "esa", "tesa"));
    EXPECT_THAT(x264.GetOptionValues("motion-es"), IsEmpty());
    EXPECT_THAT(x264.GetOptionValues("preset"), IsEmpty()) << "free text";
    EXPECT_FALSE(x264.GetSupportedOptions().contains("umh"));
    EXPECT_THAT(Encoder(AV_CODEC_ID_MPEG4).GetOptionValues("skip_cmp"), IsEmpty()) << "listed elsewhere";
    const SafeEncoderCodec bmp = Encoder(AV_CODEC_ID_BMP);
    EXPECT_THAT(bmp.GetSupportedOptions(), IsEmpty());
    EXPECT_THAT(bmp.GetOptionValues("motion-est"), IsEmpty());
}

TEST(SafeEncoderCodec, TwoPasses)
{
    const std::set<std::string> never = {"libx265", "libsvtav1", "librav1e", "ffv1", "png"};
    int allowed = 0;
    for (const SafeEncoderCodec& encoder : AllEncoders()) {
        SCOPED_TRACE(encoder.Get()->name);
        allowed += encoder.IsTwoPassEncodingAllowed();
        if (!IsVideo(encoder) ||
            encoder.Get()->capabilities & (AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID) ||
            never.contains(encoder.Get()->name)) {
            EXPECT_FALSE(encoder.IsTwoPassEncodingAllowed());
        }
    }
    for (const auto id : {AV_CODEC_ID_H264, AV_CODEC_ID_MPEG4, AV_CODEC_ID_VP8, AV_CODEC_ID_VP9,
                          AV_CODEC_ID_MJPEG, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO})
        EXPECT_TRUE(Encoder(id).IsTwoPassEncodingAllowed()) << avcodec_get_name(id);
    EXPECT_LE(allowed, 9);
}

TEST(SafeEncoderCodec, AMissingEncoderIsNamed)
{
    try {
        Encoder(AV_CODEC_ID_INDEO5);
        ADD_FAILURE();
    } catch (const EncoderException& e) {
        EXPECT_EQ(PlaceOf(e, e.what()),
                  (Failure{"Can't find encoder by ID", "SafeEncoderCodec", "SafeTypes"}));
        EXPECT_EQ(*boost::get_error_info<TagCodecID>(e), CodecIDToTextID(AV_CODEC_ID_INDEO5));
        EXPECT_TRUE(boost::get_error_info<TagCallStack>(e));
    }
    const auto nameless = static_cast<AVCodecID>(213);  // known to FFmpeg alone, and without an encoder
    ASSERT_FALSE(GetFFCodecsMap().contains(nameless));
    EXPECT_THROW(Encoder(nameless), Conf::FormatException);
}

TEST(SafeCodecContext, KnowsItsCodec)
{
    SafeCodecContext none(nullptr);
    EXPECT_EQ(none.GetCapabilities(), 0);
    EXPECT_TRUE(none);
    none.Flush();

    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    SafeCodecContext first(codec);
    EXPECT_EQ(first->codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(first.GetCapabilities(), codec->capabilities);
    AVCodecContext* const held = first;
    SafeCodecContext second = std::move(first);
    EXPECT_EQ(second.get(), held);
    EXPECT_EQ(second.GetCapabilities(), codec->capabilities);
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(first.GetCapabilities(), 0);
    first.Flush();
    SafeCodecContext& itself = second;
    second = std::move(itself);
    EXPECT_EQ(second.get(), held);
    EXPECT_EQ(second.GetCapabilities(), codec->capabilities);
    none = std::move(second);
    EXPECT_EQ(none.get(), held);
    EXPECT_EQ(none.GetCapabilities(), codec->capabilities);
}

TEST(SafeCodecContext, FlushMakesADrainedDecoderTakeMore)
{
    SafeCodecContext context(avcodec_find_decoder(AV_CODEC_ID_PCM_S16LE));
    context->sample_rate = 48000;
    context->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    ASSERT_EQ(avcodec_open2(context, nullptr, nullptr), 0);
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                                [](AVPacket* p) { av_packet_free(&p); });
    ASSERT_EQ(av_new_packet(packet.get(), 8), 0);
    EXPECT_EQ(avcodec_send_packet(context, nullptr), 0);
    EXPECT_EQ(avcodec_send_packet(context, packet.get()), AVERROR_EOF);
    context.Flush();
    EXPECT_EQ(avcodec_send_packet(context, packet.get()), 0);
}

TEST(SafeCodecContext, WithoutMemory)
{
    const AllocationLimit scarce(1);
    EXPECT_EQ(FailureOf<ParserException>([] { SafeCodecContext{nullptr}; }),
              (Failure{"Can't create codec context", "SafeCodecContext", "SafeTypes"}));
}

}  // namespace
}  // namespace Quorva::Proc
