#include "tools/support/EarlierResults.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Json.h"

extern "C" {
#include <libavutil/sha.h>
}

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <system_error>

namespace Quorva::Tool {

namespace {

struct FreeAv {
    void operator()(void* memory) const noexcept { av_free(memory); }
};

std::string PathIn(const std::string& line)
{
    const Json json = Json::parse(line, nullptr, false);
    const auto path = json.is_object() ? json.find("path") : json.end();
    return path != json.end() && path->is_string() ? path->get<std::string>() : std::string();
}

/// Removes what is behind `end`, if `path` is where standard output goes.
void CutOutput(const std::string& path, off_t end)
{
    struct stat file{}, output{};
    if (stat(path.c_str(), &file) < 0 || fstat(STDOUT_FILENO, &output) < 0 || !S_ISREG(file.st_mode) ||
        file.st_dev != output.st_dev || file.st_ino != output.st_ino || file.st_size <= end)
        return;
    if (ftruncate(STDOUT_FILENO, end) < 0)
        Proc::Details::Throw<Core::IOException>("can't remove the incomplete line at the end of '{}': {}",
                                                path, std::system_category().message(errno));
}

}  // namespace

EarlierResults::EarlierResults(const std::string& path)
{
    if (path.empty())
        return;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        Proc::Details::Throw<Core::IOException>("can't open '{}': {}", path,
                                                std::system_category().message(errno));
    off_t end = 0;
    size_t number = 0;
    for (std::string line; std::getline(file, line) && !file.eof();) {
        end += static_cast<off_t>(line.size()) + 1;
        ++number;
        if (line.empty())
            continue;
        const std::string known = PathIn(line);
        if (known.empty())
            Proc::Details::Throw<Core::IOException>("line {} of '{}' is not a result of --json-lines", number,
                                                    path);
        digests.push_back(DigestOf(known));
    }
    if (file.bad())
        Proc::Details::Throw<Core::IOException>("can't read '{}': {}", path,
                                                std::system_category().message(errno));
    std::ranges::sort(digests);
    CutOutput(path, end);
}

bool EarlierResults::Has(const std::string& path) const
{
    return !digests.empty() && std::ranges::binary_search(digests, DigestOf(path));
}

/// SHA-256, shortened: names may come from strangers, who must not be able to make two alike.
EarlierResults::Digest EarlierResults::DigestOf(const std::string& path)
{
    const std::unique_ptr<AVSHA, FreeAv> sha(av_sha_alloc());
    if (!sha)
        Proc::Details::Raise(Core::MemoryException("Unable to allocate memory for a digest", 0));
    uint8_t whole[32];
    av_sha_init(sha.get(), 256);
    av_sha_update(sha.get(), reinterpret_cast<const uint8_t*>(path.data()), path.size());
    av_sha_final(sha.get(), whole);
    Digest digest;
    std::copy_n(whole, digest.size(), digest.begin());
    return digest;
}

}  // namespace Quorva::Tool
