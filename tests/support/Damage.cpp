#include "tests/support/Damage.h"

#include "host/RefCounting.h"
#include "tests/support/Muxed.h"

#include <boost/throw_exception.hpp>

#include <algorithm>
#include <iterator>
#include <random>

namespace Quorva::Damage {

namespace {

// clang-format off
constexpr Container containers[] = {
    {"ts",   "mpegts",       "mpeg2video", 300, 400'000},
    {"mpg",  "mpeg",         "mpeg2video", 300, 400'000},
    {"mp4",  "mp4",          "mpeg4",      300, 400'000},
    {"mkv",  "matroska",     "mpeg4",      300, 400'000},
    {"webm", "webm",         "libvpx",     100, 900'000},
    {"avi",  "avi",          "mpeg4",      300, 400'000},
    {"asf",  "asf",          "wmv2",       300, 400'000},
    {"flv",  "flv",          "flv",        300, 400'000},
    {"nut",  "nut",          "mpeg4",      300, 400'000},
    {"m2v",  "mpeg2video",   "mpeg2video", 300, 400'000},
    {"oga",  "ogg",          "flac",       30,  0      },
    {"flac", "flac",         "flac",       30,  0      },
    {"wav",  "wav",          "pcm_s16le",  150, 0      },
    {"aiff", "aiff",         "pcm_s16be",  150, 0      },
    {"caf",  "caf",          "pcm_s16be",  150, 0      },
    {"mp3",  "mp3",          "libmp3lame", 900, 192'000},
    {"aac",  "adts",         "aac",        900, 192'000},
    {"ac3",  "ac3",          "ac3",        500, 192'000},
};
// clang-format on

constexpr int each = 3;  ///< files of most kinds

/// The place of a case in the first six tenths, away from the beginning, whose loss no reader survives.
size_t PlaceOf(const std::vector<uint8_t>& intact, int number)
{
    return intact.size() * (5 + 55 * static_cast<size_t>(number) / size_t{each}) / 100;
}

Case Copy(const char* name, const std::vector<uint8_t>& intact, int number)
{
    return {std::string(name) + "-" + std::to_string(number), intact, {}};
}

Case Truncate(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("truncated", intact, number);
    damaged.bytes.resize(intact.size() * (20 * static_cast<size_t>(number) + 10) / 100);
    return damaged;
}

Case FlipBits(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("bits", intact, number);
    std::minstd_rand random(static_cast<unsigned>(number) + 1);
    for (size_t at = 2000; at < intact.size(); at += 5'000 + random() % 20'000)
        damaged.bytes[at] ^= static_cast<uint8_t>(1u << random() % 8);
    return damaged;
}

void FillRandomly(std::span<uint8_t> bytes, int number)
{
    std::minstd_rand random(static_cast<unsigned>(number) + 1);
    std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(random() >> 8); });
}

Case Zero(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("zeroed", intact, number);
    std::fill_n(damaged.bytes.begin() + static_cast<ptrdiff_t>(PlaceOf(intact, number)), 4096 << number, 0);
    return damaged;
}

Case Overwrite(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("random", intact, number);
    FillRandomly(std::span(damaged.bytes).subspan(PlaceOf(intact, number), 4096 << number), number);
    return damaged;
}

Case Splice(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("spliced", intact, number);
    std::vector<uint8_t> garbage(777u << (2 * number));
    FillRandomly(garbage, number);
    damaged.bytes.insert(damaged.bytes.begin() + static_cast<ptrdiff_t>(PlaceOf(intact, number)),
                         garbage.begin(), garbage.end());
    return damaged;
}

Case CutOut(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("cut", intact, number);
    const auto at = damaged.bytes.begin() + static_cast<ptrdiff_t>(PlaceOf(intact, number));
    damaged.bytes.erase(at, at + (777 << (2 * number)));
    return damaged;
}

/// Numbers that could be the size of something become too small, too large or the largest there is.
Case LieAboutSizes(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("sizes", intact, number);
    const auto isSize = [&](uint32_t value) { return value >= 8 && value < intact.size(); };
    std::vector<std::pair<size_t, bool>> found;  // where, and whether the first byte is the highest
    for (size_t at = 0; at + 4 <= intact.size(); ++at) {
        const uint8_t* p = &intact[at];
        const uint32_t big = uint32_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3];
        const uint32_t little = uint32_t{p[3]} << 24 | p[2] << 16 | p[1] << 8 | p[0];
        if (isSize(big) || isSize(little))
            found.emplace_back(at, isSize(big));
    }
    for (size_t i = static_cast<size_t>(number) + 1; i < found.size(); i += 1 + found.size() / 10) {
        const auto [at, big] = found[i];
        const uint32_t lies[each] = {1, 0x7fffffff, static_cast<uint32_t>(intact.size())};
        for (int byte = 0; byte < 4; ++byte)
            damaged.bytes[at + static_cast<size_t>(byte)] =
                static_cast<uint8_t>(lies[number] >> 8 * (big ? 3 - byte : byte));
    }
    return damaged;
}

Case FailOnce(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("fails-once", intact, number);
    const size_t at = PlaceOf(intact, number);
    damaged.spot = {at, at + 512, false};
    return damaged;
}

Case FailAlways(const std::vector<uint8_t>& intact, int number)
{
    Case damaged = Copy("fails", intact, number);
    const size_t at = PlaceOf(intact, number);
    damaged.spot = {at, at + 4096, true};
    return damaged;
}

constexpr Kind kinds[] = {
    {"truncated",              5,    Truncate     },
    {"bits flipped",           each, FlipBits     },
    {"a block zeroed",         each, Zero         },
    {"a block of noise",       each, Overwrite    },
    {"garbage between",        each, Splice       },
    {"a piece missing",        each, CutOut       },
    {"sizes that lie",         each, LieAboutSizes},
    {"one read fails once",    each, FailOnce     },
    {"a sector can't be read", each, FailAlways   },
};

class Stream final : public RefCounted<Core::IDataInput> {
public:
    Stream(const Case& damaged, Effort& effort) : damaged(damaged), spot(damaged.spot), effort(effort) {}

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        ++effort.calls;
        if (position >= damaged.bytes.size())
            return 0;
        const uint64_t count = std::min<uint64_t>(size, damaged.bytes.size() - position);
        if (position < spot.end && position + count > spot.begin && spot.begin < spot.end) {
            if (!spot.lasting)
                spot = {};
            boost::throw_exception(Core::IOException());
        }
        std::copy_n(damaged.bytes.data() + position, count, buffer);
        position += count;
        effort.bytes += count;
        return count;
    }
    uint64_t GetSize() override { return damaged.bytes.size(); }
    uint64_t MoveBy(int64_t offset) override
    {
        ++effort.calls;
        return position += static_cast<uint64_t>(offset);
    }
    void MoveTo(uint64_t target) override
    {
        ++effort.calls;
        position = target;
    }
    const std::string& GetName() const noexcept override { return damaged.name; }

private:
    const Case& damaged;
    BadSpot spot;
    Effort& effort;
    uint64_t position = 0;
};

}  // namespace

std::span<const Container> Containers() { return containers; }

std::vector<uint8_t> Make(const Container& container)
{
    return Mux(container.muxer, container.encoder, container.frames, container.bitRate);
}

std::span<const Kind> Kinds() { return kinds; }

boost::intrusive_ptr<Core::IDataInput> Open(const Case& damaged, Effort& effort)
{
    return MakeRefCounted<Stream>(damaged, effort);
}

}  // namespace Quorva::Damage
