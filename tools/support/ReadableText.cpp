#include "tools/support/ReadableText.h"

#include "host/Charset.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace Quorva::Tool {

namespace {

constexpr uint64_t maxSize = 16 << 20;  // bytes

/// Formats that are lines of text throughout.
constexpr std::string_view textFormats[] = {"aqtitle",   "ass",        "jacosub", "microdvd", "mpl2", "mpsub",
                                            "pjs",       "realtext",   "sami",    "srt",      "ssa",  "stl",
                                            "subviewer", "subviewer1", "vplayer", "webvtt"};

}  // namespace

DetectedInput WithReadableText(DetectedInput input)
{
    if (std::ranges::find(textFormats, input.result.format) == std::end(textFormats) || input.size > maxSize)
        return input;
    ReadLosses losses;  // the demuxer meets the same ones later
    std::string text(input.size, '\0');
    const auto reader = MakeRefCounted<SteadyInput>(input.stream, losses);
    reader->MoveTo(0);
    text.resize(Core::CheckedRead(*reader, reinterpret_cast<uint8_t*>(text.data()), text.size()));
    if (losses.bytes > 0)
        return input;
    const std::string readable = Core::CharsetEncoding::GetReadeableString(text);
    if (readable != text)
        input.stream =
            Core::DataInputMemory::Create({readable.begin(), readable.end()}, input.stream->GetName());
    return input;
}

}  // namespace Quorva::Tool
