#include "tools/Convert.Header.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "tools/Convert.Output.h"
#include "tools/support/Failure.h"
#include "tools/support/Logging.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string_view>

namespace Quorva::Tool {

namespace {

struct FreeTrial {
    void operator()(AVFormatContext* context) const noexcept
    {
        uint8_t* written = nullptr;
        if (context->pb)
            avio_close_dyn_buf(context->pb, &written);
        av_free(written);
        avformat_free_context(context);
    }
};
using Trial = std::unique_ptr<AVFormatContext, FreeTrial>;

Trial MakeTrial(const AVOutputFormat& muxer, const char* path)
{
    AVFormatContext* fresh = nullptr;
    int result = avformat_alloc_output_context2(&fresh, &muxer, nullptr, path);
    Trial trial(fresh);
    if (result >= 0)
        result = avio_open_dyn_buf(&trial->pb);
    if (result < 0)
        ThrowFFmpegFailure("a header can't be tried", result);
    return trial;
}

AVStream& AddStream(AVFormatContext& trial)
{
    AVStream* const stream = Proc::CreateStream(&trial, nullptr);
    if (!stream)
        ThrowFFmpegFailure("a header can't be tried", AVERROR(ENOMEM));
    return *stream;
}

/// Muxers that refuse a stream alone which they accept beside others.
bool NeedsCompany(const AVOutputFormat& muxer, const AVStream& source)
{
    constexpr std::string_view names[] = {"dv", "gxf", "mxf", "mxf_d10", "mxf_opatom"};
    return source.disposition & AV_DISPOSITION_ATTACHED_PIC ||
           std::ranges::find(names, std::string_view(muxer.name)) != std::end(names);
}

}  // namespace

std::string RefusalOfCopy(const AVStream& source, StreamPlan::Treatment treatment,
                          const AVOutputFormat& muxer, const std::string& path)
{
    const bool attached = treatment == StreamPlan::Treatment::Attach;
    if (muxer.flags & AVFMT_NOFILE || (!attached && NeedsCompany(muxer, source)))
        return {};
    const Trial trial = MakeTrial(muxer, path.c_str());
    StreamPlan plan;
    plan.treatment = treatment;
    DescribeStream(AddStream(*trial), source, plan, muxer);
    const FFmpegErrors errors;
    const int result = avformat_write_header(trial.get(), nullptr);
    return result < 0 ? FFmpegReason(result) : std::string();
}

bool AcceptsWithSeeking(const AVFormatContext& output)
{
    const Trial trial = MakeTrial(*output.oformat, output.url);
    for (const AVStream* source : std::span(output.streams, output.nb_streams)) {
        AVStream& stream = AddStream(*trial);
        if (avcodec_parameters_copy(stream.codecpar, source->codecpar) < 0)
            return false;
        stream.time_base = source->time_base;
        stream.avg_frame_rate = source->avg_frame_rate;
        stream.sample_aspect_ratio = source->sample_aspect_ratio;
        stream.disposition = source->disposition;
    }
    const FFmpegErrors errors;  // not those of the output itself
    return avformat_write_header(trial.get(), nullptr) >= 0;
}

}  // namespace Quorva::Tool
