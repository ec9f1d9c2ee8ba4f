#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"

#include <algorithm>

namespace Quorva::Proc {

namespace {

AVPixelFormat ToFFmpeg(PixFmt format) { return static_cast<AVPixelFormat>(format); }

}  // namespace

PixFmt PixelFormatQuorvaFromFFMPEGSafe(AVPixelFormat format) { return static_cast<PixFmt>(format); }

std::vector<AVPixelFormat> PixelFormatsFFMPEGFromQuorva(const std::vector<PixFmt>& formats)
{
    std::vector<AVPixelFormat> result;
    result.reserve(formats.size());
    for (const PixFmt format : formats)
        result.push_back(ToFFmpeg(format));
    return result;
}

std::vector<PixFmt> PixelFormatsQuorvaFromFFMPEG(const std::vector<AVPixelFormat>& formats)
{
    std::vector<PixFmt> result;
    result.reserve(formats.size());
    for (const AVPixelFormat format : formats)
        if (PixFmtDescription::IsSupported(PixelFormatQuorvaFromFFMPEGSafe(format)))
            result.push_back(PixelFormatQuorvaFromFFMPEGSafe(format));
    return result;
}

std::vector<PixFmt> FilterPixelFormatsForSwScaling(std::vector<PixFmt> list, bool asInput, bool asOutput)
{
    std::erase_if(list, [=](PixFmt format) {
        return (asInput && !IsSwScalingSupportedAsInput(ToFFmpeg(format))) ||
               (asOutput && !IsSwScalingSupportedAsOutput(ToFFmpeg(format)));
    });
    return list;
}

std::vector<PixFmt> PixelFormatsIntersection(const std::vector<PixFmt>& first,
                                             const std::vector<PixFmt>& second)
{
    std::vector<PixFmt> result;
    result.reserve(first.size());
    for (const PixFmt format : first)
        if (std::ranges::find(second, format) != second.end())
            result.push_back(format);
    return result;
}

PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, PixFmt source, bool hasAlpha, int* loss)
{
    AVPixelFormat best = AV_PIX_FMT_NONE;
    int lost = 0;
    for (const PixFmt format : list) {
        if (format == PixFmt::NONE)
            continue;
        if (source == PixFmt::NONE || format == source)
            return format;
        lost = loss ? *loss : 0;  // FFmpeg reads what to disregard and writes what is lost into one place
        best = av_find_best_pix_fmt_of_2(best, ToFFmpeg(format), ToFFmpeg(source), hasAlpha, &lost);
    }
    if (loss)
        *loss = lost;
    return PixelFormatQuorvaFromFFMPEGSafe(best);
}

PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, AVPixelFormat source, bool hasAlpha,
                                 int* loss)
{
    return FindBestPixelFormatOfList(list, PixelFormatQuorvaFromFFMPEGSafe(source), hasAlpha, loss);
}

int GetLineSize(PixFmt format, int width, int plane)
{
    if (plane < 0 || plane >= 4)  // FFmpeg would read outside an array of four
        return AVERROR(EINVAL);
    return av_image_get_linesize(ToFFmpeg(format), width, plane);
}

const AVPixFmtDescriptor* GetPixelFormatDescription(AVPixelFormat format)
{
    return av_pix_fmt_desc_get(format);
}

int GetPixelChannelMaximalBits(const AVPixFmtDescriptor* descriptor)
{
    if (!descriptor)
        return 0;
    int bits = descriptor->comp[0].depth;
    for (int i = 1; i < descriptor->nb_components; ++i)
        bits = std::max(bits, descriptor->comp[i].depth);
    return bits;
}

int GetPixelChannelMaximalBits(AVPixelFormat format)
{
    return GetPixelChannelMaximalBits(av_pix_fmt_desc_get(format));
}

bool HasAlpha(AVPixelFormat format)
{
    const AVPixFmtDescriptor* const descriptor = av_pix_fmt_desc_get(format);
    return descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA);
}

bool IsSwScalingSupportedAsInput(AVPixelFormat format) { return sws_isSupportedInput(format) != 0; }

bool IsSwScalingSupportedAsOutput(AVPixelFormat format) { return sws_isSupportedOutput(format) != 0; }

}  // namespace Quorva::Proc
