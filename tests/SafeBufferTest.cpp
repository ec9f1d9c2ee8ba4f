// Hardware devices, pools and frames: on OpenCL, which pocl runs on the CPU, and on devices without a driver.
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"
#include "tools/support/HardwareRoundTrip.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

namespace {

using namespace Quorva;
using Proc::SafeBuffer;
using Proc::SafeFrame;

struct Unref {
    void operator()(AVBufferRef* buffer) const { av_buffer_unref(&buffer); }
};
using Reference = std::unique_ptr<AVBufferRef, Unref>;

const Conf::ColorSpace COLOURS{AVCOL_PRI_BT2020, AVCOL_TRC_SMPTE2084, AVCOL_SPC_BT2020_NCL};

/// A device of FFmpeg's that no driver stands behind; never to be initialised.
Reference Driverless(AVHWDeviceType type) { return Reference(av_hwdevice_ctx_alloc(type)); }

Failure Thrown(const char* description, const char* function) { return {description, function, "SafeTypes"}; }

/// Bytes of the rows of all planes, without what is between rows.
std::string PictureOf(const AVFrame& frame)
{
    const auto format = static_cast<AVPixelFormat>(frame.format);
    std::string bytes(static_cast<size_t>(av_image_get_buffer_size(format, frame.width, frame.height, 1)),
                      '\0');
    EXPECT_GT(
        av_image_copy_to_buffer(reinterpret_cast<uint8_t*>(bytes.data()), static_cast<int>(bytes.size()),
                                frame.data, frame.linesize, format, frame.width, frame.height, 1),
        0);
    return bytes;
}

SafeFrame Noise(AVPixelFormat format, int width, int height)
{
    SafeFrame frame(COLOURS, format, width, height, 4, 3);
    const auto size = static_cast<size_t>(av_image_get_buffer_size(format, width, height, 1));
    std::vector<uint8_t> bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    uint8_t* planes[4];
    int rows[4];
    EXPECT_GT(av_image_fill_arrays(planes, rows, bytes.data(), format, width, height, 1), 0);
    av_image_copy2(frame->data, frame->linesize, planes, rows, format, width, height);
    return frame;
}

class OpenCl : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // pocl keeps compiled kernels somewhere below HOME.
        std::string pattern = (std::filesystem::temp_directory_path() / "tessadrin-XXXXXX").native();
        ASSERT_TRUE(mkdtemp(pattern.data()));
        cache = pattern;
        setenv("POCL_CACHE_DIR", pattern.c_str(), 1);
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(cache); }
    void SetUp() override
    {
        AVBufferRef* probe = nullptr;
        const bool found = av_hwdevice_ctx_create(&probe, AV_HWDEVICE_TYPE_OPENCL, nullptr, nullptr, 0) == 0;
        av_buffer_unref(&probe);
        if (!found)
            GTEST_SKIP() << "no OpenCL platform is installed; pocl-opencl-icd is one";
        device = SafeBuffer(AV_HWDEVICE_TYPE_OPENCL, nullptr, nullptr, 0);
    }

    static std::filesystem::path cache;
    SafeBuffer device;
};
std::filesystem::path OpenCl::cache;

TEST_F(OpenCl, PicturesOfEveryFormatComeBackAsTheyWere)
{
    const auto constraints = device.GetFramesConstraints(nullptr);
    ASSERT_TRUE(constraints);
    EXPECT_THAT(constraints->validHwFormats, testing::ElementsAre(AV_PIX_FMT_OPENCL));
    EXPECT_GE(constraints->validSwFormats.size(), 20u);
    EXPECT_LT(constraints->minWidth, constraints->maxWidth);
    EXPECT_LT(constraints->minHeight, constraints->maxHeight);
    for (const AVPixelFormat format : constraints->validSwFormats) {
        SCOPED_TRACE(av_get_pix_fmt_name(format));
        SafeBuffer pool = device.AllocFramesContextBuffer({64, 48}, static_cast<PixFmt>(format), 2);
        EXPECT_EQ(pool.GetFramesContext()->format, AV_PIX_FMT_OPENCL);
        pool.InitFramesContext();
        const SafeFrame uploaded = pool.AllocFrame(COLOURS);
        EXPECT_EQ(uploaded->color_trc, AVCOL_TRC_SMPTE2084);
        EXPECT_FALSE(uploaded.OwnsData());
        const SafeFrame before = Noise(format, 64, 48);
        ASSERT_EQ(av_hwframe_transfer_data(uploaded.get(), before.get(), 0), 0);
        const SafeFrame after;
        ASSERT_EQ(av_hwframe_transfer_data(after.get(), uploaded.get(), 0), 0);
        ASSERT_EQ(after->format, format);
        EXPECT_EQ(PictureOf(*after.get()), PictureOf(*before.get()));
        const SafeFrame own(COLOURS, format, 64, 48, 1, 1);
        ASSERT_EQ(av_hwframe_transfer_data(own.get(), uploaded.get(), 0), 0);
        EXPECT_EQ(PictureOf(*own.get()), PictureOf(*before.get()));
        EXPECT_TRUE(own.OwnsData()) << "not replaced by FFmpeg's";
    }
}

TEST_F(OpenCl, NothingOutlivesItsLastOwner)
{
    Reference deviceCount(av_buffer_ref(device.Get()));
    const auto owners = [](const Reference& reference) {
        return av_buffer_get_ref_count(reference.get()) - 1;
    };
    ASSERT_EQ(owners(deviceCount), 1);
    EXPECT_EQ(
        FailureOf<Proc::ProcException>([&] { device.AllocFramesContextBuffer({64, 48}, PixFmt::PAL8, 0); }),
        Thrown("Unsupported pixel format", "AllocFramesContextBuffer"));
    EXPECT_EQ(owners(deviceCount), 1) << "a pool was left";

    SafeBuffer pool = device.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);
    EXPECT_EQ(FailureOf<Exception>([&] { pool.AllocFrame(COLOURS); }),
              Thrown("Can't create hardware frame, error = -22", "AllocFrame"))
        << "it isn't ready";
    pool.InitFramesContext();
    Reference poolCount(av_buffer_ref(pool.Get()));
    const int withPool = owners(deviceCount);
    EXPECT_GT(withPool, 1);

    // From a pool its device can be reached, and another pool be made on it.
    EXPECT_EQ(pool.GetDeviceContext(), device.GetDeviceContext());
    EXPECT_EQ(pool.GetFramesConstraints(nullptr)->validSwFormats,
              device.GetFramesConstraints(nullptr)->validSwFormats);
    {
        SafeBuffer sibling = pool.AllocFramesContextBuffer({32, 32}, PixFmt::BGRA, 0);
        sibling.InitFramesContext();
        EXPECT_GT(owners(deviceCount), withPool);
        SafeBuffer other = pool.GetDeviceContextBuffer();
        EXPECT_EQ(other.GetDeviceContext(), device.GetDeviceContext());
        EXPECT_EQ(FailureOf<Proc::ProcException>([&] { other.GetDeviceContextBuffer(); }),
                  Thrown("The buffer does not contain a hardware frame context", "GetFramesContext"));
    }
    EXPECT_EQ(owners(deviceCount), withPool);

    std::optional<SafeFrame> frame(pool.AllocFrame(COLOURS));
    pool.AllocFrame(frame->get());  // the picture it had goes back
    device = SafeBuffer();
    pool = SafeBuffer();
    EXPECT_EQ(owners(poolCount), 1) << "of the frame";
    EXPECT_GE(owners(deviceCount), 1) << "of the pool";
    frame.reset();
    EXPECT_EQ(owners(poolCount), 0);
    poolCount.reset();
    EXPECT_EQ(owners(deviceCount), 0);
}

TEST_F(OpenCl, SaysWhereMemoryEnds)
{
    SafeBuffer pool = device.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);
    pool.InitFramesContext();
    const SafeFrame frame;
    {
        const AllocationLimit limit(1);
        EXPECT_EQ(FailureOf<Exception>([&] { pool.AllocFrame(frame.get()); }),
                  Thrown("Not enough memory to create hardware frame", "AllocFrame"));
    }
    pool.AllocFrame(frame.get());
    EXPECT_EQ(frame->width, 64);
}

TEST_F(OpenCl, ThreadsShareAPool)
{
    SafeBuffer pool = device.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);
    pool.InitFramesContext();
    const SafeFrame picture = Noise(AV_PIX_FMT_NV12, 64, 48);
    const std::string expected = PictureOf(*picture.get());
    const auto work = [&](SafeBuffer mine) {
        for (int i = 0; i < 20; ++i) {
            const SafeFrame frame = mine.AllocFrame(COLOURS);
            const SafeFrame back;
            EXPECT_EQ(av_hwframe_transfer_data(frame.get(), picture.get(), 0), 0);
            EXPECT_EQ(av_hwframe_transfer_data(back.get(), frame.get(), 0), 0);
            EXPECT_EQ(PictureOf(*back.get()), expected);
        }
    };
    std::thread other(work, SafeBuffer(pool.Get()));
    work(SafeBuffer(pool.Get()));
    other.join();
}

TEST_F(OpenCl, ARoundTripKeepsThePictureAndItsProperties)
{
    Tool::HardwareRoundTrip trip("opencl");
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P}) {
        const SafeFrame picture = Noise(format, 64, 48);
        picture->pts = 4711;
        const SafeFrame back = trip(*picture.get());
        EXPECT_EQ(PictureOf(*back.get()), PictureOf(*picture.get()));
        EXPECT_EQ(back->pts, 4711);
        EXPECT_EQ(back->colorspace, AVCOL_SPC_BT2020_NCL);
        EXPECT_EQ(back->sample_aspect_ratio.num, 4);
    }
    EXPECT_THAT(
        FailureOf<Proc::ProcException>([&] { trip(*Noise(AV_PIX_FMT_PAL8, 8, 8).get()); }).description,
        testing::AllOf(testing::HasSubstr("opencl takes no pal8 pictures"), testing::HasSubstr("nv12")));
}

TEST(HardwareRoundTrip, KnowsItsDevices)
{
    EXPECT_THAT(FailureOf<Proc::ProcException>([] { Tool::HardwareRoundTrip("opengl"); }).description,
                testing::AllOf(testing::HasSubstr("'opengl'"), testing::HasSubstr("opencl")));
}

TEST(SafeBuffer, RefusesWhatIsNeitherDeviceNorPool)
{
    Reference data(av_buffer_alloc(100));
    EXPECT_EQ(FailureOf<Proc::ProcException>([&] { SafeBuffer{data.get()}; }),
              Thrown("The buffer does not contain valid hardware context", "SafeBuffer"));
    EXPECT_EQ(av_buffer_get_ref_count(data.get()), 1);
    EXPECT_EQ(FailureOf<Proc::ProcException>(
                  [&] { SafeBuffer(AV_HWDEVICE_TYPE_DRM, "/nowhere/at/all", nullptr, 0); }),
              Thrown("Can't create hardware device context", "SafeBuffer"));
}

TEST(SafeBuffer, EmptyAndWrongKindsThrowForEveryUse)
{
    const Failure noDevice =
        Thrown("The buffer does not contain a hardware device context", "GetDeviceContext");
    const Failure noPool = Thrown("The buffer does not contain a hardware frame context", "GetFramesContext");
    SafeBuffer moved(Driverless(AV_HWDEVICE_TYPE_CUDA).get());
    SafeBuffer device = std::move(moved);
    SafeBuffer& self = device;
    device = std::move(self);
    ASSERT_TRUE(device);
    const SafeFrame frame;
    SafeBuffer fresh;
    for (SafeBuffer* buffer : {&fresh, &moved, &device}) {
        const auto failure = [&](auto action) {
            return FailureOf<Proc::ProcException>([&] { action(*buffer); });
        };
        EXPECT_EQ(failure([](SafeBuffer& b) { b.GetFramesContext(); }), noPool);
        EXPECT_EQ(failure([](SafeBuffer& b) { b.GetDeviceContextBuffer(); }), noPool);
        EXPECT_EQ(failure([](SafeBuffer& b) { b.InitFramesContext(); }), noPool);
        EXPECT_EQ(failure([&](SafeBuffer& b) { b.AllocFrame(frame.get()); }), noPool);
        EXPECT_EQ(failure([](SafeBuffer& b) { b.AllocFrame(COLOURS); }), noPool);
        if (*buffer)
            continue;
        EXPECT_EQ(failure([](SafeBuffer& b) { b.GetDeviceContext(); }), noDevice);
        EXPECT_EQ(failure([](SafeBuffer& b) { b.GetFramesConstraints(nullptr); }), noDevice);
        EXPECT_EQ(failure([](SafeBuffer& b) { b.AllocFramesContextBuffer({8, 8}, PixFmt::NV12, 0); }),
                  noDevice);
    }
}

TEST(SafeBuffer, DevicesWithoutADriverFailEachInTheirWay)
{
    const Failure noFormats = Thrown("Can't retrieve supported pixel formats", "AllocFramesContextBuffer");
    for (const AVHWDeviceType type : {AV_HWDEVICE_TYPE_VDPAU, AV_HWDEVICE_TYPE_VAAPI, AV_HWDEVICE_TYPE_DRM}) {
        SCOPED_TRACE(av_hwdevice_get_type_name(type));
        const Reference reference = Driverless(type);
        if (!reference)
            continue;  // this FFmpeg was built without
        SafeBuffer device(reference.get());
        EXPECT_EQ(device.GetDeviceContext()->type, type);
        EXPECT_EQ(FailureOf<Proc::ProcException>(
                      [&] { device.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0); }),
                  noFormats);
        EXPECT_EQ(av_buffer_get_ref_count(reference.get()), 2);
    }
    EXPECT_FALSE(SafeBuffer(Driverless(AV_HWDEVICE_TYPE_DRM).get()).GetFramesConstraints(nullptr));

    SafeBuffer cuda(Driverless(AV_HWDEVICE_TYPE_CUDA).get());
    EXPECT_EQ(
        FailureOf<Proc::ProcException>([&] { cuda.AllocFramesContextBuffer({64, 48}, PixFmt::PAL8, 0); }),
        Thrown("Unsupported pixel format", "AllocFramesContextBuffer"));
    const SafeBuffer pool = cuda.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 3);
    EXPECT_EQ(pool.GetFramesContext()->format, AV_PIX_FMT_CUDA);
    EXPECT_EQ(pool.GetFramesContext()->sw_format, AV_PIX_FMT_NV12);
    EXPECT_EQ(pool.GetFramesContext()->initial_pool_size, 3);
    EXPECT_EQ(pool.GetFramesContext()->width, 64);
    EXPECT_EQ(pool.GetFramesContext()->height, 48);

    if (const Reference reference = Driverless(AV_HWDEVICE_TYPE_QSV)) {
        SafeBuffer qsv(reference.get());
        SafeBuffer frames = qsv.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);
        EXPECT_EQ(FailureOf<Proc::ProcException>([&] { frames.InitFramesContext(); }),
                  Thrown("Can't initialize hardware frames context", "InitFramesContext"));
    }
}

TEST(SafeBuffer, AFrameStaysAsItWasWhereThePoolHasNone)
{
    const Reference reference = Driverless(AV_HWDEVICE_TYPE_CUDA);
    SafeBuffer cuda(reference.get());
    const SafeBuffer pool = cuda.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);  // never initialised
    const SafeFrame frame(COLOURS, AV_PIX_FMT_GRAY8, 8, 8, 1, 1);
    frame->data[0][0] = 7;
    EXPECT_THROW(pool.AllocFrame(frame.get()), Exception);
    EXPECT_EQ(frame->data[0][0], 7);
    EXPECT_EQ(frame->format, AV_PIX_FMT_GRAY8);
    EXPECT_EQ(frame->hw_frames_ctx, nullptr);
    EXPECT_TRUE(frame.OwnsData());
}

TEST(SafeBuffer, APoolThatFindsNoMemoryLeavesNothing)
{
    const Reference reference = Driverless(AV_HWDEVICE_TYPE_CUDA);
    SafeBuffer cuda(reference.get());
    std::vector<std::string> messages;  // as the largest allocation grows
    for (size_t largest = 16; largest <= 1024; largest += 8) {
        const AllocationLimit limit(largest);
        std::string message = "none";
        try {
            cuda.AllocFramesContextBuffer({64, 48}, PixFmt::NV12, 0);
        } catch (const Proc::ProcException& e) {
            message = *boost::get_error_info<TagDescription>(e);
        }
        EXPECT_EQ(av_buffer_get_ref_count(reference.get()), 2) << message;
        if (messages.empty() || messages.back() != message)
            messages.push_back(message);
    }
    EXPECT_THAT(messages, testing::ElementsAre("Can't retrieve supported pixel formats",
                                               "Can't create hardware frames context", "none"));
}

TEST(SafeFrame, OwnsItsPictureOnce)
{
    SafeFrame frame(COLOURS, AV_PIX_FMT_BGRA, 7, 3, 1, 1);
    EXPECT_EQ(frame->linesize[0] % 32, 0);
    EXPECT_FALSE(frame->flags & AV_FRAME_FLAG_KEY);
    EXPECT_EQ(frame->sample_aspect_ratio.num, 1);
    EXPECT_EQ(frame->color_primaries, AVCOL_PRI_BT2020);
    EXPECT_EQ(frame->width, 7);
    std::memset(frame->data[0], 1, static_cast<size_t>(frame->linesize[0]) * 3);

    SafeFrame other = std::move(frame);
    EXPECT_EQ(frame.get(), nullptr);
    SafeFrame& self = other;
    other = std::move(self);
    ASSERT_TRUE(other.get());
    EXPECT_TRUE(other.OwnsData());
    other = SafeFrame();
    EXPECT_FALSE(other.OwnsData());
    static_assert(!std::is_copy_constructible_v<SafeFrame> && !std::is_copy_assignable_v<SafeFrame>);
    EXPECT_EQ(Proc::SwsDestination(SafeFrame(COLOURS, AV_PIX_FMT_GRAY8, 8, 8, 1, 1)).linesize[0], 32);
}

// FFmpeg replaces pictures that aren't reference-counted in the frames that it writes to.
TEST(SafeFrame, IsATargetOfTheScaler)
{
    const Proc::SafeSwsContext scaler(
        {
            {64, 48, AV_PIX_FMT_YUV420P},
            {32, 24, AV_PIX_FMT_BGRA   },
            SWS_BICUBIC
    },
        2);
    const SafeFrame source(COLOURS, AV_PIX_FMT_YUV420P, 64, 48, 1, 1);
    for (int plane = 0; plane < 3; ++plane)
        std::memset(source->data[plane], plane ? 128 : 235,
                    static_cast<size_t>(source->linesize[plane]) * (plane ? 24 : 48));
    const std::unique_ptr<AVFrame, void (*)(AVFrame*)> kept(av_frame_alloc(),
                                                            [](AVFrame* f) { av_frame_free(&f); });
    {
        const SafeFrame target(COLOURS, AV_PIX_FMT_BGRA, 32, 24, 1, 1);
        const uint8_t* const picture = target->data[0];
        EXPECT_EQ(scaler.Scale(*source.get(), *target.get()), 24);
        EXPECT_EQ(target->data[0], picture) << "its own picture was written to";
        EXPECT_GT(target->data[0][23 * target->linesize[0]], 250);
        EXPECT_TRUE(target.OwnsData());
        ASSERT_EQ(av_frame_ref(kept.get(), target.get()), 0);
    }
    EXPECT_GT(kept->data[0][23 * kept->linesize[0]], 250) << "a reference outlives the owner";

    AVFrame bare = {};  // memory of the caller's
    std::vector<uint8_t> pixels(32 * 24 * 4);
    bare.width = 32, bare.height = 24, bare.format = AV_PIX_FMT_BGRA;
    bare.data[0] = pixels.data();
    bare.linesize[0] = 32 * 4;
    EXPECT_EQ(scaler.Scale(*source.get(), bare), 24);
    EXPECT_EQ(bare.data[0], pixels.data());
    EXPECT_EQ(pixels.back(), 255);
}

TEST(SafeFrame, SaysWhichPictureThereIsNoMemoryFor)
{
    using Core::MemoryException;
    const struct {
        AVPixelFormat format;
        int width, height;
        uint64_t size;
    } rows[] = {
        {AV_PIX_FMT_BGRA,  -1,    3,     0          },
        {AV_PIX_FMT_NONE,  7,     3,     0          },
        {AV_PIX_FMT_VAAPI, 7,     3,     0          },
        {AV_PIX_FMT_BGRA,  12000, 12000, 576'000'000}
    };
    for (const auto& row : rows) {
        const AllocationLimit limit(100'000'000);
        try {
            SafeFrame(COLOURS, row.format, row.width, row.height, 1, 1);
            ADD_FAILURE() << "nothing thrown";
        } catch (const MemoryException& e) {
            EXPECT_EQ(e.GetDescription(), "Unable to allocate memory for AVFrame data");
            EXPECT_EQ(e.GetSize(), row.size);
            EXPECT_EQ(*boost::get_error_info<MemoryException::TagFrameWidth>(e), row.width);
            EXPECT_EQ(*boost::get_error_info<MemoryException::TagFrameHeight>(e), row.height);
            EXPECT_EQ(PlaceOf(e, "").function, "SafeFrame");
        }
    }
    const AllocationLimit limit(1);
    EXPECT_EQ(FailureOf<MemoryException>([] { SafeFrame(); }),
              Thrown("Unable to allocate memory for AVFrame struct", "SafeFrame"));
}

}  // namespace
