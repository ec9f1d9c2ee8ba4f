#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace Quorva::Proc {

using Conf::ChannelLayout;
using Details::RaiseLogicError;

namespace {

struct LayoutRow {
    ChannelLayout layout;
    uint64_t mask;
};

// clang-format off
constexpr LayoutRow layoutRows[] = {
    {ChannelLayout::None,                  0                            },
    {ChannelLayout::Mono,                  AV_CH_LAYOUT_MONO            },
    {ChannelLayout::Stereo,                AV_CH_LAYOUT_STEREO          },
    {ChannelLayout::Layout2Point1,         AV_CH_LAYOUT_2POINT1         },
    {ChannelLayout::Layout2_1,             AV_CH_LAYOUT_2_1             },
    {ChannelLayout::Surround,              AV_CH_LAYOUT_SURROUND        },
    {ChannelLayout::Layout3Point1,         AV_CH_LAYOUT_3POINT1         },
    {ChannelLayout::Layout4Point0,         AV_CH_LAYOUT_4POINT0         },
    {ChannelLayout::Layout4Point1,         AV_CH_LAYOUT_4POINT1         },
    {ChannelLayout::Layout2_2,             AV_CH_LAYOUT_2_2             },
    {ChannelLayout::Quad,                  AV_CH_LAYOUT_QUAD            },
    {ChannelLayout::Layout5Point0,         AV_CH_LAYOUT_5POINT0         },
    {ChannelLayout::Layout5Point1,         AV_CH_LAYOUT_5POINT1         },
    {ChannelLayout::Layout5Point0Back,     AV_CH_LAYOUT_5POINT0_BACK    },
    {ChannelLayout::Layout5Point1Back,     AV_CH_LAYOUT_5POINT1_BACK    },
    {ChannelLayout::Layout6Point0,         AV_CH_LAYOUT_6POINT0         },
    {ChannelLayout::Layout6Point0Front,    AV_CH_LAYOUT_6POINT0_FRONT   },
    {ChannelLayout::Hexagonal,             AV_CH_LAYOUT_HEXAGONAL       },
    {ChannelLayout::Layout6Point1,         AV_CH_LAYOUT_6POINT1         },
    {ChannelLayout::Layout6Point1Back,     AV_CH_LAYOUT_6POINT1_BACK    },
    {ChannelLayout::Layout6Point1Front,    AV_CH_LAYOUT_6POINT1_FRONT   },
    {ChannelLayout::Layout7Point0,         AV_CH_LAYOUT_7POINT0         },
    {ChannelLayout::Layout7Point0Front,    AV_CH_LAYOUT_7POINT0_FRONT   },
    {ChannelLayout::Layout7Point1,         AV_CH_LAYOUT_7POINT1         },
    {ChannelLayout::Layout7Point1Wide,     AV_CH_LAYOUT_7POINT1_WIDE    },
    {ChannelLayout::Layout7Point1WideBack, AV_CH_LAYOUT_7POINT1_WIDE_BACK},
    {ChannelLayout::Octagonal,             AV_CH_LAYOUT_OCTAGONAL       },
    {ChannelLayout::Hexadecagonal,         AV_CH_LAYOUT_HEXADECAGONAL   },
    {ChannelLayout::StereoDownmix,         AV_CH_LAYOUT_STEREO_DOWNMIX  },
};
// clang-format on
static_assert(std::size(layoutRows) == 29);
static_assert(std::ranges::is_sorted(layoutRows, {}, &LayoutRow::layout));

const std::map<uint64_t, ChannelLayout>& LayoutsByMask()
{
    static const auto map = [] {
        std::map<uint64_t, ChannelLayout> layouts;
        for (const auto& [layout, mask] : layoutRows)
            layouts[mask] = layout;
        return layouts;
    }();
    return map;
}

const std::map<ChannelLayout, uint64_t>& MasksByLayout()
{
    static const auto map = [] {
        std::map<ChannelLayout, uint64_t> masks;
        for (const auto& [layout, mask] : layoutRows)
            masks[layout] = mask;
        return masks;
    }();
    return map;
}

}  // namespace

uint64_t AVChannelLayoutMaskFromQuorva(ChannelLayout layout)
{
    const auto found = MasksByLayout().find(layout);
    if (found == MasksByLayout().end())
        RaiseLogicError("undefined convertion from ChannelLayout");
    return found->second;
}

AVChannelLayout AVChannelLayoutFromQuorva(ChannelLayout layout)
{
    AVChannelLayout converted = {};
    // Of the table's masks FFmpeg refuses only 0, and then writes nothing: the layout stays zeroed.
    av_channel_layout_from_mask(&converted, AVChannelLayoutMaskFromQuorva(layout));
    return converted;
}

AVChannelLayout DefaultAVChannelLayout(int channels)
{
    return AVChannelLayoutFromQuorva(Conf::LayoutRecord::Find(channels)->layout);
}

ChannelLayout QuorvaFromAVChannelLayoutMask(uint64_t mask)
{
    const auto found = LayoutsByMask().find(mask);
    if (found == LayoutsByMask().end())
        RaiseLogicError("undefined convertion from FFMPEG layout");
    return found->second;
}

ChannelLayout QuorvaFromAVChannelLayout(const AVChannelLayout& layout)
{
    if (layout.order == AV_CHANNEL_ORDER_NATIVE)
        return QuorvaFromAVChannelLayoutMask(layout.u.mask);
    return Conf::LayoutRecord::Find(layout.nb_channels)->layout;
}

bool IsSupportedAVChannelLayoutMask(uint64_t mask) noexcept
{
    return std::ranges::find(layoutRows, mask, &LayoutRow::mask) != std::end(layoutRows);
}

bool IsValid(const AVChannelLayout& layout) noexcept
{
    return av_channel_layout_check(&layout) != 0 && layout.nb_channels >= 1 && layout.nb_channels <= 8;
}

bool IsZeroed(const AVChannelLayout* layout) noexcept
{
    return !layout || (layout->order == AV_CHANNEL_ORDER_UNSPEC && layout->nb_channels == 0);
}

bool IsEqual(const AVChannelLayout& first, const AVChannelLayout& second) noexcept
{
    return first.order == second.order && first.nb_channels == second.nb_channels;
}

AVSampleFormat SampleFormatFFMPEGFromQuorva(Conf::SampleFormats format) noexcept
{
    return static_cast<AVSampleFormat>(format);
}

Conf::SampleFormats SampleFormatQuorvaFromFFMPEG(AVSampleFormat format) noexcept
{
    return static_cast<Conf::SampleFormats>(format);
}

}  // namespace Quorva::Proc
