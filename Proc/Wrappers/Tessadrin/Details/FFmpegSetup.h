#pragma once

#include "host/MediaDescription.h"
#include "host/RefCounting.h"

#include <mutex>
#include <string>
#include <vector>

namespace Quorva::Proc::Details {

/// FFmpeg's process-wide state: the log bridge and the network layer. Refuses an FFmpeg that the rest of the
/// library would misread. The bridge stays installed when this goes, as FFmpeg may still log.
class FFmpegSetup {
public:
    /// @throws std::logic_error  from the checks below.
    FFmpegSetup();
    ~FFmpegSetup();
    FFmpegSetup(const FFmpegSetup&) = delete;
    FFmpegSetup& operator=(const FFmpegSetup&) = delete;

private:
    std::mutex lock;
    RefCountImpl loads;
};

/// Whether libavutil's structures are as long as when this library was compiled, or shorter: frames are held
/// by value here, and a later minor version may write beyond their end. An earlier one only leaves fields at
/// zero; functions it lacks stop the dynamic linker, pixel formats it lacks the check below.
/// @param version  as avutil_version() returns it
/// @throws std::logic_error  of another major version or a later minor version.
void CheckRuntimeVersion(unsigned version);

/// Whether the pipeline's descriptions agree with FFmpeg's of the same number, which is all that conversions
/// of pixel formats rely on.
/// @throws std::logic_error  names the first that differs, or that FFmpeg doesn't describe ("none").
void CheckPixelFormats(const std::vector<PixFmtDescription>& descriptions);

/// The exception that is being handled, which a part of the load sequence threw: what it is, and what to do
/// about it. One sentence without its full stop.
std::string DescribeLoadFailure();

}  // namespace Quorva::Proc::Details
