// The board's hardware watchdog, "/dev/misc/watchdog".
//
// Once open, it must be fed within its time-out, or the board resets. This also holds after the
// process that opened it ends, unless it called CWDT_Disable or CWDT_Close.
#pragma once

#include <cstdint>

/// A watchdog handle and its operations.
struct CWDT {
    void (*close)(CWDT *);
    int (*keep_alive)(CWDT *);
    int (*disable)(CWDT *);
    int (*set_timeout)(CWDT *, int32_t seconds);
    int32_t fd;      ///< -1 while not open
    int32_t timeout; ///< seconds: the last one requested, then the one that the driver took
};

/// Opens the watchdog with a time-out of 30 seconds. If that fails, prints a message; the handle's
/// operations then reach no device.
void CWDT_Init(CWDT *handle);

/// Feeds the watchdog: writes one zero byte. Returns write's result; the negative descriptor when
/// not open.
int CWDT_KeepAlive(CWDT *handle);

/// Writes 'V', so that closing disarms the watchdog. Prints and returns write's result; the
/// negative descriptor when not open.
int CWDT_Disable(CWDT *handle);

/// Asks the driver for a time-out. Prints and returns, in seconds, the one that it took; -1 when
/// not open.
int CWDT_SetTimeout(CWDT *handle, int32_t seconds);

/// Disarms and closes the watchdog, if it is open.
void CWDT_Close(CWDT *handle);
