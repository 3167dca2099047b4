// Handles of the board's register drivers: what the access layers above them share.
#pragma once

/// Opens `device` for reading and writing. On failure prints that `operation` cannot open it.
///
/// @return the handle, or -1
int OpenDevice(const char *operation, const char *device);

/// Closes `handle` unless it is negative. Returns 0.
int CloseDevice(int handle);

/// Prints that `operation` was given an invalid handle. Returns the number of characters printed.
int PrintInvalidHandle(const char *operation, int handle);
