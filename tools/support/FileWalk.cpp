#include "tools/support/FileWalk.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace Quorva::Tool {

namespace fs = std::filesystem;

namespace {

// NOLINTNEXTLINE(misc-no-recursion): as deep as the folders are
void WalkFolder(const fs::path& folder, std::vector<WalkedFile>& files)
{
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.push_back(*entry);
    if (error)
        files.push_back({folder.native(), error.message()});
    std::ranges::sort(entries, {}, [](const fs::directory_entry& entry) { return entry.path().native(); });
    for (const fs::directory_entry& entry : entries) {
        // An entry that vanished meanwhile, or leads nowhere, is neither.
        std::error_code ignored;
        if (entry.is_directory(ignored)) {
            if (!entry.is_symlink(ignored))
                WalkFolder(entry.path(), files);
        } else if (entry.is_regular_file(ignored)) {
            files.push_back({entry.path().native(), {}});
        }
    }
}

}  // namespace

FileWalk WalkFiles(const std::vector<std::string>& arguments)
{
    FileWalk walk;
    for (const std::string& argument : arguments) {
        std::error_code ignored;  // whatever is wrong with it shows when it is opened
        if (argument == "-" || !fs::is_directory(argument, ignored)) {
            walk.files.push_back({argument, {}});
            continue;
        }
        const size_t before = walk.files.size();
        WalkFolder(argument, walk.files);
        if (walk.files.size() == before)
            walk.emptyFolders.push_back(argument);
    }
    return walk;
}

}  // namespace Quorva::Tool
