#include "tools/Convert.h"

#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <memory>
#include <string_view>

namespace Quorva::Tool {

namespace {

std::optional<int> WholeNumber(std::string_view text)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= 0 ? std::optional(number)
                                                                                   : std::nullopt;
}

/// "1280x720", "1280x" and "x720" for a side that follows, or FFmpeg's names as hd720.
FrameSize ParseSize(const std::string& text)
{
    if (const size_t middle = text.find('x'); middle != std::string::npos) {
        const std::string_view sides[] = {std::string_view(text).substr(0, middle),
                                          std::string_view(text).substr(middle + 1)};
        const auto width = sides[0].empty() ? std::optional(0) : WholeNumber(sides[0]);
        const auto height = sides[1].empty() ? std::optional(0) : WholeNumber(sides[1]);
        if (width && height && *width + *height > 0 && *width <= 65535 && *height <= 65535)
            return {*width, *height};
    }
    FrameSize size;
    if (av_parse_video_size(&size.width, &size.height, text.c_str()) < 0)
        throw CLI::ValidationError("--size",
                                   fmt::format("'{}' is no size: 1280x720, 1280x, x720 and hd720 are", text));
    return size;
}

AVRational ParseFrameRate(const std::string& text)
{
    AVRational rate{0, 1};
    if (av_parse_video_rate(&rate, text.c_str()) < 0)
        throw CLI::ValidationError(
            "--frame-rate", fmt::format("'{}' is no frame rate: 25, 29.97, 30000/1001 and ntsc are", text));
    return rate;
}

/// "2M", "128k", "800000" bits per second.
int64_t ParseBitrate(const char* option, const std::string& text)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string_view unit(rest, end);
    const double factor = unit.empty()                 ? 1
                          : unit == "k" || unit == "K" ? 1e3
                          : unit == "M" || unit == "m" ? 1e6
                                                       : 0;
    if (error != std::errc() || factor == 0 || !(number * factor >= 1) || number * factor > 1e11)
        throw CLI::ValidationError(option,
                                   fmt::format("'{}' is no bit rate: 800000, 128k and 2.5M are", text));
    return static_cast<int64_t>(number * factor);
}

std::pair<std::string, std::string> ParseOption(const std::string& text)
{
    const size_t middle = text.find('=');
    if (middle == 0 || middle == std::string::npos)
        throw CLI::ValidationError("--option", fmt::format("'{}' is not NAME=VALUE", text));
    return {text.substr(0, middle), text.substr(middle + 1)};
}

std::optional<int64_t> ParseMaxGap(const std::string& text)
{
    if (text == NONE)
        return std::nullopt;
    const int64_t time = ParseTime("--max-gap", text);
    if (time < AV_TIME_BASE)
        throw CLI::ValidationError("--max-gap", fmt::format("'{}' is less than a second", text));
    return time;
}

ExitCode Convert(const ConvertOptions& options, const Program& program)
{
    ApplyInputOptions(options.inputOptions, ConversionMemory());
    try {
        return CarryOut(options, program.quiet) ? EXIT_ALL_WELL : EXIT_STOPPED;
    } catch (const UsageError& e) {
        WriteComplaint(std::string("tessadrin: ") + e.what());
        return EXIT_USAGE;
    } catch (...) {
        Failure failure = CurrentFailure(options.input);
        if (failure.ffmpegResult == AVERROR_EXIT) {
            if (!program.quiet)
                WriteLine(options.output + ": stopped; nothing was written");
            return EXIT_STOPPED;
        }
        const bool ofOutput = failure.kind == FailureKind::Unwritable;
        if (ofOutput)
            failure = CurrentFailure(options.output);
        if (!program.quiet)
            PrintFailure(ofOutput ? options.output : options.input, failure, program.verbosity > 0);
        return Interruption::IsWanted() ? EXIT_STOPPED : EXIT_SOME_FAILED;
    }
}

ExitCode RunConvert(const ConvertOptions& options, const Program& program)
{
    const ExitCode code = Convert(options, program);
    if (!Interruption::IsOverdue())
        return code;
    std::fflush(nullptr);  // a stopped conversion: nothing is left to be done about a failure
    _exit(code);
}

void AddFiles(CLI::App& command, ConvertOptions& options)
{
    command.add_option("IN", options.input, "The file or pipe to read; - for standard input")
        ->required()
        ->type_name("");
    command
        .add_option(
            "OUT", options.output,
            "The file to write; - for standard output; with %d or %04d in it, one file for each picture")
        ->required()
        ->type_name("");
    command.add_option("-f,--format", options.format, "Output format; default: as the name of OUT says")
        ->type_name("FORMAT");
    command.add_flag("--overwrite", options.overwrite, "Replace OUT where it is there already");
    command.add_flag("--keep-partial", options.keepPartial,
                     "Keep what was written when the conversion fails");
}

void AddStreams(CLI::App& command, ConvertOptions& options)
{
    command
        .add_option(
            "--map", options.map,
            "Streams to take: 2 for stream 2, v, a or s for all of a kind, a:1 for the second of it; may "
            "be given several times. Default: all that OUT can hold")
        ->type_name("STREAM")
        ->group("Streams");
    command
        .add_option("--video-codec", options.videoCodec,
                    "Text identifier, copy or none; `tessadrin codecs` lists them")
        ->type_name("CODEC")
        ->group("Streams");
    command.add_option("--audio-codec", options.audioCodec, "The same for sound")
        ->type_name("CODEC")
        ->group("Streams");
    command
        .add_option("--subtitle-codec", options.subtitleCodec,
                    "For text subtitles: subrip, ass, webvtt, mov_text, copy or none")
        ->type_name("CODEC:{subrip,ass,webvtt,mov_text,copy,none}")
        ->group("Streams");
    command
        .add_option("--decoder-implementation", options.decoderImplementation,
                    "Who decodes: ffmpeg, nvdec, directx, qsv")
        ->type_name("NAME:{ffmpeg,nvdec,directx,qsv}")
        ->group("Streams");
    command
        .add_option("--encoder-implementation", options.encoderImplementation,
                    "Who encodes: ffmpeg, nvenc, qsv, amf")
        ->type_name("NAME:{ffmpeg,nvenc,qsv,amf}")
        ->group("Streams");
    command
        .add_option_function<std::string>(
            "--start", [&](const std::string& text) { options.start = ParseTime("--start", text); },
            "Begin here: seconds, or 1:30.5")
        ->type_name("TIME")
        ->group("Streams");
    command
        .add_option_function<std::string>(
            "--duration", [&](const std::string& text) { options.duration = ParseTime("--duration", text); },
            "Stop after this much output; copied pictures may last a few longer")
        ->type_name("TIME")
        ->group("Streams");
    command
        .add_option_function<std::string>(
            "--max-gap", [&](const std::string& text) { options.maxGap = ParseMaxGap(text); },
            "Close up jumps that all streams make together when they are longer (default: 10 seconds); none: "
            "keep and fill them")
        ->type_name("TIME")
        ->group("Streams");
}

void AddPicture(CLI::App& command, ConvertOptions& options)
{
    command
        .add_option_function<std::string>(
            "--size", [&](const std::string& text) { options.size = ParseSize(text); },
            "1280x720; 1280x or x720: the other side follows the picture's shape")
        ->type_name("SIZE")
        ->group("Pictures");
    command.add_option("--pixel-format", options.pixelFormat, "As FFmpeg names it: yuv420p10le")
        ->type_name("NAME")
        ->group("Pictures");
    command
        .add_option_function<std::string>(
            "--frame-rate", [&](const std::string& text) { options.frameRate = ParseFrameRate(text); },
            "Pictures per second, constant: 25, 30000/1001")
        ->type_name("RATE")
        ->group("Pictures");
    command.add_option("--quality", options.quality, "1 is the best, 100 the smallest")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100))
        ->group("Pictures");
    command
        .add_option_function<std::string>(
            "--bitrate", [&](const std::string& text) { options.bitrate = ParseBitrate("--bitrate", text); },
            "Bits per second: 2.5M")
        ->type_name("RATE")
        ->group("Pictures");
    command
        .add_flag("--two-pass", options.twoPass,
                  "Look at all pictures first, to share out the bit rate better")
        ->group("Pictures");
}

void AddSound(CLI::App& command, ConvertOptions& options)
{
    command.add_option("--sample-rate", options.sampleRate, "Hz")
        ->type_name("RATE")
        ->check(CLI::Range(1, 1536000))
        ->group("Sound");
    command.add_option("--channels", options.channels, "A number, or a layout's name")
        ->type_name("LAYOUT")
        ->group("Sound");
    command.add_option("--audio-quality", options.audioQuality, "1 is the best, 100 the smallest")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100))
        ->group("Sound");
    command
        .add_option_function<std::string>(
            "--audio-bitrate",
            [&](const std::string& text) { options.audioBitrate = ParseBitrate("--audio-bitrate", text); },
            "Bits per second: 128k")
        ->type_name("RATE")
        ->group("Sound");
}

void AddWork(CLI::App& command, ConvertOptions& options)
{
    command
        .add_option_function<std::vector<std::string>>(
            "--option",
            [&](const std::vector<std::string>& texts) {
                for (const std::string& text : texts)
                    options.encoderOptions.push_back(ParseOption(text));
            },
            "For the encoders that have such an option; may be given several times")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false)
        ->group("Work");
    command
        .add_option("--threads", options.threads, "For each decoder and encoder; default: as there are cores")
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 1024))
        ->group("Work");
    command
        .add_option_function<std::string>(
            "--progress", [&](const std::string& form) { options.progressJson = form == "json"; },
            "line: on the terminal (default); json: lines for programs, on standard output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"line", "json"}))
        ->group("Work");
}

}  // namespace

void AddConvert(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<ConvertOptions>();
    CLI::App* command = app.add_subcommand("convert", "Convert a media file into another one");
    AddFiles(*command, *options);
    AddStreams(*command, *options);
    AddPicture(*command, *options);
    AddSound(*command, *options);
    AddWork(*command, *options);
    AddInputOptions(*command, options->inputOptions, "three quarters of the machine's", "Work");
    for (CLI::Option* option : command->get_options())
        if (option->get_name() == "--map")
            option->allow_extra_args(false);
    command->footer(
        "Streams that OUT usually holds are copied, others are encoded. OUT appears when it is complete. "
        "Ctrl-C\n"
        "ends it well where it is, twice drops it.\n\n"
        "Examples:\n"
        "  tessadrin convert film.mkv film.mp4\n"
        "  tessadrin convert film.mkv small.webm --size x480 --quality 60\n"
        "  tessadrin convert film.mp4 sound.flac\n"
        "  tessadrin convert film.mkv film.srt\n"
        "  tessadrin convert film.mp4 part.mkv --video-codec copy --audio-codec copy --start 1:30 --duration "
        "10\n"
        "  tessadrin convert film.mp4 'picture%03d.png' --frame-rate 1");
    command->callback([options, &program] {
        program.command = [options](const Program& chosen) { return RunConvert(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
