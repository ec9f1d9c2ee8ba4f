#include "tools/support/FileList.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace Quorva::Tool {

FileList::FileList(const FileListOptions& options) : options(options), earlier(options.resume)
{
    Open();
    Add(WalkFiles(options.arguments));
}

void FileList::Open()
{
    if (options.namesFrom.empty())
        return;
    list = Descriptor(options.namesFrom == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                               : open(options.namesFrom.c_str(), O_RDONLY | O_CLOEXEC));
    if (!list)
        Proc::Details::Throw<Core::IOException>("can't open the list '{}': {}", options.namesFrom,
                                                std::system_category().message(errno));
}

void FileList::Add(FileWalk walk)
{
    for (WalkedFile& file : walk.files)
        if (!file.folderError.empty() || !earlier.Has(file.path))
            files.push_back(std::move(file));
    std::ranges::move(walk.emptyFolders, std::back_inserter(emptyFolders));
}

NextFile FileList::Next(WalkedFile& file)
{
    while (files.empty() && list)
        if (!ReadList())
            return NextFile::Nothing;
    if (files.empty())
        return NextFile::End;
    file = std::move(files.front());
    files.pop_front();
    return NextFile::File;
}

/// Returns whether something came, be it the end.
bool FileList::ReadList()
{
    pollfd ready{list.Get(), POLLIN, 0};
    if (poll(&ready, 1, 0) <= 0)
        return false;
    char bytes[4096];
    const ssize_t size = read(list.Get(), bytes, sizeof bytes);
    if (size < 0 && (errno == EINTR || errno == EAGAIN))
        return false;
    if (size < 0)
        Proc::Details::Throw<Core::IOException>("can't read the list '{}': {}", options.namesFrom,
                                                std::system_category().message(errno));
    waiting.append(bytes, static_cast<size_t>(size));
    if (size == 0) {
        list = Descriptor();
        waiting += options.nullBetween ? '\0' : '\n';  // the last name may come without
    }
    TakeNames();
    return true;
}

void FileList::TakeNames()
{
    size_t start = 0;
    for (size_t end; (end = waiting.find(options.nullBetween ? '\0' : '\n', start)) != std::string::npos;
         start = end + 1) {
        const std::string name = waiting.substr(start, end - start);
        if (!name.empty())
            Add(WalkFiles({name == "-" ? "./-" : name}));
    }
    waiting.erase(0, start);
    if (waiting.size() > MAX_NAME)
        Proc::Details::Throw<Core::IOException>(
            "a name in the list '{}' is longer than {} bytes{}", options.namesFrom, MAX_NAME,
            options.nullBetween ? ": without --null, each line is one" : "");
}

std::optional<size_t> FileList::GetCount() const { return list ? std::nullopt : std::optional(files.size()); }

}  // namespace Quorva::Tool
