#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quorva::Proc::Details {

/// Tells new messages from those that come again and again. A message is its format string: the same one with
/// other arguments is the same message. As long as it recurs within the interval it stays suppressed.
class RecentMessages {
public:
    static constexpr int64_t interval = 5'000'000'000;

    /// Whether the message has been silent for more than the interval; notes that it came.
    /// @param now  nanoseconds of a clock that never goes back; the caller's, so that a test can turn it
    bool Admit(std::string_view format, int64_t now)
    {
        const uint32_t key = KeyOf(format);
        const std::lock_guard guard(mutex);
        if (now - earliest > interval)
            Forget(now);
        for (size_t i = Find(key, 0); i < keys.size(); i = Find(key, i + 1))
            if (formats[i] == format) {
                times[i] = now;
                return false;
            }
        Append(key, format, now);
        return true;
    }

private:
    /// Tells texts apart, but not for sure.
    static uint32_t KeyOf(std::string_view format)
    {
        uint64_t key = format.size();
        const auto add = [&](const char* at, size_t size) {
            uint64_t word = 0;
            std::memcpy(&word, at, size);
            key = (key ^ word) * 0x9e3779b97f4a7c15;
            key ^= key >> 29;
        };
        while (format.size() >= sizeof key) {
            add(format.data(), sizeof key);
            format.remove_prefix(sizeof key);
        }
        add(format.data(), format.size());
        return static_cast<uint32_t>(key >> 32);
    }

    /// The place of the next such key; the end when there is none.
    size_t Find(uint32_t key, size_t from) const
    {
        constexpr size_t block = 16;  // walked without a branch, several at a time
        for (; from + block <= keys.size(); from += block) {
            bool any = false;
            for (size_t i = 0; i < block; ++i)
                any |= keys[from + i] == key;
            if (any)
                break;
        }
        return static_cast<size_t>(std::find(keys.begin() + static_cast<ptrdiff_t>(from), keys.end(), key) -
                                   keys.begin());
    }

    /// Those that have been silent for more than the interval; the others stay in their order.
    void Forget(int64_t now)
    {
        size_t kept = 0;
        earliest = now;
        for (size_t i = 0; i < keys.size(); ++i) {
            if (now - times[i] > interval)
                continue;
            keys[kept] = keys[i];
            times[kept] = times[i];
            if (kept != i)
                formats[kept] = std::move(formats[i]);
            earliest = std::min(earliest, times[i]);
            ++kept;
        }
        keys.resize(kept);
        times.resize(kept);
        formats.resize(kept);
    }

    /// All three or none.
    void Append(uint32_t key, std::string_view format, int64_t now)
    {
        std::string text(format);
        if (keys.size() == keys.capacity() || keys.size() == times.capacity() ||
            keys.size() == formats.capacity()) {
            const size_t room = std::max<size_t>(16, 2 * keys.size());
            keys.reserve(room);
            times.reserve(room);
            formats.reserve(room);
        }
        earliest = std::min(earliest, now);
        keys.push_back(key);
        times.push_back(now);
        formats.push_back(std::move(text));
    }

    std::mutex mutex;
    // One message has the same place in all three.
    std::vector<uint32_t> keys;
    std::vector<int64_t> times;  ///< when it came last
    std::vector<std::string> formats;
    int64_t earliest =
        std::numeric_limits<int64_t>::max();  ///< no entry came before; some may have come since
};

}  // namespace Quorva::Proc::Details
