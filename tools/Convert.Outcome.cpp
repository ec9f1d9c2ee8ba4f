#include "tools/Convert.Outcome.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace Quorva::Tool {

namespace {

using Role = StreamOutcome::Role;

/// A stream that has less than this in the time asked for may have nothing that can be written alone.
constexpr int64_t leastPart = 200'000;  // microseconds

Role RoleOf(const StreamPlan& stream, const AVStream& source)
{
    const AVMediaType kind = source.codecpar->codec_type;
    if (kind == AVMEDIA_TYPE_ATTACHMENT || stream.treatment == StreamPlan::Treatment::Attach)
        return Role::Attached;
    if (stream.treatment == StreamPlan::Treatment::Copy && source.disposition & AV_DISPOSITION_ATTACHED_PIC)
        return Role::Cover;
    return kind == AVMEDIA_TYPE_VIDEO || kind == AVMEDIA_TYPE_AUDIO ? Role::Film : Role::Sparse;
}

/// Of a part of the input a stream may have nothing, and only some inputs say how long each stream is.
bool IsExpected(const AVStream& source, const Plan& plan)
{
    if (!plan.isPart)
        return true;
    // Without a count in the file, the times are FFmpeg's guesses.
    if (source.nb_frames <= 0 || source.duration == AV_NOPTS_VALUE || source.start_time == AV_NOPTS_VALUE)
        return false;
    const int64_t begin = Proc::stream_to_global(source.start_time, source.time_base) - plan.origin;
    const int64_t end = begin + Proc::stream_to_global(source.duration, source.time_base);
    return end >= leastPart && (!plan.end || *plan.end - begin >= leastPart);
}

[[noreturn]] void ThrowMissing(const std::string& what, const std::vector<std::string>& missing)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(fmt::format("{}{}", what, fmt::join(missing, "; ")))
                         << TagFailureKind(FailureKind::InvalidData));
}

}  // namespace

StreamOutcome OutcomeOf(const StreamPlan& stream, const AVStream& source, const Plan& plan)
{
    StreamOutcome outcome;
    outcome.name = stream.name;
    outcome.role = RoleOf(stream, source);
    outcome.isExpected = IsExpected(source, plan);
    return outcome;
}

std::string DescribeMissing(const StreamOutcome& outcome)
{
    std::string reason = "none of its packets holds anything that can be written";
    if (!outcome.isExpected && outcome.damaged == 0)
        reason = "it has nothing in the time asked for";
    else if (outcome.read == 0)
        reason = "no packet of it could be read";
    else if (outcome.damaged >= outcome.read)
        reason = outcome.read == 1 ? "its only packet is damaged"
                                   : fmt::format("all {} packets are damaged", outcome.read);
    else if (outcome.damaged > 0)
        reason = fmt::format("{} of {} packets are damaged, the others hold nothing", outcome.damaged,
                             outcome.read);
    return fmt::format("{}: nothing of it was written: {}", outcome.name, reason);
}

bool HasContent(const std::vector<StreamOutcome>& outcomes)
{
    bool hasExtras = false;
    bool isExtras = true;  // there is nothing else
    for (const StreamOutcome& outcome : outcomes) {
        const bool isExtra = outcome.role == Role::Cover || outcome.role == Role::Attached;
        if (!isExtra && !outcome.IsMissing())
            return true;
        hasExtras |= isExtra && !outcome.IsMissing();
        isExtras &= isExtra;
    }
    return isExtras && hasExtras;
}

void ThrowNoContent(const std::vector<StreamOutcome>& outcomes)
{
    std::vector<std::string> missing;
    for (const StreamOutcome& outcome : outcomes)
        if (outcome.IsMissing())
            missing.push_back(DescribeMissing(outcome));
    ThrowMissing("no packet was written: ", missing);
}

void CheckOutcomes(const std::vector<StreamOutcome>& outcomes)
{
    std::vector<std::string> missing;
    for (const StreamOutcome& outcome : outcomes)
        if (outcome.IsFailure())
            missing.push_back(DescribeMissing(outcome));
    if (!missing.empty())
        ThrowMissing("", missing);
}

}  // namespace Quorva::Tool
