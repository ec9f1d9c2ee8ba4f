#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"

namespace Quorva::Proc {

namespace {

constexpr AVRational globalTimeBase{1, AV_TIME_BASE};

}  // namespace

int64_t AvRescale(int64_t a, int64_t b, int64_t c) { return av_rescale(a, b, c); }

int64_t global_to_stream(int64_t timestamp, const AVRational& timeBase)
{
    return timestamp == AV_NOPTS_VALUE ? timestamp : av_rescale_q(timestamp, globalTimeBase, timeBase);
}

int64_t stream_to_global(int64_t timestamp, const AVRational& timeBase)
{
    return timestamp == AV_NOPTS_VALUE ? timestamp : av_rescale_q(timestamp, timeBase, globalTimeBase);
}

void reduce(unsigned int& num, unsigned int& den)
{
    int64_t wideNum = num, wideDen = den;
    reduce(wideNum, wideDen);
    num = static_cast<unsigned int>(wideNum);
    den = static_cast<unsigned int>(wideDen);
}

void reduce(int64_t& num, int64_t& den)
{
    const int64_t divisor = av_gcd(num, den);
    if (divisor > 1) {
        num /= divisor;
        den /= divisor;
    }
}

}  // namespace Quorva::Proc
