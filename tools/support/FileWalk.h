/// @file
/// From arguments to files.
#pragma once

#include <string>
#include <vector>

namespace Quorva::Tool {

/// One file to work on, or a folder that could not be read.
struct WalkedFile {
    std::string path;
    std::string folderError;  ///< the system's reason; empty for a file
};

/// What a look for the next file has found.
enum class NextFile {
    File,
    Nothing,  ///< the list has no further name yet
    End,
};

struct FileWalk {
    std::vector<WalkedFile> files;
    std::vector<std::string> emptyFolders;  ///< arguments below which there is no file
};

/// Files stay as named, existing or not, in the order of `arguments`. A folder gives every regular file below
/// it, by name within each folder; links to files count, links to folders are not followed.
FileWalk WalkFiles(const std::vector<std::string>& arguments);

}  // namespace Quorva::Tool
