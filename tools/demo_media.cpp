// tessadrin_demo_media FOLDER: makes every media file of the demo there.
//
// Standard output has one line per file, fields separated by tabs:
//   made    FILE  FORMAT  what the pipeline should call it
//   lacks   FILE  REASON  this FFmpeg cannot make it
//   failed  FILE  REASON
// Exit code: 0, 1 when a file failed, 64 when called wrongly, 73 when FOLDER cannot be made.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/MadeMedia.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

int main(int argc, char** argv)
{
    namespace Media = Quorva::Media;
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 64;
    }
    const std::filesystem::path folder = argv[1];
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        std::fprintf(stderr, "%s: %s: %s\n", argv[0], argv[1], error.message().c_str());
        return 73;
    }
    // encoders remark on small pictures; what matters is reported below
    av_log_set_level(AV_LOG_FATAL);
    setenv("SVT_LOG", "1", 0);  // libsvtav1's own log: errors

    int failures = 0;
    for (const Media::MediaRow& row : Media::MediaRows()) {
        try {
            if (const std::string lacks = Media::Lacks(row); !lacks.empty()) {
                std::printf("lacks\t%s\t%s\n", row.file, lacks.c_str());
                continue;
            }
            Media::Make(row, folder);
            std::printf("made\t%s\t%s\n", row.file, row.format.Get().c_str());
        } catch (const std::exception& e) {
            std::printf("failed\t%s\t%s\n", row.file, e.what());
            ++failures;
        }
    }
    return failures ? 1 : 0;
}
