// What `tessadrin probe` says about pictures and sound, on files made to have it.
#include "tests/support/MadeMedia.h"
#include "tests/support/Owned.h"
#include "tests/support/Program.h"
#include "tools/Probe.h"
#include "tools/support/Failure.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/dovi_meta.h>
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/spherical.h>
#include <libavutil/stereo3d.h>
}

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <functional>

namespace {

using nlohmann::json;
using Quorva::Media::MadeFile;
using testing::HasSubstr;

json Probe(const std::string& path)
{
    const Outcome outcome = RunProgram({"probe", "--json", path});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    return json::parse(outcome.output)["files"][0];
}

std::string ContentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A second of pictures, every 330 ms, in a file of the folder, after `change` to their stream.
std::string Pictures(const TemporaryFolder& folder, const char* name,
                     const std::function<void(AVStream&)>& change)
{
    std::string path = folder.At(name);
    AVFormatContext* opened = nullptr;
    EXPECT_EQ(avformat_open_input(&opened, MadeFile("h264-flac.mp4").c_str(), nullptr, nullptr), 0);
    const Owned<AVFormatContext> in(opened);
    AVFormatContext* created = nullptr;
    avformat_alloc_output_context2(&created, nullptr, nullptr, path.c_str());
    const Owned<AVFormatContext> out(created);
    out->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    AVStream* stream = avformat_new_stream(out.get(), nullptr);
    avcodec_parameters_copy(stream->codecpar, in->streams[0]->codecpar);
    stream->codecpar->codec_tag = 0;
    stream->time_base = {1, 1000};
    change(*stream);
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "prefer_icc", 0);
    EXPECT_GE(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    EXPECT_GE(avformat_write_header(out.get(), &options), 0);
    av_dict_free(&options);
    const Owned<AVPacket> packet(av_packet_alloc());
    for (int64_t time = 0; av_read_frame(in.get(), packet.get()) >= 0; av_packet_unref(packet.get()))
        if (packet->stream_index == 0) {
            packet->pts = packet->dts = av_rescale_q(time += 330, {1, 1000}, stream->time_base);
            av_write_frame(out.get(), packet.get());
        }
    av_write_trailer(out.get());
    avio_closep(&out->pb);
    return path;
}

void AddSideData(AVStream& stream, AVPacketSideDataType type, const void* data, size_t size)
{
    AVCodecParameters& parameters = *stream.codecpar;
    AVPacketSideData* added =
        av_packet_side_data_new(&parameters.coded_side_data, &parameters.nb_coded_side_data, type, size, 0);
    std::memcpy(added->data, data, size);
}

std::string BigEndian(uint32_t number)
{
    const char bytes[] = {char(number >> 24), char(number >> 16), char(number >> 8), char(number)};
    return {bytes, sizeof bytes};
}

/// A profile that is described by a tag of these bytes.
std::string Icc(const std::string& tag, uint32_t size = 64)
{
    return std::string(128, '\0') + BigEndian(1) + "desc" + BigEndian(144) + BigEndian(size) + tag;
}

void AddEverything(AVStream& stream)
{
    const AVMasteringDisplayMetadata mastering = {
        .display_primaries = {{{34000, 50000}, {16000, 50000}},
                              {{13250, 50000}, {34500, 50000}},
                              {{7500, 50000}, {3000, 50000}}},
        .white_point = {{15635, 50000}, {16450, 50000}},
        .min_luminance = {50, 10000},
        .max_luminance = {10000000, 10000},
        .has_primaries = 1,
        .has_luminance = 1
    };
    const AVContentLightMetadata light = {.MaxCLL = 1000, .MaxFALL = 400};
    AVDOVIDecoderConfigurationRecord vision{};
    vision.dv_version_major = 1;
    vision.dv_profile = 8;
    vision.dv_level = 6;
    vision.rpu_present_flag = vision.bl_present_flag = 1;
    vision.dv_bl_signal_compatibility_id = 4;
    AVStereo3D stereo{};
    stereo.type = AV_STEREO3D_SIDEBYSIDE;
    AVSphericalMapping spherical{};
    spherical.projection = AV_SPHERICAL_EQUIRECTANGULAR;
    spherical.yaw = 45 * 65536;
    spherical.roll = -65536 / 2;
    AddSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, &mastering, sizeof mastering);
    AddSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, &light, sizeof light);
    AddSideData(stream, AV_PKT_DATA_DOVI_CONF, &vision, sizeof vision);
    AddSideData(stream, AV_PKT_DATA_STEREO3D, &stereo, sizeof stereo);
    AddSideData(stream, AV_PKT_DATA_SPHERICAL, &spherical, sizeof spherical);
}

TEST(ProbeFields, ContainersDescribePictures)
{
    const TemporaryFolder folder;
    // FFmpeg's MP4 muxer replaces the stereo layout and the pose, its Matroska muxer writes what it is given.
    const std::string path = Pictures(folder, "all.mkv", AddEverything);
    const json video = Probe(path)["streams"][0]["video"];
    const std::pair<const char*, const char*> rows[] = {
        {"content_light",     R"({"max_cll": 1000, "max_fall": 400})"                                                       },
        {"dolby_vision",
         R"({"profile": 8, "level": 6, "compatibility_id": 4, "base_layer": true, "enhancement_layer": false, "rpu": true})"},
        {"mastering_display",
         R"({"red": {"x": 0.68, "y": 0.32}, "green": {"x": 0.265, "y": 0.69}, "blue": {"x": 0.15, "y": 0.06},
             "white": {"x": 0.3127, "y": 0.329}, "min_luminance": 0.005, "max_luminance": 1000.0})"               },
        {"spherical",         R"({"projection": "equirectangular", "yaw": 45.0, "pitch": 0.0, "roll": -0.5})"               },
        {"stereo_3d",         R"({"layout": "side by side", "view": "packed", "inverted": false})"                          },
    };
    for (const auto& [member, value] : rows)
        EXPECT_EQ(video.value(member, json()), json::parse(value)) << member;
    const std::string text = RunProgram({"probe", path}).output;
    for (const char* part :
         {"0.005 to 1000 cd/m2", "MaxCLL 1000, MaxFALL 400", "Dolby Vision 8.4, level 6, BL+RPU",
          "stereo 3D side by side", "spherical equirectangular, yaw 45"})
        EXPECT_THAT(text, HasSubstr(part));
    EXPECT_THAT(RunProgram({"probe", "--table", path}).output,
                HasSubstr("Dolby Vision 8.4, stereo 3D, spherical"));
}

TEST(ProbeFields, IccProfilesHaveDescriptions)
{
    const TemporaryFolder folder;
    const std::string wide = "mluc" + BigEndian(0) + BigEndian(1) + BigEndian(12) + "enUS" + BigEndian(6) +
                             BigEndian(28) + std::string("\0P\0\xe9\x20\xac", 6);
    const std::pair<std::string, json> rows[] = {
        {Icc("desc" + BigEndian(0) + BigEndian(5) + std::string("sRGB", 5)), "sRGB"},
        {Icc(wide), "P\xc3\xa9\xe2\x82\xac"},
        {Icc("desc" + BigEndian(0) + BigEndian(0xffffffff) + "cut", UINT32_MAX), "cut"},
        {std::string(140, '\xff'), nullptr},
    };
    for (const auto& [profile, description] : rows) {
        const std::string path = Pictures(folder, "icc.mp4", [&](AVStream& stream) {
            AddSideData(stream, AV_PKT_DATA_ICC_PROFILE, profile.data(), profile.size());
        });
        const json icc = Probe(path)["streams"][0]["video"].value("icc_profile", json());
        EXPECT_EQ(icc.value("size", size_t{0}), profile.size());
        EXPECT_EQ(icc.value("description", json("none")), description);
    }
}

TEST(ProbeFields, LevelsAreInTheCodecsNotation)
{
    const struct {
        AVCodecID codec;
        int number;
        const char* name;
    } rows[] = {
        {AV_CODEC_ID_H264,       41,  "4.1" },
        {AV_CODEC_ID_H264,       40,  "4"   },
        {AV_CODEC_ID_H264,       9,   "1b"  },
        {AV_CODEC_ID_HEVC,       153, "5.1" },
        {AV_CODEC_ID_VVC,        83,  "5.1" },
        {AV_CODEC_ID_AV1,        0,   "2.0" },
        {AV_CODEC_ID_AV1,        13,  "5.1" },
        {AV_CODEC_ID_MPEG2VIDEO, 8,   "Main"},
        {AV_CODEC_ID_MPEG4,      3,   "3"   },
    };
    for (const auto& row : rows) {
        AVCodecParameters parameters{};
        parameters.codec_id = row.codec;
        parameters.level = row.number;
        const auto level = Quorva::Tool::DescribeLevel(parameters);
        ASSERT_TRUE(level);
        EXPECT_EQ(level->name, row.name) << avcodec_get_name(row.codec) << " " << row.number;
    }
    const json codec = Probe(MadeFile("h264-aac.mp4"))["streams"][0]["codec"];
    EXPECT_EQ(codec["level"].get<std::string>(), std::to_string(codec["level_number"].get<int>() / 10));
}

TEST(ProbeFields, OnlyLosslessSoundHasBits)
{
    const std::pair<const char*, json> rows[] = {
        {"mp3.mp3",     nullptr},
        {"adts.aac",    nullptr},
        {"dts.dts",     nullptr},
        {"raw-pcm.nut", 32     },
        {"alac.m4a",    16     },
        {"flac.flac",   16     },
        {"true.tta",    16     },
        {"wavpack.wv",  16     },
        {"truehd.thd",  24     },
    };
    for (const auto& [file, bits] : rows)
        EXPECT_EQ(Probe(MadeFile(file))["streams"].back()["audio"]["bits"], bits) << file;
}

/// An animation of one pixel, each picture shown for so many hundredths of a second.
std::string Gif(const std::vector<char>& delays)
{
    std::string gif("GIF89a\1\0\1\0\x80\0\0\0\0\0\xff\xff\xff", 19);
    for (const char delay : delays)
        gif += std::string("!\xf9\4\0", 4) + delay + std::string("\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0", 18);
    return gif + ";";
}

TEST(ProbeFields, RatesAreThoseOfTheFrames)
{
    const TemporaryFolder folder;
    const struct {
        std::string path;
        int num, den;  ///< 0: varies
    } rows[] = {
        {folder.Put("8.gif", Gif({8, 8, 8, 8, 8})), 25, 2},
        {folder.Put("33.gif", Gif({33, 33, 33})), 100, 33},
        {folder.Put("held.gif", Gif({7, 7, 7, 99})), 100, 7},
        {folder.Put("mixed.gif", Gif({5, 15, 5, 15})), 0, 1},
        {folder.Put("late.gif", Gif({8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 9, 8})), 0, 1},
        {Pictures(folder, "slow.mkv", [](AVStream& stream) { stream.avg_frame_rate = {100, 33}; }), 100, 33},
    };
    for (const auto& row : rows) {
        const json rate = Probe(row.path)["streams"][0]["video"]["frame_rate"];
        EXPECT_EQ(rate, row.num == 0 ? json()
                                     : json({
                                           {"num", row.num},
                                           {"den", row.den}
        }))
            << row.path;
    }
    EXPECT_THAT(RunProgram({"probe", rows[3].path}).output, HasSubstr("10 frames/s on average"));
}

TEST(ProbeFields, ReplayGainIsANumber)
{
    const TemporaryFolder folder;
    const std::string text("\0REPLAYGAIN_TRACK_GAIN\0-7.25 dB", 32);
    const std::string frame =
        "TXXX" + BigEndian(static_cast<uint32_t>(text.size())) + std::string(2, '\0') + text;
    const std::string tag = std::string("ID3\3\0\0\0\0\0", 9) + static_cast<char>(frame.size()) + frame;
    const std::string path = folder.Put("gain.mp3", tag + ContentOf(MadeFile("mp3.mp3")));
    const json gain = Probe(path)["streams"][0]["audio"].value("replay_gain", json());
    EXPECT_EQ(
        gain,
        json::parse(R"({"track_gain": -7.25, "track_peak": null, "album_gain": null, "album_peak": null})"));
    EXPECT_THAT(RunProgram({"probe", path}).output, HasSubstr("replay gain track -7.25 dB"));
}

TEST(ProbeFields, ProgramsHaveNamesAndStreams)
{
    const std::string path = MadeFile("mpeg2-mp2-dvbsub.ts");
    const json programs = Probe(path)["programs"];
    ASSERT_EQ(programs.size(), 1u);
    EXPECT_EQ(programs[0]["name"], "A test of media");
    EXPECT_EQ(programs[0]["number"], 1);
    EXPECT_EQ(programs[0]["pmt_pid"], 4096);
    EXPECT_EQ(programs[0]["streams"], json({0, 1, 2}));
    EXPECT_THAT(RunProgram({"probe", path}).output,
                HasSubstr("1, A test of media, PMT at 4096, PCR at 256, streams #0 #1 #2"));
}

TEST(ProbeFields, StreamsOfNoKnownKindAreOthers)
{
    const TemporaryFolder folder;
    std::string film = ContentOf(MadeFile("mpeg2-mp2-dvbsub.ts"));
    // The subtitles get a private type and descriptor in each program map, whose checksum follows.
    constexpr size_t section = 5, type = section + 22, checksum = section + 3 + 0x26 - 4;
    for (size_t packet = 0; packet + 188 <= film.size(); packet += 188) {
        if (film.compare(packet + 1, 2, "\x41\2", 2) == 0)
            film.replace(packet + 20, 168, 168, '\xaa');  // nothing that could be recognised
        if (film.compare(packet + 1, 2, "\x50\0", 2) != 0)
            continue;
        film[packet + type] = '\x90';
        film[packet + type + 5] = '\x80';
        const uint32_t sum =
            av_crc(av_crc_get_table(AV_CRC_32_IEEE), UINT32_MAX,
                   reinterpret_cast<const uint8_t*>(&film[packet + section]), checksum - section);
        std::memcpy(&film[packet + checksum], &sum, sizeof sum);
    }
    const std::string path = folder.Put("private.ts", film);
    EXPECT_EQ(Probe(path)["streams"][2]["kind"], "other");
    EXPECT_THAT(RunProgram({"probe", path}).output, HasSubstr("\n  #2  other "));
}

TEST(ProbeFields, EveryKindOfFailureIsInTheSchema)
{
    using namespace Quorva::Tool;
    for (int kind = 0; kind <= static_cast<int>(FailureKind::Internal); ++kind) {
        Failure failure;
        failure.kind = static_cast<FailureKind>(kind);
        const Json file = {
            {"path", "x"},
            {"error", FailureJson(failure, false)}
        };
        const Json document = {
            {"schema", "tessadrin/probe/1"},
            {"tool",   ToolJson()         },
            {"files",  Json::array({file})}
        };
        EXPECT_EQ(SchemaFault(document.dump()), "");
    }
}

}  // namespace
