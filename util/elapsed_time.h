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

/// Tells whether `timeout_ms` milliseconds have passed since the given start.
///
/// A run that crosses the turn of a second is taken to be one second longer than it is, and ends
/// that much earlier. A clock that was set back counts as a time-out.
///
/// @return -1 while the time has not run out, 0 once it has
int CUTIL_CheckTimeout(int32_t start_seconds, int32_t start_microseconds, uint32_t timeout_ms);

/// Microseconds since the given start, modulo 2^32.
///
/// From the first full second on the result is one second too large.
uint32_t CUTIL_ElapsedUsec(int32_t start_seconds, int32_t start_microseconds);
