#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Command.h"
#include "tools/support/Failure.h"
#include "tools/support/Logging.h"
#include "tools/support/OpenedInput.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

extern "C" {
#include <libavutil/parseutils.h>
}

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <vector>

namespace Quorva::Tool {

namespace {

struct DumpOptions {
    std::string file;
    std::string name;
    std::vector<int> streams;  ///< empty: chosen here
    int every = 1;
    int count = 1;
    int64_t at = 0;  ///< microseconds from the file's start
    bool packets = false;
};

struct DeletePacket {
    void operator()(AVPacket* packet) const { Proc::ReleasePacket(&packet); }
};

[[noreturn]] void ThrowFailure(const std::string& description, FailureKind kind)
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription(description) << TagFailureKind(kind));
}

/// A decoder at work on one stream, with what it gives on the way to files and lines.
class StreamDump {
public:
    /// @param start  the file's, in microseconds
    /// @throws Quorva::Exception  nothing decodes the stream.
    StreamDump(const AVStream& stream, const DumpOptions& options, LibraryErrors& errors, std::string name,
               int64_t start)
        : options(options),
          errors(errors),
          name(std::move(name)),
          start(start),
          stream(stream),
          decoder(Open(stream))
    {
    }

    int GetIndex() const { return stream.index; }
    bool IsVideo() const { return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO; }
    bool IsDone() const { return dumped >= options.count; }
    int GetCount() const { return dumped; }
    /// Packets that could not be decoded, and why the first of them; empty when all could.
    std::string GetComplaint() const
    {
        if (refused == 0)
            return {};
        return fmt::format("stream {}: {} packet{} not decoded: {}", stream.index, refused,
                           refused == 1 ? "" : "s", FFmpegReason(firstReason));
    }

    /// @param packet  null at the end, for what the decoder has kept
    /// @throws Quorva::Exception  a picture can't be converted, or its file not be written.
    void Decode(const AVPacket* packet)
    {
        if (IsVideo())
            DecodePictures(packet);
        else
            DecodeSubtitles(packet);
    }

private:
    static constexpr int mostRefusals = 8;  ///< in a row: some decoders repeat one failure for ever

    static Proc::SafeCodecContext Open(const AVStream& stream)
    {
        const AVCodec* codec = Proc::FindDecoder(stream.codecpar->codec_id, Proc::ImplNames::FFMPEG);
        if (!codec)
            ThrowFailure(fmt::format("stream {}: nothing decodes {}", stream.index,
                                     avcodec_get_name(stream.codecpar->codec_id)),
                         FailureKind::Unsupported);
        Proc::SafeCodecContext context(codec);
        int result = avcodec_parameters_to_context(context.get(), stream.codecpar);
        context->pkt_timebase = stream.time_base;
        context->thread_count = 0;  // as many as there are processors
        if (result >= 0)
            result = avcodec_open2(context.get(), codec, nullptr);
        if (result < 0)
            ThrowFFmpegFailure(fmt::format("stream {}: can't open {}", stream.index, codec->name), result);
        return context;
    }

    void Refuse(int reason)
    {
        if (refused++ == 0)
            firstReason = reason;
    }

    void DecodePictures(const AVPacket* packet)
    {
        const int sent = avcodec_send_packet(decoder.get(), packet);
        if (sent < 0 && sent != AVERROR_EOF)
            Refuse(sent);
        Proc::AVFrameWrapper frame;
        for (int refusals = 0; !IsDone() && refusals < mostRefusals;) {
            const int received = avcodec_receive_frame(decoder.get(), &frame);
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
                break;
            if (received >= 0) {
                DumpPicture(*frame.operator->());
            } else {
                Refuse(received);
                ++refusals;
            }
        }
    }

    void DecodeSubtitles(const AVPacket* packet)
    {
        const std::unique_ptr<AVPacket, DeletePacket> end(packet ? nullptr : Proc::CreatePacket(0));
        if (!packet && !(decoder.GetCapabilities() & AV_CODEC_CAP_DELAY))
            return;
        int whole = 0;
        do {
            AVSubtitle subtitle{};
            const int result =
                avcodec_decode_subtitle2(decoder.get(), &subtitle, &whole, packet ? packet : end.get());
            const std::unique_ptr<AVSubtitle, void (*)(AVSubtitle*)> owner(&subtitle, avsubtitle_free);
            if (result < 0)
                return Refuse(result);
            if (whole && !IsDone())
                DumpSubtitle(subtitle, packet);
        } while (!packet && whole && !IsDone());
    }

    /// Whether the options want what is decoded next.
    /// @param time  microseconds; AV_NOPTS_VALUE when unknown
    bool IsWanted(int64_t time)
    {
        if (options.at > 0 && time != AV_NOPTS_VALUE && time < start + options.at)
            return false;
        return seen++ % options.every == 0;
    }

    /// From the file's start.
    std::string TimeText(int64_t time) const
    {
        return time == AV_NOPTS_VALUE ? "no time" : DurationText(time - start);
    }

    void DumpPicture(const AVFrame& frame)
    {
        const int64_t time = Proc::stream_to_global(frame.best_effort_timestamp, stream.time_base);
        if (!IsWanted(time))
            return;
        Proc::AVFrame_SaveToBmp(frame.width, frame.height, &frame, name);
        const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
        CloseFile(frame.flags & AV_FRAME_FLAG_KEY, time,
                  fmt::format("{}x{} {}", frame.width, frame.height, format ? format : "?"));
    }

    void DumpSubtitle(const AVSubtitle& subtitle, const AVPacket* packet)
    {
        if (subtitle.num_rects == 0)  // takes the one before off the screen
            return;
        int64_t time = subtitle.pts;
        if (time == AV_NOPTS_VALUE && packet)
            time = Proc::stream_to_global(packet->pts, stream.time_base);
        if (time != AV_NOPTS_VALUE)
            time += int64_t{subtitle.start_display_time} * 1000;
        if (!IsWanted(time))
            return;
        const AVSubtitleRect& first = *subtitle.rects[0];
        if (first.type == SUBTITLE_BITMAP) {
            Proc::Subtitle_SaveToBmp(subtitle, name);
            CloseFile(false, time, fmt::format("subtitle, {}x{}", first.w, first.h));
        } else {
            ++dumped;
            fmt::print("stream {}  {}  {}\n", stream.index, TimeText(time),
                       Printable(Proc::Subtitle_ToString(subtitle)));
        }
    }

    /// Tells of the file that was just written, or throws why it was not.
    void CloseFile(bool key, int64_t time, const std::string& what)
    {
        if (const std::string error = errors.Take(); !error.empty())
            ThrowFailure(error, FailureKind::Internal);
        fmt::print("{}  {}  {}\n", Printable(Proc::GetDumpFileName(name, dumped++, key)), TimeText(time),
                   what);
    }

    const DumpOptions& options;
    LibraryErrors& errors;  ///< a dump that can't be written says so there alone
    const std::string name;
    const int64_t start;
    const AVStream& stream;
    Proc::SafeCodecContext decoder;
    uint64_t seen = 0;  ///< pictures or subtitles behind options.at
    int dumped = 0;
    uint64_t refused = 0;
    int firstReason = 0;
};

/// The streams that were asked for; or else the best picture and all subtitles.
std::vector<int> ChooseStreams(const OpenedInput& input, const DumpOptions& options)
{
    const int best = av_find_best_stream(input.Get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    std::vector<int> chosen;
    for (const int index : options.streams) {
        if (index < 0 || static_cast<unsigned>(index) >= input->nb_streams)
            ThrowFailure(fmt::format("no stream {}: there are {}", index, input->nb_streams),
                         FailureKind::NotFound);
        const AVMediaType kind = input->streams[index]->codecpar->codec_type;
        if (kind != AVMEDIA_TYPE_VIDEO && kind != AVMEDIA_TYPE_SUBTITLE)
            ThrowFailure(
                fmt::format("stream {} is {}, which has no pictures", index, Proc::GetMediaTypeName(kind)),
                FailureKind::Unsupported);
        if (std::ranges::find(chosen, index) == chosen.end())
            chosen.push_back(index);
    }
    if (!chosen.empty())
        return chosen;
    if (best >= 0)
        chosen.push_back(best);
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (input->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE)
            chosen.push_back(static_cast<int>(i));
    if (chosen.empty())
        ThrowFailure("no pictures and no subtitles in it", FailureKind::Unsupported);
    return chosen;
}

/// Dumps one file. Failures of single streams are shown at once, and the others go on.
class FileDump {
public:
    FileDump(const DumpOptions& options, const Program& program)
        : options(options), program(program), input(DetectInput(options.file))
    {
        const int64_t start = input->start_time == AV_NOPTS_VALUE ? 0 : input->start_time;
        // Not examined: where FFmpeg can't jump, everything is read, and passed over up to that time.
        if (options.at > 0)
            avformat_seek_file(input.Get(), -1, INT64_MIN, start + options.at, start + options.at, 0);
        for (unsigned i = 0; i < input->nb_streams && !options.packets; ++i)
            input->streams[i]->discard = AVDISCARD_ALL;
        bool plainName = true;
        for (const int index : ChooseStreams(input, options)) {
            AVStream& stream = *input->streams[index];
            stream.discard = AVDISCARD_DEFAULT;
            const bool plain = plainName && stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
            plainName &= !plain;
            try {
                streams.push_back(std::make_unique<StreamDump>(
                    stream, options, errors,
                    plain ? options.name : fmt::format("{}_stream{}", options.name, index), start));
            } catch (...) {
                Fail(CurrentFailure(options.file));
            }
        }
    }

    ExitCode Run()
    {
        const std::unique_ptr<AVPacket, DeletePacket> packet(Proc::CreatePacket(0));
        const auto done = [](const auto& stream) { return stream->IsDone(); };
        try {
            while (!std::ranges::all_of(streams, done) && input.ReadPacket(packet.get())) {
                Take(*packet);
                av_packet_unref(packet.get());
            }
            input.CheckStreams();
        } catch (...) {
            Fail(CurrentFailure(options.file));
        }
        if (!stopped)
            Finish();
        return code;
    }

private:
    void Fail(const Failure& failure)
    {
        code = EXIT_SOME_FAILED;
        if (!program.quiet)
            PrintFailure(options.file, failure, program.verbosity > 0);
    }

    void Fail(const std::string& message)
    {
        Failure failure;
        failure.message = message;
        Fail(failure);
    }

    void Take(const AVPacket& packet)
    {
        if (options.packets) {
            using Proc::operator<<;
            std::ostringstream line;
            line << &packet;
            fmt::print("{}\n", line.str());
        }
        for (const auto& stream : streams)
            if (stream->GetIndex() == packet.stream_index && !stream->IsDone())
                Decode(*stream, &packet);
    }

    void Decode(StreamDump& stream, const AVPacket* packet)
    {
        try {
            stream.Decode(packet);
        } catch (...) {
            stopped = true;  // the next picture would meet the same
            throw;
        }
    }

    void Finish()
    {
        int dumps = 0;
        for (const auto& stream : streams) {
            try {
                if (!stream->IsDone())
                    Decode(*stream, nullptr);
            } catch (...) {
                return Fail(CurrentFailure(options.file));
            }
            if (const std::string complaint = stream->GetComplaint(); !complaint.empty())
                Fail(complaint);
            dumps += stream->GetCount();
        }
        if (dumps == 0 && code == EXIT_ALL_WELL)
            Fail(options.at > 0 ? "nothing at or after " + DurationText(options.at)
                                : std::string("nothing came out of it"));
    }

    const DumpOptions& options;
    const Program& program;
    LibraryErrors errors;
    OpenedInput input;
    std::vector<std::unique_ptr<StreamDump>> streams;
    bool stopped = false;  ///< a dump failed
    ExitCode code = EXIT_ALL_WELL;
};

ExitCode RunDump(const DumpOptions& options, const Program& program)
{
    try {
        return FileDump(options, program).Run();
    } catch (...) {
        if (!program.quiet)
            PrintFailure(options.file, CurrentFailure(options.file), program.verbosity > 0);
        return EXIT_SOME_FAILED;
    }
}

}  // namespace

void AddDump(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<DumpOptions>();
    CLI::App* command =
        app.add_subcommand("dump", "Write pictures and bitmap subtitles as BMP files, print text subtitles");
    command->add_option("FILE", options->file, "The file to decode")->required()->type_name("");
    command->add_option("--name", options->name,
                        "Begin of the files' names, with a folder if wanted (default: that of FILE, here)");
    command->add_option("--count", options->count, "Dumps of each stream (default: 1)")
        ->check(CLI::PositiveNumber);
    command->add_option("--every", options->every, "Dump every Nth picture or subtitle only")
        ->check(CLI::PositiveNumber);
    command
        ->add_option_function<std::string>(
            "--at", [options](const std::string& text) { av_parse_time(&options->at, text.c_str(), 1); },
            "Begin at this time from the file's start: 90, 12.5 or 1:02:03.4")
        ->check(
            [](const std::string& text) {
                int64_t time = 0;
                const bool good = av_parse_time(&time, text.c_str(), 1) >= 0 && time >= 0;
                return good ? std::string() : "'" + text + "' is no time";
            },
            "TIME");
    command
        ->add_option("--stream", options->streams,
                     "Stream to dump, by its number; may be repeated (default: the best picture and all "
                     "subtitles)")
        ->allow_extra_args(false);
    command->add_flag("--packets", options->packets, "Print every packet that is read, times in ticks");
    command->footer(
        "Files are named NAME_000_key=1.bmp and so on, key=1 for key frames; those of further streams\n"
        "NAME_streamN_000_key=0.bmp. Dots along the right and the bottom edge mark where the picture ends.\n"
        "FILE is read until every stream has its dumps, or to its end.\n\n"
        "Examples:\n"
        "  tessadrin dump film.mkv                                  the first picture and the first "
        "subtitles\n"
        "  tessadrin dump film.mkv --at 1:02:03 --name /tmp/scene   the picture at that time\n"
        "  tessadrin dump film.mkv --every 250 --count 20           20 pictures, one of each 250\n"
        "  tessadrin dump film.mkv --stream 3 --count 100           100 subtitles of stream 3");
    command->callback([options, &program] {
        if (options->name.empty())
            options->name = std::filesystem::path(options->file).stem();
        program.command = [options](const Program& chosen) { return RunDump(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
