#include "tools/support/Playlists.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/support/Failure.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace Quorva::Tool {

namespace {

constexpr std::string_view signature = "#EXTM3U";
constexpr std::string_view endMark = "\n#EXT-X-ENDLIST\n";

// What FFmpeg allocates for each, beside texts.
constexpr uint64_t pieceSize = 200;      // bytes
constexpr uint64_t variantSize = 65536;  // bytes; with a demuxer and its buffer

[[noreturn]] void ThrowPlaylist(const std::string& name, const std::string& reason)
{
    Proc::Details::Raise(Core::IOException()
                         << TagDescription(fmt::format("'{}' was not opened: {}", name, reason))
                         << TagFailureKind(FailureKind::InvalidData));
}

uint64_t ReadFully(Core::IDataInput& stream, uint8_t* buffer, uint64_t size)
{
    uint64_t done = 0;
    while (const uint64_t count = Core::CheckedRead(stream, buffer + done, size - done))
        done += count;
    return done;
}

}  // namespace

bool Playlists::IsPlaylist(Core::IDataInput& stream)
{
    std::array<uint8_t, signature.size()> start{};
    stream.MoveTo(0);
    return ReadFully(stream, start.data(), start.size()) == start.size() &&
           std::ranges::equal(start, signature);
}

boost::intrusive_ptr<Core::IDataInput> Playlists::Read(Core::IDataInput& stream, bool nested)
{
    const uint64_t size = stream.GetSize();
    if (size > maxSize)
        ThrowPlaylist(stream.GetName(), "a playlist of more than 16 MiB");
    std::vector<uint8_t> text(size);
    stream.MoveTo(0);
    text.resize(ReadFully(stream, text.data(), size));
    Count({reinterpret_cast<const char*>(text.data()), text.size()}, stream.GetName(), nested);
    text.insert(text.end(), endMark.begin(), endMark.end());
    return Core::DataInputMemory::Create(std::move(text), stream.GetName());
}

/// Adds up what FFmpeg will keep of it.
void Playlists::Count(std::string_view text, const std::string& name, bool nested)
{
    constexpr std::string_view lineEnds("\n\r\0", 3);  // FFmpeg's
    unsigned variants = 0;
    uint64_t keySize = 0;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find_first_of(lineEnds));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.starts_with("#EXT-X-STREAM-INF:") || line.starts_with("#EXT-X-MEDIA:")) {
            kept += variantSize;
            ++variants;
        } else if (line.starts_with("#EXTINF:") || line.starts_with("#EXT-X-MAP:")) {
            kept += pieceSize + name.size() + keySize;
        } else if (line.starts_with("#EXT-X-KEY:")) {
            keySize = line.size() + name.size();
        } else {
            kept += line.size();
        }
    }
    if (nested && variants > 0)
        ThrowPlaylist(name, "a playlist of playlists, named by another one");
    if (variants > maxVariants)
        ThrowPlaylist(name, fmt::format("it names more than {} playlists", maxVariants));
    if (kept > maxKept)
        ThrowPlaylist(name, "the playlists take more than 256 MiB");
}

}  // namespace Quorva::Tool
