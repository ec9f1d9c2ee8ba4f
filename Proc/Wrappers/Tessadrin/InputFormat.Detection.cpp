#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Details/LeadingTags.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace Quorva::Proc {

namespace {

// Bytes. The first look settles nearly every file; FFmpeg's programs look from 2 KiB up to 1 MiB.
constexpr uint64_t firstLook = 64 << 10, shortestLook = 2 << 10, longestLook = 1 << 20;
constexpr int scoreFloor = AVPROBE_SCORE_RETRY;  // a further look has to score higher

/// Takes an input back to where it was.
class PositionGuard {
public:
    explicit PositionGuard(Core::IDataInput& input) : input(input), position(input.MoveBy(0)) {}
    PositionGuard(const PositionGuard&) = delete;
    PositionGuard& operator=(const PositionGuard&) = delete;
    ~PositionGuard()
    {
        try {
            input.MoveTo(position);
        } catch (...) {  // an input that refuses this will refuse the caller's next move as well
        }
    }

private:
    Core::IDataInput& input;
    const uint64_t position;
};

/// The bytes of an input from a position on, of which each is read once.
class Head {
public:
    Head(Core::IDataInput& input, uint64_t start) : input(input), start(start) {}

    /// Returns how many of the first `size` bytes there are, after reading those that are missing.
    uint64_t Load(uint64_t size)
    {
        if (size <= bytes.size() || ended)
            return std::min<uint64_t>(size, bytes.size());
        uint64_t done = bytes.size();
        bytes.resize(size);
        input.MoveTo(start + done);
        while (done < size && !ended) {
            const uint64_t count = Core::CheckedRead(input, bytes.data() + done, size - done);
            done += count;
            ended = count == 0;
        }
        bytes.resize(done);
        return done;
    }

    ProbeResult Detect(uint64_t size)
    {
        const auto end = bytes.begin() + static_cast<ptrdiff_t>(Load(size));
        const auto probe = MovieProbe::Create(input.GetName(), {bytes.begin(), end});
        ProbeResult found;
        DetectFileInputFormat(*probe, found);
        return found;
    }

private:
    Core::IDataInput& input;
    const uint64_t start;
    std::vector<uint8_t> bytes;
    bool ended = false;
};

/// A look at fewer bytes can tell more: a probe that sees damage gives no score.
ProbeResult DetectByFurtherLooks(Head& head)
{
    const uint64_t seen = head.Load(firstLook);
    uint64_t before = 0;
    for (uint64_t size = shortestLook; size <= longestLook; size *= 2) {
        const uint64_t there = head.Load(size);
        if (there == before)
            break;
        before = there;
        if (there == seen)
            continue;
        ProbeResult found = head.Detect(size);
        if (found.score > scoreFloor && !found.format.empty())
            return found;
    }
    return {};
}

ProbeResult DetectFrom(Core::IDataInput& input, uint64_t start)
{
    Head head(input, start);
    ProbeResult found = head.Detect(firstLook);
    return found.format.empty() ? DetectByFurtherLooks(head) : found;
}

ProbeResult DetectWithTags(Core::IDataInput& input, uint64_t mediaStart)
{
    ProbeResult found = Head(input, 0).Detect(firstLook);
    // FFmpeg skips a tag that it sees the end of. Where it doesn't, the file's name has decided.
    const bool sawMedia = mediaStart + AVPROBE_PADDING_SIZE < firstLook;
    if (sawMedia && found.score > scoreFloor && !found.format.empty())
        return found;
    ProbeResult behind = DetectFrom(input, mediaStart);
    if (behind.format.empty() || (sawMedia && behind.score <= found.score && !found.format.empty()))
        return found;
    return behind;
}

}  // namespace

uint64_t DetectInputFormat(const boost::intrusive_ptr<Core::IDataInput>& input, ProbeResult& result)
{
    const PositionGuard guard(*input);
    const uint64_t mediaStart = Details::FindMediaStart(*input);
    const bool hasMediaBehindTags = mediaStart > 0 && Head(*input, mediaStart).Load(1) > 0;
    ProbeResult found = hasMediaBehindTags ? DetectWithTags(*input, mediaStart) : DetectFrom(*input, 0);
    if (!found.format.empty() && (result.format.empty() || found.score > result.score))
        result = std::move(found);
    return mediaStart;
}

}  // namespace Quorva::Proc
