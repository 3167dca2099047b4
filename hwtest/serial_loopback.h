// The loopback tests of the serial ports: one exchange of a frame.
#pragma once

#include <cstdint>

/// Sends ten bytes of `pattern` on an open port and waits for them to come back, 3 seconds from
/// its start on as CUTIL_CheckTimeout counts them. What does not come back reads as zeros: a silent
/// port passes pattern 0.
///
/// On RS-485 the RTS line is first cleared, then set, and stays set; the end of the frame is then
/// waited for without limit, unless the driver cannot tell it. On RS-232 the modem lines are left
/// alone.
///
/// @return 0 when the same ten bytes came back first, -1 otherwise
int CSERIAL_Rs485Exchange(int fd, uint8_t pattern);
int CSERIAL_Rs232Exchange(int fd, uint8_t pattern);
