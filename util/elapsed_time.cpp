#include "util/elapsed_time.h"

#include <sys/time.h>

namespace
{

constexpr uint32_t kMicrosecondsPerSecond = 1'000'000;

/// The difference of two stamps, field by field. Unsigned, so that it wraps as the board's does.
struct Difference {
    uint32_t seconds;
    uint32_t microseconds;
};

Difference Between(const TimeStamp &start, const TimeStamp &now)
{
    return {static_cast<uint32_t>(now.seconds) - static_cast<uint32_t>(start.seconds),
            static_cast<uint32_t>(now.microseconds) - static_cast<uint32_t>(start.microseconds)};
}

bool IsNegative(uint32_t value)
{
    return static_cast<int32_t>(value) < 0;
}

bool IsPositive(uint32_t value)
{
    return static_cast<int32_t>(value) > 0;
}

} // namespace

int CUTIL_GetTimeOfDay(TimeStamp &stamp)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    stamp = {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec)};
    return 0;
}

bool IsExpired(const TimeStamp &start, const TimeStamp &now, uint32_t limit_ms)
{
    const Difference passed = Between(start, now);

    // A negative microsecond difference gains a second here and loses none above: the intervals of
    // all callers are tuned to this arithmetic.
    const uint32_t seconds_part =
        IsPositive(passed.seconds) ? passed.seconds * kMicrosecondsPerSecond : 0;
    const uint32_t elapsed = seconds_part + passed.microseconds +
                             (IsNegative(passed.microseconds) ? kMicrosecondsPerSecond : 0);
    return IsNegative(elapsed) || elapsed >= limit_ms * 1000;
}

int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms)
{
    return IsExpired({start_seconds, start_microseconds}, Now(), timeout_ms) ? 0 : -1;
}

uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds)
{
    const Difference passed = Between({start_seconds, start_microseconds}, Now());

    // The extra second is added whether or not the microseconds went backwards, to match the above.
    return IsPositive(passed.seconds) ? passed.seconds * kMicrosecondsPerSecond +
                                            passed.microseconds + kMicrosecondsPerSecond
                                      : passed.microseconds;
}
