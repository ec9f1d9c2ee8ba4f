#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include "tests/support/Failure.h"

#include <climits>
#include <memory>

namespace Quorva::Proc {
namespace {

using testing::EndsWith;
using testing::StartsWith;

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

TEST(AVOptSetter, SetsWhatFFmpegReadsBack)
{
    const Scaler scaler(sws_alloc_context());
    AVOptSetter(scaler.get(), "srcw", 0).Set(1920);
    AVOptSetter(scaler.get(), "param0", 0).Set(0.5);
    AVOptSetter(scaler.get(), "src_format", 0).Set(AV_PIX_FMT_NV12);
    int64_t width = 0;
    double parameter = 0;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    av_opt_get_int(scaler.get(), "srcw", 0, &width);
    av_opt_get_double(scaler.get(), "param0", 0, &parameter);
    av_opt_get_pixel_fmt(scaler.get(), "src_format", 0, &format);
    EXPECT_EQ(width, 1920);
    EXPECT_EQ(parameter, 0.5);
    EXPECT_EQ(format, AV_PIX_FMT_NV12);
}

TEST(AVOptSetter, RefusedOptionsAreNamed)
{
    const Scaler scaler(sws_alloc_context());
    const auto failure = [&](const char* option, auto value) {
        return FailureOf<ProcException>([&] { AVOptSetter(scaler.get(), option, 0).Set(value); });
    };
    EXPECT_EQ(failure("srcw", -1), (Failure{"'srcw' option is out of range", "CheckResult", "Tessadrin"}));
    EXPECT_EQ(failure("no_such", 0.5),
              (Failure{"Can't find 'no_such' option to configure", "CheckResult", "Tessadrin"}));
    EXPECT_EQ(failure("srcw", AV_PIX_FMT_NV12),
              (Failure{"Can't set 'srcw' option", "CheckResult", "Tessadrin"}));
}

TEST(GetErrorDescriptionFFMPEG, OwnTextsComeBeforeTheRuntimes)
{
    EXPECT_EQ(GetErrorDescriptionFFMPEG(AVERROR_EOF), "End of file");
    EXPECT_EQ(GetErrorDescriptionFFMPEG(AVERROR_BUG), GetErrorDescriptionFFMPEG(AVERROR_BUG2));
    EXPECT_EQ(GetErrorDescriptionFFMPEG(-12), "Out of memory");
    EXPECT_EQ(GetErrorDescriptionFFMPEG(-22), "Invalid parameters");
    // FFmpeg words most of these codes the same; the few that differ are ours.
    const int ours[] = {AVERROR_BUG, AVERROR_BUG2, AVERROR_EXIT, AVERROR(ENOMEM), AVERROR(EINVAL)};
    for (const int code :
         {AVERROR_BSF_NOT_FOUND, AVERROR_BUFFER_TOO_SMALL, AVERROR_DECODER_NOT_FOUND,
          AVERROR_DEMUXER_NOT_FOUND, AVERROR_ENCODER_NOT_FOUND, AVERROR_EXTERNAL, AVERROR_FILTER_NOT_FOUND,
          AVERROR_INVALIDDATA, AVERROR_MUXER_NOT_FOUND, AVERROR_OPTION_NOT_FOUND, AVERROR_PATCHWELCOME,
          AVERROR_PROTOCOL_NOT_FOUND, AVERROR_STREAM_NOT_FOUND, AVERROR_UNKNOWN}) {
        char text[AV_ERROR_MAX_STRING_SIZE];
        EXPECT_EQ(GetErrorDescriptionFFMPEG(code), av_make_error_string(text, sizeof text, code));
    }
    for (const int code : ours)
        EXPECT_THAT(GetErrorDescriptionFFMPEG(code), testing::Not(EndsWith(")")));
}

TEST(GetErrorDescriptionFFMPEG, OtherCodesAreFramedWithTheirNumber)
{
    for (const int code :
         {AVERROR_EXPERIMENTAL, AVERROR_INPUT_CHANGED, AVERROR(EAGAIN), 0, 2, INT_MIN, INT_MAX})
        EXPECT_THAT(GetErrorDescriptionFFMPEG(code), EndsWith(" (" + std::to_string(code) + ")"));
    EXPECT_EQ(GetErrorDescriptionFFMPEG(2), "No such file or directory (2)") << "the number keeps its sign";
}

TEST(Raise, KeepsTagsAttachedBefore)
{
    try {
        Details::Raise(EncoderException()
                       << TagDescription("Can't find encoder by ID") << TagCodecID("h264"));
    } catch (const EncoderException& e) {
        EXPECT_EQ(*boost::get_error_info<TagCodecID>(e), "h264");
        EXPECT_STREQ(e.what(), "Can't find encoder by ID");
        EXPECT_EQ(PlaceOf(e, ""), (Failure{"", "TestBody", "ErrorsTest"}));
    }
}

TEST(Raise, EveryBaseCatchesAndFindsTheSame)
{
    const auto check = [](const auto& e) {
        EXPECT_TRUE(boost::get_error_info<TagDescription>(e));
        EXPECT_TRUE(boost::get_error_info<TagCallStack>(e));
    };
    const auto raise = [] { Details::Throw<FilterException>("number {}", 7); };
    try {
        raise();
    } catch (const boost::exception& e) {
        check(e);
    }
    try {
        raise();
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "number 7");
        check(e);
    }
    EXPECT_THROW(raise(), Quorva::Exception);
    EXPECT_THROW(raise(), ProcException);
}

TEST(RaiseLogicError, CallStackFollowsTheDescription)
{
    try {
        Details::RaiseLogicError("tables disagree");
        ADD_FAILURE();
    } catch (const std::logic_error& e) {
        EXPECT_THAT(e.what(), StartsWith("tables disagree\n"));
        EXPECT_GT(std::string(e.what()).size(), std::string("tables disagree\n").size() + 10);
        EXPECT_EQ(PlaceOf(e, ""), (Failure{"", "TestBody", "ErrorsTest"}));
    }
}

}  // namespace
}  // namespace Quorva::Proc
