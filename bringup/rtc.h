// The board's real-time clock.
#pragma once

#include <cstdint>

/// A time as the clock's driver reports it, without any offset.
struct RtcTime {
    int32_t second;
    int32_t minute;
    int32_t hour;
    int32_t day;
    int32_t month; ///< 1 to 12
    int32_t year;  ///< such as 2009
};

/// Reads the board's clock: a DS1339 chip if "/etc/capabilities.conf" says so (key
/// "rtc_device_supported"), otherwise the SoC's. The board's model decides the chip's node.
///
/// A driver that refuses the request gives an all-zero time, which counts as a success.
///
/// @return 0; -1 when `time` is null or the clock's device cannot be opened
int CRTC_GetTime(RtcTime *time);
