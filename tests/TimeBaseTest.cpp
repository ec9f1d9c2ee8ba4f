#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"

#include <gtest/gtest.h>

#include <climits>

namespace Quorva::Proc {
namespace {

TEST(TimeBase, StreamAndGlobalTime)
{
    const struct {
        int64_t stream, global;
        AVRational timeBase;
        bool both;  ///< exact: holds in both directions
    } rows[] = {
        {90000,                                  1000000,                                  {1, 90000},    true },
        {-90000,                                 -1000000,                                 {1, 90000},    true },
        {1,                                      333333,                                   {1, 3},        false},
        {-1,                                     -33367,                                   {1001, 30000}, true }, // -33366.67
        {1,                                      500000,                                   {1, 2},        true },
        {3 * INT64_C(90000) * 86400 * 365 * 100, 3 * INT64_C(1000000) * 86400 * 365 * 100, {1, 90000},    true },
        {AV_NOPTS_VALUE,                         AV_NOPTS_VALUE,                           {1, 90000},    true },
        {AV_NOPTS_VALUE,                         AV_NOPTS_VALUE,                           {0, 0},        true },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stream);
        EXPECT_EQ(stream_to_global(row.stream, row.timeBase), row.global);
        if (row.both) {
            EXPECT_EQ(global_to_stream(row.global, row.timeBase), row.stream);
        }
    }
    EXPECT_EQ(global_to_stream(500000, {1, 1}), 1) << "half a tick goes away from zero";
    EXPECT_EQ(global_to_stream(-500000, {1, 1}), -1);
    EXPECT_EQ(stream_to_global(INT64_MAX, {1, 1}), AV_NOPTS_VALUE) << "past 64 bits";
}

TEST(AvRescale, RoundsHalvesAwayFromZeroWithoutOverflow)
{
    EXPECT_EQ(AvRescale(3, 1, 2), 2);
    EXPECT_EQ(AvRescale(-3, 1, 2), -2);
    EXPECT_EQ(AvRescale(INT64_MAX, 1000, 2000), INT64_MAX / 2 + 1);
    EXPECT_EQ(AvRescale(INT64_MAX, 2, 1), INT64_MIN);
    EXPECT_EQ(AvRescale(1, 1, 0), INT64_MIN);
}

template <class Int>
void ExpectReduced(Int num, Int den, Int reducedNum, Int reducedDen)
{
    SCOPED_TRACE(testing::Message() << num << '/' << den);
    reduce(num, den);
    EXPECT_EQ(num, reducedNum);
    EXPECT_EQ(den, reducedDen);
}

TEST(Reduce, DividesByTheGreatestCommonDivisor)
{
    ExpectReduced<unsigned>(1920, 1080, 16, 9);
    ExpectReduced<unsigned>(0, 0, 0, 0);
    ExpectReduced<unsigned>(0, 1, 0, 1);
    ExpectReduced<unsigned>(0, 5, 0, 1);
    ExpectReduced<unsigned>(30000, 1001, 30000, 1001);
    ExpectReduced<unsigned>(UINT_MAX, UINT_MAX, 1, 1);
    ExpectReduced<unsigned>(0x80000000, 0xc0000000, 2, 3);  // beyond int
    ExpectReduced<int64_t>(1920, 1080, 16, 9);
    ExpectReduced<int64_t>(-4, 6, -2, 3);
    ExpectReduced<int64_t>(INT64_C(6) << 40, INT64_C(4) << 40, 3, 2);
    ExpectReduced<int64_t>(INT64_MIN, 6, INT64_MIN / 2, 3);
    ExpectReduced<int64_t>(INT64_MIN, INT64_MIN, INT64_MIN, INT64_MIN);
    ExpectReduced<int64_t>(6, 0, 1, 0);
    ExpectReduced<int64_t>(0, -6, 0, -6);
}

}  // namespace
}  // namespace Quorva::Proc
