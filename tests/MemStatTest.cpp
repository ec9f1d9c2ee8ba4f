#include "Proc/Wrappers/Tessadrin/Tessadrin.MemStat.h"

#include "Proc/Wrappers/Tessadrin/Details/MemStatState.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <thread>
#include <type_traits>
#include <vector>

namespace Quorva::Proc {
namespace {

static_assert(sizeof(MemStat) == sizeof(void*) && !std::is_polymorphic_v<MemStat>);
static_assert(std::is_empty_v<MemLocker>);

/// The name of the current record; "none" without one.
std::string Current()
{
    Details::MemStatState& state = Details::GetMemStatState();
    const std::lock_guard lock(state.numbers);
    return state.record ? state.record->name : "none";
}

TEST(MemLocker, MakesARecordCurrentWhileItLives)
{
    MemStat outer("outer"), inner("inner");
    EXPECT_EQ(Current(), "none");
    {
        MemLocker first(outer, "label");
        EXPECT_EQ(Current(), "outer");
        {
            MemLocker second(inner, nullptr);
            EXPECT_EQ(Current(), "inner");
            EXPECT_EQ(&(first = second), &first);
            EXPECT_EQ(Current(), "inner");
        }
        EXPECT_EQ(Current(), "none") << "an end clears, whatever stands around it";
        const MemLocker third(outer, "");
        EXPECT_EQ(Current(), "outer");
    }
    EXPECT_EQ(Current(), "none");
}

TEST(MemLocker, PeriodsOfThreadsNeverOverlap)
{
    constexpr int threads = 4, periods = 300;
    int inside = 0, ended = 0;  // plain: the lock under test is what guards them
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
        running.emplace_back([&, i] {
            const std::string name = std::to_string(i);
            for (int period = 0; period < periods; ++period) {
                MemStat stat(name.c_str());
                const MemLocker locker(stat, "");
                EXPECT_EQ(++inside, 1);
                const MemLocker nested(stat, "");
                EXPECT_EQ(Current(), name);
                std::this_thread::yield();
                EXPECT_EQ(stat.GetSnapshot().name, name);
                EXPECT_EQ(Current(), name);
                --inside;
                ++ended;
            }
        });
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(ended, threads * periods);
    EXPECT_EQ(Current(), "none");
}

std::string Text(const MemStatRecord& record)
{
    std::ostringstream stream;
    stream << std::hex << record;
    return stream.str();
}

TEST(MemStat, RecordsStartAtZeroAndNothingHereCounts)
{
    std::string name = "decoder";
    MemStat stat(name.c_str());
    name = "changed";
    {
        const MemLocker locker(stat, "label");
        const auto memory = std::make_unique<std::vector<int>>(1000);
        EXPECT_EQ(memory->size(), 1000u);
    }
    EXPECT_EQ(Text(stat.GetSnapshot()), "decoder: 0 bytes in 0 of 0 allocations, at most 0 bytes");
    EXPECT_EQ(MemStat(nullptr).GetSnapshot().name, "");
}

TEST(MemStat, SnapshotsHaveWhatAnAllocatorWrote)
{
    MemStat stat("decoder");
    {
        const MemLocker locker(stat, "");
        Details::MemStatState& state = Details::GetMemStatState();
        const std::lock_guard lock(state.numbers);
        MemStatRecord& record = *state.record;
        record.peak = 96;
        record.current = 64;
        record.allocations = 3;
        record.live = 1;
        record.bySize = {
            {16, 2},
            {64, 1}
        };
        record.liveBySize = {
            {64, 1}
        };
    }
    const MemStatRecord before = stat.GetSnapshot();
    EXPECT_EQ(Text(before),
              "decoder: 64 bytes in 1 of 3 allocations, at most 96 bytes\n  of 16 bytes: 0 of 2\n  of 64 "
              "bytes: 1 of 1");
}

}  // namespace
}  // namespace Quorva::Proc
