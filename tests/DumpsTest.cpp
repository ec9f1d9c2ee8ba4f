#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "host/Media.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"
#include "tests/support/Frames.h"
#include "tests/support/GuardedBytes.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <locale>
#include <optional>
#include <sstream>
#include <thread>

namespace Quorva::Proc {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// One pixel as 0xAARRGGBB, the bytes of BGRA in memory.
using Pixel = uint32_t;
constexpr Pixel dark = 0xff000000, light = 0xffffffff;

Pixel PixelAt(const AVFrame& bgra, int x, int y)
{
    Pixel pixel;
    std::memcpy(&pixel, bgra.data[0] + y * bgra.linesize[0] + 4 * x, sizeof pixel);
    return pixel;
}

/// The largest difference of a component.
int Distance(Pixel a, Pixel b)
{
    int distance = 0;
    for (int shift = 0; shift < 32; shift += 8)
        distance = std::max(
            distance, std::abs(static_cast<int>(a >> shift & 255) - static_cast<int>(b >> shift & 255)));
    return distance;
}

/// The picture by FFmpeg's scaler alone. `format` is what the picture is turned into on the way to BGRA.
Frame ByHand(const AVFrame& source, AVPixelFormat format, AVColorSpace matrix)
{
    Frame target = NewFrame(format, source.width, source.height);
    const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(
        sws_getContext(source.width, source.height, static_cast<AVPixelFormat>(source.format), source.width,
                       source.height, format, SWS_POINT, nullptr, nullptr, nullptr),
        sws_freeContext);
    int* tables[2];
    int ranges[2], brightness, contrast, saturation;
    EXPECT_TRUE(scaler);
    if (matrix != AVCOL_SPC_UNSPECIFIED &&
        sws_getColorspaceDetails(scaler.get(), &tables[0], &ranges[0], &tables[1], &ranges[1], &brightness,
                                 &contrast, &saturation) >= 0)
        sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(matrix), ranges[0],
                                 sws_getCoefficients(matrix), ranges[1], brightness, contrast, saturation);
    EXPECT_EQ(sws_scale(scaler.get(), source.data, source.linesize, 0, source.height, target->data,
                        target->linesize),
              source.height);
    return format == AV_PIX_FMT_BGRA ? std::move(target)
                                     : ByHand(*target, AV_PIX_FMT_BGRA, AVCOL_SPC_UNSPECIFIED);
}

struct Bitmap {
    int bits = 0;   ///< of a pixel in the file
    Frame picture;  ///< BGRA
};

/// What FFmpeg's decoder sees in a file.
Bitmap ReadBmp(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                                [](AVPacket* p) { av_packet_free(&p); });
    const AVCodec* decoder = avcodec_find_decoder(AV_CODEC_ID_BMP);
    const std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> context(
        avcodec_alloc_context3(decoder), [](AVCodecContext* c) { avcodec_free_context(&c); });
    const Frame frame(av_frame_alloc());
    if (bytes.size() < 54 || av_new_packet(packet.get(), static_cast<int>(bytes.size())) != 0) {
        ADD_FAILURE() << path << " has " << bytes.size() << " bytes";
        return {};
    }
    std::memcpy(packet->data, bytes.data(), bytes.size());
    EXPECT_EQ(avcodec_open2(context.get(), decoder, nullptr), 0);
    EXPECT_EQ(avcodec_send_packet(context.get(), packet.get()), 0);
    EXPECT_EQ(avcodec_receive_frame(context.get(), frame.get()), 0) << path;
    return {bytes[28], ByHand(*frame, AV_PIX_FMT_BGRA, AVCOL_SPC_UNSPECIFIED)};
}

/// The mark at a place of an area; nothing where there is none.
std::optional<Pixel> MarkAt(int x, int y, int width, int height)
{
    if (x == int64_t{width} - 1 && y < height && y % 4 == 0)
        return y % 8 ? light : dark;
    if (y == int64_t{height} - 1 && x < width && x % 4 == 0)
        return x % 8 ? light : dark;
    return std::nullopt;
}

void ExpectPicture(const AVFrame& found, const AVFrame& expected, int width, int height, int tolerance)
{
    ASSERT_EQ(std::pair(found.width, found.height), std::pair(expected.width, expected.height));
    for (int y = 0; y < found.height; ++y)
        for (int x = 0; x < found.width; ++x) {
            const auto mark = MarkAt(x, y, width, height);
            const Pixel pixel = mark.value_or(PixelAt(expected, x, y));
            ASSERT_LE(Distance(PixelAt(found, x, y), pixel), mark ? 0 : tolerance)
                << "at " << x << ", " << y << std::hex << ": " << PixelAt(found, x, y) << " for " << pixel;
        }
}

/// Different in every place: colours, and which way is up.
Frame Pattern(AVPixelFormat format, int width, int height)
{
    Frame frame = NewFrame(format, width, height);
    const AVPixFmtDescriptor& descriptor = *av_pix_fmt_desc_get(format);
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const bool chroma = plane && !(descriptor.flags & AV_PIX_FMT_FLAG_RGB);
        const int rows = chroma ? AV_CEIL_RSHIFT(height, descriptor.log2_chroma_h) : height;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < frame->linesize[plane]; ++x)
                frame->data[plane][y * frame->linesize[plane] + x] = static_cast<uint8_t>(
                    descriptor.comp[0].depth > 8 && x % 2 ? (x + y) % 4
                                                          : 40 + (37 * plane + 5 * x + 7 * y) % 180);
    }
    return frame;
}

TEST(PictureDump, ShowsWhatFFmpegsScalerShows)
{
    const struct {
        AVPixelFormat format;
        AVColorSpace matrix;
        int width, height;
        int bits;       ///< of a pixel in the file
        int tolerance;  ///< the pipeline's weights differ from FFmpeg's by a hair
    } rows[] = {
        {AV_PIX_FMT_YUV420P,     AVCOL_SPC_UNSPECIFIED, 64, 48, 24, 0},
        {AV_PIX_FMT_YUV420P,     AVCOL_SPC_SMPTE170M,   64, 48, 24, 1},
        {AV_PIX_FMT_YUV420P,     AVCOL_SPC_BT709,       64, 48, 24, 1},
        {AV_PIX_FMT_YUVJ420P,    AVCOL_SPC_BT709,       64, 48, 24, 1},
        {AV_PIX_FMT_YUV420P10LE, AVCOL_SPC_BT2020_NCL,  64, 48, 24, 1},
        {AV_PIX_FMT_NV12,        AVCOL_SPC_BT709,       33, 17, 24, 1},
        {AV_PIX_FMT_YUV422P,     AVCOL_SPC_BT709,       1,  1,  24, 1},
        {AV_PIX_FMT_YUVA420P,    AVCOL_SPC_SMPTE170M,   31, 3,  32, 1},
        {AV_PIX_FMT_RGB24,       AVCOL_SPC_RGB,         7,  3,  24, 0},
        {AV_PIX_FMT_RGBA,        AVCOL_SPC_RGB,         33, 9,  32, 0},
        {AV_PIX_FMT_BGRA,        AVCOL_SPC_UNSPECIFIED, 5,  64, 32, 0},
        {AV_PIX_FMT_GBRP,        AVCOL_SPC_RGB,         15, 15, 24, 0},
        {AV_PIX_FMT_GRAY8,       AVCOL_SPC_UNSPECIFIED, 19, 21, 8,  0},
        {AV_PIX_FMT_PAL8,        AVCOL_SPC_UNSPECIFIED, 21, 8,  32, 0},
    };
    const TemporaryFolder folder;
    for (size_t i = 0; i < std::size(rows); ++i) {
        const auto& row = rows[i];
        SCOPED_TRACE(testing::Message() << av_get_pix_fmt_name(row.format) << " matrix " << row.matrix << ' '
                                        << row.width << 'x' << row.height);
        const Frame source = Pattern(row.format, row.width, row.height);
        source->colorspace = row.matrix;
        for (int colour = 0; row.format == AV_PIX_FMT_PAL8 && colour < AVPALETTE_COUNT; ++colour)
            reinterpret_cast<Pixel*>(source->data[1])[colour] = static_cast<Pixel>(colour) * 0x00ff3b07u;
        const std::string name = folder.At("row" + std::to_string(i));
        AVFrame_SaveToBmp(row.width, row.height, source.get(), name);
        const Bitmap bitmap = ReadBmp(name + "_000_key=0.bmp");
        EXPECT_EQ(bitmap.bits, row.bits);
        const AVPixelFormat through = row.bits == 24 ? AV_PIX_FMT_BGR24 : AV_PIX_FMT_BGRA;
        if (bitmap.picture)
            ExpectPicture(*bitmap.picture, *ByHand(*source, through, row.matrix), row.width, row.height,
                          row.tolerance);
    }
}

TEST(PictureDump, MarksStandAroundTheAreaAndNeverOutside)
{
    const TemporaryFolder folder;
    const Frame source = Pattern(AV_PIX_FMT_BGR24, 24, 18);
    const std::pair<int, int> areas[] = {
        {8,       8      },
        {24,      18     },
        {1,       1      },
        {24,      5      },
        {25,      9      },
        {9,       4000   },
        {4000,    9      },
        {INT_MAX, INT_MAX},
        {0,       0      },
        {-4,      7      },
        {7,       INT_MIN},
    };
    int number = 0;
    for (const auto& [width, height] : areas) {
        SCOPED_TRACE(testing::Message() << width << 'x' << height);
        AVFrame_SaveToBmp(width, height, source.get(), folder.At("area"));
        const Bitmap bitmap = ReadBmp(GetDumpFileName(folder.At("area"), number++, false));
        ASSERT_TRUE(bitmap.picture);
        ExpectPicture(*bitmap.picture, *ByHand(*source, AV_PIX_FMT_BGRA, AVCOL_SPC_UNSPECIFIED), width,
                      height, 0);
    }
}

TEST(DumpNames, CountPerNameAndTellKeyFrames)
{
    const TemporaryFolder folder;
    const Frame source = Pattern(AV_PIX_FMT_GRAY8, 2, 2);
    const auto dump = [&](const char* name) { AVFrame_SaveToBmp(2, 2, source.get(), folder.At(name)); };
    dump("x");
    dump("y");
    dump("x");
    source->flags |= AV_FRAME_FLAG_KEY;
    dump("x");
    EXPECT_THAT(FilesIn(folder.path),
                ElementsAre("x_000_key=0.bmp", "x_001_key=0.bmp", "x_002_key=1.bmp", "y_000_key=0.bmp"));
    EXPECT_EQ(GetDumpFileName("x", 1000, false), "x_1000_key=0.bmp");
}

TEST(DumpNames, OfAnyLengthKeepTheirEnd)
{
    const TemporaryFolder folder;
    std::filesystem::path deep = folder.path;
    for (int i = 0; i < 6; ++i)
        deep /= std::string(250, 'd');
    create_directories(deep);
    const Frame source = Pattern(AV_PIX_FMT_GRAY8, 2, 2);
    for (int i = 0; i < 2; ++i)
        AVFrame_SaveToBmp(2, 2, source.get(), deep / "x");
    EXPECT_THAT(FilesIn(deep), ElementsAre("x_000_key=0.bmp", "x_001_key=0.bmp"));
}

TEST(DumpNames, ThreadsShareTheNumbers)
{
    constexpr int threads = 4, dumps = 12;
    const TemporaryFolder folder;
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread)
        running.emplace_back([&, thread] {
            const Frame source = Pattern(AV_PIX_FMT_YUV420P, 16 + thread, 16);
            for (int i = 0; i < dumps; ++i)
                AVFrame_SaveToBmp(16, 16, source.get(), folder.At(i % 2 ? "odd" : "even"));
        });
    for (std::thread& thread : running)
        thread.join();
    std::array<int, threads> seen = {};
    for (int i = 0; i < threads * dumps / 2; ++i)
        for (const char* name : {"odd", "even"})
            if (const Bitmap bitmap = ReadBmp(GetDumpFileName(folder.At(name), i, false)); bitmap.picture)
                ++seen[static_cast<size_t>(bitmap.picture->width - 16)];
    EXPECT_THAT(seen, testing::Each(dumps));
    EXPECT_EQ(FilesIn(folder.path).size(), static_cast<size_t>(threads * dumps));
}

TEST(PictureDump, FilesThatCannotBeWrittenAreReported)
{
    const TemporaryFolder folder;
    const Frame source = Pattern(AV_PIX_FMT_BGR24, 256, 256);
    LogCapture log;
    const auto expectOne = [&](const std::string& text) {
        std::vector<LogRecord> records = log.Take();
        std::erase_if(records, [](const LogRecord& record) { return !record.text.starts_with("AVFrame_"); });
        EXPECT_THAT(records, ElementsAre(LogRecord{google::GLOG_ERROR, "AVFrame_SaveToBmp() - " + text}));
    };
    AVFrame_SaveToBmp(256, 256, source.get(), folder.At("missing/x"));
    expectOne("can't open '" + folder.At("missing/x_000_key=0.bmp") + "': No such file or directory");

    std::filesystem::create_symlink("/dev/full", folder.At("full_000_key=0.bmp"));
    std::filesystem::create_symlink("/dev/full", folder.At("full_001_key=0.bmp"));
    AVFrame_SaveToBmp(256, 256, source.get(), folder.At("full"));
    expectOne("can't write '" + folder.At("full_000_key=0.bmp") + "': No space left on device");
    AVFrame_SaveToBmp(1, 1, Pattern(AV_PIX_FMT_BGR24, 1, 1).get(), folder.At("full"));  // less than a buffer
    expectOne("can't write '" + folder.At("full_001_key=0.bmp") + "': No space left on device");

    {
        const AllocationLimit limit(256 * 256 * 3 +
                                    32);  // enough for the picture, not for the encoder's copy
        AVFrame_SaveToBmp(256, 256, source.get(), folder.At("empty"));
    }
    expectOne("the encoder gives nothing for '" + folder.At("empty_000_key=0.bmp") +
              "': " + GetErrorDescriptionFFMPEG(AVERROR(ENOMEM)));
    EXPECT_EQ(file_size(folder.path / "empty_000_key=0.bmp"), 0u);
    EXPECT_EQ(log.GetUnit(), "Tessadrin");
}

TEST(PictureDump, WhatCannotBeConvertedThrowsAndTakesNoNumber)
{
    const TemporaryFolder folder;
    const Frame source = Pattern(AV_PIX_FMT_BGR24, 64, 64);
    const auto dump = [&](const AVFrame* frame) { AVFrame_SaveToBmp(1, 1, frame, folder.At("x")); };
    EXPECT_EQ(FailureOf<ProcException>([&] { dump(nullptr); }).description, "AVFrame pointer is null");
    source->format = AV_PIX_FMT_VAAPI;
    EXPECT_EQ(FailureOf<EffectException>([&] { dump(source.get()); }).description,
              "'vaapi' pixel format is not supported for converter input");
    source->format = AV_PIX_FMT_BGR24;
    try {
        const AllocationLimit limit(64 * 64);
        dump(source.get());
        ADD_FAILURE() << "nothing thrown";
    } catch (const Core::MemoryException& e) {
        EXPECT_EQ(e.GetDescription(), "Unable to allocate memory for AVFrame data");
        EXPECT_EQ(e.GetSize(), 64u * 64 * 3);
        EXPECT_EQ(*boost::get_error_info<Core::MemoryException::TagFrameWidth>(e), 64);
    }
    EXPECT_THAT(FilesIn(folder.path), IsEmpty());
    dump(source.get());  // the lock is free again
    EXPECT_THAT(FilesIn(folder.path), ElementsAre("x_000_key=0.bmp"));
}

TEST(PictureDump, TakesThePipelinesPictures)
{
    const TemporaryFolder folder;
    const Frame source = Pattern(AV_PIX_FMT_BGR24, 24, 18);
    const boost::intrusive_ptr<const IDataVideo> video(new VideoData(*source));
    AVFrame_SaveToBmp(video, folder.At("video"));
    const Bitmap bitmap = ReadBmp(folder.At("video_000_key=0.bmp"));
    ASSERT_TRUE(bitmap.picture);
    ExpectPicture(*bitmap.picture, *ByHand(*source, AV_PIX_FMT_BGRA, AVCOL_SPC_UNSPECIFIED), 24, 18, 0);

    LogCapture log;
    AVFrame_SaveToBmp(boost::intrusive_ptr<const IDataVideo>(), folder.At("none"));
    Subtitle_SaveToBmp(boost::intrusive_ptr<const IDataSubtitle>(), folder.At("none"));
    EXPECT_THAT(log.Take(),
                ElementsAre(LogRecord{google::GLOG_ERROR, "AVFrame_SaveToBmp() - frame is not valid"},
                            LogRecord{google::GLOG_ERROR, "Subtitle_SaveToBmp() - subtitle is not valid"}));
}

/// A subtitle of borrowed rectangles.
struct Subtitle : AVSubtitle {
    explicit Subtitle(std::vector<AVSubtitleRect> given) : AVSubtitle{}, rectangles(std::move(given))
    {
        for (AVSubtitleRect& rectangle : rectangles)
            pointers.push_back(&rectangle);
        num_rects = static_cast<unsigned>(pointers.size());
        rects = pointers.data();
    }
    std::vector<AVSubtitleRect> rectangles;
    std::vector<AVSubtitleRect*> pointers;
};

AVSubtitleRect Rectangle(AVSubtitleType type, const char* text = nullptr, const char* ass = nullptr)
{
    AVSubtitleRect rectangle{};
    rectangle.type = type;
    rectangle.text = const_cast<char*>(text);
    rectangle.ass = const_cast<char*>(ass);
    return rectangle;
}

TEST(SubtitleDump, ShowsTheFirstBitmapInItsColours)
{
    // Neither the indices nor the palette have a byte more than they need.
    const Pixel colours[] = {0x00000000, 0xff102030, 0x80ff8040};
    const GuardedBytes palette({reinterpret_cast<const char*>(colours), sizeof colours});
    std::string indices;
    for (int i = 0; i < 5 * 3; ++i)
        indices.push_back(static_cast<char>(i % 3));
    const GuardedBytes pixels(indices);
    AVSubtitleRect rectangle = Rectangle(SUBTITLE_BITMAP);
    rectangle.w = rectangle.linesize[0] = 5;
    rectangle.h = 3;
    rectangle.nb_colors = 3;
    rectangle.data[0] = const_cast<uint8_t*>(pixels.data());
    rectangle.data[1] = const_cast<uint8_t*>(palette.data());
    const TemporaryFolder folder;
    Subtitle_SaveToBmp(Subtitle({rectangle, Rectangle(SUBTITLE_TEXT)}), folder.At("s"));
    const Bitmap bitmap = ReadBmp(folder.At("s_000_key=0.bmp"));
    ASSERT_TRUE(bitmap.picture);
    EXPECT_EQ(bitmap.bits, 32);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(PixelAt(*bitmap.picture, x, y), MarkAt(x, y, 5, 3).value_or(colours[(5 * y + x) % 3]));
}

TEST(SubtitleDump, WithoutABitmapIsReported)
{
    AVSubtitleRect empty = Rectangle(SUBTITLE_BITMAP);
    empty.w = empty.h = 4;
    const TemporaryFolder folder;
    LogCapture log;
    for (const auto& rectangles :
         {std::vector<AVSubtitleRect>{}, {Rectangle(SUBTITLE_TEXT, "text")}, {empty}}) {
        Subtitle_SaveToBmp(Subtitle(rectangles), folder.At("s"));
        EXPECT_THAT(log.Take(),
                    ElementsAre(LogRecord{
                        google::GLOG_ERROR,
                        "Subtitle_SaveToBmp() - no bitmap in the subtitle for '" + folder.At("s") + "'"}));
    }
    EXPECT_THAT(FilesIn(folder.path), IsEmpty());
}

TEST(SubtitleText, IsThatOfAllRectangles)
{
    std::string planes[] = {"pixels", "colour", "third", "fourth", "fifth"};
    AVSubtitleRect bitmap = Rectangle(SUBTITLE_BITMAP);
    for (int i = 0; i < 4; ++i) {
        bitmap.data[i] = reinterpret_cast<uint8_t*>(planes[i].data());
        bitmap.linesize[i] = i == 2 ? 0 : 4;
    }
    const auto withColours = [&](int colours) {
        bitmap.nb_colors = colours;
        return Subtitle_ToString(Subtitle({bitmap}));
    };
    EXPECT_EQ(withColours(0), "");
    EXPECT_EQ(withColours(1), "pixe");
    EXPECT_EQ(withColours(256), "pixecolofour");
    EXPECT_EQ(Subtitle_ToString(Subtitle({})), "");
    EXPECT_EQ(Subtitle_ToString(Subtitle({Rectangle(SUBTITLE_TEXT, "text", "no"),
                                          Rectangle(SUBTITLE_ASS, "no", "0,,ass"), Rectangle(SUBTITLE_TEXT),
                                          Rectangle(SUBTITLE_ASS), Rectangle(SUBTITLE_NONE, "no", "no")})),
              "text0,,ass");
}

struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
};

TEST(PacketText, HasTheFieldsInPlainDigits)
{
    AVPacket packet{};
    packet.stream_index = 1;
    packet.pts = 3600;
    packet.duration = 1800;
    packet.size = 4213;
    packet.flags = AV_PKT_FLAG_KEY;
    const auto text = [](const AVPacket* p) {
        std::ostringstream stream;
        stream.imbue(std::locale(stream.getloc(), new Grouping));
        stream << std::hex << std::showbase << p << '.';
        return stream.str();
    };
    EXPECT_EQ(text(&packet), "1+: pts 3600, dts 0, dur 1800, size 4213, flags 1.");
    packet.flags = 0;
    packet.dts = AV_NOPTS_VALUE;
    EXPECT_EQ(text(&packet), "1 : pts 3600, dts -9223372036854775808, dur 1800, size 4213, flags 0.");
    EXPECT_EQ(text(nullptr), "NULL.");
}

}  // namespace
}  // namespace Quorva::Proc

TEST(PacketText, IsFoundFromOtherNamespaces)
{
    const AVPacket packet{};
    std::ostringstream stream;
    stream << &packet;
    EXPECT_EQ(stream.str(), "0 : pts 0, dts 0, dur 0, size 0, flags 0");
}
