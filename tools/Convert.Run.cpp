// The conversion itself: input, paths and output brought together.
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Chapters.h"
#include "tools/Convert.Conversion.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/Logging.h"
#include "tools/support/ReadableText.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace Quorva::Tool {

void Conversion::Announce() const
{
    for (const StreamPlan& stream : plan.streams)
        Tell(stream.text);
    for (const std::vector<std::string>* lines : {&plan.leftOut, &plan.notes})
        for (const std::string& line : *lines)
            Tell(line);
}

std::optional<int64_t> Conversion::ExpectedDuration(const OpenedInput& input) const
{
    if (input->duration == AV_NOPTS_VALUE || input->duration <= 0)
        return plan.end;
    const int64_t rest = input->duration - options.start.value_or(0);
    return plan.end ? std::min(*plan.end, rest) : rest;
}

/// The way of packets from the demuxer to the paths; jumps that it closes up are shown once.
GapFilter Conversion::MakeFilter(const OpenedInput& input, const Pass& pass)
{
    std::set<int> streams;
    for (const auto& [index, path] : pass.paths)
        streams.insert(index);
    return {*input.Get(), streams, options.maxGap, options.start.value_or(0) > 0 ? plan.origin : INT64_MIN,
            [this](int64_t at, int64_t distance) {
                const std::string line =
                    fmt::format("{}: times jump {}by {} at {}; closed up", options.input,
                                distance < 0 ? "back " : "", DurationText(std::abs(distance)),
                                DurationText(at - plan.origin + options.start.value_or(0)));
                if (told.insert(line).second)
                    Tell(line);
            }};
}

/// Encoded streams are filled, unless the output may have gaps in them.
PauseWatch Conversion::MakePauseWatch(const Pass& pass) const
{
    std::set<int> streams;
    for (const StreamPlan& stream : plan.streams)
        if (pass.paths.contains(stream.input) && !stream.onlyOne &&
            (stream.treatment == StreamPlan::Treatment::Audio || stream.constantRate))
            streams.insert(stream.input);
    return {options.input, streams};
}

/// @return whether nothing more is wanted
bool Conversion::PassOn(GapFilter& filter, PauseWatch& pauses, const OpenedInput& input, Pass& pass,
                        ConvertProgress& progress)
{
    while (const PacketPointer packet = filter.Pop()) {
        // A first pass writes nothing: its position is the input's.
        const AVRational timeBase = input->streams[packet->stream_index]->time_base;
        const int64_t read = Proc::stream_to_global(packet->dts, timeBase);
        const auto filled = pauses.Account(*packet, timeBase, filter.GetShift());
        if (pass.Take(*packet))
            return true;
        for (const auto& [stream, pause] : filled)
            if (pass.Fill(stream, pause))
                return true;
        progress.Update(pass.output              ? pass.output->GetPosition()
                        : read == AV_NOPTS_VALUE ? 0
                                                 : read - plan.origin,
                        pass.output ? pass.output->GetBytes() : 0);
    }
    return false;
}

/// @return false after a signal to stop
bool Conversion::Transport(OpenedInput& input, LookAhead& beginning, Pass& pass, ConvertProgress& progress)
{
    GapFilter filter = MakeFilter(input, pass);
    PauseWatch pauses = MakePauseWatch(pass);
    const PacketPointer packet(Proc::CreatePacket(0));
    std::exception_ptr failure;
    while (!Interruption::IsWanted()) {
        try {
            if (!beginning.ReadPacket(packet.get()))
                break;
        } catch (...) {
            failure = std::current_exception();
            break;
        }
        if (pass.paths.contains(packet->stream_index)) {
            ++pass.read[packet->stream_index];
            if (!pass.earlier.Forget(*packet))
                filter.Push(*packet);
        }
        av_packet_unref(packet.get());
        const bool isDone = PassOn(filter, pauses, input, pass, progress);
        jumps = filter.GetJumps();
        if (isDone)
            return true;
    }
    const bool complete = !Interruption::IsWanted();
    filter.Finish();
    const bool isDone = PassOn(filter, pauses, input, pass, progress) || pass.Write(0);
    jumps = filter.GetJumps();
    if (isDone)
        return true;
    readFailure = failure;
    return complete;
}

/// Ends the output, unless there is nothing in it.
void Conversion::Complete(const OpenedInput& input, Pass& pass)
{
    Output& output = *pass.output;
    if (readFailure && output.IsEmpty())
        std::rethrow_exception(readFailure);  // which is why
    output.Flush();
    for (size_t i = 0; i < plan.streams.size(); ++i) {
        const int index = plan.streams[i].input;
        StreamOutcome& outcome =
            outcomes.emplace_back(OutcomeOf(plan.streams[i], *input->streams[index], plan));
        outcome.read = pass.read[index];
        outcome.damaged = damaged[index];
        outcome.written = output.GetWritten(static_cast<int>(i));
    }
    if (!HasContent(outcomes)) {
        if (Interruption::IsWanted())
            ThrowFFmpegFailure("nothing was written", AVERROR_EXIT);
        if (readFailure)
            std::rethrow_exception(readFailure);
        ThrowNoContent(outcomes);
    }
    if (describesChaptersLast)
        DescribeChapters(*output.operator->(), *input.Get(), plan, jumps);
    else if (!jumps.empty() && input->nb_chapters > 0)
        Tell(fmt::format("{}: chapters keep the times that they have in the input", options.output));
    output.Finish();
    refused = output.GetRefused();
    position = output.GetPosition();
    bytes = output.GetBytes();
}

bool Conversion::RunPass(OpenedInput& input, int number, ConvertProgress& progress)
{
    pass = std::make_unique<Pass>();
    Select(input);
    LookAhead beginning(input, PictureStreams(input));
    if (number != 2)  // the first pass has found it
        SetOrigin(beginning);
    Seek(input, beginning, pass->earlier);
    Open(*pass, input, number);
    pass->TakeEarlier();
    const bool complete = Transport(input, beginning, *pass, progress);
    if (!complete && number == 1)
        return false;
    pass->Finish();
    const bool isOverdue = Interruption::IsOverdue();  // then threads may still be at work
    for (size_t i = 0; i < pass->owned.size() && !isOverdue; ++i) {
        if (number == 1 && pass->owned[i])
            passStats[i] = pass->owned[i]->GetStats();
        if (number != 1 && pass->owned[i])
            damaged[plan.streams[i].input] = pass->owned[i]->GetDamaged();
    }
    if (pass->output)
        Complete(input, *pass);
    if (!isOverdue)
        pass.reset();
    return complete && !Interruption::IsWanted();  // a stage may have ended within a gap
}

void Conversion::Sum(const ConvertProgress& progress) const
{
    for (const auto& [stream, packets] : damaged)
        if (packets > 0)
            Tell(fmt::format("stream {}: {} damaged packet{} left out", stream, packets,
                             packets == 1 ? "" : "s"));
    if (refused > 0)
        Tell(fmt::format("{} damaged packet{} left out", refused, refused == 1 ? "" : "s"));
    for (const StreamOutcome& outcome : outcomes)
        if (outcome.IsMissing() && !outcome.IsFailure())
            Tell(DescribeMissing(outcome));
    if (plan.still)
        return Tell(fmt::format("{}: {} bytes", options.output, bytes));
    std::string line = fmt::format("{}: {}, {} bytes", options.output, DurationText(position), bytes);
    if (const double speed = progress.GetSpeed(); speed > 0)
        line += fmt::format(", {:.3g} times as fast as it plays", speed);
    Tell(line);
}

bool Conversion::Run()
{
    const Interruption interruption(OutputFiles::DiscardAll);
    const FFmpegErrors errors;  // of opening, which say what is wrong with streams
    const DetectedInput detected = WithReadableText(DetectInput(options.input));
    auto input = std::make_unique<OpenedInput>(detected);
    if (!input->GetStreamsWarning().empty())
        Tell(options.input + ": " + input->GetStreamsWarning());
    plan = MakePlan(*input, options);
    for (StreamPlan& stream : plan.streams)
        stream.keepsGaps = options.maxGap && StoresGaps(*plan.muxer);
    if (!IsStreamPath(options.output))
        files.Check(options.output);
    Announce();

    const auto form = options.progressJson ? ConvertProgress::Form::Json
                      : quiet              ? ConvertProgress::Form::None
                                           : ConvertProgress::Form::Terminal;
    ConvertProgress progress(form, ExpectedDuration(*input), options.output == "-");
    const bool twoPass = std::ranges::any_of(plan.streams, &StreamPlan::twoPass);
    bool complete = true;
    if (twoPass) {
        notesOfEncoders.emplace();
        progress.BeginPass(1, 2);
        if (!RunPass(*input, 1, progress)) {
            Tell(options.output + ": stopped in the first pass; nothing was written");
            return false;
        }
        input = std::make_unique<OpenedInput>(WithReadableText(DetectInput(options.input)));
        progress.BeginPass(2, 2);
    }
    complete = RunPass(*input, twoPass ? 2 : 0, progress);
    files.Commit();
    progress.End(complete, position, bytes);
    Sum(progress);
    if (!complete)
        Tell(options.output + ": stopped; what had been read by then is in it");
    if (readFailure) {
        Tell(options.output + ": what could be read is in it");
        std::rethrow_exception(readFailure);
    }
    input->CheckStreams();
    if (complete)
        CheckOutcomes(outcomes);
    return complete;
}

Conversion::~Conversion() { ReportKept(); }

void Conversion::Abandon()
{
    ReportKept();
    files.Discard();
    notesOfEncoders.reset();
}

void Conversion::ReportKept() const
{
    if (options.keepPartial)
        for (const std::string& path : files.GetUnfinished())
            Tell(path + ": what there is of it stays");
}

bool CarryOut(const ConvertOptions& options, bool quiet)
{
    const auto end = [](Conversion* conversion) {
        if (Interruption::IsOverdue())
            conversion->Abandon();
        else
            delete conversion;
    };
    const std::unique_ptr<Conversion, decltype(end)> conversion(new Conversion(options, quiet), end);
    return conversion->Run();
}

}  // namespace Quorva::Tool
