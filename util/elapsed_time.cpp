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

Difference Since(int32_t start_seconds, int32_t start_microseconds)
{
    TimeStamp now;
    CUTIL_GetTimeOfDay(now);
    return {static_cast<uint32_t>(now.seconds) - static_cast<uint32_t>(start_seconds),
            static_cast<uint32_t>(now.microseconds) - static_cast<uint32_t>(start_microseconds)};
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

int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms)
{
    const Difference since = Since(start_seconds, start_microseconds);

    // Deliberate: a negative microsecond difference gains a second here and loses none above.
    // The intervals of all callers are tuned to this arithmetic.
    const uint32_t seconds_part =
        IsPositive(since.seconds) ? since.seconds * kMicrosecondsPerSecond : 0;
    const uint32_t elapsed = seconds_part + since.microseconds +
                             (IsNegative(since.microseconds) ? kMicrosecondsPerSecond : 0);

    const uint32_t limit = timeout_ms * 1000;
    return !IsNegative(elapsed) && elapsed < limit ? -1 : 0;
}

uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds)
{
    const Difference since = Since(start_seconds, start_microseconds);

    // Deliberate: the extra second is added whether or not the microseconds went backwards.
    return IsPositive(since.seconds) ? since.seconds * kMicrosecondsPerSecond + since.microseconds +
                                           kMicrosecondsPerSecond
                                     : since.microseconds;
}
