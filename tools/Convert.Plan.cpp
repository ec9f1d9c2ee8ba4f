#include "tools/Convert.h"
#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "tools/Convert.Containers.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Header.h"
#include "tools/Convert.Subtitles.h"
#include "tools/support/Logging.h"
#include "tools/support/OutputFiles.h"
#include "tools/support/Suggest.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace Quorva::Tool {

namespace {

using Treatment = StreamPlan::Treatment;

constexpr size_t KINDS = AVMEDIA_TYPE_NB;

bool IsCover(const AVStream& stream) { return stream.disposition & AV_DISPOSITION_ATTACHED_PIC; }

std::string Describe(const AVStream& stream)
{
    return fmt::format("stream {}: {} {}", stream.index,
                       IsCover(stream) ? "cover" : Proc::GetMediaTypeName(stream.codecpar->codec_type),
                       CodecName(stream.codecpar->codec_id));
}

/// Why a stream of pictures or sound is not described well enough to be converted; empty when it is.
std::string Unknown(const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const bool isVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
    if (!isVideo && parameters.codec_type != AVMEDIA_TYPE_AUDIO)
        return {};
    if (parameters.codec_id == AV_CODEC_ID_NONE) {
        char code[AV_FOURCC_MAX_STRING_SIZE];
        return parameters.codec_tag == 0 ? "FFmpeg doesn't know its codec"
                                         : fmt::format("FFmpeg knows no codec of the code {}",
                                                       av_fourcc_make_string(code, parameters.codec_tag));
    }
    const char* missing = isVideo                      ? "the size of its pictures"
                          : parameters.sample_rate > 0 ? "its number of channels"
                                                       : "its sample rate";
    if (isVideo ? parameters.width > 0 && parameters.height > 0
                : parameters.sample_rate > 0 && parameters.ch_layout.nb_channels > 0)
        return {};
    const AVCodec* const decoder = avcodec_find_decoder(parameters.codec_id);
    std::string words = decoder ? FFmpegErrors::First(decoder->name) : "this FFmpeg has no decoder for it";
    if (words.empty())
        words = "the decoder found none in its first packets";
    return fmt::format("{} is unknown: {}", missing, words);
}

/// Demuxers of single pictures.
bool IsOfPictures(const AVInputFormat& demuxer)
{
    const std::string_view name = demuxer.name;
    return name == "image2" || name.ends_with("_pipe");
}

/// Works out one plan. The member functions are its steps.
class Planner {
public:
    Planner(const OpenedInput& input, const ConvertOptions& options) : input(*input.Get()), options(options)
    {
    }

    Plan Make()
    {
        ChooseFormat();
        CheckOptions();
        for (const int index : options.map.empty() ? UsualStreams() : MappedStreams())
            Treat(*input.streams[index]);
        if (plan.streams.empty())
            ThrowRefused(fmt::format("nothing of it goes into {}: {}", plan.format,
                                     plan.leftOut.empty()
                                         ? "there are no streams"
                                         : fmt::format("{}", fmt::join(plan.leftOut, "; "))));
        ShareOutOptions(plan, options);
        SetTimes();
        return std::move(plan);
    }

private:
    void ChooseFormat();
    void CheckOptions() const;
    std::vector<int> UsualStreams();
    std::vector<int> MappedStreams() const;
    void Treat(const AVStream& stream);
    void TreatFilm(const AVStream& stream);
    void TreatCover(const AVStream& stream);
    void TreatSubtitle(const AVStream& stream);
    void SetTimes();

    bool DemandsEncoding(AVMediaType kind) const;
    const std::string& CodecAskedFor(AVMediaType kind) const;
    AVCodecID TargetOf(const AVStream& stream) const;
    int Places(AVMediaType kind) const;
    std::string RefusalOf(const AVStream& stream, Treatment treatment = Treatment::Copy) const
    {
        return RefusalOfCopy(stream, treatment, *plan.muxer, options.output);
    }
    void LeaveOut(const AVStream& stream, std::string_view why)
    {
        plan.leftOut.push_back(fmt::format("{} is left out: {}", Describe(stream), why));
    }
    void Copy(const AVStream& stream, Treatment treatment = Treatment::Copy);

    const AVFormatContext& input;
    const ConvertOptions& options;
    Plan plan;
    Container container;
    std::array<int, KINDS> taken{};  ///< streams of each kind so far
};

void Planner::ChooseFormat()
{
    plan.format = options.format;
    const auto& writable = Proc::GetFFMPEGSupportedOutputFormats();
    // People give extensions for formats: mkv.
    if (const std::string meant = FormatForPath("x." + plan.format);
        !plan.format.empty() && !FindMuxer(plan.format) && !meant.empty())
        plan.format = meant;
    if (plan.format.empty()) {
        plan.format = FormatForPath(options.output);
        if (plan.format.empty())
            ThrowUsage(fmt::format("the name '{}' doesn't tell a format that can be written; --format does",
                                   options.output));
    } else if (!FindMuxer(plan.format)) {
        std::vector<std::string> names;
        for (const auto& [name, muxer] : writable)
            names.push_back(name);
        std::ranges::sort(names);
        ThrowUsage(
            fmt::format("format '{}' can't be written{}", plan.format, DidYouMean(plan.format, names)));
    }
    plan.muxer = FindMuxer(plan.format);
    container = ContainerOf(plan.format, *plan.muxer, options.output);
    if (plan.muxer->name == std::string_view("image2") && IsStreamPath(options.output))
        plan.muxer = Proc::GetOutputFormat(Conf::IFormatFile::FORMAT_IMAGE2PIPE);
    plan.images = plan.muxer->name == std::string_view("image2");
    plan.oneImage = plan.images && !av_filename_number_test(options.output.c_str());
    plan.still = plan.oneImage || IsOfPictures(*input.iformat);
    if (plan.muxer->flags & AVFMT_NOFILE && !plan.images)
        ThrowRefused(fmt::format("{} is not written to files", plan.format));
}

void Planner::CheckOptions() const
{
    if (const std::string fault = plan.images ? NumberFault(options.output) : ""; !fault.empty())
        ThrowUsage(fmt::format("'{}' can't name pictures: {}; give the number one place, %d or %03d",
                               options.output, fault));
    if (!options.subtitleCodec.empty() && options.subtitleCodec != COPY && options.subtitleCodec != NONE)
        SubtitleCodecNamed(options.subtitleCodec);
    for (const AVMediaType kind : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO})
        if (CodecAskedFor(kind) == COPY && DemandsEncoding(kind))
            ThrowUsage(fmt::format("a {} stream that is copied stays as it is: leave its other options out",
                                   Proc::GetMediaTypeName(kind)));
    if (options.twoPass && !options.bitrate)
        ThrowUsage("--two-pass shares out a bit rate: give it with --bitrate");
    if (options.size && options.size->width == 0 && options.size->height == 0)
        ThrowUsage("--size wants at least one side");
}

const std::string& Planner::CodecAskedFor(AVMediaType kind) const
{
    static const std::string nothing;
    switch (kind) {
        case AVMEDIA_TYPE_VIDEO:
            return options.videoCodec;
        case AVMEDIA_TYPE_AUDIO:
            return options.audioCodec;
        case AVMEDIA_TYPE_SUBTITLE:
            return options.subtitleCodec;
        default:
            return nothing;
    }
}

bool Planner::DemandsEncoding(AVMediaType kind) const
{
    if (kind == AVMEDIA_TYPE_VIDEO)
        return options.size || !options.pixelFormat.empty() || options.frameRate.num || options.quality ||
               options.bitrate || options.twoPass;
    return options.sampleRate || !options.channels.empty() || options.audioQuality || options.audioBitrate;
}

int Planner::Places(AVMediaType kind) const
{
    switch (kind) {
        case AVMEDIA_TYPE_VIDEO:
            return container.videos;
        case AVMEDIA_TYPE_AUDIO:
            return container.audios;
        case AVMEDIA_TYPE_SUBTITLE:
            return container.subtitles;
        default:
            return container.attachments ? 1000 : 0;
    }
}

std::vector<int> Planner::UsualStreams()
{
    std::vector<int> indices;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& stream = *input.streams[i];
        const AVMediaType kind = stream.codecpar->codec_type;
        // Where there is room for one only, it shall be the best.
        if ((kind == AVMEDIA_TYPE_VIDEO || kind == AVMEDIA_TYPE_AUDIO) && !IsCover(stream) &&
            Places(kind) == 1 && CodecAskedFor(kind) != NONE) {
            const int best =
                av_find_best_stream(const_cast<AVFormatContext*>(&input), kind, -1, -1, nullptr, 0);
            if (best >= 0 && best != static_cast<int>(i)) {
                LeaveOut(stream,
                         fmt::format("{} holds one such stream, and {} is better", plan.format, best));
                continue;
            }
        }
        indices.push_back(static_cast<int>(i));
    }
    return indices;
}

std::vector<int> Planner::MappedStreams() const
{
    std::vector<int> indices;
    for (const std::string& text : options.map) {
        constexpr std::string_view letters = "vas";
        constexpr AVMediaType kinds[] = {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO, AVMEDIA_TYPE_SUBTITLE};
        std::string_view rest = text;
        const size_t letter = rest.empty() ? std::string_view::npos : letters.find(rest.front());
        const bool all = letter != std::string_view::npos && rest.size() == 1;
        if (letter != std::string_view::npos)
            rest.remove_prefix(std::min<size_t>(rest.size(), 2));
        int number = -1;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        const bool isNumber = error == std::errc() && end == rest.data() + rest.size() && number >= 0;
        if (!all && (!isNumber || (letter != std::string_view::npos && text[1] != ':')))
            ThrowUsage(fmt::format("--map '{}' is not a stream's number, v, a or s, or as a:1", text));
        const size_t before = indices.size();
        for (int i = 0, ofKind = 0; i < static_cast<int>(input.nb_streams); ++i) {
            if (letter == std::string_view::npos
                    ? i == number
                    : input.streams[i]->codecpar->codec_type == kinds[letter] && (all || ofKind++ == number))
                indices.push_back(i);
        }
        if (indices.size() == before)
            ThrowUsage(fmt::format("--map '{}' matches no stream; there are {}", text, input.nb_streams));
    }
    return indices;
}

void Planner::Treat(const AVStream& stream)
{
    const AVMediaType kind = stream.codecpar->codec_type;
    if (CodecAskedFor(kind) == NONE)
        return LeaveOut(stream, "as asked");
    if (const std::string unknown = Unknown(stream); !unknown.empty())
        return LeaveOut(stream, unknown);
    switch (kind) {
        case AVMEDIA_TYPE_VIDEO:
            return IsCover(stream) ? TreatCover(stream) : TreatFilm(stream);
        case AVMEDIA_TYPE_AUDIO:
            return TreatFilm(stream);
        case AVMEDIA_TYPE_SUBTITLE:
            return TreatSubtitle(stream);
        case AVMEDIA_TYPE_ATTACHMENT:
            if (container.attachments)
                return Copy(stream);
            return LeaveOut(stream, fmt::format("{} holds no attached files", plan.format));
        default:
            return LeaveOut(stream, "only pictures, sound, subtitles and attached files are converted");
    }
}

void Planner::Copy(const AVStream& stream, Treatment treatment)
{
    const std::string refusal = RefusalOf(stream, treatment);
    if (!refusal.empty())
        return LeaveOut(stream, fmt::format("{} refuses it: {}", plan.format, refusal));
    StreamPlan& copy = plan.streams.emplace_back();
    copy.input = stream.index;
    copy.treatment = treatment;
    copy.name = Describe(stream);
    copy.text = copy.name + (treatment == Treatment::Attach ? " becomes an attached file" : " is copied");
    ++taken[stream.codecpar->codec_type];
}

void Planner::TreatCover(const AVStream& stream)
{
    if (options.videoCodec.empty() || options.videoCodec == COPY || container.videos == 0) {
        if (container.attachments)
            return Copy(stream, Treatment::Attach);
        const AVCodecID codec = stream.codecpar->codec_id;
        if (container.covers &&
            (codec == AV_CODEC_ID_MJPEG || codec == AV_CODEC_ID_PNG || Holds(*plan.muxer, codec)))
            return Copy(stream);
    }
    if (plan.images && taken[AVMEDIA_TYPE_VIDEO] == 0)
        return TreatFilm(stream);  // somebody wants the cover as a file
    LeaveOut(stream, fmt::format("{} holds no such cover", plan.format));
}

void Planner::TreatSubtitle(const AVStream& stream)
{
    const AVCodecID codec = stream.codecpar->codec_id;
    const AVCodecID target = container.subtitles == 0
                                 ? AV_CODEC_ID_NONE
                                 : SubtitleTarget(codec, *plan.muxer, plan.format, options.subtitleCodec);
    if (target == AV_CODEC_ID_NONE)
        return LeaveOut(stream, fmt::format("{} cannot store {}", plan.format,
                                            container.subtitles > 0 && !IsTextSubtitle(codec)
                                                ? "it, and bitmaps cannot be converted to text"
                                                : "it"));
    if (const int best = BestSubtitle(input, *plan.muxer);
        container.subtitles == 1 && options.map.empty() && best >= 0 && best != stream.index)
        return LeaveOut(stream, fmt::format("{} holds one such stream, and {} is better", plan.format, best));
    if (taken[AVMEDIA_TYPE_SUBTITLE] >= container.subtitles)
        return LeaveOut(stream, fmt::format("{} holds no more of them", plan.format));
    if (target == codec)
        return Copy(stream);
    plan.streams.push_back(PlanSubtitle(stream, target));
    ++taken[AVMEDIA_TYPE_SUBTITLE];
}

AVCodecID Planner::TargetOf(const AVStream& stream) const
{
    const AVMediaType kind = stream.codecpar->codec_type;
    const std::string& asked = CodecAskedFor(kind);
    if (!asked.empty())
        return CodecNamed(asked, kind);
    if (kind == AVMEDIA_TYPE_VIDEO)
        return container.video;
    const bool isFine = stream.codecpar->bits_per_raw_sample > 16;
    const AVCodecID fine = container.audio == AV_CODEC_ID_PCM_S16LE   ? AV_CODEC_ID_PCM_S24LE
                           : container.audio == AV_CODEC_ID_PCM_S16BE ? AV_CODEC_ID_PCM_S24BE
                                                                      : AV_CODEC_ID_NONE;
    return isFine && fine != AV_CODEC_ID_NONE && Holds(*plan.muxer, fine) ? fine : container.audio;
}

void Planner::TreatFilm(const AVStream& stream)
{
    const AVMediaType kind = stream.codecpar->codec_type;
    const AVCodecID codec = stream.codecpar->codec_id;
    const std::string& asked = CodecAskedFor(kind);
    if (Places(kind) == 0)
        return LeaveOut(stream, fmt::format("{} holds no {}", plan.format, Proc::GetMediaTypeName(kind)));
    if (taken[kind] >= Places(kind))
        return LeaveOut(stream, fmt::format("{} holds no more of them", plan.format));
    if (asked == COPY) {
        if (!plan.images && !Holds(*plan.muxer, codec))
            ThrowRefused(fmt::format("{} doesn't hold {} ({}): it can't be copied", plan.format,
                                     CodecName(codec), Describe(stream)));
        if (const std::string refusal = RefusalOf(stream); !refusal.empty())
            ThrowRefused(fmt::format("{} refuses a copy of {}: {}", plan.format, Describe(stream), refusal));
        if (input.iformat->flags & AVFMT_NOTIMESTAMPS && stream.codecpar->video_delay > 0 &&
            !(plan.muxer->flags & AVFMT_NOTIMESTAMPS))
            plan.notes.push_back(
                fmt::format("stream {}: when its pictures are shown is not known before they are decoded: a "
                            "copy may show them in another order",
                            stream.index));
        return Copy(stream);
    }
    // What is usual in the container goes there as it is, unless the result is to be another or to begin
    // between two key pictures.
    const std::vector<int> rates = SampleRatesOf(*plan.muxer, codec);
    const bool rateFits = kind != AVMEDIA_TYPE_AUDIO || rates.empty() ||
                          std::ranges::find(rates, stream.codecpar->sample_rate) != rates.end();
    // Raw streams don't say when pictures are shown that come in another order.
    const bool isOrderKnown =
        !(input.iformat->flags & AVFMT_NOTIMESTAMPS) || stream.codecpar->video_delay == 0;
    const bool untouched = isOrderKnown && !DemandsEncoding(kind) && options.start.value_or(0) <= 0 &&
                           options.encoderOptions.empty() && options.encoderImplementation.empty();
    std::string refusal;
    if (asked.empty() && untouched && rateFits && !plan.images && IsUsual(*plan.muxer, codec) &&
        Holds(*plan.muxer, codec)) {
        refusal = RefusalOf(stream);
        if (refusal.empty())
            return Copy(stream);
    }

    if (stream.codecpar->format < 0)
        return LeaveOut(stream, "it can't be decoded");
    const AVCodecID target = TargetOf(stream);
    if (target == AV_CODEC_ID_NONE)
        ThrowRefused(
            fmt::format("no codec is known for {} in {}", Proc::GetMediaTypeName(kind), plan.format));
    if (!plan.images && !Holds(*plan.muxer, target))
        ThrowRefused(fmt::format("{} doesn't hold {}", plan.format, CodecName(target)));
    StreamPlan encoded =
        kind == AVMEDIA_TYPE_VIDEO
            ? PlanVideo(const_cast<AVFormatContext&>(input), stream, target, container, options, plan)
            : PlanAudio(stream, target, SampleRatesOf(*plan.muxer, target), options, plan);
    encoded.onlyOne = plan.oneImage;
    encoded.name = Describe(stream);
    encoded.text = fmt::format("{} {}", encoded.name, encoded.text);
    if (!refusal.empty())
        encoded.text += fmt::format("; {} refuses a copy: {}", plan.format, refusal);
    if (plan.oneImage && !IsOfPictures(*input.iformat) && !IsCover(stream))
        plan.notes.push_back("only the first picture is written; %03d in the name takes all of them");
    plan.streams.push_back(std::move(encoded));
    ++taken[kind];
}

void Planner::SetTimes()
{
    // Times below 0 are what decoders need before the beginning.
    // A subtitle file begins with the film, not with its first line.
    const bool isSubtitleFile = HasOnlySubtitles(input);
    const int64_t first = input.start_time == AV_NOPTS_VALUE ? 0 : std::max<int64_t>(input.start_time, 0);
    const int64_t skipped = isSubtitleFile ? first : 0;
    plan.origin = first - skipped + options.start.value_or(0);
    plan.end = options.duration;
    plan.isPart = options.start.value_or(0) > 0 || options.duration;
    if (options.start && input.duration != AV_NOPTS_VALUE && *options.start >= skipped + input.duration)
        ThrowUsage("--start lies behind the end of the input");
}

}  // namespace

Plan MakePlan(const OpenedInput& input, const ConvertOptions& options)
{
    return Planner(input, options).Make();
}

}  // namespace Quorva::Tool
