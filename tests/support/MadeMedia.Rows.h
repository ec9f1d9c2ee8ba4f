// The media files that can be made. Left out: playlists (their segments are files of their own), raw samples
// and pictures without a header (nothing in the bytes says what they are).
#pragma once

#include "host/MediaDescription.h"
#include "tests/support/MadeMedia.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace Quorva::Media {

using F = Conf::IFormatFile;

// Encoders with what keeps them quick, quiet and on one thread.
inline constexpr const char* x264 = "libx264 preset=ultrafast";
inline constexpr const char* x265 =
    "libx265 preset=ultrafast:x265-params='log-level=none:pools=none:frame-threads=1'";
inline constexpr const char* x265mp4 =
    "libx265 tag=hvc1:preset=ultrafast:x265-params='log-level=none:pools=none:frame-threads=1'";
inline constexpr const char* x265hdr =
    "libx265 pix_fmt='yuv420p10le:color_spaces=bt2020nc':color_primaries=bt2020:color_trc=smpte2084:"
    "preset=ultrafast:frames=5:x265-params='log-level=none:pools=none:frame-threads=1'";
inline constexpr const char* vp8 = "libvpx deadline=realtime:cpu-used=8";
inline constexpr const char* vp9 = "libvpx-vp9 deadline=realtime:cpu-used=8";
inline constexpr const char* aom = "libaom-av1 frames=5:usage=realtime:cpu-used=8";
inline constexpr const char* aomStill = "libaom-av1 frames=1:still-picture=1:usage=realtime:cpu-used=8";
inline constexpr const char* svt = "libsvtav1 frames=5:preset=12:svtav1-params='lp=1'";
inline constexpr const char* mjpeg = "mjpeg pix_fmt=yuvj420p:frames=10";

/// A file of one image.
constexpr MediaRow Still(const char* file, const char* video, FormatName format, FormatName bare = {},
                         FormatName container = {})
{
    return {file, "image2", video, nullptr, nullptr, "update=1", format, bare, container, true};
}

constexpr MediaRow Audio(const char* file, const char* muxer, const char* audio, FormatName format,
                         FormatName bare = {}, FormatName container = {})
{
    return {file, muxer, nullptr, audio, nullptr, nullptr, format, bare, container};
}

/// Pictures alone.
constexpr MediaRow Video(const char* file, const char* muxer, const char* video, FormatName format,
                         FormatName bare = {}, FormatName container = {})
{
    return {file, muxer, video, nullptr, nullptr, nullptr, format, bare, container};
}

constexpr MediaRow Both(const char* file, const char* muxer, const char* video, const char* audio,
                        FormatName format, FormatName bare = {}, FormatName container = {})
{
    return {file, muxer, video, audio, nullptr, nullptr, format, bare, container};
}

constexpr MediaRow Captions(const char* file, const char* muxer, const char* subtitle, FormatName format)
{
    return {file, muxer, nullptr, nullptr, subtitle, nullptr, format, {}, {}};
}

// clang-format off
inline constexpr MediaRow mediaRows[] = {
    // ISO base media
    {"h264-aac.mp4", "mp4", x264, "aac", nullptr, "movflags=+faststart", F::FORMAT_MP4, {}, {}},
    {"fragmented.mp4", "mp4", x264, "aac", nullptr, "movflags=frag_keyframe+empty_moov", F::FORMAT_MP4, {}, {}},
    {"mpeg4-mp3-text.mp4", "mp4", "mpeg4", "libmp3lame", "mov_text", nullptr, F::FORMAT_MP4, {}, {}},
    Both("hevc-ac3.mp4", "mp4", x265mp4, "ac3", F::FORMAT_MP4),
    Both("av1-opus.mp4", "mp4", aom, "libopus", F::FORMAT_MP4),
    Both("vp9-aac.mp4", "mp4", vp9, "aac", F::FORMAT_MP4),
    Both("h264-flac.mp4", "mp4", x264, "flac", F::FORMAT_MP4),  // beside VP9 or MJPEG the muxer leaks 64 bytes
    Both("h264-aac.mov", "mov", x264, "aac", F::FORMAT_MOV),
    Both("prores-pcm.mov", "mov", "prores_ks frames=5", "pcm_s16le", F::FORMAT_MOV),
    Both("dnxhr-pcm24.mov", "mov", "dnxhd profile=dnxhr_sq:size=256x128:frames=5:pix_fmt=yuv422p", "pcm_s24le", F::FORMAT_MOV),
    Both("qtrle-alac.mov", "mov", "qtrle frames=10", "alac", F::FORMAT_MOV),
    Both("png-ima.mov", "mov", "png frames=10", "adpcm_ima_qt", F::FORMAT_MOV),
    Video("v210.mov", "mov", "v210 frames=3", F::FORMAT_MOV),
    Audio("aac.m4a", "ipod", "aac", F::FORMAT_M4A),
    Audio("alac.m4a", "ipod", "alac", F::FORMAT_M4A),
    Audio("aac.m4b", "ipod", "aac", F::FORMAT_M4A),
    Video("h264.m4v", "ipod", x264, F::FORMAT_M4V),
    Both("h263-aac.3gp", "3gp", "h263", "aac", F::FORMAT_3GP),
    Both("h263-amr.3gp", "3gp", "h263", "libopencore_amrnb rate=8000:layout=mono", F::FORMAT_3GP),
    Both("mpeg4-aac.3g2", "3g2", "mpeg4", "aac", F::FORMAT_3G2),
    Both("psp.mp4", "psp", "libx264 preset=ultrafast:size=320x240:frames=5", "aac rate=48000", F::FORMAT_PSP),
    Both("h264-aac.f4v", "f4v", x264, "aac", F::FORMAT_MP4),
    Both("h264-aac.ismv", "ismv", x264, "aac", F::FORMAT_MP4),
    Video("still.avif", "avif", aomStill, F::FORMAT_AVIF),
    Video("animated.avif", "avif", aom, F::FORMAT_AVIF),

    // Matroska and WebM
    {"h264-flac-srt.mkv", "matroska", x264, "flac", "srt", nullptr, F::FORMAT_MATROSKA, {}, {}},
    {"hevc-opus-ass.mkv", "matroska", x265, "libopus", "ass", nullptr, F::FORMAT_MATROSKA, {}, {}},
    {"mpeg2-ac3-dvdsub.mkv", "matroska", "mpeg2video", "ac3", "dvdsub", nullptr, F::FORMAT_MATROSKA, {}, {}},
    Video("hdr10.mkv", "matroska", x265hdr, F::FORMAT_MATROSKA),
    Both("ffv1-pcm.mkv", "matroska", "ffv1 level=3", "pcm_s16le", F::FORMAT_MATROSKA),
    Both("theora-vorbis.mkv", "matroska", "libtheora", "libvorbis", F::FORMAT_MATROSKA),
    Both("utvideo-truehd.mkv", "matroska", "utvideo frames=5", "truehd rate=48000", F::FORMAT_MATROSKA),
    Both("fractal-vp9-dts.mkv", "matroska", "libvpx-vp9 deadline=realtime:cpu-used=8:source=mandelbrot:frames=10", "dca rate=48000", F::FORMAT_MATROSKA),
    Audio("flac.mka", "matroska", "flac", F::FORMAT_MATROSKA),
    Captions("ass.mks", "matroska", "ass", F::FORMAT_MATROSKA),
    Both("vp8-vorbis.webm", "webm", vp8, "libvorbis", F::FORMAT_WEBM),
    Both("vp9-opus.webm", "webm", vp9, "libopus", F::FORMAT_WEBM),
    {"av1-opus-webvtt.webm", "webm", svt, "libopus", "webvtt", nullptr, F::FORMAT_WEBM, {}, {}},

    // AVI, Flash, Windows Media, Real
    Both("mpeg4-mp3.avi", "avi", "mpeg4 tag=XVID", "libmp3lame", F::FORMAT_AVI),
    Both("mjpeg-pcm.avi", "avi", mjpeg, "pcm_s16le", F::FORMAT_AVI),
    Both("msmpeg4v2-ac3.avi", "avi", "msmpeg4v2", "ac3", F::FORMAT_AVI),
    Both("huffyuv-adpcm.avi", "avi", "huffyuv frames=5", "adpcm_ms", F::FORMAT_AVI),
    Video("cinepak.avi", "avi", "cinepak frames=3:max_strips=1", F::FORMAT_AVI),
    Video("raw-bgr24.avi", "avi", "rawvideo pix_fmt=bgr24:frames=3", F::FORMAT_AVI),
    Both("flv1-mp3.flv", "flv", "flv", "libmp3lame rate=22050", F::FORMAT_FLV),
    Both("h264-aac.flv", "flv", x264, "aac", F::FORMAT_FLV),
    Both("flv1-mp3.swf", "swf", "flv", "libmp3lame rate=22050", F::FORMAT_SWF),
    Both("wmv2-wmav2.wmv", "asf", "wmv2", "wmav2", F::FORMAT_ASF),
    Audio("wmav1.wma", "asf", "wmav1", F::FORMAT_ASF),
    Both("mpeg2-mp2.wtv", "wtv", "mpeg2video", "mp2", F::FORMAT_WTV),
    Both("rv10-ac3.rm", "rm", "rv10 size=176x144", "ac3", "rm"),

    // MPEG streams
    Both("h264-aac.ts", "mpegts", x264, "aac", F::FORMAT_MPEGTS),
    Both("hevc-ac3.ts", "mpegts", x265, "ac3", F::FORMAT_MPEGTS),
    {"mpeg2-mp2-dvbsub.ts", "mpegts", "mpeg2video", "mp2", "dvbsub", nullptr, F::FORMAT_MPEGTS, {}, {}},
    {"h264-ac3.m2ts", "mpegts", x264, "ac3", nullptr, "mpegts_m2ts_mode=1", F::FORMAT_MPEGTS, {}, {}},
    Both("mpeg1-mp2.mpg", "mpeg", "mpeg1video", "mp2", F::FORMAT_MPEG),
    Both("mpeg2-ac3.vob", "vob", "mpeg2video", "ac3", F::FORMAT_MPEG),
    Both("mpeg2-mp2.mpeg", "svcd", "mpeg2video", "mp2", F::FORMAT_MPEG),

    // broadcast and others
    Both("mpeg2-pcm.mxf", "mxf", "mpeg2video size=720x576:frames=5:qmin=10", "pcm_s16le rate=48000", F::FORMAT_MXF),
    Both("mpeg2-pcm.gxf", "gxf", "mpeg2video size=720x576:frames=5:qmin=10", "pcm_s16le rate=48000:layout=mono", "gxf"),
    Both("pal.dv", "dv", "dvvideo size=720x576:frames=5:pix_fmt=yuv420p", "pcm_s16le rate=48000:seconds=0.2", F::FORMAT_DV),
    Both("ffv1-flac.nut", "nut", "ffv1", "flac", "nut"),
    Both("raw-pcm.nut", "nut", "rawvideo pix_fmt=yuv420p:frames=3", "pcm_f32le", "nut"),
    Both("theora-vorbis.ogv", "ogg", "libtheora", "libvorbis", F::FORMAT_OGG),
    Audio("vorbis.ogg", "ogg", "libvorbis", F::FORMAT_OGG),
    Audio("flac.oga", "ogg", "flac", F::FORMAT_OGG),
    Audio("opus.opus", "opus", "libopus", F::FORMAT_OGG),
    Audio("speex.spx", "spx", "libspeex rate=16000", F::FORMAT_OGG),
    Both("roqvideo-dpcm.roq", "roq", "roqvideo size=128x128:rate=30:frames=5", "roq_dpcm rate=22050", "roq"),
    {"mjpeg-pcm.mjpg", "smjpeg", mjpeg, "pcm_s16le", nullptr, nullptr, "smjpeg", {}, {}, false, Reading::ToAnError},

    // elementary streams of pictures
    Video("vp8.ivf", "ivf", vp8, "ivf"),
    Video("av1.ivf", "ivf", aom, "ivf"),
    Video("av1.obu", "obu", aom, "obu"),
    Video("avc.h264", "h264", x264, F::FORMAT_H264),
    Video("hevc.h265", "hevc", x265, F::FORMAT_H265),
    Video("mpeg1.m1v", "mpeg1video", "mpeg1video", F::FORMAT_MPEG1VIDEO),
    Video("mpeg2.m2v", "mpeg2video", "mpeg2video", F::FORMAT_MPEG1VIDEO),
    Video("mpeg4.m4v", "m4v", "mpeg4", F::FORMAT_MPEG4VIDEO),
    Video("h261.h261", "h261", "h261 size=176x144", F::FORMAT_H261),
    Video("h263.h263", "h263", "h263 size=176x144", F::FORMAT_H263),
    Video("vc2.drc", "dirac", "vc2 frames=3", "dirac"),
    Video("dnxhr.dnxhd", "dnxhd", "dnxhd profile=dnxhr_sq:size=256x128:frames=5:pix_fmt=yuv422p", "dnxhd"),
    Video("mjpeg.mjpeg", "mjpeg", mjpeg, F::FORMAT_MJPEG),
    {"mjpeg.mpjpeg", "mpjpeg", mjpeg, nullptr, nullptr, nullptr, F::FORMAT_MPJPEG, {}, {}, false, Reading::ToAnError},
    Video("raw.y4m", "yuv4mpegpipe", "rawvideo pix_fmt=yuv420p:frames=3", "yuv4mpegpipe"),

    // images that can move
    Video("animated.gif", "gif", "gif frames=5", F::FORMAT_GIF),
    {"single.gif", "gif", "gif frames=1", nullptr, nullptr, nullptr, F::FORMAT_GIF, {}, {}, true},
    Video("animated.apng", "apng", "apng frames=5", F::FORMAT_APNG),
    Video("animated.png", "apng", "apng frames=5", F::FORMAT_APNG),
    {"animated.webp", "webp", "libwebp_anim frames=5", nullptr, nullptr, nullptr, F::FORMAT_AWEBP, {}, {}, false, Reading::NotAtAll},

    // one image
    Still("rgb24.png", "png frames=1:pix_fmt=rgb24", F::FORMAT_PNG),
    Still("gray16.png", "png frames=1:pix_fmt=gray16be", F::FORMAT_PNG),
    Still("baseline.jpg", "mjpeg frames=1:pix_fmt=yuvj420p", F::FORMAT_JPEG),
    Still("lossless.jls", "jpegls frames=1:pix_fmt=rgb24", F::FORMAT_JPEGLS),
    Still("boxed.jp2", "jpeg2000 frames=1", F::FORMAT_JPEG2000),
    Still("codestream.j2k", "jpeg2000 frames=1:format=j2k", F::FORMAT_JPEG2000),
    Still("codestream.jxl", "libjxl frames=1:effort=1", F::FORMAT_JPEGXL),
    Still("lossy.webp", "libwebp frames=1", F::FORMAT_WEBP),
    Still("lossless.webp", "libwebp frames=1:lossless=1:pix_fmt=bgra", F::FORMAT_WEBP),
    Still("bgr24.bmp", "bmp frames=1", F::FORMAT_BMP),
    Still("rgb24.tiff", "tiff frames=1:pix_fmt=rgb24", F::FORMAT_TIFF),
    Still("rle.tga", "targa frames=1", F::FORMAT_IMAGE2, "", F::FORMAT_TARGA),
    Still("film.dpx", "dpx frames=1", F::FORMAT_DPX),
    Still("float.exr", "exr frames=1", F::FORMAT_EXR),
    Still("float.hdr", "hdr frames=1", F::FORMAT_RADIANCE_HDR),
    Still("rgb24.pcx", "pcx frames=1", F::FORMAT_PCX),
    Still("rgb24.ppm", "ppm frames=1", F::FORMAT_PPM),
    Still("gray.pgm", "pgm frames=1", F::FORMAT_PGM),
    Still("mono.pbm", "pbm frames=1", F::FORMAT_PBM),
    Still("rgb24.pam", "pam frames=1:pix_fmt=rgb24", F::FORMAT_IMAGE2, "", F::FORMAT_PAM),
    Still("float.pfm", "pfm frames=1", F::FORMAT_PFM),
    Still("half.phm", "phm frames=1", F::FORMAT_PHM),
    Still("yuv.pgmyuv", "pgmyuv frames=1", F::FORMAT_PGMYUV, F::FORMAT_PGM),
    Still("rgb24.qoi", "qoi frames=1", F::FORMAT_QOI),
    Still("rle.sgi", "sgi frames=1", F::FORMAT_SGI),
    Still("rle.ras", "sunrast frames=1", F::FORMAT_SUNRAST),
    Still("mono.xbm", "xbm frames=1", F::FORMAT_XBM),
    Still("dump.xwd", "xwd frames=1", F::FORMAT_XWD),
    Still("dxt.vbn", "vbn frames=1:pix_fmt=rgba", F::FORMAT_VBN),
    Still("mono.wbmp", "wbmp frames=1", F::FORMAT_IMAGE2, "", F::FORMAT_WBMP),
    Still("alias.pix", "alias_pix frames=1", F::FORMAT_PIX),
    Still("face.xface", "xface frames=1:size=48x48", F::FORMAT_IMAGE2, "", F::FORMAT_XFACE),
    {"icon.ico", "ico", "bmp frames=1:size=32x32:pix_fmt=bgra", nullptr, nullptr, nullptr, F::FORMAT_ICO, {}, {}, true},
    Video("sky.fits", "fits", "fits frames=1:pix_fmt=gray", "fits"),

    // sound
    Audio("s16.wav", "wav", "pcm_s16le", F::FORMAT_WAV),
    Audio("f64.wav", "wav", "pcm_f64le", F::FORMAT_WAV),
    Audio("mulaw.wav", "wav", "pcm_mulaw rate=8000", F::FORMAT_WAV),
    Audio("ima.wav", "wav", "adpcm_ima_wav", F::FORMAT_WAV),
    Audio("mp3.wav", "wav", "libmp3lame", F::FORMAT_WAV),
    {"rf64.wav", "wav", nullptr, "pcm_s16le", nullptr, "rf64=always", F::FORMAT_WAV, {}, {}},
    Audio("s24.w64", "w64", "pcm_s24le", "w64"),
    Audio("s16.aiff", "aiff", "pcm_s16be", F::FORMAT_AIFF),
    Audio("f32.aifc", "aiff", "pcm_f32be", F::FORMAT_AIFF),
    Audio("alaw.au", "au", "pcm_alaw rate=8000", F::FORMAT_AU),
    Audio("alac.caf", "caf", "alac", F::FORMAT_CAF),
    Audio("opus.caf", "caf", "libopus", F::FORMAT_CAF),
    Audio("flac.flac", "flac", "flac", F::FORMAT_FLAC),
    Audio("surround.flac", "flac", "flac layout=5.1", F::FORMAT_FLAC),
    Audio("mp3.mp3", "mp3", "libmp3lame", F::FORMAT_MP3),
    {"cover.mp3", "mp3", "png frames=1:size=320x240:pix_fmt=rgb24", "libmp3lame", nullptr, nullptr, F::FORMAT_MP3, {}, {}},
    Audio("mp2.mp2", "mp2", "mp2", F::FORMAT_MP3),
    Audio("adts.aac", "adts", "aac", F::FORMAT_AAC),
    Audio("loas.latm", "latm", "aac", "loas"),
    Audio("ac3.ac3", "ac3", "ac3", F::FORMAT_AC3),
    Audio("surround.ac3", "ac3", "ac3 layout=5.1:rate=48000", F::FORMAT_AC3),
    Audio("eac3.eac3", "eac3", "eac3", F::FORMAT_EAC3),
    Audio("dts.dts", "dts", "dca rate=48000", F::FORMAT_DTS),
    Audio("truehd.thd", "truehd", "truehd rate=48000", F::FORMAT_TRUEHD),
    Audio("mlp.mlp", "mlp", "mlp rate=48000", "mlp"),
    Audio("true.tta", "tta", "tta", "tta"),
    Audio("wavpack.wv", "wv", "wavpack", "wv"),
    Audio("adx.adx", "adx", "adpcm_adx", F::FORMAT_ADX),
    Audio("u8.voc", "voc", "pcm_u8 rate=11025:layout=mono", F::FORMAT_VOC),
    Audio("narrow.amr", "amr", "libopencore_amrnb rate=8000:layout=mono", F::FORMAT_AMR),
    Audio("wide.awb", "amr", "libvo_amrwbenc rate=16000:layout=mono", F::FORMAT_AMR),
    Audio("s32.sox", "sox", "pcm_s32le", "sox"),
    Audio("s16.ircam", "ircam", "pcm_s16le", "ircam"),
    Audio("ac3.spdif", "spdif", "ac3 rate=48000", "spdif"),
    Audio("adpcm.g722", "g722", "g722 rate=16000:layout=mono", "g722", ""),
    Audio("full.gsm", "gsm", "libgsm rate=8000:layout=mono", "gsm"),
    Audio("sbc.sbc", "sbc", "sbc", "sbc", ""),
    Audio("aptx.aptx", "aptx", "aptx rate=48000", "aptx", ""),
    Audio("s16.ast", "ast", "pcm_s16be_planar", "ast"),
    Audio("adpcm.mmf", "mmf", "adpcm_yamaha rate=8000:layout=mono", "mmf"),
    Audio("u8.rso", "rso", "pcm_u8 layout=mono", "rso", ""),
    Audio("speech.c2", "codec2", "libcodec2 rate=8000:layout=mono", "codec2"),

    // text
    Captions("captions.srt", "srt", "srt", F::FORMAT_SRT),
    Captions("captions.ass", "ass", "ass", F::FORMAT_ASS),
    Captions("captions.vtt", "webvtt", "webvtt", "webvtt"),
    Captions("captions.lrc", "lrc", "text", "lrc"),
    Captions("tags.ffmeta", "ffmetadata", nullptr, "ffmetadata"),
};
// clang-format on

static_assert(std::size(mediaRows) >= 150);
static_assert(
    [] {
        for (const MediaRow& row : mediaRows)
            if (std::ranges::count(mediaRows, std::string_view(row.file), &MediaRow::file) != 1)
                return false;
        return true;
    }(),
    "two rows would write the same file");

}  // namespace Quorva::Media
