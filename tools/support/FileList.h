/// @file
/// The files of a run, taken one by one, however many there are.
#pragma once

#include "tools/isolation/ControlChannel.h"
#include "tools/support/EarlierResults.h"
#include "tools/support/FileWalk.h"

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace Quorva::Tool {

struct FileListOptions {
    std::vector<std::string> arguments;
    std::string namesFrom;     ///< a file with further names, "-" for standard input; empty: none
    bool nullBetween = false;  ///< a zero byte ends each name in it, and not a line feed
    std::string resume;        ///< JSON Lines of an earlier run, whose files are left out; empty: none
};

/// Names from the command line and from a list. The list is read as it is needed: a few names of it are in
/// memory at a time.
class FileList {
public:
    static constexpr size_t MAX_NAME = 65536;  ///< bytes of a name in a list

    /// Walks the folders among the arguments and reads the earlier results.
    /// @throws Quorva::Exception  the list or the results can't be opened, or the results aren't JSON Lines
    explicit FileList(const FileListOptions& options);

    /// Never waits.
    /// @throws Core::IOException  the list can't be read, or a name in it is too long
    NextFile Next(WalkedFile& file);
    /// Where to wait after NextFile::Nothing.
    int GetWaitDescriptor() const noexcept { return list.Get(); }

    /// How many there are; nothing where a list is still to be read.
    std::optional<size_t> GetCount() const;
    /// Named folders in which there was no file.
    const std::vector<std::string>& GetEmptyFolders() const noexcept { return emptyFolders; }

private:
    void Open();
    void Add(FileWalk walk);
    bool ReadList();
    void TakeNames();

    const FileListOptions options;
    const EarlierResults earlier;
    std::deque<WalkedFile> files;  ///< known, and not given yet
    std::vector<std::string> emptyFolders;
    Descriptor list;      ///< none where it is used up
    std::string waiting;  ///< read from the list: the beginning of a name
};

}  // namespace Quorva::Tool
