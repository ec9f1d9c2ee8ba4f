/// @file
/// Files that are there when they are complete, and not before; and outputs that are no files.
#pragma once

#include "host/FoundationIO.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace Quorva::Tool {

/// Files being written beside their places. Commit() moves them there; until then, and when it never comes,
/// everything in those places stays as it was.
class OutputFiles {
public:
    /// What becomes of a symbolic link that is replaced.
    enum class Links {
        Follow,   ///< the link stays, and the file that it leads to is replaced, or made where it dangles
        Replace,  ///< the file takes the link's place
    };

    /// @param overwrite  whether Commit() may replace files; a new file then has the mode of the old one
    /// @param keep       whether unfinished files stay, under their provisional names, when Commit() never
    ///                   comes
    OutputFiles(bool overwrite, bool keep, Links links = Links::Follow);
    OutputFiles(const OutputFiles&) = delete;
    OutputFiles& operator=(const OutputFiles&) = delete;
    ~OutputFiles();

    /// Tells early what Create() would only tell after the work of a first pass.
    /// @throws Core::IOException  something is there and mustn't be replaced
    void Check(const std::string& path) const;

    /// A new file that will be at `path`.
    /// @throws Core::IOException  something is there and mustn't be replaced, or the system refuses
    boost::intrusive_ptr<Core::IDataOutput> Create(const std::string& path);
    /// The same as a descriptor, which the caller owns.
    int CreateDescriptor(const std::string& path);

    /// Puts the files in their places, in the order of their creation. The streams are to be gone by then.
    /// @throws Core::IOException  the system refuses, or something else has taken a provisional name;
    ///                            files that are in place already stay there
    void Commit();

    /// Deletes the unfinished files, unless they are to be kept. To be called instead of the destructor
    /// where another thread still uses their streams.
    void Discard() noexcept;
    /// Does the same for all objects, and blocks every thread that creates or renames a file of one from then
    /// on. From any thread; the process is to end then.
    static void DiscardAll() noexcept;

    /// Paths of unfinished files.
    std::vector<std::string> GetUnfinished() const;

private:
    struct File {
        std::string provisional;
        std::string path;
        dev_t device = 0;  ///< these two say which file was created under the provisional name
        ino_t inode = 0;
    };

    void Synchronise(const File& file) const;
    void Delete() noexcept;

    const bool overwrite;
    const bool keep;
    const Links links;
    std::vector<File> files;      ///< those not in their places yet
    OutputFiles* next = nullptr;  ///< of all objects
};

/// Returns why `path` can't number pictures; empty when it can, or has no place for a number. There may be
/// one, %d or, with leading zeros, %03d.
std::string NumberFault(const std::string& path);

/// Whether `path` means standard output ("-"), or names a pipe or a device: written as it is, without a
/// provisional name, and without a way back.
bool IsStreamPath(const std::string& path);

/// Standard output, a pipe or a device.
/// @throws Core::IOException  it can't be opened
boost::intrusive_ptr<Core::IDataOutput> OpenStreamOutput(const std::string& path);

}  // namespace Quorva::Tool
