#include "Proc/Wrappers/Tessadrin/Details/DemuxerFunctions.h"
#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/InputRows.h"
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"

#include <algorithm>
#include <limits>
#include <unordered_set>

namespace Quorva::Proc::Details {

using Conf::IFormatFile;

namespace {

constexpr int certain = AVPROBE_SCORE_MAX;
constexpr uint64_t contextProbeSize = 128;

std::string_view BytesOf(const MovieProbe& probe)
{
    return {reinterpret_cast<const char*>(probe.buffer), probe.buffer ? probe.size : 0};
}

uint32_t LittleEndian(std::string_view fourBytes)
{
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value |= static_cast<uint32_t>(static_cast<uint8_t>(fourBytes[i])) << 8 * i;
    return value;
}

void SetFormat(ProbeResult& result, const std::string& format, int score)
{
    result.format = format;
    result.score = score;
}

void SetByBrand(uint32_t brand, ProbeResult& result)
{
    const std::string format = ConvertISOBMFFToFileFormat(brand);
    if (format.empty())
        result.format = IFormatFile::FORMAT_MP4;
    else
        SetFormat(result, format, certain);
}

void SetByExtension(const MovieProbe& probe, ProbeResult& result)
{
    const std::vector<std::string>& candidates = Conf::GetFormatsByExtension(probe.extension);
    result.format = candidates.empty() ? IFormatFile::FORMAT_MOV : candidates.front();
}

void SetByHigherScore(const StillAndAnimated& demuxers, const std::string& stillFormat,
                      const std::string& animatedFormat, const MovieProbe& probe, ProbeResult& result)
{
    const ReadProbe still = av_input_format_get_read_probe_func(demuxers.still);
    const ReadProbe animated = av_input_format_get_read_probe_func(demuxers.animated);
    if (!still || !animated) {
        result.format = stillFormat;  // nobody to ask; the score that led here stands
        return;
    }
    const AVProbeData data = ProbeDataOf(probe);
    const int stillScore = still(&data), animatedScore = animated(&data);
    if (stillScore >= animatedScore)
        SetFormat(result, stillFormat, stillScore);
    else
        SetFormat(result, animatedFormat, animatedScore);
}

/// The file that FFmpeg opens by `url`: as its protocol for files does, this takes "file:" off once.
std::string FileOf(std::string_view url)
{
    constexpr std::string_view protocol = "file:";
    if (url.starts_with(protocol))
        url.remove_prefix(protocol.size());
    return std::string(url);
}

/// Runs `recognise` on the first bytes of the opened file: those of `probe`, or else of the file that the
/// context was opened by; custom I/O leaves no name.
void OnFirstBytes(const AVFormatContext* context, const MovieProbe* probe, ProbeResult& result,
                  ProbeRecogniser* recognise)
{
    if (probe)
        return recognise(*probe, result);
    if (!context->url || !*context->url)
        return;
    const auto input = Core::DataInputFile::Create(ioPath(FileOf(context->url)));
    recognise(*MovieProbe::Create(input, contextProbeSize), result);
}

}  // namespace

AVProbeData ProbeDataOf(const MovieProbe& probe) noexcept
{
    static constexpr uint8_t nothing[AVPROBE_PADDING_SIZE] = {};
    constexpr uint64_t most = std::numeric_limits<int>::max() - AVPROBE_PADDING_SIZE;
    AVProbeData data{};
    data.filename = probe.fileName.c_str();
    data.buf = const_cast<uint8_t*>(probe.buffer ? probe.buffer : nothing);  // FFmpeg's probes only read it
    data.buf_size = probe.buffer ? static_cast<int>(std::min(probe.size, most)) : 0;
    return data;
}

std::vector<const AVInputFormat*> CollectImageDemuxers(const InputMap& formats,
                                                       std::span<const AVInputFormat* const> demuxers)
{
    const AVInputFormat* sequence = RequiredValue(formats, IFormatFile::FORMAT_IMAGE2);
    const ReadHeader readHeader = av_input_format_get_read_header_func(sequence);
    std::unordered_set<const AVInputFormat*> used;
    for (const auto& [format, demuxer] : formats)
        used.insert(demuxer);

    std::vector<const AVInputFormat*> images;
    for (const AVInputFormat* demuxer : demuxers)
        if (demuxer != sequence && used.contains(demuxer) && av_input_format_get_read_probe_func(demuxer) &&
            av_input_format_get_read_header_func(demuxer) == readHeader)
            images.push_back(demuxer);
    images.push_back(RequiredValue(formats, IFormatFile::FORMAT_GIF));
    return images;
}

void RecogniseImage(std::span<const AVInputFormat* const> imageDemuxers, const MovieProbe& probe,
                    ProbeResult& result)
{
    ProbeResult best;
    const AVProbeData data = ProbeDataOf(probe);
    for (const AVInputFormat* demuxer : imageDemuxers) {
        const ReadProbe readProbe = av_input_format_get_read_probe_func(demuxer);
        const int score = readProbe ? readProbe(&data) : 0;
        if (score > best.score) {
            best.score = score;
            GetFormatID(demuxer, probe, best);
        } else if (score == best.score) {
            best.format.clear();
        }
    }
    if (!best.format.empty())
        SetFormat(result, best.format, std::max(result.score, best.score));
}

StillAndAnimated::StillAndAnimated(const InputMap& formats, const std::string& stillKey,
                                   const std::string& animatedKey)
    : still(RequiredValue(formats, stillKey)), animated(RequiredValue(formats, animatedKey))
{
}

void FromProbe::ImageSequence(const MovieProbe& probe, ProbeResult& result)
{
    static const std::vector<const AVInputFormat*> imageDemuxers =
        CollectImageDemuxers(GetLoaded().inputs.formats, AllDemuxers());
    RecogniseImage(imageDemuxers, probe, result);
}

void FromProbe::Matroska(const MovieProbe& probe, ProbeResult& result)
{
    const std::string_view bytes = BytesOf(probe);
    if (!bytes.starts_with("\x1A\x45\xDF\xA3"))
        return;
    for (const auto& [text, format] : matroskaDocumentTypes)
        if (bytes.find(text) != std::string_view::npos)
            return SetFormat(result, *format, certain);
}

void FromProbe::IsoMedia(const MovieProbe& probe, ProbeResult& result)
{
    const std::string_view bytes = BytesOf(probe);
    if (bytes.size() < 8 || bytes.substr(4, 4) != "ftyp")
        SetByExtension(probe, result);
    else if (bytes.size() < 12)
        result.format = IFormatFile::FORMAT_MP4;  // a brand that is cut off is none that is known
    else
        SetByBrand(LittleEndian(bytes.substr(8)), result);
}

void FromProbe::Swf(const MovieProbe& probe, ProbeResult& result)
{
    for (const auto& [text, format] : swfSignatures)
        if (BytesOf(probe).starts_with(text))
            return SetFormat(result, *format, certain);
}

void FromProbe::Gif(const MovieProbe&, ProbeResult& result) { result.format = IFormatFile::FORMAT_GIF; }

void FromProbe::JpegXL(const MovieProbe& probe, ProbeResult& result)
{
    static const StillAndAnimated demuxers(GetLoaded().inputs.formats, "jpegxl_pipe",
                                           IFormatFile::FORMAT_AJPEGXL);
    SetByHigherScore(demuxers, IFormatFile::FORMAT_JPEGXL, IFormatFile::FORMAT_AJPEGXL, probe, result);
}

void FromProbe::Png(const MovieProbe& probe, ProbeResult& result)
{
    static const StillAndAnimated demuxers(GetLoaded().inputs.formats, "png_pipe", IFormatFile::FORMAT_APNG);
    SetByHigherScore(demuxers, IFormatFile::FORMAT_PNG, IFormatFile::FORMAT_APNG, probe, result);
}

void FromProbe::WebP(const MovieProbe& probe, ProbeResult& result)
{
    constexpr uint32_t extendedChunkSize = 10;
    constexpr uint8_t animationFlag = 0x02;
    const std::string_view bytes = BytesOf(probe);
    if (bytes.size() < 16 || !bytes.starts_with("RIFF") || bytes.substr(8, 4) != "WEBP")
        return;
    const std::string_view chunk = bytes.substr(12, 4);
    if (chunk == "VP8 " || chunk == "VP8L")
        SetFormat(result, IFormatFile::FORMAT_WEBP, certain);
    else if (chunk == "VP8X" && bytes.size() > 20 && LittleEndian(bytes.substr(16)) == extendedChunkSize)
        SetFormat(result, bytes[20] & animationFlag ? IFormatFile::FORMAT_AWEBP : IFormatFile::FORMAT_WEBP,
                  certain);
}

void FromContext::ImageCodec(AVFormatContext* context, const MovieProbe*, ProbeResult& result)
{
    if (context->nb_streams != 1)
        return;
    const AVCodecID codec = context->streams[0]->codecpar->codec_id;
    const auto row = std::ranges::lower_bound(imageCodecRows, codec, {}, &ImageCodecRow::id);
    if (row != std::end(imageCodecRows) && row->id == codec)
        result.format = *row->format;
}

void FromContext::Matroska(AVFormatContext* context, const MovieProbe* probe, ProbeResult& result)
{
    OnFirstBytes(context, probe, result, FromProbe::Matroska);
}

void FromContext::IsoMedia(AVFormatContext* context, const MovieProbe* probe, ProbeResult& result)
{
    const std::string brand = GetMetadata(context->metadata, "major_brand");
    if (brand.size() == 4)
        SetByBrand(LittleEndian(brand), result);
    else
        OnFirstBytes(context, probe, result, SetByExtension);
}

void FromContext::Swf(AVFormatContext* context, const MovieProbe* probe, ProbeResult& result)
{
    OnFirstBytes(context, probe, result, FromProbe::Swf);
}

void FromContext::Gif(AVFormatContext*, const MovieProbe*, ProbeResult& result)
{
    result.format = IFormatFile::FORMAT_GIF;
}

void FromContext::JpegXL(AVFormatContext*, const MovieProbe*, ProbeResult& result)
{
    result.format = IFormatFile::FORMAT_JPEGXL;
}

void FromContext::Png(AVFormatContext*, const MovieProbe*, ProbeResult& result)
{
    result.format = IFormatFile::FORMAT_PNG;
}

void FromContext::WebP(AVFormatContext* context, const MovieProbe* probe, ProbeResult& result)
{
    OnFirstBytes(context, probe, result, FromProbe::WebP);
}

}  // namespace Quorva::Proc::Details
