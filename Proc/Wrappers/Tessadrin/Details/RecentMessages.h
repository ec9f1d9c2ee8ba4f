#pragma once

#include <cstdint>
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
        const std::lock_guard guard(mutex);
        bool known = false;
        auto kept = entries.begin();
        for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
            if (now - entry->time > interval)
                continue;
            if (entry->format == format) {
                entry->time = now;
                known = true;
            }
            if (kept != entry)
                *kept = std::move(*entry);
            ++kept;
        }
        entries.erase(kept, entries.end());
        if (!known)
            entries.push_back({std::string(format), now});
        return !known;
    }

private:
    struct Entry {
        std::string format;
        int64_t time;  ///< when it came last
    };

    std::mutex mutex;
    std::vector<Entry> entries;
};

}  // namespace Quorva::Proc::Details
