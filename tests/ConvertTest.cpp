// `tessadrin convert`, its results judged by FFmpeg's own commands.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/Conversions.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>

namespace {

using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

struct Row {
    const char* input;
    const char* output;
    const char* options;
    const char* codecs;  ///< of the result, in their order
    /// Not null: the result has the same frames and samples as the ffmpeg command's with these settings;
    /// "packets": the same packets as the input.
    const char* same = nullptr;
};

const Row ROWS[] = {
    // streams that go over as they are
    {"h264-aac.mp4", "a.mkv", "", "h264+aac", "packets"},
    {"h264-aac.mp4", "a.mov", "", "h264+aac", "packets"},
    {"h264-aac.mp4", "a.flv", "", "h264+aac", "packets"},
    {"h264-aac.mp4", "a.3gp", "", "h264+aac", "packets"},
    {"h264-aac.mp4", "a.m4a", "", "aac", "packets"},
    {"h264-aac.mp4", "a.mka", "", "aac", "packets"},
    {"h264-aac.mp4", "a.ts", "", "h264+aac"},
    {"h264-aac.mp4", "a.aac", "", "aac"},
    {"h264-aac.mp4", "a.mkv", "--duration 10", "h264+aac", "packets"},
    {"h264-flac-srt.mkv", "a.mkv", "", "h264+flac+subrip", "packets"},
    {"h264-flac-srt.mkv", "a.mp4", "", "h264+flac+mov_text", "packets"},
    {"h264-flac-srt.mkv", "a.mp4", "--audio-codec copy --video-codec none", "flac+mov_text", "packets"},
    {"hevc-opus-ass.mkv", "a.mp4", "", "hevc+opus+mov_text", "packets"},
    {"mpeg2-ac3.vob", "a.mkv", "", "mpeg2video+ac3", "packets"},
    {"h264-aac.ts", "a.mp4", "", "h264+aac"},
    {"mpeg2-mp2-dvbsub.ts", "a.mp4", "--video-codec copy --audio-codec none", "mpeg2video"},
    {"mpeg2-mp2-dvbsub.ts", "a.mkv", "", "mpeg2video+mp2+dvb_subtitle"},
    {"vp9-opus.webm", "a.mp4", "", "vp9+opus", "packets"},
    {"theora-vorbis.ogv", "a.mkv", "", "theora+vorbis"},
    {"pal.dv", "a.avi", "--video-codec copy", "dvvideo+pcm_s16le"},
    {"mpeg4-mp3.avi", "a.mkv", "", "mpeg4+mp3", "packets"},
    {"cover.mp3", "a.mp3", "", "mp3+png", "packets"},
    {"cover.mp3", "a.mka", "", "mp3+png"},
    {"cover.mp3", "a.m4a", "", "aac+png"},
    {"cover.mp3", "a.flac", "", "flac+png"},
    // nothing is lost
    {"h264-aac.mp4", "a.mkv", "--video-codec ffv1 --audio-codec flac", "ffv1+flac", "-c:v ffv1 -c:a flac"},
    {"h264-aac.mp4", "a.avi", "--video-codec rawvideo --audio-codec pcm_s16le", "rawvideo+pcm_s16le",
     "-c:v rawvideo -c:a pcm_s16le"},
    {"v210.mov", "a.mkv", "--video-codec ffv1", "ffv1", "-c:v ffv1"},
    {"h264-aac.mp4", "a.wav", "", "pcm_s16le", "-vn"},
    {"h264-aac.mp4", "a.flac", "", "flac", "-vn"},
    {"h264-aac.mp4", "a.aiff", "", "pcm_s16be", "-vn"},
    {"surround.flac", "a.wav", "", "pcm_s16le", ""},
    {"surround.flac", "a.wav", "--channels 2", "pcm_s16le", "-ac 2"},
    {"s24.w64", "a.flac", "", "flac", ""},
    {"s16.wav", "a.wav", "--sample-rate 48000", "pcm_s16le", "-ar 48000"},
    {"f64.wav", "a.wav", "", "pcm_f64le", "-c:a copy"},
    {"rgb24.png", "a.bmp", "", "bmp", ""},
    {"gray16.png", "a.tiff", "", "tiff", ""},
    {"animated.apng", "a.mov", "--video-codec png", "png", "-c:v png"},
    // the rest
    {"h264-aac.mp4", "a.avi", "", "mpeg4+mp3"},
    {"h264-aac.mp4", "a.webm", "", "vp9+opus"},
    {"h264-aac.mp4", "a.ogv", "", "theora+vorbis"},
    {"h264-aac.mp4", "a.wmv", "", "wmv2+wmav2"},
    {"h264-aac.mp4", "a.mxf", "", "mpeg2video+pcm_s16le"},
    {"h264-aac.mp4", "a.mpg", "", "mpeg1video+mp2"},
    {"h264-aac.mp4", "a.vob", "", "mpeg2video+mp2"},
    {"h264-aac.mp4", "a.gif", "", "gif"},
    {"h264-aac.mp4", "a.apng", "", "apng"},
    {"h264-aac.mp4", "a%03d.png", "", "png"},
    {"h264-aac.mp4", "a.mp3", "", "mp3"},
    {"h264-aac.mp4", "a.opus", "", "opus"},
    {"h264-aac.mp4", "a.oga", "", "flac"},
    {"h264-aac.mp4", "a.caf", "", "pcm_s16be"},
    {"h264-aac.mp4", "a.ac3", "", "ac3"},
    {"h264-aac.mp4", "a.mkv", "--video-codec hevc", "hevc+aac"},
    {"h264-aac.mp4", "a.mkv", "--video-codec av1", "av1+aac"},
    {"h264-aac.mp4", "a.mp4", "--bitrate 200k --two-pass", "h264+aac"},
    {"surround.flac", "a.m4a", "", "aac"},
    {"animated.gif", "a.mp4", "", "h264"},
    {"theora-vorbis.ogv", "a.mp4", "", "h264+aac"},
    {"wmv2-wmav2.wmv", "a.mkv", "", "h264+aac"},
};

/// As long as the input's, with as many pictures. Encoders of sound fill up their last frame, and some
/// formats can't say where it ends.
void CheckLength(const JudgedStream& before, const JudgedStream& after, double tick)
{
    if (before.kind == "video") {
        EXPECT_EQ(after.hashes.size(), before.hashes.size());
        EXPECT_NEAR(after.end - after.first, before.end - before.first, tick);
    } else {
        EXPECT_GE(after.sum, before.sum - 0.002);
        EXPECT_LE(after.sum, before.sum + 0.1);
    }
}

const JudgedStream* FirstOf(const std::vector<JudgedStream>& streams, const std::string& kind)
{
    const auto found = std::ranges::find(streams, kind, &JudgedStream::kind);
    return found == streams.end() ? nullptr : &*found;
}

TEST(Convert, GivesWhatFFmpegReadsAsTheSame)
{
    std::map<std::string, std::vector<JudgedStream>> inputs;
    const std::vector<std::string> decoded = {"-map", "0:V?", "-map", "0:a?"};
    for (const Row& row : ROWS) {
        SCOPED_TRACE(fmt::format("{} to {} {}", row.input, row.output, row.options));
        const TemporaryFolder folder;
        const std::string input = Made(row.input);
        const std::string output = folder.At(row.output);
        const Outcome outcome = Convert(input, output, row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_EQ(CodecsOf(Describe(output)), row.codecs) << outcome.errors;

        auto [before, isNew] = inputs.try_emplace(input);
        if (isNew)
            before->second = Judge(input, decoded);
        const std::vector<JudgedStream> after = Judge(output, decoded);
        for (const char* kind : {"video", "audio"})
            if (const JudgedStream* stream = FirstOf(after, kind))
                CheckLength(*FirstOf(before->second, kind), *stream, 0.0401);
        if (!row.same)
            continue;
        const bool packets = row.same == std::string("packets");
        std::vector<std::string> way = decoded;
        std::string reference = input;
        if (packets) {
            way.insert(way.end(), {"-c", "copy"});
        } else {
            reference = folder.At(std::string("reference-") + row.output);
            std::vector<std::string> arguments = {"-i", input, reference};
            const std::vector<std::string> words = Words(row.same);
            arguments.insert(arguments.begin() + 2, words.begin(), words.end());
            RunFFmpeg(arguments);
            way.insert(way.end(), {"-af", "asetnsamples=512:pad=0"});
        }
        const std::vector<JudgedStream> expected = Judge(reference, way);
        for (const JudgedStream& stream : Judge(output, way))
            EXPECT_EQ(stream.hashes, FirstOf(expected, stream.kind)->hashes);
    }
}

/// A film with all that may get lost: tags, chapters, languages, rotation, colours, aspect, an attached file.
std::string MakeRichFilm(const TemporaryFolder& folder)
{
    const std::string plain = folder.At("plain.mp4");
    const std::string path = folder.At("rich.mkv");
    const std::string chapters =
        folder.Put("chapters.txt",
                   ";FFMETADATA1\ntitle=A title\nartist=Somebody\n[CHAPTER]\nTIMEBASE=1/1000\n"
                   "START=0\nEND=500\ntitle=First\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=500\n"
                   "END=1000\ntitle=Second\n");
    const std::string pictures =
        "testsrc2=s=128x96:r=25:d=1,setsar=4/3,format=yuv420p,setparams="
        "color_primaries=bt2020:color_trc=smpte2084:colorspace=bt2020nc:range=tv";
    RunFFmpeg({"-f", "lavfi", "-i", pictures, "-f", "lavfi", "-i", "sine=d=1", "-c:v", "libx264",
               "-profile:v", "high", "-c:a", "flac", "-strict", "-2", "-metadata:s:a:0", "language=deu",
               plain});
    RunFFmpeg({"-display_rotation", "90", "-i", plain, "-i", chapters, "-map", "0", "-map_metadata", "1",
               "-map_chapters", "1", "-c", "copy", "-attach", chapters, "-metadata:s:t",
               "mimetype=text/plain", path});
    return path;
}

TEST(Convert, KeepsWhatTheContainerCanHold)
{
    const TemporaryFolder folder;
    const std::string rich = MakeRichFilm(folder);
    for (const bool encoded : {false, true}) {
        for (const char* name : {"out.mkv", "out.mp4"}) {
            SCOPED_TRACE(fmt::format("{} {}", encoded ? "encoded" : "copied", name));
            const std::string output = folder.At(name);
            const Outcome outcome =
                Convert(rich, output, encoded ? "--overwrite --quality 40" : "--overwrite");
            ASSERT_EQ(outcome.code, 0) << outcome.errors;
            const json file = Describe(output);
            json tags;
            for (const auto& [key, value] : file["format"]["tags"].items()) {
                std::string lower = key;
                std::ranges::transform(lower, lower.begin(), [](char c) { return std::tolower(c); });
                tags[lower] = value;
            }
            const std::pair<const char*, json> members[] = {
                {"/chapters/1/tags/title",               "Second"   },
                {"/chapters/1/start_time",               "0.500000" },
                {"/streams/0/sample_aspect_ratio",       "4:3"      },
                {"/streams/0/profile",                   "High"     },
                {"/streams/0/color_primaries",           "bt2020"   },
                {"/streams/0/color_transfer",            "smpte2084"},
                {"/streams/0/color_space",               "bt2020nc" },
                {"/streams/0/color_range",               "tv"       },
                {"/streams/0/side_data_list/0/rotation", 90         },
                {"/streams/1/tags/language",             "deu"      },
            };
            EXPECT_EQ(tags.value("title", ""), "A title");
            EXPECT_EQ(tags.value("artist", ""), "Somebody");
            for (const auto& [pointer, value] : members)
                EXPECT_EQ(Member(file, pointer), value) << pointer;
            if (name == std::string("out.mkv"))
                EXPECT_EQ(Member(file, "/streams/2/tags/filename"), "chapters.txt");
            else
                EXPECT_THAT(outcome.errors, HasSubstr("stream 2: attachment"));
        }
    }
}

/// A copy of a film whose container says that so much is to be cut off. No command of FFmpeg's writes that.
void CopyWithCropping(const std::string& from, const std::string& to,
                      const std::array<uint32_t, 4>& topBottomLeftRight)
{
    AVFormatContext* input = nullptr;
    AVFormatContext* output = nullptr;
    ASSERT_EQ(avformat_open_input(&input, from.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_alloc_output_context2(&output, nullptr, nullptr, to.c_str()), 0);
    AVStream* const stream = avformat_new_stream(output, nullptr);
    AVCodecParameters& parameters = *stream->codecpar;
    ASSERT_EQ(avcodec_parameters_copy(&parameters, input->streams[0]->codecpar), 0);
    parameters.codec_tag = 0;
    AVPacketSideData* const cropping =
        av_packet_side_data_new(&parameters.coded_side_data, &parameters.nb_coded_side_data,
                                AV_PKT_DATA_FRAME_CROPPING, sizeof topBottomLeftRight, 0);
    std::memcpy(cropping->data, topBottomLeftRight.data(), cropping->size);  // little-endian, as this machine
    ASSERT_GE(avio_open(&output->pb, to.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(output, nullptr), 0);
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == 0) {
            av_packet_rescale_ts(packet, input->streams[0]->time_base, stream->time_base);
            EXPECT_EQ(av_write_frame(output, packet), 0);
        }
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    EXPECT_EQ(av_write_trailer(output), 0);
    avio_closep(&output->pb);
    avformat_free_context(output);
    avformat_close_input(&input);
}

TEST(Convert, CropsWhereTheContainerDoesNot)
{
    const TemporaryFolder folder;
    const std::string input = folder.At("cropped.mkv");
    CopyWithCropping(Made("h264-aac.mp4"), input, {8, 4, 16, 2});
    const std::string kept = folder.At("kept.mkv");
    ASSERT_EQ(Convert(input, kept, "--quality 30").code, 0);
    const json video = Member(Describe(kept), "/streams/0");
    EXPECT_EQ(video["width"], 128);
    EXPECT_EQ(Member(video, "/side_data_list/0/crop_left"), 16);
    EXPECT_EQ(Member(video, "/side_data_list/0/crop_bottom"), 4);
    const std::string cut = folder.At("cut.avi");
    ASSERT_EQ(Convert(input, cut, "--video-codec rawvideo").code, 0);
    RunFFmpeg({"-apply_cropping", "none", "-i", Made("h264-aac.mp4"), "-vf", "crop=110:84:16:8:exact=1",
               "-an", "-c:v", "rawvideo", folder.At("reference.avi")});
    EXPECT_EQ(Judge(cut, {})[0].hashes, Judge(folder.At("reference.avi"), {})[0].hashes);
}

TEST(Convert, AcceptsWhatMuxersRefuse)
{
    const TemporaryFolder folder;
    const struct {
        std::string made;  ///< arguments of the ffmpeg command
        const char* input;
        const char* output;
        const char* text;
        const char* pointer;
        json value;
    } rows[] = {
        {"-f lavfi -i sine=d=0.5 -ar 8000",                     "low.mp3",    "a.mp4",
         "mp4 refuses a copy: track 0: muxing mp3 at 8000hz",                                            "/streams/0/codec_name", "aac"},
        {"-i " + Made("h264-aac.mp4") + " -c copy -aspect 2:1", "aspect.mkv", "a.mov", "h264 is copied",
         "/streams/0/display_aspect_ratio",                                                                                       "2:1"},
        {"-i " + Made("h264-aac.mp4") + " -c copy -aspect 2:1", "aspect.mkv", "b.mkv", "h264 is copied",
         "/streams/0/display_aspect_ratio",                                                                                       "2:1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        std::vector<std::string> arguments = Words(row.made.c_str());
        arguments.push_back(folder.At(row.input));
        RunFFmpeg(arguments);
        const Outcome outcome = Convert(folder.At(row.input), folder.At(row.output));
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_THAT(outcome.errors, HasSubstr(row.text));
        EXPECT_EQ(Member(Describe(folder.At(row.output)), row.pointer), row.value);
    }
    EXPECT_EQ(Convert(folder.At("low.mp3"), folder.At("c.mp4"), "--audio-codec copy").code, 1);
}

TEST(Convert, BeginsWithThePictureShownFirst)
{
    const TemporaryFolder folder;
    const std::string whole = folder.At("whole.mp4");
    const std::string cut = folder.At("cut.ts");
    RunFFmpeg({"-f", "lavfi", "-i", "testsrc2=s=128x96:d=3:r=25", "-c:v", "libx265", "-pix_fmt", "yuv420p",
               "-x265-params",
               "log-level=none:bframes=7:radl=7:keyint=25:min-keyint=25:scenecut=0:open-gop=0:b-adapt=0",
               whole});
    RunFFmpeg({"-ss", "1.9", "-i", whole, "-c", "copy", cut});  // its first key picture is shown eighth
    const size_t pictures = Judge(cut, {})[0].hashes.size();
    for (const char* options : {"", "--video-codec h264", "--duration 1"}) {
        SCOPED_TRACE(options);
        const std::string output = folder.At("out.mp4");
        ASSERT_EQ(Convert(cut, output, std::string("--overwrite ") + options).code, 0);
        const std::vector<JudgedStream> after = Judge(output, {});
        EXPECT_EQ(after[0].hashes.size(), options == std::string_view("--duration 1") ? 25u : pictures);
    }
}

TEST(Convert, ChangesWhatIsAskedFor)
{
    const TemporaryFolder folder;
    const std::string input = Made("h264-aac.mp4");
    const struct {
        const char* options;
        const char* entry;
        json values;  ///< of the first two streams
    } rows[] = {
        {"--size 64x",                             "height",              {48}                    },
        {"--size 100x50",                          "sample_aspect_ratio", {"2:3"}                 },
        {"--frame-rate 10",                        "nb_frames",           {"10"}                  },
        {"--frame-rate 30000/1001",                "nb_frames",           {"30"}                  },
        {"--pixel-format yuv444p",                 "pix_fmt",             {"yuv444p"}             },
        {"--start 0.3 --duration 0.4",             "duration",            {"0.400000", "0.400000"}},
        {"--video-codec none --sample-rate 22050", "sample_rate",         {"22050"}               },
        {"--video-codec none --channels mono",     "channels",            {1}                     },
        {"--map a:0 --map 0",                      "codec_type",          {"audio", "video"}      },
        {"--option g=5 --option preset=ultrafast", "has_b_frames",        {0}                     },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.options);
        const std::string output = folder.At("out.mp4");
        const Outcome outcome = Convert(input, output, std::string("--overwrite ") + row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        const json file = Describe(output);
        for (size_t i = 0; i < row.values.size(); ++i)
            EXPECT_EQ(Member(file, fmt::format("/streams/{}/{}", i, row.entry)), row.values[i]);
    }
    const auto sizeAt = [&](const char* quality) {
        EXPECT_EQ(Convert(input, folder.At("q.mp4"), std::string("--overwrite --quality ") + quality).code,
                  0);
        return std::filesystem::file_size(folder.At("q.mp4"));
    };
    EXPECT_GT(sizeAt("10"), 2 * sizeAt("80"));
}

}  // namespace
