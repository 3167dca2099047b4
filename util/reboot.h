// Restarts the board.
#pragma once

/// Kills the programs listed in "/etc/killList", terminates those in "/etc/termList", lets go of
/// the SD card, the USB stick and the wireless module, and reboots. Never returns.
[[noreturn]] void CUTIL_Reboot();

/// The same with a fixed set of programs in place of "/etc/killList". Never returns. No applet uses
/// it: it is for the board's other programs.
[[noreturn]] void CUTIL_RebootFixedList();
