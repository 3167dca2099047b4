// Time stamps and time-outs.
#pragma once

#include <cstdint>

/// A moment as gettimeofday gives it, cut to the board's 32 bits.
struct TimeStamp {
    int32_t seconds;
    int32_t microseconds;
};

/// Fills `stamp` with the present time of day. Returns 0.
int CUTIL_GetTimeOfDay(TimeStamp &stamp);

inline TimeStamp Now()
{
    TimeStamp now;
    CUTIL_GetTimeOfDay(now);
    return now;
}

/// Tells whether `limit_ms` milliseconds have passed between two stamps.
///
/// While the microseconds of the clock are below those of the start, the result is for a second
/// more than has passed, so a limit can end early. When the clock is set back to before the start,
/// only its microseconds count: a limit of a second or more is then not reached.
bool IsExpired(const TimeStamp &start, const TimeStamp &now, uint32_t limit_ms);

/// The same with the present time. Returns -1 while the time has not run out, 0 once it has.
int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms);

/// Microseconds since the given start, modulo 2^32.
///
/// From the first turn of a second on the result is one second too large.
uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds);
