#include "tools/Probe.h"
#include "tools/isolation/RecordText.h"
#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace Quorva::Tool {

namespace {

/// A line of values, those that are known, with commas between.
class List {
public:
    template <class... Args>
    void Add(fmt::format_string<Args...> format, Args&&... args)
    {
        text.append(text.empty() ? "" : ", ").append(fmt::format(format, std::forward<Args>(args)...));
    }
    const std::string& Get() const { return text; }

private:
    std::string text;
};

/// "29.97" or "25"
std::string RateText(double rate)
{
    std::string text = fmt::format("{:.3f}", rate);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

std::string MicrosText(const std::optional<int64_t>& value) { return value ? std::to_string(*value) : "-"; }

std::string CountText(const PacketCount& count)
{
    return fmt::format("{} packet{}, {} bytes", count.packets, count.packets == 1 ? "" : "s", count.bytes);
}

class TextOutput final : public ProbeOutput {
public:
    explicit TextOutput(bool packets) : packets(packets) {}

    void BeginPackets(const FileReport& report) override
    {
        PrintHead(report);
        described = report.streams.size();
    }

    void Packet(const PacketReport& packet) override
    {
        fmt::print("  packet of #{}  pts {:>10}  dts {:>10}  duration {:>7}  size {:>6}  at {:>8}{}{}{}\n",
                   packet.stream, MicrosText(packet.pts), MicrosText(packet.dts), MicrosText(packet.duration),
                   packet.size, MicrosText(packet.position), packet.key ? "  key" : "",
                   packet.corrupt ? "  corrupt" : "", packet.discard ? "  discard" : "");
    }

    void File(const FileReport& report) override
    {
        if (!report.opened)
            return;
        if (!packets)
            PrintHead(report);
        else
            std::for_each(report.streams.begin() + static_cast<ptrdiff_t>(described), report.streams.end(),
                          [](const StreamReport& stream) { PrintStream(stream, false); });
        if (packets && report.count)
            PrintField("read", CountText(*report.count));
    }

private:
    static void PrintField(std::string_view name, const std::string& text, std::string_view indent = "  ")
    {
        if (!text.empty())
            fmt::print("{}{:<10} {}\n", indent, name, text);
    }

    static void PrintMetadata(const Texts& metadata, std::string_view indent)
    {
        size_t width = 0;
        for (const auto& [key, value] : metadata)
            width = std::max(width, DisplayWidth(Printable(key)));
        for (const auto& [key, value] : metadata) {
            const std::string name = Printable(key);
            fmt::print("{}{}{:{}} = {}\n", indent, name, "", width - DisplayWidth(name), Printable(value));
        }
    }

    static void PrintHead(const FileReport& report)
    {
        MakeWayForOutput();
        fmt::print("{}\n", Printable(report.path));
        PrintField("format", fmt::format("{}, score {}, implementation {}", report.result.format,
                                         report.result.score, report.result.implementation));
        PrintField("container",
                   fmt::format("{}{}{}", report.container,
                               report.demuxer == report.container ? "" : ", FFmpeg's " + report.demuxer,
                               report.singleImage ? ", a single image" : ""));
        List times;
        if (report.duration)
            times.Add("{}", DurationText(*report.duration));
        if (report.start && *report.start != 0)
            times.Add("from {}", DurationText(*report.start));
        if (report.bitRate)
            times.Add("{}", BitRateText(*report.bitRate));
        PrintField("duration", times.Get());
        PrintField("size", fmt::format("{} bytes", report.size));
        if (report.count)
            PrintField("read", CountText(*report.count));
        if (!report.chapters.empty())
            PrintField("chapters", std::to_string(report.chapters.size()));
        for (const std::string& warning : report.warnings)
            PrintField("warning", Printable(warning));
        if (!report.metadata.empty()) {
            fmt::print("  metadata\n");
            PrintMetadata(report.metadata, "    ");
        }
        for (const ProgramReport& program : report.programs)
            PrintProgram(program);
        for (const StreamReport& stream : report.streams)
            PrintStream(stream, report.count.has_value());
    }

    static void PrintProgram(const ProgramReport& program)
    {
        List list;
        list.Add("{}", program.number);
        if (const std::string* name = program.GetName())
            list.Add("{}", Printable(*name));
        if (program.pmtPid)
            list.Add("PMT at {}", *program.pmtPid);
        if (program.pcrPid)
            list.Add("PCR at {}", *program.pcrPid);
        list.Add("streams #{}", fmt::join(program.streams, " #"));
        PrintField("program", list.Get());
        PrintMetadata(program.metadata, "               ");
    }

    static void PrintStream(const StreamReport& stream, bool counted)
    {
        fmt::print("  #{:<2} {:<6} {}\n", stream.index, stream.kind, CodecText(stream));
        static constexpr std::string_view indent = "             ";
        std::vector<std::string> lines = DetailLines(stream);
        lines.insert(lines.begin(), MediaText(stream));
        lines.push_back(stream.decoder ? DecoderText(stream) : "no decoder");
        if (counted)
            lines.push_back(CountText(stream.count));
        for (const std::string& line : lines)
            if (!line.empty())
                fmt::print("{}{}\n", indent, line);
        PrintMetadata(stream.metadata, "               ");
    }

    static std::string CodecText(const StreamReport& stream)
    {
        List list;
        if (stream.codecID.empty())
            list.Add("{} (not in the catalogue)", stream.codecName);
        else
            list.Add("{}", stream.codecID);
        if (stream.profile)
            list.Add("{}", stream.profile);
        if (stream.level)
            list.Add("level {}", stream.level->name);
        if (!stream.tag.empty())
            list.Add("tag {}", stream.tag);
        for (const std::string& name : stream.disposition)
            list.Add("{}", name);
        return list.Get();
    }

    static std::string DecoderText(const StreamReport& stream)
    {
        return stream.decoderLongName.empty()
                   ? fmt::format("decoder {}", stream.decoder)
                   : fmt::format("decoder {}: {}", stream.decoder, stream.decoderLongName);
    }

    static std::string MediaText(const StreamReport& stream)
    {
        List list;
        if (const auto& video = stream.video) {
            AddPictures(*video, list);
            AddColors(*video, list);
        }
        if (const auto& audio = stream.audio)
            AddSound(*audio, list);
        if (stream.duration)
            list.Add("{}", DurationText(*stream.duration));
        if (stream.bitRate)
            list.Add("{}", BitRateText(*stream.bitRate));
        if (stream.frames)
            list.Add("{} frame{}", *stream.frames, *stream.frames == 1 ? "" : "s");
        return list.Get();
    }

    static void AddPictures(const VideoReport& video, List& list)
    {
        if (video.width > 0)
            list.Add("{}x{}", video.width, video.height);
        if (video.pixelFormat)
            list.Add("{}", video.pixelFormat);
        if (video.pixelAspect.num > 0)
            list.Add("pixel aspect {}:{}", video.pixelAspect.num, video.pixelAspect.den);
        const double rate = video.frameRate.num > 0 ? av_q2d(video.frameRate) : 0;
        const double average = video.averageRate.num > 0 ? av_q2d(video.averageRate) : 0;
        if (rate > 0)
            list.Add("{} frames/s", RateText(rate));
        if (average > 0 && std::abs(average - rate) > rate / 100)
            list.Add("{} frames/s on average", RateText(average));
        if (video.fieldOrder)
            list.Add("{}", FieldOrderText(video.fieldOrder));
        if (video.rotation && (*video.rotation != 0 || video.mirrored))
            list.Add("turn by {} degrees{}", *video.rotation, video.mirrored ? " and mirror" : "");
        if (video.crop)
            list.Add("cropped by {} {} {} {}", video.crop->top, video.crop->bottom, video.crop->left,
                     video.crop->right);
    }

    static void AddColors(const VideoReport& video, List& list)
    {
        if (const std::string color = ColorText(video); !color.empty())
            list.Add("colour {}", color);
        if (video.range)
            list.Add("range {}", video.range);
        if (video.chromaLocation)
            list.Add("chroma {}", video.chromaLocation);
    }

    static void AddSound(const AudioReport& audio, List& list)
    {
        list.Add("{} Hz", audio.sampleRate);
        list.Add("{} channel{}", audio.channels, audio.channels == 1 ? "" : "s");
        if (!audio.layout.empty())
            list.Add("{}", audio.layout);
        if (audio.format)
            list.Add("{}", audio.format->name);
        if (audio.bits > 0)
            list.Add("{} bit{}", audio.bits, audio.bits == 1 ? "" : "s");
    }

    static std::string FieldOrderText(std::string_view order)
    {
        if (order == "progressive")
            return std::string(order);
        const auto field = [](char letter) { return letter == 't' ? "top" : "bottom"; };
        return order[0] == order[1] ? fmt::format("interlaced, {} field first", field(order[1]))
                                    : fmt::format("interlaced, {} field first, coded {} first",
                                                  field(order[1]), field(order[0]));
    }

    /// "bt709", or "bt709/smpte2084/bt2020nc" when the three differ: primaries, transfer, matrix.
    static std::string ColorText(const VideoReport& video)
    {
        std::string text;
        const std::string first = video.primaries ? video.primaries : "-";
        bool same = true;
        for (const char* name : {video.primaries, video.transfer, video.matrix}) {
            const std::string word = name ? name : "-";
            same = same && word == first;
            text.append(text.empty() ? "" : "/").append(word);
        }
        if (!video.primaries && !video.transfer && !video.matrix)
            return {};
        return same ? first : text;
    }

    const bool packets;
    size_t described = 0;  ///< streams of the current file that were printed before its packets
};

class TableOutput final : public ProbeOutput {
public:
    void File(const FileReport& report) override
    {
        const auto number = [](uint64_t value) { return std::to_string(value); };
        const std::string cells[] = {report.result.format,
                                     report.detected ? number(report.result.score) : "",
                                     report.container,
                                     report.StreamsText(),
                                     report.count ? number(report.count->packets) : "",
                                     report.count ? number(report.count->bytes) : "",
                                     NoteOf(report)};
        SendText('R', fmt::format("{}", fmt::join(cells, std::string_view("\0", 1))));
    }

    void Record(const std::string& path, std::string_view record) override
    {
        const auto text = received.Take(record);
        if (!text)
            return;
        row = {path};
        std::istringstream cells(text->text);
        for (std::string cell; row.size() < COLUMNS && std::getline(cells, cell, '\0');)
            row.push_back(cell);
    }
    void EndFile(const std::string& path, const Failure* failure) override
    {
        if (row.empty())
            row = {path};
        row.resize(COLUMNS);
        if (failure)
            row.back() = failure->message;
        table.Add(std::exchange(row, {}));
        received.Clear();
    }
    void End() override
    {
        MakeWayForOutput();
        table.Print(stdout);
    }
    bool ShowsFailures() const override { return true; }

private:
    static std::string NoteOf(const FileReport& report)
    {
        if (report.failure)
            return report.failure->message;
        return report.warnings.empty() ? Highlights(report) : report.warnings.front();
    }

    static constexpr size_t COLUMNS = 8;

    ReceivedTexts received;
    std::vector<std::string> row;  ///< of the file that is shown
    using enum TextTable::Align;
    TextTable table{
        {{"FILE", Left},
         {"FORMAT", Left},
         {"SCORE", Right},
         {"CONTAINER", Left},
         {"STREAMS", Left},
         {"PACKETS", Right},
         {"BYTES", Right},
         {"NOTE", Left}}
    };
};

}  // namespace

std::unique_ptr<ProbeOutput> MakeTextOutput(bool packets) { return std::make_unique<TextOutput>(packets); }
std::unique_ptr<ProbeOutput> MakeTableOutput() { return std::make_unique<TableOutput>(); }

}  // namespace Quorva::Tool
