// The loopback tests of the serial ports: one exchange of a frame.
#pragma once

#include <cstdint>

/// Sends ten bytes of `pattern` on an open port and waits for them to come back, until 3 seconds
/// after its start, as CUTIL_CheckTimeout counts them. Missing bytes read as zeros, so a silent
/// port passes pattern 0.
///
/// On RS-485 it clears RTS, sets it and leaves it set. After the frame it waits without limit for
/// an empty transmitter, unless the driver cannot report it. On RS-232 it does not touch the modem
/// lines.
///
/// @return 0 when the same ten bytes came back first, -1 otherwise
int CSERIAL_Rs485Exchange(int fd, uint8_t pattern);
int CSERIAL_Rs232Exchange(int fd, uint8_t pattern);
