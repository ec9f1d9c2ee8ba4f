#include "benchmarks/support/Children.h"
#include "benchmarks/support/Programs.h"
#include "tests/support/Muxed.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace Benchmarks {

namespace {

Result Summary(const char* name, const char* peer, std::vector<double> ratios, double limit)
{
    std::ranges::sort(ratios);
    Result result{.name = name, .peer = peer, .limit = limit};
    result.ratio = ratios[ratios.size() / 2];
    result.lowerQuartile = ratios[ratios.size() / 4];
    result.upperQuartile = ratios[ratios.size() * 3 / 4];
    return result;
}

}  // namespace

std::vector<Result> MeasureLoad()
{
    constexpr int rounds = 41;
    std::vector<double> ratios, loads, throws;
    std::vector<double> numbers(6);
    for (int round = 0; round < rounds; ++round) {
        std::istringstream text(Run({TESSADRIN_LOAD_CHILD}).output);
        for (double& number : numbers)
            text >> number;
        ratios.push_back(numbers[1] / numbers[0]);
        loads.push_back(numbers[1]);
        throws.push_back(numbers[2]);
    }
    Result load = Summary("tables at load", "process to main() with FFmpeg's five libraries", ratios, 0.015);
    load.seconds = Median(loads);
    load.allocations = numbers[3];
    load.remark = fmt::format("{:.0f} KB", numbers[4] / 1000);
    Result thrown{.name = "first throw in a process", .peer = "one millisecond", .limit = 1};
    thrown.seconds = Median(throws);
    thrown.ratio = thrown.lowerQuartile = thrown.upperQuartile = thrown.seconds / 1e-3;
    thrown.remark = fmt::format("keeps {:.0f} KB", numbers[5] / 1000);
    return {load, thrown};
}

std::vector<Result> MeasureConvert()
{
    constexpr int rounds = 41;
    const TemporaryFolder folder;
    const std::string film = folder.At("film.mp4"), ours = folder.At("ours.mp4"),
                      peers = folder.At("peers.mp4");
    Run({"ffmpeg",
         "-v",
         "error",
         "-f",
         "lavfi",
         "-i",
         "testsrc2=size=1280x720:rate=25",
         "-f",
         "lavfi",
         "-i",
         "sine=frequency=440:sample_rate=48000",
         "-t",
         "30",
         "-c:v",
         "mpeg4",
         "-q:v",
         "3",
         "-c:a",
         "aac",
         "-ac",
         "2",
         film});
    const std::vector<std::string> convert = {TESSADRIN_PROGRAM,
                                              "convert",
                                              "--overwrite",
                                              film,
                                              ours,
                                              "--video-codec",
                                              "h264",
                                              "--audio-codec",
                                              "aac",
                                              "--option",
                                              "preset=veryfast",
                                              "--option",
                                              "crf=23",
                                              "--audio-bitrate",
                                              "128k"};
    const std::vector<std::string> byFFmpeg = {
        "ffmpeg",  "-v",       "error", "-y", "-i",   film,  "-map", "0",    "-c:v", "libx264",
        "-preset", "veryfast", "-crf",  "23", "-c:a", "aac", "-b:a", "128k", peers};
    std::vector<double> processor, wall, memory, seconds;
    for (int round = 0; round < rounds; ++round) {
        Cost cost, peersCost;
        for (const bool mine : {round % 2 == 0, round % 2 != 0})
            (mine ? cost : peersCost) = Run(mine ? convert : byFFmpeg);
        processor.push_back(cost.processor / peersCost.processor);
        wall.push_back(cost.wall / peersCost.wall);
        memory.push_back(cost.memory / peersCost.memory);
        seconds.push_back(cost.wall);
    }
    const auto hash = [](const std::string& path) {
        return Run({"ffmpeg", "-v", "error", "-i", path, "-map", "0", "-c", "copy", "-f", "streamhash", "-"})
            .output;
    };
    if (hash(ours) != hash(peers))
        throw std::runtime_error("convert gives other streams than FFmpeg's program");
    const char* const peer = "FFmpeg's program, the same streams";
    std::vector<Result> results = {
        Summary("30 s of 720p mpeg4 to H.264 and AAC, processor", peer, processor, 1),
        Summary("30 s of 720p mpeg4 to H.264 and AAC, wall clock", peer, wall, 1),
        Summary("30 s of 720p mpeg4 to H.264 and AAC, memory", peer, memory, 0.8)};
    for (Result& result : results)
        result.seconds = Median(seconds);
    return results;
}

namespace {

struct Point {
    double megabytes, seconds, memory;
};
struct Line {
    const char* name;
    const char* colour;
    std::vector<Point> points;
};

/// A transport stream as long as wanted; damaged, every tenth part is noise.
void WriteStream(const std::string& path, int64_t megabytes, bool damaged)
{
    static const std::vector<uint8_t> piece = Mux("mpegts", "mpeg2video", 400, 8'000'000);
    std::ofstream file(path, std::ios::binary);
    std::minstd_rand random(1);
    int64_t done = 0;
    for (int number = 0; done < megabytes * 1'000'000; ++number) {
        std::vector<uint8_t> bytes = piece;
        if (damaged && number % 10 == 5)
            std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(random() >> 8); });
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        done += static_cast<int64_t>(bytes.size());
    }
}

/// Two charts side by side, both axes by powers of ten.
std::string Draw(const std::vector<Line>& lines)
{
    constexpr double left = 70, width = 300, height = 240, top = 40, gap = 110;
    std::string svg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 860 370\" font-family=\"sans-serif\" "
        "font-size=\"12\">\n<rect width=\"860\" height=\"370\" fill=\"white\"/>\n";
    const struct {
        const char* title;
        double low, high;  // powers of ten
        double Point::* value;
    } charts[] = {
        {"seconds on the processor", -2, 2, &Point::seconds},
        {"memory, MB",               1,  3, &Point::memory }
    };
    double x0 = left;
    for (const auto& chart : charts) {
        const auto x = [&](double megabytes) { return x0 + (std::log10(megabytes) - 1) / 2 * width; };
        const auto y = [&](double value) {
            return top + height * (1 - (std::log10(value) - chart.low) / (chart.high - chart.low));
        };
        svg += fmt::format("<text x=\"{}\" y=\"24\" font-weight=\"bold\">{}</text>\n", x0, chart.title);
        for (double power = chart.low; power <= chart.high; ++power)
            svg += fmt::format(
                "<path d=\"M{} {}h{}\" stroke=\"#ddd\"/><text x=\"{}\" y=\"{}\" "
                "text-anchor=\"end\">{:g}</text>\n",
                x0, y(std::pow(10, power)), width, x0 - 6, y(std::pow(10, power)) + 4, std::pow(10, power));
        for (const double megabytes : {10., 100., 1000.})
            svg += fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"middle\">{:g} MB</text>\n",
                               x(megabytes), top + height + 18, megabytes);
        for (const Line& line : lines) {
            std::string path;
            for (const Point& point : line.points) {
                path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? "M" : "L", x(point.megabytes),
                                    y(point.*chart.value));
                svg += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"{}\"/>",
                                   x(point.megabytes), y(point.*chart.value), line.colour);
            }
            svg += fmt::format("<path d=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"2\"/>\n", path,
                               line.colour);
        }
        x0 += width + gap;
    }
    double at = left;
    for (const Line& line : lines) {
        svg += fmt::format(
            "<rect x=\"{}\" y=\"330\" width=\"14\" height=\"4\" fill=\"{}\"/><text x=\"{}\" "
            "y=\"337\">{}</text>\n",
            at, line.colour, at + 20, line.name);
        at += 190;
    }
    return svg + "</svg>\n";
}

}  // namespace

void DrawGrowth()
{
    const TemporaryFolder folder;
    std::vector<Line> lines = {
        {"probe",                  "#4477aa", {}},
        {"probe --count",          "#228833", {}},
        {"convert, copied",        "#aa3377", {}},
        {"probe --count, damaged", "#ee6677", {}}
    };
    for (const int megabytes : {10, 100, 1000}) {
        const std::string whole = folder.At("whole.ts"), damaged = folder.At("damaged.ts");
        WriteStream(whole, megabytes, false);
        WriteStream(damaged, megabytes, true);
        const std::vector<std::string> commands[] = {
            {TESSADRIN_PROGRAM, "probe", whole},
            {TESSADRIN_PROGRAM, "probe", "--count", whole},
            {TESSADRIN_PROGRAM, "convert", "--overwrite", whole, folder.At("out.mkv")},
            {TESSADRIN_PROGRAM, "probe", "--count", damaged},
        };
        for (size_t i = 0; i < lines.size(); ++i) {
            const Cost cost = Run(commands[i]);
            lines[i].points.push_back({static_cast<double>(megabytes), cost.processor, cost.memory / 1e6});
            fmt::print("{:>5} MB, {:<24} {:>7.3f} s, {:>6.1f} MB\n", megabytes, lines[i].name, cost.processor,
                       cost.memory / 1e6);
            std::fflush(stdout);
        }
    }
    std::ofstream(TESSADRIN_RESULTS "/../docs/growth.svg") << Draw(lines);
}

}  // namespace Benchmarks
