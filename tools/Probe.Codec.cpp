// What the numbers of codecs mean: levels, field orders, bits.
#include "tools/Probe.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace Quorva::Tool {

namespace {

std::string Dotted(int major, int minor) { return fmt::format("{}.{}", major, minor); }

/// "4.1" or "4", as most standards have it; those that write "4.0" use Dotted().
std::string Short(int major, int minor) { return minor != 0 ? Dotted(major, minor) : std::to_string(major); }

std::string Tenths(int level) { return Short(level / 10, level % 10); }

/// Level 1b lies between 1 and 1.1, and FFmpeg passes on its number in the high profiles.
std::string H264Level(int level) { return level == 9 ? "1b" : Tenths(level); }

/// Thirty for each whole level, three for each tenth.
std::string HevcLevel(int level) { return Short(level / 30, level % 30 / 3); }

std::string VvcLevel(int level) { return Dotted(level / 16, level % 16 / 3); }

/// The index of a sequence's level; 31 is the one without limits.
std::string Av1Level(int level) { return level == 31 ? "max" : Dotted(2 + level / 4, level % 4); }

std::string Mpeg2Level(int level)
{
    switch (level) {
        case 4:
            return "High";
        case 6:
            return "High 1440";
        case 8:
            return "Main";
        case 10:
            return "Low";
        default:
            return std::to_string(level);
    }
}

/// Codecs whose level isn't simply its number.
constexpr struct {
    AVCodecID codec;
    std::string (*name)(int level);
} LEVEL_ROWS[] = {
    {AV_CODEC_ID_H264,       H264Level },
    {AV_CODEC_ID_HEVC,       HevcLevel },
    {AV_CODEC_ID_EVC,        HevcLevel },
    {AV_CODEC_ID_VVC,        VvcLevel  },
    {AV_CODEC_ID_AV1,        Av1Level  },
    {AV_CODEC_ID_VP9,        Tenths    },
    {AV_CODEC_ID_H263,       Tenths    },
    {AV_CODEC_ID_MPEG2VIDEO, Mpeg2Level},
};

/// DTS is lossless in these profiles only.
constexpr int LOSSLESS_DTS[] = {AV_PROFILE_DTS_HD_MA, AV_PROFILE_DTS_HD_MA_X, AV_PROFILE_DTS_HD_MA_X_IMAX};

bool IsLossless(const AVCodecParameters& parameters)
{
    if (parameters.codec_id == AV_CODEC_ID_DTS)
        return std::ranges::find(LOSSLESS_DTS, parameters.profile) != std::end(LOSSLESS_DTS);
    const AVCodecDescriptor* codec = avcodec_descriptor_get(parameters.codec_id);
    return codec && codec->props & AV_CODEC_PROP_LOSSLESS;
}

}  // namespace

std::optional<Level> DescribeLevel(const AVCodecParameters& parameters)
{
    const int number = parameters.level;
    if (number < 0)
        return std::nullopt;
    const auto* row =
        std::ranges::find(LEVEL_ROWS, parameters.codec_id, [](const auto& r) { return r.codec; });
    return Level{number, row != std::end(LEVEL_ROWS) ? row->name(number) : std::to_string(number)};
}

int LosslessBits(const AVCodecParameters& parameters)
{
    if (!IsLossless(parameters))
        return 0;
    // Containers may state the width of a decoded sample; the stream itself knows better.
    for (const int bits : {parameters.bits_per_raw_sample, parameters.bits_per_coded_sample})
        if (bits > 0)
            return bits;
    return av_get_exact_bits_per_sample(parameters.codec_id);
}

const char* FieldOrderName(AVFieldOrder order)
{
    static constexpr const char* names[] = {nullptr, "progressive", "tt", "bb", "tb", "bt"};
    return static_cast<size_t>(order) < std::size(names) ? names[order] : nullptr;
}

}  // namespace Quorva::Tool
