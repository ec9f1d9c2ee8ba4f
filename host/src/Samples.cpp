#include "host/MediaDescription.h"
#include "host/src/Throw.h"

#include <fmt/format.h>

#include <iterator>

namespace Quorva::Conf {

using Quorva::Details::Throw;

namespace {

constexpr int LAYOUTS = 29;
constexpr int SAMPLE_FORMATS = 12;

struct Layouts {
    // By ChannelLayout's number.
    const std::string names[LAYOUTS] = {
        "none",       "mono",       "stereo",        "2.1",    "3.0(back)",
        "3.0",        "3.1",        "4.0",           "4.1",    "quad(side)",
        "quad",       "5.0(side)",  "5.1(side)",     "5.0",    "5.1",
        "6.0",        "6.0(front)", "hexagonal",     "6.1",    "6.1(back)",
        "6.1(front)", "7.0",        "7.0(front)",    "7.1",    "7.1(wide-side)",
        "7.1(wide)",  "octagonal",  "hexadecagonal", "downmix"};
    LayoutRecord records[LAYOUTS];

    Layouts()
    {
        constexpr uint8_t channels[LAYOUTS] = {0, 1, 2, 3, 3, 3, 4, 4, 5, 4, 4, 5, 6,  5, 6,
                                               6, 6, 6, 7, 7, 7, 7, 7, 8, 8, 8, 8, 16, 2};
        for (int i = 0; i < LAYOUTS; ++i)
            records[i] = {static_cast<ChannelLayout>(i), channels[i], &names[i]};
    }
};

const Layouts& GetLayouts()
{
    static const Layouts layouts;
    return layouts;
}

ChannelLayout UsualLayout(int channels) noexcept
{
    switch (channels) {
        case 1:
            return ChannelLayout::Mono;
        case 2:
            return ChannelLayout::Stereo;
        case 3:
            return ChannelLayout::Layout2Point1;
        case 4:
            return ChannelLayout::Layout4Point0;
        case 5:
            return ChannelLayout::Layout5Point0Back;
        case 6:
            return ChannelLayout::Layout5Point1Back;
        case 7:
            return ChannelLayout::Layout6Point1;
        case 8:
            return ChannelLayout::Layout7Point1;
        case 16:
            return ChannelLayout::Hexadecagonal;
        default:
            return ChannelLayout::None;
    }
}

/// Of one sample of one channel.
int BytesPerSample(SampleFormats format) noexcept
{
    using enum SampleFormats;
    switch (format) {
        case U8:
        case U8P:
            return 1;
        case S16:
        case S16P:
            return 2;
        case S32:
        case S32P:
        case FLT:
        case FLTP:
            return 4;
        case DBL:
        case DBLP:
        case S64:
        case S64P:
            return 8;
        case NONE:
            break;
    }
    return 0;
}

}  // namespace

const LayoutRecord* LayoutRecord::Find(int channels) noexcept { return Find(UsualLayout(channels)); }

const LayoutRecord* LayoutRecord::Find(ChannelLayout layout) noexcept
{
    const auto index = static_cast<uint32_t>(layout);
    return index < LAYOUTS ? &GetLayouts().records[index] : nullptr;
}

const SampleFormatRecord* SampleFormatRecord::Find(SampleFormats format) noexcept
{
    using enum SampleFormats;
    static const SampleFormatRecord records[SAMPLE_FORMATS] = {
        {U8,   "u8",   false},
        {S16,  "s16",  false},
        {S32,  "s32",  false},
        {FLT,  "flt",  false},
        {DBL,  "dbl",  false},
        {U8P,  "u8p",  true },
        {S16P, "s16p", true },
        {S32P, "s32p", true },
        {FLTP, "fltp", true },
        {DBLP, "dblp", true },
        {S64,  "s64",  false},
        {S64P, "s64p", true },
    };
    const auto index = static_cast<uint32_t>(format);
    return index < SAMPLE_FORMATS ? &records[index] : nullptr;
}

SampleInfo::SampleInfo() : SampleInfo(0, SampleFormats::S16, ChannelLayout::None) {}

SampleInfo::SampleInfo(int sampleRate, SampleFormats format, ChannelLayout layout)
    : sampleRate(sampleRate), format(SampleFormatRecord::Find(format)), layout(LayoutRecord::Find(layout))
{
    if (!this->format)
        Throw<FormatException>(fmt::format("Unknown sample format {}", static_cast<int>(format)));
    if (!this->layout)
        Throw<FormatException>(fmt::format("Unknown channel layout {}", static_cast<int>(layout)));
}

int SampleInfo::GetSampleSizePerPlane() const noexcept
{
    return BytesPerSample(format->format) * (format->planar ? 1 : layout->channels);
}

}  // namespace Quorva::Conf
