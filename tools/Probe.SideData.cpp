// Side data: what containers tell of a stream beside its parameters.
#include "tools/Probe.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"

// Structures in side data, which nothing else in this project reads.
extern "C" {
#include <libavutil/dovi_meta.h>
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/replaygain.h>
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

#include <boost/locale/encoding_utf.hpp>

#include <algorithm>
#include <cstring>
#include <span>

namespace Quorva::Tool {

namespace {

using Bytes = std::span<const uint8_t>;

/// FFmpeg's structure in side data; nothing when there are fewer bytes than that.
template <class T>
std::optional<T> StructureIn(Bytes bytes)
{
    T structure;
    if (bytes.size() < sizeof structure)
        return std::nullopt;
    std::memcpy(&structure, bytes.data(), sizeof structure);
    return structure;
}

double ToDouble(AVRational value) { return value.den != 0 ? av_q2d(value) : 0; }

Chromaticity ToChromaticity(const AVRational (&point)[2]) { return {ToDouble(point[0]), ToDouble(point[1])}; }

void ReadMastering(Bytes bytes, StreamReport& report)
{
    const auto data = StructureIn<AVMasteringDisplayMetadata>(bytes);
    if (!data || !report.video)
        return;
    MasteringDisplay& mastering = report.video->mastering.emplace();
    if (data->has_primaries)
        mastering.primaries = {ToChromaticity(data->display_primaries[0]),
                               ToChromaticity(data->display_primaries[1]),
                               ToChromaticity(data->display_primaries[2]), ToChromaticity(data->white_point)};
    if (data->has_luminance)
        mastering.luminance = {ToDouble(data->min_luminance), ToDouble(data->max_luminance)};
}

void ReadContentLight(Bytes bytes, StreamReport& report)
{
    if (const auto data = StructureIn<AVContentLightMetadata>(bytes); data && report.video)
        report.video->light = {data->MaxCLL, data->MaxFALL};
}

void ReadDolbyVision(Bytes bytes, StreamReport& report)
{
    const auto data = StructureIn<AVDOVIDecoderConfigurationRecord>(bytes);
    if (!data || !report.video)
        return;
    report.video->dolbyVision = {.profile = data->dv_profile,
                                 .level = data->dv_level,
                                 .compatibilityID = data->dv_bl_signal_compatibility_id,
                                 .baseLayer = data->bl_present_flag != 0,
                                 .enhancementLayer = data->el_present_flag != 0,
                                 .metadata = data->rpu_present_flag != 0};
}

void ReadStereo(Bytes bytes, StreamReport& report)
{
    if (const auto data = StructureIn<AVStereo3D>(bytes); data && report.video)
        report.video->stereo3D = {av_stereo3d_type_name(data->type), av_stereo3d_view_name(data->view),
                                  (data->flags & AV_STEREO3D_FLAG_INVERT) != 0};
}

void ReadSpherical(Bytes bytes, StreamReport& report)
{
    const auto degrees = [](int32_t fixed) { return fixed / 65536.0; };
    if (const auto data = StructureIn<AVSphericalMapping>(bytes); data && report.video)
        report.video->spherical = {av_spherical_projection_name(data->projection), degrees(data->yaw),
                                   degrees(data->pitch), degrees(data->roll)};
}

/// A big-endian number of an ICC profile; 0 outside of it.
uint32_t IccNumber(Bytes profile, size_t at)
{
    if (at > profile.size() || profile.size() - at < 4)
        return 0;
    return uint32_t{profile[at]} << 24 | uint32_t{profile[at + 1]} << 16 | uint32_t{profile[at + 2]} << 8 |
           profile[at + 3];
}

/// The part of a profile; cut where the profile ends.
Bytes Part(Bytes profile, size_t at, size_t size)
{
    return at < profile.size() ? profile.subspan(at, std::min(size, profile.size() - at)) : Bytes();
}

/// The text of a description: ASCII in version 2 of the format, UTF-16 of the first language in version 4.
std::string IccText(Bytes tag)
{
    std::string text;
    if (IccNumber(tag, 0) == MKBETAG('d', 'e', 's', 'c')) {
        const Bytes ascii = Part(tag, 12, IccNumber(tag, 8));
        text.assign(ascii.begin(), ascii.end());
    } else if (IccNumber(tag, 0) == MKBETAG('m', 'l', 'u', 'c') && IccNumber(tag, 8) > 0) {
        std::u16string wide;
        const Bytes units = Part(tag, IccNumber(tag, 24), IccNumber(tag, 20));
        for (size_t i = 0; i + 1 < units.size(); i += 2)
            wide += static_cast<char16_t>(units[i] << 8 | units[i + 1]);
        text = boost::locale::conv::utf_to_utf<char>(wide);
    }
    return text.substr(0, text.find('\0'));
}

void ReadIccProfile(Bytes bytes, StreamReport& report)
{
    if (!report.video)
        return;
    IccProfile& icc = report.video->icc.emplace();
    icc.size = bytes.size();
    static constexpr size_t HEADER = 128, ROW = 12;
    const size_t tags = std::min<size_t>(IccNumber(bytes, HEADER), bytes.size() / ROW);
    for (size_t at = HEADER + 4; at < HEADER + 4 + tags * ROW; at += ROW)
        if (IccNumber(bytes, at) == MKBETAG('d', 'e', 's', 'c'))
            icc.description = IccText(Part(bytes, IccNumber(bytes, at + 4), IccNumber(bytes, at + 8)));
}

void ReadReplayGain(Bytes bytes, StreamReport& report)
{
    const auto data = StructureIn<AVReplayGain>(bytes);
    if (!data || !report.audio)
        return;
    static constexpr double SCALE = 100'000;
    const auto gain = [](int32_t value) {
        return value != INT32_MIN ? std::optional(value / SCALE) : std::nullopt;
    };
    const auto peak = [](uint32_t value) { return value != 0 ? std::optional(value / SCALE) : std::nullopt; };
    report.audio->replayGain = {gain(data->track_gain), peak(data->track_peak), gain(data->album_gain),
                                peak(data->album_peak)};
}

constexpr struct {
    AVPacketSideDataType type;
    void (*read)(Bytes bytes, StreamReport& report);
} CONTAINER_ROWS[] = {
    {AV_PKT_DATA_MASTERING_DISPLAY_METADATA, ReadMastering   },
    {AV_PKT_DATA_CONTENT_LIGHT_LEVEL,        ReadContentLight},
    {AV_PKT_DATA_DOVI_CONF,                  ReadDolbyVision },
    {AV_PKT_DATA_STEREO3D,                   ReadStereo      },
    {AV_PKT_DATA_SPHERICAL,                  ReadSpherical   },
    {AV_PKT_DATA_ICC_PROFILE,                ReadIccProfile  },
    {AV_PKT_DATA_REPLAYGAIN,                 ReadReplayGain  },
};

constexpr struct {
    AVFrameSideDataType type;
    void (*read)(Bytes bytes, StreamReport& report);
} HEADER_ROWS[] = {
    {AV_FRAME_DATA_MASTERING_DISPLAY_METADATA, ReadMastering   },
    {AV_FRAME_DATA_CONTENT_LIGHT_LEVEL,        ReadContentLight},
};

/// HEVC's headers may have them where the container doesn't. A decoder reads headers when it is opened, in a
/// tenth of a millisecond and without decoding anything; FFmpeg doesn't pass on what it found before.
void ReadHeaders(const AVCodecParameters& parameters, StreamReport& report)
{
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec)
        return;
    const Proc::SafeCodecContext context(codec);
    context->thread_count = 1;
    if (avcodec_parameters_to_context(context, &parameters) < 0 || avcodec_open2(context, codec, nullptr) < 0)
        return;
    for (const auto& row : HEADER_ROWS)
        if (const AVFrameSideData* data =
                av_frame_side_data_get(context->decoded_side_data, context->nb_decoded_side_data, row.type))
            row.read({data->data, data->size}, report);
}

}  // namespace

void DescribeSideData(const AVCodecParameters& parameters, StreamReport& report)
{
    if (parameters.codec_id == AV_CODEC_ID_HEVC && parameters.extradata_size > 0)
        ReadHeaders(parameters, report);
    for (const auto& row : CONTAINER_ROWS)  // the container's word is the later one
        if (const AVPacketSideData* data =
                av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, row.type))
            row.read({data->data, data->size}, report);
}

}  // namespace Quorva::Tool
