#include "tools/Probe.h"
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "host/Charset.h"

#include <algorithm>
#include <bit>

namespace Quorva::Tool {

namespace {

std::optional<int64_t> Known(int64_t timestamp)
{
    return timestamp == AV_NOPTS_VALUE ? std::nullopt : std::optional(timestamp);
}

std::optional<int64_t> Micros(int64_t timestamp, AVRational timeBase)
{
    return Known(Proc::stream_to_global(timestamp, timeBase));
}

std::optional<int64_t> NotZero(int64_t number) { return number > 0 ? std::optional(number) : std::nullopt; }

Texts TextsOf(const AVDictionary* dictionary)
{
    Texts texts;
    for (const AVDictionaryEntry* entry = nullptr; (entry = av_dict_iterate(dictionary, entry));) {
        // GetMetadata() finds the first key with a given beginning: it gets this entry alone to choose from.
        AVDictionary* single = nullptr;
        const std::unique_ptr<AVDictionary*, void (*)(AVDictionary**)> owner(&single, av_dict_free);
        Proc::PutMetadata(&single, entry->key, entry->value);
        texts.emplace_back(Core::CharsetEncoding::GetReadeableString(entry->key),
                           Proc::GetMetadata(single, entry->key));
    }
    return texts;
}

std::vector<std::string> DispositionOf(int bits)
{
    std::vector<std::string> names;
    for (unsigned rest = static_cast<unsigned>(bits); rest != 0; rest &= rest - 1)
        if (const char* name = av_disposition_to_string(1 << std::countr_zero(rest)))
            names.emplace_back(name);
    return names;
}

/// Side data of the stream of at least `size` bytes; null when there is none.
const uint8_t* SideData(const AVCodecParameters& parameters, AVPacketSideDataType type, size_t size)
{
    const AVPacketSideData* found =
        av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
    return found && found->size >= size ? found->data : nullptr;
}

void DescribeRotation(const AVCodecParameters& parameters, VideoReport& video)
{
    Conf::DisplayMatrix matrix;
    const uint8_t* data = SideData(parameters, AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix.values);
    if (!data)
        return;
    std::copy_n(data, sizeof matrix.values, reinterpret_cast<uint8_t*>(matrix.values.data()));
    const auto orientation = matrix.GetOrientation();
    if (!orientation)
        return;
    switch (*orientation) {
        case Conf::ImageOrientation::MirrorHorizontal:
            video.mirrored = true;
            [[fallthrough]];
        case Conf::ImageOrientation::Normal:
            video.rotation = 0;
            break;
        case Conf::ImageOrientation::Transverse:
            video.mirrored = true;
            [[fallthrough]];
        case Conf::ImageOrientation::Rotate90:
            video.rotation = 90;
            break;
        case Conf::ImageOrientation::MirrorVertical:
            video.mirrored = true;
            [[fallthrough]];
        case Conf::ImageOrientation::Rotate180:
            video.rotation = 180;
            break;
        case Conf::ImageOrientation::Transpose:
            video.mirrored = true;
            [[fallthrough]];
        case Conf::ImageOrientation::Rotate270:
            video.rotation = 270;
            break;
    }
}

VideoReport DescribeVideo(AVFormatContext* context, AVStream* stream, bool stillImage)
{
    const AVCodecParameters& parameters = *stream->codecpar;
    VideoReport video;
    video.width = parameters.width;
    video.height = parameters.height;
    const auto format = static_cast<AVPixelFormat>(parameters.format);
    if (const auto* known = PixFmtDescription::Find(Proc::PixelFormatQuorvaFromFFMPEGSafe(format)))
        video.pixelFormat = known->GetName();
    video.pixelAspect = av_guess_sample_aspect_ratio(context, stream, nullptr);
    if (!stillImage) {  // FFmpeg gives them 25 frames per second
        video.frameRate = DeclaredRate(context, stream);
        video.averageRate = AverageRate(*context, *stream);
    }
    video.fieldOrder = FieldOrderName(parameters.field_order);
    if (parameters.color_primaries != AVCOL_PRI_UNSPECIFIED)
        video.primaries = av_color_primaries_name(parameters.color_primaries);
    if (parameters.color_trc != AVCOL_TRC_UNSPECIFIED)
        video.transfer = av_color_transfer_name(parameters.color_trc);
    if (parameters.color_space != AVCOL_SPC_UNSPECIFIED)
        video.matrix = av_color_space_name(parameters.color_space);
    if (parameters.color_range != AVCOL_RANGE_UNSPECIFIED)
        video.range = av_color_range_name(parameters.color_range);
    if (parameters.chroma_location != AVCHROMA_LOC_UNSPECIFIED)
        video.chromaLocation = av_chroma_location_name(parameters.chroma_location);
    if (const uint8_t* data = SideData(parameters, AV_PKT_DATA_FRAME_CROPPING, 16)) {
        const auto number = [data](size_t i) {
            const uint8_t* at = data + 4 * i;
            return at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
        };
        video.crop = Conf::FrameCropping{number(0), number(1), number(2), number(3)};
    }
    DescribeRotation(parameters, video);
    return video;
}

AudioReport DescribeAudio(const AVCodecParameters& parameters)
{
    AudioReport audio;
    audio.sampleRate = parameters.sample_rate;
    audio.channels = parameters.ch_layout.nb_channels;
    char layout[256];
    // FFmpeg calls a layout it doesn't know "2 channels".
    if (audio.channels > 0 && parameters.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC &&
        av_channel_layout_describe(&parameters.ch_layout, layout, sizeof layout) >= 0)
        audio.layout = layout;
    audio.format = Conf::SampleFormatRecord::Find(static_cast<Conf::SampleFormats>(parameters.format));
    audio.bits = LosslessBits(parameters);
    return audio;
}

/// A name that doesn't depend on FFmpeg having one: private streams have a type that it doesn't know.
std::string KindOf(AVMediaType type)
{
    const char* name = av_get_media_type_string(type);
    return name ? name : "other";
}

StreamReport DescribeStream(AVFormatContext* context, AVStream* stream, bool stillImage)
{
    const AVCodecParameters& parameters = *stream->codecpar;
    const std::string& implementation = Proc::ImplNames::FFMPEG;
    StreamReport report;
    report.index = stream->index;
    report.kind = KindOf(parameters.codec_type);
    // Not by CodecIDToTextID(): that the catalogue lacks a codec is no failure here.
    if (const auto found = GetFFCodecsMap().find(parameters.codec_id); found != GetFFCodecsMap().end())
        report.codecID = found->second;
    report.codecName = avcodec_get_name(parameters.codec_id);
    char tag[AV_FOURCC_MAX_STRING_SIZE];
    if (parameters.codec_tag != 0)
        report.tag = av_fourcc_make_string(tag, parameters.codec_tag);
    report.profile = avcodec_profile_name(parameters.codec_id, parameters.profile);
    report.level = DescribeLevel(parameters);
    if (const AVCodec* decoder = Proc::FindDecoder(parameters.codec_id, implementation)) {
        report.decoder = decoder->name;
        report.decoderLongName = Proc::DecoderLongNameFromCodec(parameters.codec_id, implementation);
    }
    report.timeBase = stream->time_base;
    if (!stillImage) {
        report.start = Micros(stream->start_time, stream->time_base);
        report.duration = Micros(stream->duration, stream->time_base);
    }
    report.bitRate = NotZero(parameters.bit_rate);
    report.frames = NotZero(stream->nb_frames);
    report.disposition = DispositionOf(stream->disposition);
    report.metadata = TextsOf(stream->metadata);
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO)
        report.video = DescribeVideo(context, stream,
                                     stillImage || (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0);
    else if (parameters.codec_type == AVMEDIA_TYPE_AUDIO)
        report.audio = DescribeAudio(parameters);
    DescribeSideData(parameters, report);
    return report;
}

ProgramReport DescribeProgram(const AVProgram& program)
{
    ProgramReport report;
    report.id = program.id;
    report.number = program.program_num;
    // Only transport streams have them; PID 0 is that of the list of programs itself.
    if (program.pmt_pid > 0) {
        report.pmtPid = program.pmt_pid;
        report.pcrPid = program.pcr_pid;
    }
    report.metadata = TextsOf(program.metadata);
    report.streams.assign(program.stream_index, program.stream_index + program.nb_stream_indexes);
    return report;
}

}  // namespace

const std::string* ProgramReport::GetName() const
{
    const auto found = std::ranges::find(metadata, "service_name", &Texts::value_type::first);
    return found != metadata.end() ? &found->second : nullptr;
}

std::string FileReport::StreamsText() const
{
    std::string text;
    for (const StreamReport& stream : streams)
        text.append(text.empty() ? "" : " ")
            .append(stream.codecID.empty() ? stream.codecName : stream.codecID);
    return text;
}

void DescribeFile(const OpenedInput& input, FileReport& report)
{
    report.demuxer = input->iformat->name;
    report.container = input.GetContainer();
    report.singleImage = Proc::IsSingleImageContainer(report.container, input.Get());
    if (!report.singleImage) {  // FFmpeg lets them last for one of its 25 frames per second
        report.duration = Known(input->duration);
        report.start = Known(input->start_time);
        report.bitRate = NotZero(input->bit_rate);
    }
    report.metadata = TextsOf(input->metadata);
    for (unsigned i = 0; i < input->nb_chapters; ++i) {
        const AVChapter& chapter = *input->chapters[i];
        report.chapters.push_back({Micros(chapter.start, chapter.time_base),
                                   Micros(chapter.end, chapter.time_base), TextsOf(chapter.metadata)});
    }
    if (!input.GetStreamsWarning().empty())
        report.warnings.push_back(input.GetStreamsWarning());
    DescribeNewStreams(input, report);
    for (unsigned i = 0; i < input->nb_programs; ++i)
        report.programs.push_back(DescribeProgram(*input->programs[i]));
    if (report.animationRate && !report.singleImage)
        for (StreamReport& stream : report.streams)
            if (stream.video)
                stream.video->frameRate = *report.animationRate;
    if (report.streams.empty() && report.warnings.empty())
        report.warnings.emplace_back("no streams were found");
}

void DescribeNewStreams(const OpenedInput& input, FileReport& report)
{
    while (report.streams.size() < input->nb_streams)
        report.streams.push_back(
            DescribeStream(input.Get(), input->streams[report.streams.size()], report.singleImage));
}

PacketReport DescribePacket(const OpenedInput& input, const AVPacket& packet)
{
    const AVRational timeBase = input->streams[packet.stream_index]->time_base;
    PacketReport report;
    report.stream = packet.stream_index;
    report.pts = Micros(packet.pts, timeBase);
    report.dts = Micros(packet.dts, timeBase);
    report.duration = packet.duration > 0 ? Micros(packet.duration, timeBase) : std::nullopt;
    report.size = packet.size;
    report.position = packet.pos >= 0 ? std::optional(packet.pos) : std::nullopt;
    report.key = packet.flags & AV_PKT_FLAG_KEY;
    report.corrupt = packet.flags & AV_PKT_FLAG_CORRUPT;
    report.discard = packet.flags & AV_PKT_FLAG_DISCARD;
    return report;
}

}  // namespace Quorva::Tool
