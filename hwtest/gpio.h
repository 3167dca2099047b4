// The SoC's GPIO pins, through the register driver "/dev/misc/hi3512_reg".
//
// Groups are 0 to 7, the pins of a group 0 to 7. An unknown group has no registers. The pin is not
// checked: the same arithmetic turns any other number into a mask and a register.
#pragma once

/// Opens the driver. Prints what failed.
///
/// @return a handle for the operations below, or -1
int open_gpio();

/// Closes `handle` unless it is negative. Returns 0.
int close_gpio(int handle);

/// Makes the pin an input and reads it. Prints when the handle is invalid.
///
/// @return the data register masked to the pin: not 0 when it is high, 0 when low; -1 for an
///         invalid handle, an unknown group and a failure of the driver
int get_gpio(int handle, int group, int pin);

/// Makes the pin an output, and high unless `value` is 0. Does nothing for an unknown group; prints
/// when the handle is invalid.
void set_gpio(int handle, int group, int pin, int value);
