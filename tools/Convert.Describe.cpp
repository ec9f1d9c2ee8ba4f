// What the output says about itself: as the input does, as far as it still holds.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "host/Charset.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Output.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <span>
#include <string_view>

namespace Quorva::Tool {

namespace {

/// Tags about the file that held them, not about what is in it.
constexpr std::string_view FORMER[] = {"encoder",
                                       "duration",
                                       "major_brand",
                                       "minor_version",
                                       "compatible_brands",
                                       "vendor_id",
                                       "_statistics_tags",
                                       "_statistics_writing_app",
                                       "_statistics_writing_date_utc",
                                       "bps",
                                       "number_of_frames",
                                       "number_of_bytes",
                                       "filesize",
                                       "metadatacreator",
                                       "hasmetadata",
                                       "hasvideo",
                                       "hasaudio",
                                       "haskeyframes",
                                       "canseektoend"};

bool IsFormer(std::string_view key)
{
    // Matroska's statistics have the language behind them: BPS-eng.
    const std::string_view name =
        key.substr(0, key.size() > 4 && key[key.size() - 4] == '-' ? key.size() - 4 : key.size());
    return std::ranges::any_of(FORMER, [&](std::string_view former) {
        return std::ranges::equal(former, name, {}, av_tolower, av_tolower);
    });
}

/// The name that FFmpeg's muxers, and others, give to every track of a kind.
bool IsUsualHandler(const AVDictionaryEntry& entry)
{
    return av_strcasecmp(entry.key, "handler_name") == 0 &&
           std::string_view(entry.value).ends_with("Handler");
}

/// Side data of a whole stream that is as true of the encoded one. Matrix and cropping have their own way.
constexpr struct {
    AVPacketSideDataType packet;
    AVFrameSideDataType frame;
} lasting[] = {
    {AV_PKT_DATA_MASTERING_DISPLAY_METADATA,  AV_FRAME_DATA_MASTERING_DISPLAY_METADATA },
    {AV_PKT_DATA_CONTENT_LIGHT_LEVEL,         AV_FRAME_DATA_CONTENT_LIGHT_LEVEL        },
    {AV_PKT_DATA_AMBIENT_VIEWING_ENVIRONMENT, AV_FRAME_DATA_AMBIENT_VIEWING_ENVIRONMENT},
    {AV_PKT_DATA_STEREO3D,                    AV_FRAME_DATA_STEREO3D                   },
    {AV_PKT_DATA_SPHERICAL,                   AV_FRAME_DATA_SPHERICAL                  },
    {AV_PKT_DATA_REPLAYGAIN,                  AV_FRAME_DATA_REPLAYGAIN                 },
};

void AddSideData(AVCodecParameters& parameters, AVPacketSideDataType type, const uint8_t* data, size_t size)
{
    const AVPacketSideData* const entry =
        av_packet_side_data_new(&parameters.coded_side_data, &parameters.nb_coded_side_data, type, size, 0);
    if (!entry)
        ThrowFFmpegFailure("a stream can't be described", AVERROR(ENOMEM));
    std::memcpy(entry->data, data, size);
}

void CopySideData(AVCodecParameters& target, const AVCodecParameters& source)
{
    for (const auto& kind : lasting) {
        const auto* const entry =
            av_packet_side_data_get(source.coded_side_data, source.nb_coded_side_data, kind.packet);
        if (entry && !av_packet_side_data_get(target.coded_side_data, target.nb_coded_side_data, kind.packet))
            AddSideData(target, kind.packet, entry->data, entry->size);
    }
}

void SetExtradata(AVCodecParameters& parameters, const uint8_t* data, size_t size)
{
    av_freep(&parameters.extradata);
    parameters.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!parameters.extradata)
        ThrowFFmpegFailure("a stream can't be described", AVERROR(ENOMEM));
    parameters.extradata_size = static_cast<int>(size);
    std::memcpy(parameters.extradata, data, size);
}

/// A cover becomes the attached file that players look for.
void DescribeAttachment(AVStream& stream, const AVStream& cover)
{
    const bool isPng = cover.codecpar->codec_id == AV_CODEC_ID_PNG;
    AVCodecParameters& parameters = *stream.codecpar;
    parameters.codec_type = AVMEDIA_TYPE_ATTACHMENT;
    parameters.codec_id = cover.codecpar->codec_id;
    SetExtradata(parameters, cover.attached_pic.data,
                 static_cast<size_t>(std::max(cover.attached_pic.size, 0)));
    Proc::PutMetadata(&stream.metadata, "filename", isPng ? "cover.png" : "cover.jpg");
    Proc::PutMetadata(&stream.metadata, "mimetype", isPng ? "image/png" : "image/jpeg");
}

/// The container's own code for the codec, where it has one: an input's code may mean another codec there.
void FixTag(AVCodecParameters& parameters, const AVOutputFormat& muxer)
{
    unsigned own = 0;
    if (muxer.codec_tag && av_codec_get_id(muxer.codec_tag, parameters.codec_tag) != parameters.codec_id &&
        av_codec_get_tag2(muxer.codec_tag, parameters.codec_id, &own) != 0)
        parameters.codec_tag = 0;
}

void AddChapter(AVFormatContext& output, const AVChapter& source, int64_t start, int64_t end)
{
    auto* const chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    auto* const chapters = static_cast<AVChapter**>(
        chapter ? av_realloc_array(output.chapters, output.nb_chapters + 1, sizeof(AVChapter*)) : nullptr);
    if (!chapters) {
        av_free(chapter);
        ThrowFFmpegFailure("chapters can't be described", AVERROR(ENOMEM));
    }
    output.chapters = chapters;
    output.chapters[output.nb_chapters++] = chapter;
    chapter->id = source.id;
    chapter->time_base = AV_TIME_BASE_Q;
    chapter->start = start;
    chapter->end = end;
    CopyTags(&chapter->metadata, source.metadata);
}

}  // namespace

void CopyTags(AVDictionary** target, const AVDictionary* source)
{
    for (const AVDictionaryEntry* entry = nullptr; (entry = av_dict_iterate(source, entry));)
        if (!IsFormer(entry->key) && !IsUsualHandler(*entry))
            Proc::PutMetadata(target, entry->key, Core::CharsetEncoding::GetReadeableString(entry->value));
}

void SetLastingSideData(AVCodecContext& encoder, const AVStream& source)
{
    const AVCodecParameters& parameters = *source.codecpar;
    for (const auto& kind : lasting) {
        const auto* const entry =
            av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, kind.packet);
        if (!entry)
            continue;
        const AVFrameSideData* const copy = av_frame_side_data_new(
            &encoder.decoded_side_data, &encoder.nb_decoded_side_data, kind.frame, entry->size, 0);
        if (!copy)
            ThrowFFmpegFailure("a stream can't be described", AVERROR(ENOMEM));
        std::memcpy(copy->data, entry->data, entry->size);
    }
}

void DescribeStream(AVStream& stream, const AVStream& source, const StreamPlan& plan,
                    const AVOutputFormat& muxer)
{
    CopyTags(&stream.metadata, source.metadata);
    if (plan.treatment == StreamPlan::Treatment::Attach)
        return DescribeAttachment(stream, source);
    stream.disposition = source.disposition;
    if (plan.treatment == StreamPlan::Treatment::Copy) {
        if (avcodec_parameters_copy(stream.codecpar, source.codecpar) < 0)
            ThrowFFmpegFailure("a stream can't be described", AVERROR(ENOMEM));
        FixTag(*stream.codecpar, muxer);
        stream.time_base = source.time_base;
        stream.avg_frame_rate = source.avg_frame_rate;
        stream.r_frame_rate = source.r_frame_rate;
        // Muxers refuse two aspects. The container's is the one that players obey.
        if (source.sample_aspect_ratio.num > 0)
            stream.codecpar->sample_aspect_ratio = source.sample_aspect_ratio;
        stream.sample_aspect_ratio = stream.codecpar->sample_aspect_ratio;
        return;
    }
    CopySideData(*stream.codecpar, *source.codecpar);
    if (plan.treatment == StreamPlan::Treatment::Video) {
        stream.disposition &= ~AV_DISPOSITION_ATTACHED_PIC;  // it is a film now
        stream.avg_frame_rate = plan.frameRate;
        stream.sample_aspect_ratio = stream.codecpar->sample_aspect_ratio;
    }
}

void DescribeFile(AVFormatContext& output, const AVFormatContext& input, const Plan& plan)
{
    CopyTags(&output.metadata, input.metadata);
    PlaceTags(output, input);
    for (const AVChapter* chapter : std::span(input.chapters, input.nb_chapters)) {
        int64_t start = Proc::stream_to_global(chapter->start, chapter->time_base) - plan.origin;
        int64_t end = Proc::stream_to_global(chapter->end, chapter->time_base) - plan.origin;
        start = std::max<int64_t>(start, 0);
        if (plan.end)
            end = std::min(end, *plan.end);
        if (start < end)
            AddChapter(output, *chapter, start, end);
    }
}

}  // namespace Quorva::Tool
