#include "tools/Convert.Chapters.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Output.h"
#include "tools/support/Failure.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

namespace Quorva::Tool {

namespace {

/// Muxers that write chapters with the trailer when there were none with the header.
constexpr std::string_view lateMuxers[] = {"ipod", "matroska", "mov", "mp4", "webm"};

void AddChapter(AVFormatContext& output, const AVChapter& source, int64_t start, int64_t end)
{
    auto* const chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    auto* const chapters = static_cast<AVChapter**>(
        chapter ? av_realloc_array(output.chapters, output.nb_chapters + 1, sizeof(AVChapter*)) : nullptr);
    if (!chapters) {
        av_free(chapter);
        ThrowFFmpegFailure("chapters can't be described", AVERROR(ENOMEM));
    }
    output.chapters = chapters;
    output.chapters[output.nb_chapters++] = chapter;
    chapter->id = source.id;
    chapter->time_base = AV_TIME_BASE_Q;
    chapter->start = start;
    chapter->end = end;
    CopyTags(&chapter->metadata, source.metadata);
}

/// Whether the index of a stream has no two neighbours that are farther apart.
bool IsIndexed(const AVFormatContext& input, AVStream& stream, int64_t distance)
{
    int64_t last = input.start_time == AV_NOPTS_VALUE ? 0 : input.start_time;
    const int64_t end = last + std::max<int64_t>(input.duration, 0);
    for (int i = 0; i < avformat_index_get_entries_count(&stream); ++i) {
        const int64_t time =
            Proc::stream_to_global(avformat_index_get_entry(&stream, i)->timestamp, stream.time_base);
        if (time - last > distance)
            return false;
        last = std::max(last, time);
    }
    return end - last <= distance;
}

/// The time in the output's timeline of one in the input's.
int64_t Moved(int64_t time, const std::vector<TimeJump>& jumps)
{
    int64_t shift = 0;
    for (const TimeJump& jump : jumps) {
        if (jump.shift > shift)
            break;  // the input's times go back: which part a chapter belongs to isn't known
        if (time < jump.begin)
            return std::min(time + shift, jump.begin + jump.shift);
        shift = jump.shift;
    }
    return time + shift;
}

}  // namespace

bool DescribesChaptersLast(const AVFormatContext& output, const AVFormatContext& input,
                           std::optional<int64_t> maxGap)
{
    if (!maxGap || input.nb_chapters == 0 || !output.pb || !output.pb->seekable ||
        std::ranges::find(lateMuxers, std::string_view(output.oformat->name)) == std::end(lateMuxers))
        return false;
    return std::ranges::none_of(std::span(input.streams, input.nb_streams),
                                [&](AVStream* stream) { return IsIndexed(input, *stream, *maxGap); });
}

void DescribeChapters(AVFormatContext& output, const AVFormatContext& input, const Plan& plan,
                      const std::vector<TimeJump>& jumps)
{
    for (const AVChapter* chapter : std::span(input.chapters, input.nb_chapters)) {
        int64_t start =
            Moved(Proc::stream_to_global(chapter->start, chapter->time_base), jumps) - plan.origin;
        int64_t end = Moved(Proc::stream_to_global(chapter->end, chapter->time_base), jumps) - plan.origin;
        start = std::max<int64_t>(start, 0);
        if (plan.end)
            end = std::min(end, *plan.end);
        if (start < end)
            AddChapter(output, *chapter, start, end);
    }
}

}  // namespace Quorva::Tool
