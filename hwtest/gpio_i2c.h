// The I2C bus that a driver makes of GPIO pins, "/dev/misc/misc_gpio".
//
// Only the lowest 8 bits of an address or a value count.
#pragma once

#include <cstdint>

/// Opens the driver. Prints what failed.
///
/// @return a handle for the operations below, or -1
int open_gpioi2c();

/// Closes `handle` unless it is negative. Returns 0.
int close_gpioi2c(int handle);

/// Reads a register of a device. Prints when the handle is invalid.
///
/// @return the byte, 255 also when the driver fails; -1 for an invalid handle
int read_gpioi2c(int handle, uint32_t device_address, uint32_t register_address);

/// Writes a register of a device. Prints when the handle is invalid.
///
/// @return the driver's result; for an invalid handle the number of characters printed
int write_gpioi2c(int handle, uint32_t device_address, uint32_t register_address, uint32_t value);
