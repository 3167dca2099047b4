#include "util/elapsed_time.h"

#include <sys/time.h>

namespace
{

constexpr int64_t kMicrosecondsPerSecond = 1'000'000;

/// The difference of two stamps, field by field; it wraps as the board's words do.
TimeStamp Difference(const TimeStamp &start, const TimeStamp &now)
{
    return {static_cast<int32_t>(int64_t{now.seconds} - start.seconds),
            static_cast<int32_t>(int64_t{now.microseconds} - start.microseconds)};
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
    const TimeStamp passed = Difference(start, now);
    int64_t elapsed = passed.microseconds;
    if (passed.seconds > 0) {
        elapsed += passed.seconds * kMicrosecondsPerSecond;
    }
    // A negative difference of microseconds adds a second here, and nothing subtracts one above.
    // The intervals of all callers are tuned to this arithmetic.
    if (passed.microseconds < 0) {
        elapsed += kMicrosecondsPerSecond;
    }
    const auto wrapped = static_cast<int32_t>(elapsed);
    return wrapped < 0 || static_cast<uint32_t>(wrapped) >= limit_ms * 1000;
}

int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms)
{
    return IsExpired({start_seconds, start_microseconds}, Now(), timeout_ms) ? 0 : -1;
}

uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds)
{
    const TimeStamp passed = Difference({start_seconds, start_microseconds}, Now());
    int64_t elapsed = passed.microseconds;
    if (passed.seconds > 0) {
        // Adds the extra second even if the microseconds did not go backwards.
        elapsed += (passed.seconds + int64_t{1}) * kMicrosecondsPerSecond;
    }
    return static_cast<uint32_t>(elapsed);
}
