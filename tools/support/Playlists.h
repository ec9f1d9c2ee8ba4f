/// @file
/// Playlists (M3U8) as FFmpeg is to see them.
#pragma once

#include "host/FoundationIO.h"

#include <cstdint>
#include <string_view>

namespace Quorva::Tool {

/// The playlists of one input: the input itself, and those that it names.
class Playlists {
public:
    static constexpr uint64_t maxSize = 16 << 20;   ///< bytes of one playlist
    static constexpr uint64_t maxKept = 256 << 20;  ///< bytes that FFmpeg keeps of all of them, about
    static constexpr unsigned maxVariants = 1000;   ///< playlists that one names; FFmpeg opens all at once

    /// Whether the stream begins as a playlist does. Moves it.
    static bool IsPlaylist(Core::IDataInput& stream);

    /// A copy of the playlist with an end mark behind it. Without one it counts as a live broadcast: FFmpeg
    /// begins three pieces before its end, and there sleeps and reads it again, for ever.
    /// @param nested  whether another playlist names it. Such a one may name pieces only: FFmpeg would follow
    ///                playlists that name each other without end.
    /// @throws Core::IOException  with TagFailureKind InvalidData: a limit is exceeded. Or the stream's own.
    boost::intrusive_ptr<Core::IDataInput> Read(Core::IDataInput& stream, bool nested);

private:
    void Count(std::string_view text, const std::string& name, bool nested);

    uint64_t kept = 0;
};

}  // namespace Quorva::Tool
