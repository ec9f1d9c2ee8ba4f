#include "tools/Convert.Containers.h"

#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "host/Filesystem.h"
#include "host/MediaDescription.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string_view>

namespace Quorva::Tool {

namespace {

constexpr int MANY = 1000;

struct ContainerRow {
    std::string_view muxer;
    Container container;
};

/// What is usual in a container.
struct CodecsRow {
    std::string_view muxer;
    bool complete;  ///< where FFmpeg doesn't know: the container holds nothing else
    std::initializer_list<AVCodecID> codecs;
};

// clang-format off
#define V(name) AV_CODEC_ID_##name
constexpr ContainerRow containerRows[] = {
    //            video          audio         videos audios subtitles covers files  rotation cropping
    {"mp4",      {V(H264),       V(AAC),       MANY,  MANY,  MANY,     true,  false, true,    false}},
    {"mov",      {V(H264),       V(AAC),       MANY,  MANY,  MANY,     false, false, true,    false}},
    {"ipod",     {V(H264),       V(AAC),       MANY,  MANY,  MANY,     true,  false, true,    false}},
    {"3gp",      {V(H264),       V(AAC),       MANY,  MANY,  MANY,     false, false, true,    false}},
    {"3g2",      {V(H264),       V(AAC),       MANY,  MANY,  MANY,     false, false, true,    false}},
    {"psp",      {V(H264),       V(AAC),       1,     1,     0,        false, false, true,    false}},
    {"matroska", {V(H264),       V(AAC),       MANY,  MANY,  MANY,     false, true,  true,    true }},
    {"webm",     {V(VP9),        V(OPUS),      MANY,  MANY,  MANY,     false, false, true,    true }},
    {"avi",      {V(MPEG4),      V(MP3),       MANY,  MANY,  0,        false, false, false,   false}},
    {"mpegts",   {V(H264),       V(AAC),       MANY,  MANY,  MANY,     false, false, false,   false}},
    {"mpeg",     {V(MPEG1VIDEO), V(MP2),       MANY,  MANY,  MANY,     false, false, false,   false}},
    {"vcd",      {V(MPEG1VIDEO), V(MP2),       1,     1,     0,        false, false, false,   false}},
    {"svcd",     {V(MPEG2VIDEO), V(MP2),       1,     1,     0,        false, false, false,   false}},
    {"vob",      {V(MPEG2VIDEO), V(MP2),       MANY,  MANY,  MANY,     false, false, false,   false}},
    {"dvd",      {V(MPEG2VIDEO), V(MP2),       MANY,  MANY,  MANY,     false, false, false,   false}},
    {"ogg",      {V(THEORA),     V(VORBIS),    MANY,  MANY,  0,        false, false, false,   false}},
    {"ogv",      {V(THEORA),     V(VORBIS),    MANY,  MANY,  0,        false, false, false,   false}},
    {"flv",      {V(H264),       V(AAC),       1,     1,     0,        false, false, false,   false}},
    {"swf",      {V(FLV1),       V(MP3),       1,     1,     0,        false, false, false,   false}},
    {"asf",      {V(WMV2),       V(WMAV2),     MANY,  MANY,  0,        false, false, false,   false}},
    {"mxf",      {V(MPEG2VIDEO), V(PCM_S16LE), 1,     MANY,  0,        false, false, false,   false}},
    {"dv",       {V(DVVIDEO),    V(PCM_S16LE), 1,     1,     0,        false, false, false,   false}},
    {"mp3",      {V(NONE),       V(MP3),       0,     1,     0,        true,  false, false,   false}},
    {"flac",     {V(NONE),       V(FLAC),      0,     1,     0,        true,  false, false,   false}},
    {"aiff",     {V(NONE),       V(PCM_S16BE), 0,     1,     0,        false, false, false,   false}},
    {"gif",      {V(GIF),        V(NONE),      1,     0,     0,        false, false, false,   false}},
    {"apng",     {V(APNG),       V(NONE),      1,     0,     0,        false, false, false,   false}},
    {"avif",     {V(AV1),        V(NONE),      1,     0,     0,        false, false, false,   false}},
};

const CodecsRow codecsRows[] = {
    {"mp4",      false, {V(H264), V(HEVC), V(AV1), V(VP9), V(MPEG4), V(AAC), V(AC3), V(EAC3), V(MP3), V(OPUS), V(FLAC), V(ALAC), V(MOV_TEXT)}},
    {"mov",      false, {V(H264), V(HEVC), V(PRORES), V(MPEG4), V(MJPEG), V(DNXHD), V(AAC), V(AC3), V(ALAC), V(PCM_S16LE), V(PCM_S24LE), V(MOV_TEXT)}},
    {"ipod",     false, {V(H264), V(MPEG4), V(AAC), V(ALAC), V(MOV_TEXT)}},
    {"3gp",      false, {V(H263), V(H264), V(MPEG4), V(AAC), V(AMR_NB), V(AMR_WB), V(MOV_TEXT)}},
    {"3g2",      false, {V(H263), V(H264), V(MPEG4), V(AAC), V(AMR_NB), V(AMR_WB), V(MOV_TEXT)}},
    {"matroska", false, {V(H264), V(HEVC), V(AV1), V(VP8), V(VP9), V(MPEG1VIDEO), V(MPEG2VIDEO), V(MPEG4), V(THEORA), V(FFV1), V(MJPEG), V(AAC), V(AC3), V(EAC3), V(MP2), V(MP3), V(DTS), V(TRUEHD), V(FLAC), V(ALAC), V(OPUS), V(VORBIS), V(PCM_S16LE), V(PCM_S24LE)}},
    {"webm",     false, {V(VP8), V(VP9), V(AV1), V(OPUS), V(VORBIS)}},
    {"avi",      false, {V(MPEG4), V(MJPEG), V(MSMPEG4V2), V(MSMPEG4V3), V(MP3), V(AC3), V(PCM_S16LE), V(PCM_U8)}},
    {"mpegts",   true,  {V(H264), V(HEVC), V(MPEG1VIDEO), V(MPEG2VIDEO), V(MPEG4), V(AAC), V(AC3), V(EAC3), V(DTS), V(MP2), V(MP3), V(OPUS), V(DVB_SUBTITLE), V(DVB_TELETEXT), V(HDMV_PGS_SUBTITLE)}},
    {"mpeg",     true,  {V(MPEG1VIDEO), V(MPEG2VIDEO), V(MP2), V(MP3), V(AC3), V(DTS), V(DVD_SUBTITLE)}},
    {"vcd",      true,  {V(MPEG1VIDEO), V(MP2)}},
    {"svcd",     true,  {V(MPEG2VIDEO), V(MP2)}},
    {"vob",      true,  {V(MPEG1VIDEO), V(MPEG2VIDEO), V(MP2), V(MP3), V(AC3), V(DTS), V(DVD_SUBTITLE)}},
    {"dvd",      true,  {V(MPEG2VIDEO), V(MP2), V(AC3), V(DTS), V(DVD_SUBTITLE)}},
    {"ogg",      true,  {V(THEORA), V(VP8), V(VORBIS), V(OPUS), V(FLAC), V(SPEEX)}},
    {"ogv",      true,  {V(THEORA), V(VP8), V(VORBIS), V(OPUS), V(FLAC), V(SPEEX)}},
    {"opus",     true,  {V(OPUS)}},
    {"flv",      false, {V(H264), V(FLV1), V(AAC), V(MP3)}},
    {"swf",      true,  {V(FLV1), V(MJPEG), V(MP3)}},
    {"asf",      false, {V(WMV1), V(WMV2), V(MSMPEG4V3), V(WMAV1), V(WMAV2)}},
    {"mxf",      true,  {V(MPEG2VIDEO), V(PCM_S16LE), V(PCM_S24LE)}},
    {"dv",       true,  {V(DVVIDEO), V(PCM_S16LE)}},
    {"wav",      false, {V(PCM_S16LE), V(PCM_S24LE), V(PCM_S32LE), V(PCM_F32LE), V(PCM_F64LE), V(PCM_U8)}},
    {"aiff",     false, {V(PCM_S16BE), V(PCM_S24BE), V(PCM_S32BE)}},
    {"caf",      false, {V(ALAC), V(OPUS), V(PCM_S16BE), V(PCM_S24BE)}},
    {"au",       false, {V(PCM_S16BE), V(PCM_MULAW), V(PCM_ALAW)}},
    {"mp3",      true,  {V(MP3), V(PNG), V(MJPEG)}},
    {"srt",      true,  {V(SUBRIP)}},
    {"ass",      true,  {V(ASS)}},
    {"webvtt",   true,  {V(WEBVTT)}},
    {"flac",     true,  {V(FLAC), V(PNG), V(MJPEG)}},
};
#undef V
// clang-format on

const CodecsRow* FindCodecs(const AVOutputFormat& muxer)
{
    const auto* const row = std::ranges::find(codecsRows, muxer.name, &CodecsRow::muxer);
    return row == std::end(codecsRows) ? nullptr : row;
}

bool Contains(const CodecsRow& row, AVCodecID codec)
{
    return std::ranges::find(row.codecs, codec) != row.codecs.end();
}

/// Formats that share a muxer with films but are for sound.
bool IsForSound(const std::string& format, const std::string& extension)
{
    using F = Conf::IFormatFile;
    return format == F::FORMAT_WMA || format == F::FORMAT_M4A || format == F::FORMAT_M4B ||
           format == F::FORMAT_F4A || format == F::FORMAT_M4R || format == F::FORMAT_MKA ||
           format == F::FORMAT_OPUS || extension == "oga" || extension == "spx";
}

AVCodecID PictureCodec(const AVOutputFormat& muxer, const std::string& name)
{
    return av_guess_codec(&muxer, nullptr, name.c_str(), nullptr, AVMEDIA_TYPE_VIDEO);
}

}  // namespace

Container ContainerOf(const std::string& format, const AVOutputFormat& muxer, const std::string& path)
{
    Container container;
    const auto* const row = std::ranges::find(containerRows, muxer.name, &ContainerRow::muxer);
    if (row != std::end(containerRows)) {
        container = row->container;
    } else {
        container.video = muxer.video_codec;
        container.audio = muxer.audio_codec;
        container.videos = muxer.video_codec == AV_CODEC_ID_NONE ? 0 : 1;
        container.audios = muxer.audio_codec == AV_CODEC_ID_NONE ? 0 : 1;
        container.subtitles = muxer.subtitle_codec == AV_CODEC_ID_NONE ? 0 : 1;
    }
    const std::string extension = ioPath(path).GetExtension();
    const std::string_view name = muxer.name;
    if (IsForSound(format, extension)) {
        container.videos = 0;
        container.video = AV_CODEC_ID_NONE;
        if (name == "matroska" || extension == "oga")
            container.audio = AV_CODEC_ID_FLAC;
    }
    if (extension == "mp2")  // MP3's muxer writes the other layers too
        container.audio = AV_CODEC_ID_MP2;
    if (name == "image2") {
        const AVCodecID byFormat = PictureCodec(muxer, "x." + format);
        container.video = byFormat == AV_CODEC_ID_NONE || FormatForPath(path) == format
                              ? PictureCodec(muxer, path)
                              : byFormat;
    }
    return container;
}

bool Holds(const AVOutputFormat& muxer, AVCodecID codec)
{
    const int known = avformat_query_codec(&muxer, codec, FF_COMPLIANCE_NORMAL);
    if (known >= 0)
        return known > 0;
    const CodecsRow* const row = FindCodecs(muxer);
    return !row || !row->complete || Contains(*row, codec);
}

bool IsUsual(const AVOutputFormat& muxer, AVCodecID codec)
{
    if (const CodecsRow* const row = FindCodecs(muxer))
        return Contains(*row, codec);
    return codec == muxer.video_codec || codec == muxer.audio_codec || codec == muxer.subtitle_codec;
}

bool StoresGaps(const AVOutputFormat& muxer)
{
    constexpr std::string_view names[] = {"matroska", "webm", "mpegts", "nut"};
    return std::ranges::find(names, std::string_view(muxer.name)) != std::end(names);
}

std::vector<int> SampleRatesOf(const AVOutputFormat& muxer, AVCodecID codec)
{
    const std::string_view name = muxer.name;
    if (name == "mxf" || name == "dv")
        return {48000};
    if (name == "vcd" || name == "svcd")
        return {44100};
    if (name == "swf" || (name == "flv" && codec == AV_CODEC_ID_MP3))
        return {44100, 22050, 11025};
    return {};
}

const AVOutputFormat* FindMuxer(const std::string& format)
{
    const auto& writable = Proc::GetFFMPEGSupportedOutputFormats();
    const auto found = writable.find(format);
    return found != writable.end() ? found->second
           : format == "webvtt"    ? av_guess_format("webvtt", nullptr, nullptr)
                                   : nullptr;
}

std::string FormatForPath(const std::string& path)
{
    const std::string extension = ioPath(path).GetExtension();
    for (const std::string& format : Conf::GetFormatsByExtension(extension))
        if (FindMuxer(format))
            return format;
    return FindMuxer(extension) ? extension : std::string();
}

}  // namespace Quorva::Tool
