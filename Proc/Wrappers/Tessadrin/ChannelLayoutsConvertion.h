/// @file
/// Channel layouts and sample formats of the pipeline and of FFmpeg.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"

#include <cstdint>

namespace Quorva::Proc {

/// FFmpeg's native channel mask of `layout`; 0 for ChannelLayout::None.
/// @throws std::logic_error  a number outside the enumeration.
TESSADRIN_API uint64_t AVChannelLayoutMaskFromQuorva(Conf::ChannelLayout layout);

/// FFmpeg's layout of native order, which owns no memory. ChannelLayout::None gives a zeroed layout, see
/// IsZeroed().
/// @throws std::logic_error  as AVChannelLayoutMaskFromQuorva().
TESSADRIN_API AVChannelLayout AVChannelLayoutFromQuorva(Conf::ChannelLayout layout);

/// The layout the pipeline expects for a number of channels; zeroed for a number without one.
TESSADRIN_API AVChannelLayout DefaultAVChannelLayout(int channels);

/// The layout with exactly this mask; nothing is approximated.
/// @throws std::logic_error  the pipeline has no such layout; IsSupportedAVChannelLayoutMask() asks first.
TESSADRIN_API Conf::ChannelLayout QuorvaFromAVChannelLayoutMask(uint64_t mask);

/// By the mask for a layout of native order. For any other order (unspecified, custom, ambisonic) the number
/// of channels decides alone: the pipeline's default for it, ChannelLayout::None where there is none.
/// @throws std::logic_error  as QuorvaFromAVChannelLayoutMask().
TESSADRIN_API Conf::ChannelLayout QuorvaFromAVChannelLayout(const AVChannelLayout& layout);

/// Whether QuorvaFromAVChannelLayoutMask() has an answer; it has one for 0.
TESSADRIN_API bool IsSupportedAVChannelLayoutMask(uint64_t mask) noexcept;

/// Whether FFmpeg accepts the layout and it has 1 to 8 channels.
TESSADRIN_API bool IsValid(const AVChannelLayout& layout) noexcept;

/// Whether there is no layout: a null pointer, or unspecified order without channels.
TESSADRIN_API bool IsZeroed(const AVChannelLayout* layout) noexcept;

/// Whether order and number of channels are equal; which channels they are is not looked at.
TESSADRIN_API bool IsEqual(const AVChannelLayout& first, const AVChannelLayout& second) noexcept;

/// The same number, unchecked, both ways.
TESSADRIN_API AVSampleFormat SampleFormatFFMPEGFromQuorva(Conf::SampleFormats format) noexcept;
TESSADRIN_API Conf::SampleFormats SampleFormatQuorvaFromFFMPEG(AVSampleFormat format) noexcept;

}  // namespace Quorva::Proc
