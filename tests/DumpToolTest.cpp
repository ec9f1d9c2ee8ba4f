// `tessadrin dump`, its pictures compared with those of FFmpeg's own command.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/Judge.h"
#include "tests/support/MadeMedia.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iterator>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string Made(const char* file) { return Quorva::Media::MadeFile(file).native(); }

Outcome Dump(const std::string& file, const std::string& name, const std::string& options = "")
{
    std::vector<std::string> arguments = {"dump", file, "--name", name};
    for (const std::string& word : Words(options))
        arguments.push_back(word);
    return RunProgram(arguments);
}

/// The picture of a file that `filter` leaves, as rows of BGRA, by the ffmpeg command.
std::string Pixels(const std::string& file, const std::string& filter = "null")
{
    const Outcome outcome = RunProgram({"-v", "error", "-i", file, "-frames:v", "1", "-vf", filter, "-f",
                                        "rawvideo", "-pix_fmt", "bgra", "-"},
                                       "ffmpeg");
    EXPECT_EQ(outcome.errors, "") << file;
    return outcome.output;
}

/// @param tolerance  of a component: the pipeline's weights differ from FFmpeg's by a hair
void ExpectSamePicture(const std::string& dump, const std::string& expected, int width, int tolerance)
{
    const std::string found = Pixels(dump);
    ASSERT_EQ(found.size(), expected.size()) << dump;
    const int height = static_cast<int>(found.size()) / 4 / width;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            if ((x == width - 1 && y % 4 == 0) || (y == height - 1 && x % 4 == 0))
                continue;  // a mark
            for (int i = 0; i < 4; ++i) {
                const auto place = static_cast<size_t>((y * width + x) * 4 + i);
                const int difference =
                    static_cast<uint8_t>(found[place]) - static_cast<uint8_t>(expected[place]);
                ASSERT_LE(std::abs(difference), tolerance) << dump << " at " << x << ", " << y;
            }
        }
}

TEST(DumpTool, PicturesAreThoseOfFFmpegOutsideTheMarks)
{
    const struct {
        const char* file;
        const char* made;  ///< by the ffmpeg command from its test picture; null: of the made media
        int width, height;
        int tolerance;
        const char* options = "";
    } rows[] = {
        {"film.mkv", "format=yuv420p,setparams=colorspace=bt709 -c:v libx264 -qp 1", 64, 48, 2},
        {"bt601.mkv", "format=yuv420p,setparams=colorspace=smpte170m -c:v ffv1", 33, 17, 2},
        {"device.mkv", "format=yuv420p,setparams=colorspace=bt709 -c:v ffv1", 64, 48, 2, "--hardware opencl"},
        {"full.avi", "format=yuvj420p -c:v mjpeg", 64, 48, 2},
        {"rgb.png", "format=rgb24", 7, 5, 0},
        {"alpha.png", "format=rgba,colorchannelmixer=aa=0.3", 19, 21, 0},
        {"palette.gif", "format=rgb24,split[a][b];[a]palettegen[p];[b][p]paletteuse", 31, 33, 0},
        {"grey.png", "format=gray", 16, 9, 0},
        {"hdr10.mkv", nullptr, 128, 96, 2},
        {"h264-aac.mp4", nullptr, 128, 96, 2},
    };
    const TemporaryFolder folder;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        std::string file;
        if (row.made) {
            file = folder.At(row.file);
            const std::string size = std::to_string(row.width) + ":" + std::to_string(row.height);
            std::vector<std::string> words = Words(row.made);
            words.front() += ",crop=" + size + ":0:0:exact=1";
            std::vector<std::string> line = {
                "-f", "lavfi", "-i", "testsrc2=size=64x48:duration=1", "-frames:v", "1", "-filter_complex"};
            line.insert(line.end(), words.begin(), words.end());
            line.push_back(file);
            RunFFmpeg(line);
        } else {
            file = Made(row.file);
        }
        const std::string name = folder.At(std::string(row.file) + ".dump");
        const Outcome outcome = Dump(file, name, row.options);
        EXPECT_EQ(outcome.code, 0);
        EXPECT_EQ(outcome.errors, "");
        ExpectSamePicture(name + "_000_key=1.bmp",
                          Pixels(file, "scale=flags=neighbor,format=bgr24|bgra|gray"), row.width,
                          row.tolerance);
    }
}

TEST(DumpTool, PicturesAreThoseThatWereAskedFor)
{
    const TemporaryFolder folder;
    const std::string film = Made("h264-aac.mp4");  // 25 pictures in a second
    EXPECT_THAT(
        Dump(film, folder.At("x"), "--every 10 --count 5").output,
        testing::AllOf(HasSubstr("x_000_key=1.bmp  0:00:00.000  128x96 yuv420p\n"),
                       HasSubstr("x_001_key=0.bmp  0:00:00.400  "),
                       HasSubstr("x_002_key=0.bmp  0:00:00.800  "), testing::Not(HasSubstr("x_003"))));
    ExpectSamePicture(folder.At("x_001_key=0.bmp"),
                      Pixels(film, "select=eq(n\\,10),scale=flags=neighbor,format=bgr24"), 128, 2);

    // What is on the screen then began before.
    EXPECT_THAT(Dump(film, folder.At("at"), "--at 0.57").output, HasSubstr("at_000_key=0.bmp  0:00:00.560"));
    ExpectSamePicture(folder.At("at_000_key=0.bmp"),
                      Pixels(film, "select=eq(n\\,14),scale=flags=neighbor,format=bgr24"), 128, 2);
    const Outcome late = Dump(film, folder.At("late"), "--at 1:00");
    EXPECT_EQ(late.code, 1);
    EXPECT_THAT(late.ErrorLines(), ElementsAre(film + ": nothing at or after 0:01:00.000"));

    std::istringstream lines(Dump(film, folder.At("p"), "--packets --count 1000").output);
    size_t packets = 0;
    for (std::string line; std::getline(lines, line);)
        packets += line.find(": pts ") == 2;
    EXPECT_EQ(packets, Judge(film, {"-c", "copy", "-map", "0:v"})[0].hashes.size() +
                           Judge(film, {"-c", "copy", "-map", "0:a"})[0].hashes.size());
}

TEST(DumpTool, SubtitlesArePicturesOrText)
{
    const TemporaryFolder folder;
    const Outcome pictures = Dump(Made("mpeg2-ac3-dvdsub.mkv"), folder.At("d"));
    EXPECT_EQ(pictures.code, 0) << pictures.errors;
    EXPECT_THAT(pictures.output, HasSubstr("d_stream2_000_key=0.bmp"));
    const std::string pixels = Pixels(folder.At("d_stream2_000_key=0.bmp"));
    ASSERT_EQ(pixels.size(), 24u * 16 * 4);
    const auto colour = [&](size_t x) { return pixels.substr((5 * 24 + x) * 4, 3); };
    EXPECT_EQ(colour(4), "\xff\xff\xff");
    EXPECT_EQ(colour(12), std::string(3, '\0'));
    EXPECT_EQ(colour(20), std::string("\0\0\xff", 3));

    const Outcome text = Dump(Made("h264-flac-srt.mkv"), folder.At("t"), "--stream 2");
    EXPECT_EQ(text.code, 0) << text.errors;
    EXPECT_THAT(text.output, StartsWith("stream 2  0:00:00."));
}

TEST(DumpTool, FailuresAreOneLine)
{
    const TemporaryFolder folder;
    const std::string film = Made("h264-aac.mp4");
    const std::string hdr = Made("hdr10.mkv");
    const std::string sound = Made("flac.flac");
    const std::string victim = folder.Put("victim", "precious");
    std::filesystem::create_symlink(victim, folder.At("there_000_key=1.bmp"));
    const struct {
        std::string file;
        std::string name;
        const char* options;
        std::string reason;
    } rows[] = {
        {film,              "missing/x", "",
         "'" + folder.At("missing/x_000_key=1.bmp") + "' can't be written: No such file or directory"              },
        {film,              "there",     "",
         "'" + folder.At("there_000_key=1.bmp") + "' is there already; --overwrite replaces it"                    },
        {film,              "x",         "--stream 7",        "no stream 7: there are 2"                           },
        {film,              "x",         "--stream 1",        "stream 1 is audio, which has no pictures"           },
        {film,              "x",         "--hardware opengl", "no hardware devices 'opengl'; this FFmpeg has "     },
        {hdr,               "x",         "--hardware opencl", "opencl takes no yuv420p10le pictures, but yuv420p, "},
        {sound,             "x",         "",                  "no pictures and no subtitles in it"                 },
        {folder.At("none"), "x",         "",                  "Can't open for reading: No such file or directory"  },
    };
    for (const auto& row : rows) {
        const Outcome outcome = Dump(row.file, folder.At(row.name), row.options);
        EXPECT_EQ(outcome.code, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.ErrorLines(), ElementsAre(StartsWith(row.file + ": " + row.reason)));
    }
    EXPECT_EQ(Dump(film, folder.At("there"), "--overwrite").code, 0);
    EXPECT_EQ(std::filesystem::file_size(victim), 8u) << "a link is replaced, not followed";
    EXPECT_EQ(Pixels(folder.At("there_000_key=1.bmp")).size(), 128u * 96 * 4);
    EXPECT_EQ(Dump(film, "x", "--at noon").code, 2);
    EXPECT_EQ(Dump(film, "x", "--count 0").code, 2);
}

}  // namespace
