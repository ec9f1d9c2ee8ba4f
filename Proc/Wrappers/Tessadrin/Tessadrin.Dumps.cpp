#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"

#include "Proc/Wrappers/Tessadrin/Details/KeyFrame.h"
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "host/FoundationIO.h"

#include <fmt/format.h>
#include <glog/logging.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <vector>

namespace Quorva::Proc {

namespace {

/// Held for a whole dump: it guards the numbers, and no two dumps write the same file.
constinit std::mutex dumpLock;

/// The number of the next dump under each name. Never destroyed: a stage may dump until the process ends.
std::map<std::string, int>& GetNumbers()
{
    static auto& numbers = *new std::map<std::string, int>;
    return numbers;
}

/// Pixels of whole bytes, one for each component.
const std::set<AVPixelFormat>& GetAllowedFormats()
{
    static const std::set<AVPixelFormat> formats = {AV_PIX_FMT_RGBA, AV_PIX_FMT_BGRA, AV_PIX_FMT_RGB24,
                                                    AV_PIX_FMT_BGR24, AV_PIX_FMT_GRAY8};
    return formats;
}

AVPixelFormat ChooseFormat(const SafeEncoderCodec& encoder, const AVFrame& frame)
{
    std::vector<PixFmt> candidates = encoder.GetSupportedPixFmts();
    std::erase_if(candidates, [](PixFmt format) {
        return !GetAllowedFormats().contains(static_cast<AVPixelFormat>(format));
    });
    int loss = 0;
    return static_cast<AVPixelFormat>(
        FindBestPixelFormatOfList(candidates, static_cast<AVPixelFormat>(frame.format), true, &loss));
}

SafeFrame Convert(const AVFrame& frame, AVPixelFormat target)
{
    const auto matrix = static_cast<Conf::YCbCrMatrix>(frame.colorspace);
    const Conf::ColorSpace colours{frame.color_primaries, frame.color_trc, frame.colorspace};
    SafeFrame picture(colours, target, frame.width, frame.height, frame.sample_aspect_ratio.num,
                      frame.sample_aspect_ratio.den);
    const SafeSwsContext scaler(SwsCtxParams{
        .src = {frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), matrix},
        .dst = {frame.width, frame.height, target,                                   matrix},
        .flags = SWS_POINT,
    });
    const int rows = scaler.Scale(SwsSource(frame), 0, frame.height, SwsDestination(picture));
    if (rows < 0)
        Details::Throw<ProcException>("Can't convert the picture: {}", GetErrorDescriptionFFMPEG(rows));
    return picture;
}

/// Paints every fourth pixel of the last column and of the last row of the area.
void MarkEdges(const AVFrame& picture, int width, int height)
{
    static constexpr uint8_t dark[] = {0x00, 0x00, 0x00, 0xff};
    static constexpr uint8_t light[] = {0xff, 0xff, 0xff, 0xff};
    const int size = GetPixelFormatDescription(static_cast<AVPixelFormat>(picture.format))->nb_components;
    const auto mark = [&](int64_t row, int64_t column, int place) {
        std::memcpy(picture.data[0] + row * picture.linesize[0] + column * size,
                    place % 8 == 0 ? dark : light, static_cast<size_t>(size));
    };
    if (width >= 1 && width <= picture.width)
        for (int row = 0; row < std::min(height, picture.height); row += 4)
            mark(row, width - 1, row);
    if (height >= 1 && height <= picture.height)
        for (int column = 0; column < std::min(width, picture.width); column += 4)
            mark(height - 1, column, column);
}

/// @return  FFmpeg's result; `packet` stays empty when that is negative
int Encode(const SafeEncoderCodec& encoder, const AVFrame& picture, AVPacket* packet)
{
    const SafeCodecContext context(encoder.Get());
    context->pix_fmt = static_cast<AVPixelFormat>(picture.format);
    context->width = picture.width;
    context->height = picture.height;
    context->time_base = {1, 1};
    int result = avcodec_open2(context.get(), encoder.Get(), nullptr);
    if (result >= 0)
        result = avcodec_send_frame(context.get(), &picture);
    if (result >= 0)
        result = avcodec_receive_packet(context.get(), packet);
    return result;
}

struct Release {
    void operator()(AVPacket* packet) const noexcept { ReleasePacket(&packet); }
};

/// A marked picture, encoded.
struct Bitmap {
    Bitmap(int width, int height, const AVFrame& frame)
    {
        const SafeEncoderCodec encoder(AV_CODEC_ID_BMP, ImplNames::FFMPEG);
        const SafeFrame picture = Convert(frame, ChooseFormat(encoder, frame));
        MarkEdges(*picture.get(), width, height);
        result = Encode(encoder, *picture.get(), packet.get());
    }

    const std::unique_ptr<AVPacket, Release> packet{CreatePacket(0)};
    int result = 0;  ///< FFmpeg's; `packet` is empty when that is negative
};

/// @return  what went wrong; empty when nothing did
std::string Write(const std::string& fileName, const AVPacket& packet)
{
    const auto complaint = [&](const char* what) {
        return fmt::format("can't {} '{}': {}", what, fileName, std::generic_category().message(errno));
    };
    std::FILE* const file = std::fopen(fileName.c_str(), "wb");
    if (!file)
        return complaint("open");
    const auto size = static_cast<size_t>(packet.size);
    const bool written = size == 0 || std::fwrite(packet.data, 1, size, file) == size;
    std::string failure;
    if (!written)
        failure = complaint("write");
    if (std::fclose(file) != 0 && written)  // a full disk may not show before
        failure = complaint("write");
    return failure;
}

/// @return  why there is no picture in the file; empty when there is
std::string Dump(int width, int height, const AVFrame& frame, const std::string& name)
{
    const std::lock_guard lock(dumpLock);
    const Bitmap bitmap(width, height, frame);
    const std::string fileName = GetDumpFileName(name, GetNumbers()[name]++, Details::IsKeyFrame(frame));
    std::string failure = Write(fileName, *bitmap.packet);
    if (failure.empty() && bitmap.result < 0)
        return fmt::format("the encoder gives nothing for '{}': {}", fileName,
                           GetErrorDescriptionFFMPEG(bitmap.result));
    return failure;
}

bool IsBitmap(const AVSubtitle& subtitle)
{
    const AVSubtitleRect* const rectangle = subtitle.num_rects > 0 ? subtitle.rects[0] : nullptr;
    return rectangle && rectangle->type == SUBTITLE_BITMAP && rectangle->data[0] && rectangle->data[1] &&
           rectangle->w > 0 && rectangle->h > 0;
}

/// A frame over a rectangle's pixels, which outlive it.
class RectangleFrame {
public:
    /// @param rectangle  a bitmap
    explicit RectangleFrame(const AVSubtitleRect& rectangle)
    {
        // FFmpeg reads a palette to its 256th entry, however many the rectangle has.
        const int colours = std::clamp(rectangle.nb_colors, 0, AVPALETTE_COUNT);
        std::memcpy(palette.data(), rectangle.data[1], static_cast<size_t>(colours) * sizeof(uint32_t));
        frame->width = rectangle.w;
        frame->height = rectangle.h;
        frame->format = AV_PIX_FMT_PAL8;
        frame->data[0] = rectangle.data[0];
        frame->linesize[0] = rectangle.linesize[0];
        frame->data[1] = palette.data();
        frame->linesize[1] = rectangle.linesize[1];
    }
    const AVFrame* Get() { return &frame; }

private:
    std::array<uint8_t, AVPALETTE_SIZE> palette = {};
    AVFrameWrapper frame;
};

}  // namespace

std::string GetDumpFileName(const std::string& name, int number, bool key)
{
    return fmt::format("{}_{:03}_key={:d}.bmp", name, number, key);
}

void AVFrame_SaveToBmp(int width, int height, const AVFrame* frame, const std::string& name)
{
    const std::string failure = Dump(width, height, Details::GetAVFrameRef(frame), name);
    // With the lock released: whoever receives records may dump in turn.
    if (!failure.empty())
        LOG(ERROR) << "AVFrame_SaveToBmp() - " << failure;
}

void AVFrame_SaveToBmp(const boost::intrusive_ptr<const IDataVideo>& video, const std::string& name)
{
    if (!video) {
        LOG(ERROR) << "AVFrame_SaveToBmp() - frame is not valid";
        return;
    }
    const IDataVideo::Picture& picture = video->GetPicture();
    AVFrame_SaveToBmp(picture.width, picture.height, video->GetFrame(), name);
}

std::vector<uint8_t> AVFrame_ToBmp(int width, int height, const AVFrame* frame)
{
    const Bitmap bitmap(width, height, Details::GetAVFrameRef(frame));
    if (bitmap.result < 0)
        Details::Throw<ProcException>("The BMP encoder gives nothing: {}",
                                      GetErrorDescriptionFFMPEG(bitmap.result));
    return {bitmap.packet->data, bitmap.packet->data + bitmap.packet->size};
}

void Subtitle_SaveToBmp(const AVSubtitle& subtitle, const std::string& name)
{
    if (!IsBitmap(subtitle)) {
        LOG(ERROR) << "Subtitle_SaveToBmp() - no bitmap in the subtitle for '" << name << "'";
        return;
    }
    const AVSubtitleRect& rectangle = *subtitle.rects[0];
    AVFrame_SaveToBmp(rectangle.w, rectangle.h, RectangleFrame(rectangle).Get(), name);
}

std::vector<uint8_t> Subtitle_ToBmp(const AVSubtitle& subtitle)
{
    if (!IsBitmap(subtitle))
        Details::Throw<ProcException>("The subtitle holds no bitmap");
    const AVSubtitleRect& rectangle = *subtitle.rects[0];
    return AVFrame_ToBmp(rectangle.w, rectangle.h, RectangleFrame(rectangle).Get());
}

void Subtitle_SaveToBmp(const boost::intrusive_ptr<const IDataSubtitle>& subtitle, const std::string& name)
{
    if (!subtitle) {
        LOG(ERROR) << "Subtitle_SaveToBmp() - subtitle is not valid";
        return;
    }
    Subtitle_SaveToBmp(subtitle->GetSubtitle(), name);
}

std::string Subtitle_ToString(const AVSubtitle& subtitle)
{
    std::string text;
    for (unsigned i = 0; i < subtitle.num_rects; ++i) {
        const AVSubtitleRect& rectangle = *subtitle.rects[i];
        switch (rectangle.type) {
            case SUBTITLE_BITMAP:
                for (int plane = 0; plane < std::min(rectangle.nb_colors, 4); ++plane)
                    if (rectangle.data[plane] && rectangle.linesize[plane] > 0)
                        text.append(reinterpret_cast<const char*>(rectangle.data[plane]),
                                    static_cast<size_t>(rectangle.linesize[plane]));
                break;
            case SUBTITLE_TEXT:
                text += rectangle.text ? rectangle.text : "";
                break;
            case SUBTITLE_ASS:
                text += rectangle.ass ? rectangle.ass : "";
                break;
            default:
                break;
        }
    }
    return text;
}

std::ostream& operator<<(std::ostream& stream, const AVPacket* packet)
{
    if (!packet)
        return stream << "NULL";
    return stream << fmt::format("{}{}: pts {}, dts {}, dur {}, size {}, flags {}", packet->stream_index,
                                 packet->flags & AV_PKT_FLAG_KEY ? '+' : ' ', packet->pts, packet->dts,
                                 packet->duration, packet->size, packet->flags);
}

}  // namespace Quorva::Proc
