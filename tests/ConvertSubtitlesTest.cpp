// Text subtitles and tags that `tessadrin convert` carries from one container to another.
#include "tests/support/Conversions.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace {

using testing::HasSubstr;

/// "start-end text|text" for each event, in milliseconds, as the ffmpeg command reads them.
std::string EventsOf(const std::string& path)
{
    const Outcome outcome =
        RunProgram({"-v", "error", "-i", path, "-map", "s:0", "-f", "srt", "-"}, "ffmpeg");
    EXPECT_EQ(outcome.errors, "") << path;
    std::string events;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        std::erase(line, '\r');
        int t[8];
        if (std::sscanf(line.c_str(), "%d:%d:%d,%d --> %d:%d:%d,%d", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5],
                        &t[6], &t[7]) == 8) {
            const auto time = [&](int at) {
                return ((t[at] * 60 + t[at + 1]) * 60 + t[at + 2]) * 1000 + t[at + 3];
            };
            events += fmt::format("{}{}-{}", events.empty() ? "" : "; ", time(0), time(4));
        } else if (line.find_first_not_of("0123456789") != std::string::npos) {
            events += (events.back() >= '0' && events.back() <= '9' ? " " : "|") + line;
        }
    }
    return events;
}

/// Three styled events, two of which overlap, and one that follows at once.
constexpr char captions[] =
    "1\n00:00:01,000 --> 00:00:02,500\n<b>B</b> <i>I</i> <font color=\"#ff0000\">red</font>\n\n"
    "2\n00:00:03,123 --> 00:00:05,000\nlong\nlines\n\n"
    "3\n00:00:04,000 --> 00:00:04,501\n{\\an8}top\n\n"
    "4\n00:00:05,000 --> 00:00:05,900\n\xC3\xA4 a < b & c\n";

constexpr char red[] = "<b>B</b> <i>I</i> <font color=\"#ff0000\">red</font>";
const std::string subrip = fmt::format(
    "1000-2500 {}; 3123-5000 long|lines; 4000-4501 {{\\an8}}top; 5000-5900 \xC3\xA4 a < b & c", red);
const std::string ass = fmt::format(
    "1000-2500 {}; 3120-5000 long|lines; 4000-4500 {{\\an8}}top; 5000-5900 \xC3\xA4 a < b & c", red);
const std::string webvtt =
    "1000-2500 <b>B</b> <i>I</i> red; 3123-5000 long|lines; 4000-4501 top; 5000-5900 \xC3\xA4 a < b & c";
const std::string movText = fmt::format(
    "1000-2500 {}; 3123-4000 long|lines; 4000-4501 long|lines|top; 4501-5000 long|lines; 5000-5900 \xC3\xA4 "
    "a < b "
    "& c",
    red);

/// The captions in a film of its own container and as a file.
std::string MakeCaptions(const TemporaryFolder& folder, const std::string& kind)
{
    const std::string text = folder.Put("captions.srt", captions);
    const std::string film = folder.At("in." + kind);
    RunFFmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=7", "-i", text, "-c:v", "mpeg4", film});
    return film;
}

TEST(ConvertSubtitles, KeepTextsStylesAndTimes)
{
    const struct {
        const char* from;  ///< the codec, in a Matroska film
        const char* output;
        const char* options;
        std::string events;
        std::string codec;
    } rows[] = {
        {"subrip",   "o.mp4",  "",                           movText,                                        "mov_text"},
        {"subrip",   "o.mov",  "",                           movText,                                        "mov_text"},
        {"subrip",   "o.webm", "--map s",                    webvtt,                                         "webvtt"  },
        {"subrip",   "o.srt",  "",                           subrip,                                         "subrip"  },
        {"subrip",   "o.ass",  "",                           ass,                                            "ass"     },
        {"subrip",   "o.vtt",  "",                           webvtt,                                         "webvtt"  },
        {"subrip",   "o.mkv",  "--subtitle-codec ssa",       subrip,                                         "ass"     },
        {"ass",      "o.mp4",  "",                           movText,                                        "mov_text"},
        {"ass",      "o.srt",  "",                           subrip,                                         "subrip"  },
        {"ass",      "o.mkv",  "--subtitle-codec webvtt",    webvtt,                                         "webvtt"  },
        {"webvtt",   "o.srt",  "",                           "top",                                          "subrip"  },
        {"webvtt",   "o.mp4",  "",                           "|top",                                         "mov_text"},
        {"mov_text", "o.srt",  "",                           movText,                                        "subrip"  },
        {"mov_text", "o.mkv",  "",                           movText,                                        "subrip"  },
        {"mov_text", "o.vtt",  "",                           "|top",                                         "webvtt"  },
        // from the middle of two events to the middle of another one
        {"subrip",   "o.mkv",  "--start 4.2 --duration 1.3", "0-800 long|lines; 0-301 {\\an8}top; 800-1300",
         "subrip"                                                                                                      },
        {"subrip",   "o.mp4",  "--start 4.2 --duration 1.3",
         "0-301 long|lines|top; 301-800 long|lines; 800-1300",                                               "mov_text"},
        {"ass",      "o.srt",  "--start 4.2 --duration 0.1", "0-100 long|lines; 0-100 {\\an8}top",           "subrip"  },
    };
    const TemporaryFolder folder;
    const std::string film = MakeCaptions(folder, "mkv");
    for (const auto& row : rows) {
        SCOPED_TRACE(fmt::format("{} to {} {}", row.from, row.output, row.options));
        const bool isMovText = row.from == std::string("mov_text");
        const std::string input = folder.At(isMovText ? "from.mp4" : "from.mkv");
        ASSERT_EQ(
            Convert(film, input,
                    isMovText ? "--overwrite --video-codec copy"
                              : fmt::format("--overwrite --video-codec copy --subtitle-codec {}", row.from))
                .code,
            0);
        const std::string output = folder.At(row.output);
        const Outcome outcome = Convert(input, output, std::string("--overwrite ") + row.options);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_THAT(CodecsOf(Describe(output)), testing::EndsWith(row.codec));
        EXPECT_THAT(EventsOf(output), HasSubstr(row.events));
    }
}

TEST(ConvertSubtitles, ReadFilesOfAnyKind)
{
    const std::string begin = "1\n00:00:01,000 --> 00:00:02,000\n",
                      next = "\n\n2\n00:00:03,000 --> 00:00:04,000\n";
    const std::string vtt = "WEBVTT\n\nid\n00:01.000 --> 00:02.000 ",
                      ssa =
                          "[Script Info]\nScriptType: v4.00+\n\n[Events]\nFormat: Layer, Start, End, Style, "
                          "Text\nDialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,";
    std::string wide;
    for (const char letter : begin + "a" + next + "b\n")
        wide += {letter, '\0'};
    const struct {
        const char* name;
        std::string bytes;
        const char* output;
        const char* result;  ///< somewhere in the output
        const char* message = "";
    } rows[] = {
        {"a.srt", "\xEF\xBB\xBF\r\n1\r\n00:00:01,000 --> 00:00:02,000\r\na\r\n", "o.vtt",
         "00:01.000 --> 00:02.000\na"},
        {"a.srt", begin + "gr\xFC\xDFt" + next + "\x80 5\n", "o.vtt",
         "gr\xC3\xBC\xC3\x9Ft\n\n00:03.000 --> 00:04.000\n\xE2\x82\xAC 5"},
        {"a.srt", begin + "gr\xFC\xDFt" + next + "b\n", "o.srt", "gr\xC3\xBC\xC3\x9Ft"},
        {"a.srt", "\xFF\xFE" + wide, "o.ass", "0:00:03.00,0:00:04.00,Default,,0,0,0,,b"},
        {"a.srt", begin + "no end" + "\n\n2\n00:00:03,000 --> 00:00:02,000\nback\n", "o.vtt",
         "00:03.000 --> 00:13.000\nback"},
        {"a.srt", begin + std::string(70'000, 'x') + next + "b\n", "o.mp4", "b", "1 damaged packet"},
        {"a.vtt", vtt + "line:0\nup &lt;b&gt; {x}\n", "o.srt", "{\\an8}up <b> {x}\n"},
        {"a.ass", ssa + "{\\an9}1 < 2{note}\\N\\N&\n", "o.vtt",
         "00:01.000 --> 00:02.000 line:0 align:end\n1 &lt; 2\n&amp;"},
        {"a.ass", ssa + "{\\p1}m 0 0 l 9 9{\\p0}\nDialogue: 0,0:00:03.00,0:00:04.00,Default,,0,0,0,,b\n",
         "o.srt", "1\n00:00:03,000 --> 00:00:04,000\nb"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(fmt::format("{} to {}: {}", row.name, row.output, row.result));
        const TemporaryFolder folder;
        const Outcome outcome = Convert(folder.Put(row.name, row.bytes), folder.At(row.output));
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_THAT(outcome.errors, HasSubstr(row.message));
        std::ifstream file(folder.At(row.output), std::ios::binary);
        EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), HasSubstr(row.result));
    }
}

TEST(ConvertTags, StandWhereTheContainerKeepsThem)
{
    const TemporaryFolder folder;
    const std::string film = folder.At("film.ogv");
    RunFFmpeg({"-f",
               "lavfi",
               "-i",
               "testsrc2=s=64x48:d=1",
               "-f",
               "lavfi",
               "-i",
               "sine=d=1",
               "-metadata",
               "title=Song",
               "-metadata",
               "artist=Me",
               "-metadata:s:a",
               "title=English",
               "-metadata:s:a",
               "language=eng",
               "-c:v",
               "libtheora",
               "-c:a",
               "libvorbis",
               film});
    // each made of the one before
    const std::pair<const char*, const char*> rows[] = {
        {"a.mkv",  "file Song Me, stream, stream English eng"},
        {"b.mp3",  "file Song Me eng, stream"                },
        {"c.oga",  "file, stream Song Me eng"                },
        {"d.flac", "file Song Me eng, stream"                },
        {"e.opus", "file, stream Song Me eng"                },
        {"f.m4a",  "file Song Me, stream eng"                },
        {"g.ogg",  "file, stream Song Me eng"                },
        {"h.wav",  "file Song Me eng, stream"                },
    };
    std::string input = film;
    for (const auto& [name, expected] : rows) {
        const std::string output = folder.At(name);
        EXPECT_EQ(Convert(input, output).code, 0);
        const nlohmann::json file = Describe(output);
        const auto tags = [](const nlohmann::json& owner) {
            std::string text;
            const nlohmann::json all = owner.value("tags", nlohmann::json::object());
            for (const char* wanted : {"title", "artist", "language"})
                for (const auto& [key, value] : all.items())
                    if (std::ranges::equal(key, std::string_view(wanted), {}, ::tolower))
                        text += " " + value.get<std::string>();
            return text;
        };
        std::string found = "file" + tags(file["format"]);
        for (const nlohmann::json& stream : file["streams"])
            found += ", stream" + tags(stream);
        EXPECT_EQ(found, expected) << name;
        input = output;
    }
}

}  // namespace
