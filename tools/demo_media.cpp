// tessadrin_demo_media FOLDER: makes every media file of the demo there.
//
// Standard output has one line per file, fields separated by tabs:
//   read      FILE  FORMAT  FORMAT is what the pipeline should call it, and then read it
//   stopped   FILE  FORMAT  the same, but FFmpeg's demuxer reports its end as an error
//   refused   FILE  FORMAT  the pipeline should recognise it and not read it
//   lacking   FILE  REASON  this FFmpeg cannot make it
//   failed    FILE  REASON  it could not be made
// Exit code: 0, 1 when a file failed, 64 when called wrongly, 73 when FOLDER cannot be made.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tests/support/MadeMedia.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

static const char* Outcome(Quorva::Media::Reading reading)
{
    using enum Quorva::Media::Reading;
    return reading == ToTheEnd ? "read" : reading == ToAnError ? "stopped" : "refused";
}

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
                std::printf("lacking\t%s\t%s\n", row.file, lacks.c_str());
                continue;
            }
            Media::Make(row, folder);
            std::printf("%s\t%s\t%s\n", Outcome(row.reading), row.file, row.format.Get().c_str());
        } catch (const std::exception& e) {
            std::printf("failed\t%s\t%s\n", row.file, e.what());
            ++failures;
        }
    }
    return failures ? 1 : 0;
}
