#include "tools/support/Versions.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <fmt/format.h>

namespace Quorva::Tool {

namespace {

std::string VersionText(unsigned version)
{
    return fmt::format("{}.{}.{}", AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version),
                       AV_VERSION_MICRO(version));
}

}  // namespace

std::vector<LibraryVersion> FFmpegVersions()
{
    struct Row {
        const char* name;
        unsigned built, running;
    };
    const Row rows[] = {
        {"avutil",     LIBAVUTIL_VERSION_INT,     avutil_version()    },
        {"avcodec",    LIBAVCODEC_VERSION_INT,    avcodec_version()   },
        {"avformat",   LIBAVFORMAT_VERSION_INT,   avformat_version()  },
        {"swscale",    LIBSWSCALE_VERSION_INT,    swscale_version()   },
        {"swresample", LIBSWRESAMPLE_VERSION_INT, swresample_version()},
    };
    std::vector<LibraryVersion> versions;
    for (const Row& row : rows)
        versions.push_back({row.name, VersionText(row.built), VersionText(row.running)});
    return versions;
}

}  // namespace Quorva::Tool
