#include "Proc/Wrappers/Tessadrin/InputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/DemuxerFunctions.h"
#include "Proc/Wrappers/Tessadrin/Details/InputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/InputRows.h"
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <utility>

namespace Quorva::Proc {

using Conf::IFormatFile;
using Details::GetFormatID;
using Details::GetLoaded;
using Details::InputCatalogue;
using Details::InputMap;
using Details::KnownInputFormat;
using Details::RequiredValue;
using Details::Throw;

namespace Details {

std::vector<const AVInputFormat*> AllDemuxers()
{
    std::vector<const AVInputFormat*> demuxers;
    demuxers.reserve(400);
    for (void* position = nullptr; const AVInputFormat* demuxer = av_demuxer_iterate(&position);)
        demuxers.push_back(demuxer);
    return demuxers;
}

InputCatalogue::InputCatalogue(std::span<const AVInputFormat* const> demuxers,
                               const std::vector<std::string>& isoMediaFormats)
{
    known.reserve(std::size(namedInputRows) + std::size(recognisedInputRows) + std::size(plainInputRows));
    for (const auto& [demuxer, format] : namedInputRows)
        known.emplace(demuxer, KnownInputFormat{*format});
    for (const auto& [demuxer, fromProbe, fromContext] : recognisedInputRows)
        known.emplace(demuxer.Get(), KnownInputFormat{{}, fromProbe, fromContext});
    for (const char* demuxer : plainInputRows)
        known.emplace(demuxer, KnownInputFormat{});

    formats.reserve(known.size() + std::size(imageCodecRows) + isoMediaFormats.size());
    for (const AVInputFormat* demuxer : demuxers)
        if (!(demuxer->flags & AVFMT_EXPERIMENTAL))
            if (const KnownInputFormat* entry = Find(demuxer->name))
                formats.try_emplace(
                    entry->format.empty() ? std::string(demuxer->name) : std::string(entry->format), demuxer);

    const AVInputFormat* demuxer = RequiredValue(formats, IFormatFile::FORMAT_QUICKTIME);
    for (const std::string& format : isoMediaFormats)
        formats.try_emplace(format, demuxer);
    demuxer = RequiredValue(formats, "matroska,webm");
    for (const auto& [text, format] : matroskaDocumentTypes)
        formats.try_emplace(*format, demuxer);
    demuxer = RequiredValue(formats, IFormatFile::FORMAT_SWF);
    formats.try_emplace(IFormatFile::FORMAT_CSWF, demuxer);
    demuxer = RequiredValue(formats, "jpegxl_pipe");
    formats.try_emplace(IFormatFile::FORMAT_JPEGXL, demuxer);
    demuxer = RequiredValue(formats, "png_pipe");
    formats.try_emplace(IFormatFile::FORMAT_PNG, demuxer);
    demuxer = RequiredValue(formats, "webp_pipe");
    formats.try_emplace(IFormatFile::FORMAT_WEBP, demuxer);
    formats.try_emplace(IFormatFile::FORMAT_AWEBP, demuxer);
    // Pictures that have a demuxer of their own are there by now and keep it.
    demuxer = RequiredValue(formats, IFormatFile::FORMAT_IMAGE2);
    for (const auto& [codec, format] : imageCodecRows)
        formats.try_emplace(*format, demuxer);
}

const KnownInputFormat* InputCatalogue::Find(const char* demuxer) const noexcept
{
    const auto found = demuxer ? known.find(demuxer) : known.end();
    return found == known.end() ? nullptr : &found->second;
}

InputMap SupportedInputFormats(const InputMap& formats, bool hasJpegXLDecoder)
{
    InputMap supported = formats;
    supported.erase(IFormatFile::FORMAT_AWEBP);
    if (!hasJpegXLDecoder) {
        supported.erase(IFormatFile::FORMAT_JPEGXL);
        supported.erase(IFormatFile::FORMAT_AJPEGXL);
    }
    for (const std::string* format :
         {&IFormatFile::FORMAT_HEIF, &IFormatFile::FORMAT_HEIC, &IFormatFile::FORMAT_HEICS})
        supported.erase(*format);
    return supported;
}

void GetFormatID(const AVInputFormat* demuxer, const MovieProbe& probe, ProbeResult& result)
{
    const KnownInputFormat* entry = GetLoaded().inputs.Find(demuxer->name);
    if (!entry)
        Throw<ProcException>("Unknown file format");
    result.format = demuxer->name;
    if (!entry->format.empty())
        result.format = entry->format;
    else if (entry->fromProbe)
        entry->fromProbe(probe, result);
}

void DetectAmong(const std::vector<std::string>& candidates, const InputMap& formats, const MovieProbe& probe,
                 ProbeResult& result)
{
    const AVProbeData data = ProbeDataOf(probe);
    std::unordered_map<const AVInputFormat*, int> scores;
    for (const std::string& candidate : candidates) {
        const auto found = formats.find(candidate);
        if (found == formats.end())
            continue;
        const AVInputFormat* demuxer = found->second;
        const ReadProbe readProbe = av_input_format_get_read_probe_func(demuxer);
        if (!readProbe)
            continue;
        const auto [score, isFirst] = scores.try_emplace(demuxer, 0);
        if (isFirst) {
            score->second = readProbe(&data);
            if (score->second == result.score)
                result.format.clear();
        }
        if (score->second <= result.score)
            continue;
        ProbeResult fresh{.format = {}, .score = score->second, .implementation = {}};
        GetFormatID(demuxer, probe, fresh);
        if (fresh.format == candidate)
            result = std::move(fresh);
    }
}

}  // namespace Details

void DetectFileInputFormat(const MovieProbe& probe, ProbeResult& result)
{
    if (!probe.extension.empty())
        Details::DetectAmong(Conf::GetFormatsByExtension(probe.extension), GetLoaded().inputs.formats, probe,
                             result);
    if (!result.format.empty() && result.score > 0) {
        result.implementation = ImplNames::FFMPEG;
        return;
    }

    const AVProbeData data = Details::ProbeDataOf(probe);
    int score = 0;
    const AVInputFormat* demuxer = av_probe_input_format3(&data, 1, &score);
    if (!demuxer || score < AVPROBE_SCORE_RETRY)
        return;
    result.score = score;
    GetFormatID(demuxer, probe, result);
    result.implementation = ImplNames::FFMPEG;
}

namespace {

/// Null where the context isn't one that FFmpeg has opened for reading.
const KnownInputFormat* FindKnown(const AVFormatContext* context)
{
    return context && context->iformat ? GetLoaded().inputs.Find(context->iformat->name) : nullptr;
}

/// @param probe  of the opened file; null to read it again where the context doesn't tell
std::string FormatOf(const KnownInputFormat& entry, AVFormatContext* context, const MovieProbe* probe)
{
    if (!entry.format.empty())
        return std::string(entry.format);
    ProbeResult result{.format = context->iformat->name, .score = 0, .implementation = {}};
    if (entry.fromContext)
        entry.fromContext(context, probe, result);
    return result.format;
}

}  // namespace

std::string GetContainerFormat(AVFormatContext* context)
{
    const KnownInputFormat* entry = FindKnown(context);
    if (!entry)
        Throw<ProcException>("Unknown file format");
    return FormatOf(*entry, context, nullptr);
}

std::string GetContainerFormat(AVFormatContext* context, const MovieProbe& probe)
{
    const KnownInputFormat* entry = FindKnown(context);
    if (!entry)
        Throw<ProcException>("Unknown file format");
    return FormatOf(*entry, context, &probe);
}

std::vector<std::string> GetFFMPEGKnownInputFormats()
{
    const InputCatalogue& inputs = GetLoaded().inputs;
    std::vector<std::string> names;
    names.reserve(inputs.known.size());
    for (const auto& [demuxer, entry] : inputs.known)
        names.emplace_back(demuxer);
    return names;
}

const std::unordered_map<std::string, const AVInputFormat*>& GetFFMPEGSupportedInputFormats()
{
    static const InputMap supported = Details::SupportedInputFormats(
        GetLoaded().inputs.formats, FindDecoder(AV_CODEC_ID_JPEGXL, ImplNames::FFMPEG) != nullptr);
    return supported;
}

bool IsSingleImageContainer(const std::string& format, AVFormatContext* context)
{
    if (format == IFormatFile::FORMAT_GIF && context && context->nb_streams == 1 &&
        context->streams[0]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
        context->streams[0]->nb_frames == 1)
        return true;
    return Conf::GetImageContainerSet(Conf::AnimatedImages::Exclude).contains(format);
}

}  // namespace Quorva::Proc
