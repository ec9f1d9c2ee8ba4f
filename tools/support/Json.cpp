#include "tools/support/Json.h"

#include "tools/support/Versions.h"

namespace Quorva::Tool {

std::string JsonText(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json ToolJson()
{
    Json ffmpeg = Json::object();
    for (const LibraryVersion& library : FFmpegVersions())
        ffmpeg[library.name] = library.running;
    return {
        {"name",    "tessadrin"      },
        {"version", TESSADRIN_VERSION},
        {"ffmpeg",  ffmpeg           }
    };
}

Json RationalJson(AVRational value)
{
    if (value.num == 0 || value.den == 0)
        return nullptr;
    return {
        {"num", value.num},
        {"den", value.den}
    };
}

}  // namespace Quorva::Tool
