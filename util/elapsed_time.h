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
/// While the clock's microseconds are below those of the start, a second too much counts as passed,
/// so a limit can end early. While the clock is set back to before the start, only its microseconds
/// count, so a limit of a second or more does not end.
bool IsExpired(const TimeStamp &start, const TimeStamp &now, uint32_t limit_ms);

/// The same with the present time. Returns -1 while the time has not run out, 0 once it has.
int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms);

/// Microseconds since the given start, modulo 2^32.
///
/// As soon as a new second has begun, the result is one second too large.
uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds);
