#include "tools/support/Json.h"

#include <fmt/format.h>

namespace Quorva::Tool {

std::string JsonText(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string VersionText(unsigned version)
{
    return fmt::format("{}.{}.{}", AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version),
                       AV_VERSION_MICRO(version));
}

Json ToolJson()
{
    return {
        {"name",    "tessadrin"                             },
        {"version", TESSADRIN_VERSION                       },
        {"ffmpeg",
         {{"avutil", VersionText(avutil_version())},
          {"avcodec", VersionText(avcodec_version())},
          {"avformat", VersionText(avformat_version())},
          {"swscale", VersionText(swscale_version())},
          {"swresample", VersionText(swresample_version())}}}
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
