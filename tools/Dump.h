/// @file
/// What `tessadrin dump` makes of one stream.
#pragma once

#include "tools/InputOptions.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/isolation/RequestedFiles.h"
#include "tools/support/HardwareRoundTrip.h"
#include "tools/support/StreamDecoder.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quorva::Tool {

struct DumpOptions {
    std::string file;
    std::string name;
    std::vector<int> streams;  ///< empty: chosen by the command
    int every = 1;
    int count = 1;
    int64_t at = 0;  ///< microseconds from the file's start
    bool packets = false;
    bool overwrite = false;
    InputOptions input;
    std::string hardware;  ///< the type of device that pictures go through; empty: none
    IsolationOptions isolation;
};

/// Somebody's stream, decoded; pictures and bitmap subtitles go to files, text subtitles to standard output,
/// with a line about each.
class StreamDump {
public:
    /// @param stream, options  outlive the object
    /// @param name             how the files' names begin
    /// @param start            of the file, microseconds
    /// @throws Quorva::Exception  nothing decodes the stream, or there is no such device.
    StreamDump(const AVStream& stream, const DumpOptions& options, std::string name, int64_t start);

    int GetIndex() const { return stream.index; }
    bool IsDone() const { return dumped >= options.count; }
    int GetCount() const { return dumped; }
    /// Packets that could not be decoded, and why the first of them; empty when all could.
    std::string GetComplaint() const;

    /// @param packet  null at the end, for what the decoder has kept
    /// @throws Quorva::Exception  a picture can't be converted, or its file not be written.
    void Decode(const AVPacket* packet);

private:
    void DecodeSubtitles(const AVPacket* packet);
    bool IsWanted(int64_t time, int64_t duration);
    void DumpPicture(const AVFrame& decoded);
    void DumpSubtitle(const AVSubtitle& subtitle, const AVPacket* packet);
    std::string TimeText(int64_t time) const;
    void Write(const std::vector<uint8_t>& bitmap, bool key, int64_t time, const std::string& what);

    const AVStream& stream;
    const DumpOptions& options;
    RequestedFiles files;
    const std::string name;
    const int64_t start;
    std::optional<StreamDecoder> pictures;  ///< one of these two
    std::optional<Proc::SafeCodecContext> subtitles;
    std::optional<HardwareRoundTrip> device;
    uint64_t seen = 0;  ///< pictures or subtitles behind options.at
    int dumped = 0;
    uint64_t refused = 0;  ///< packets of subtitles, and FFmpeg's result for the first of them
    int firstResult = 0;
};

}  // namespace Quorva::Tool
