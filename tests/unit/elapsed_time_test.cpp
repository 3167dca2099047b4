#include "util/elapsed_time.h"

#include "tests/fake_board.h"

using ElapsedTime = BoardTest;

TEST_F(ElapsedTime, RunsOut)
{
    const std::tuple<int, int, int64_t, uint32_t, int> cases[] = {
        // start, now in microseconds, limit in milliseconds
        {10, 100'000, 10'150'000, 100, -1},
        {10, 100'000, 10'199'999, 100, -1},
        {10, 100'000, 10'200'000, 100, 0},
        {10, 0, 10'000'000, 0, 0},
        {10, 200'000, 12'300'000, 2101, -1},
        {10, 200'000, 12'300'000, 2100, 0},
        // The turn of a second counts as a second more.
        {10, 950'000, 11'000'100, 100, 0},
        {10, 950'000, 11'000'100, 1051, -1},
        {10, 950'000, 11'000'100, 1050, 0},
        // Set back: whole seconds count nothing, the microseconds as they are.
        {10, 100'000, 5'150'000, 100, -1},
        {10, 100'000, 5'250'000, 100, 0},
        // 2200 seconds are a negative count of microseconds in 32 bits.
        {10, 0, 2'210'000'000, 4'000'000, 0},
    };
    for (const auto &[seconds, microseconds, now, limit, expected] : cases) {
        board.clock = now;
        EXPECT_EQ(board.Run(CUTIL_CheckTimeout, seconds, microseconds, limit), expected)
            << now << " limit " << limit;
    }
}

TEST_F(ElapsedTime, IsASecondTooLongFromTheFirstTurnOn)
{
    const std::tuple<int, int, int64_t, uint32_t> cases[] = {
        {10, 100'000, 11'200'000, 2'100'000},
        {10, 900'000, 11'100'000, 1'200'000},
        {10, 100'000, 10'150'000, 50'000},
        {10, 200'000, 10'100'000, 4'294'867'296},
    };
    for (const auto &[seconds, microseconds, now, expected] : cases) {
        board.clock = now;
        EXPECT_EQ(static_cast<uint32_t>(board.Run(CUTIL_ElapsedUsec, seconds, microseconds)),
                  expected);
    }
}
