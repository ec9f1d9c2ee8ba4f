/// @file
/// The text of subtitle events: ASS as FFmpeg's decoders give it, and what its encoders make of it.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <span>
#include <string>
#include <string_view>

namespace Quorva::Tool {

/// An event is "order,layer,style,name,left,right,vertical,effect,text"; a text has codes as "{\b1}" in it.
std::string_view TextOf(std::string_view event);

/// Whether there is a letter to show. Shapes drawn by commands are none.
bool HasText(std::string_view text);

/// One event with the lines of all, each in its own style. There is at least one.
std::string JoinEvents(std::span<const std::string> events);

/// The event with a text from which FFmpeg's encoder gives `target` as it is shown. The encoders escape
/// nothing, write ASS's escapes and comments out, let an empty line end the text, and MP4's takes a colour by
/// its number only.
std::string AdaptEvent(std::string_view event, AVCodecID source, AVCodecID target);

/// WebVTT's cue settings for the place that the codes of a text name ("{\an8}": at the top); empty for none.
std::string CueSettings(std::string_view text);

/// The code for the place that WebVTT's cue settings name; empty for the usual one.
std::string PlaceCode(std::string_view settings);

}  // namespace Quorva::Tool
