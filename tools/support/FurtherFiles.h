/// @file
/// Which of the files that an input names may be opened.
#pragma once

#include <cstddef>
#include <string>

namespace Quorva::Tool {

/// What applies to the further files of every input. Set once, before the first input is opened.
struct FurtherFilesPolicy {
    /// Whether they may lie outside of the folder of the file that names them.
    bool allowOutside = false;
    /// Openings for one input; many playlists have a piece of one second each for a day.
    size_t maxOpenings = 100000;
};

/// Opens the files that an input names (pieces of a playlist, further parts of a recording), for reading:
/// regular files in or below the folder of that input. The names come from a stranger's file, so it is the
/// kernel that checks where they lead: neither "..", nor absolute paths, nor links, nor mount points get out
/// of the folder.
class FurtherFiles {
public:
    /// @param first  path of the file that names the others. "-", devices, and what lies in /proc have no
    ///               folder: all others are outside.
    explicit FurtherFiles(const std::string& first, const FurtherFilesPolicy& policy = GetPolicy());
    FurtherFiles(const FurtherFiles&) = delete;
    FurtherFiles& operator=(const FurtherFiles&) = delete;
    ~FurtherFiles();

    static const FurtherFilesPolicy& GetPolicy() noexcept;
    static void SetPolicy(const FurtherFilesPolicy& policy) noexcept;

    /// @param path  relative to the current folder, or absolute
    /// @return an open descriptor, which the caller closes
    /// @throws Core::IOException  with TagFailureKind NotFound, or Unreadable when the system or this class
    ///                            refuses; the description names the path, the reason and a remedy.
    int Open(const std::string& path);

private:
    int OpenInFolder(const std::string& path) const;

    const FurtherFilesPolicy policy;
    std::string folder;  ///< of the first file, links resolved; empty: there is none
    int beneath = -1;    ///< that folder
    size_t openings = 0;
};

}  // namespace Quorva::Tool
