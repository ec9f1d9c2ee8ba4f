#include "Proc/Wrappers/Tessadrin/Details/LeadingTags.h"

#include <string_view>

namespace Quorva::Proc::Details {

namespace {

constexpr int maxTags = 64;  // bounds what is read of hostile files: a tag may be empty
constexpr uint64_t id3HeaderSize = 10, apeHeaderSize = 32;

/// Returns the size of the ID3v2 tag that begins here, with header and footer; 0 when none does.
uint64_t SizeOfID3v2(std::string_view bytes)
{
    constexpr uint8_t versionWithFooter = 4, footerFlag = 0x10;
    const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
    if (bytes.size() < id3HeaderSize || !bytes.starts_with("ID3") || at(3) == 0xFF || at(4) == 0xFF)
        return 0;
    uint64_t size = 0;
    for (size_t i = 6; i < id3HeaderSize; ++i) {
        if (at(i) >= 0x80)
            return 0;
        size = size << 7 | at(i);
    }
    const bool hasFooter = at(3) == versionWithFooter && at(5) & footerFlag;
    return size + (hasFooter ? 2 : 1) * id3HeaderSize;
}

/// Returns the size of the APEv2 tag whose header this is; 0 when it is none.
uint64_t SizeOfAPEv2(std::string_view bytes)
{
    constexpr uint8_t isHeaderFlag = 0x20;  // of the highest byte of the flags
    const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
    if (bytes.size() < apeHeaderSize || !bytes.starts_with("APETAGEX") || !(at(23) & isHeaderFlag))
        return 0;
    uint64_t size = 0;
    for (size_t i = 0; i < 4; ++i)
        size |= uint64_t{at(12 + i)} << 8 * i;
    return apeHeaderSize + size;
}

std::string_view ReadAt(Core::IDataInput& input, uint64_t position, uint8_t (&buffer)[apeHeaderSize])
{
    input.MoveTo(position);
    const uint64_t count = Core::CheckedRead(input, buffer, sizeof buffer);
    return {reinterpret_cast<const char*>(buffer), count};
}

}  // namespace

uint64_t FindMediaStart(Core::IDataInput& input)
{
    uint64_t start = 0;
    bool hasID3 = false;
    uint8_t buffer[apeHeaderSize];
    for (int tags = 0; tags < maxTags; ++tags) {
        const std::string_view bytes = ReadAt(input, start, buffer);
        const uint64_t id3 = SizeOfID3v2(bytes);
        // FFmpeg reads on behind ID3v2 tags, and would take an APEv2 tag there for media.
        const uint64_t size = id3 > 0 || hasID3 ? id3 : SizeOfAPEv2(bytes);
        if (size == 0)
            break;
        hasID3 |= id3 > 0;
        start += size;
    }
    return start;
}

}  // namespace Quorva::Proc::Details
