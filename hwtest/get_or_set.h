// The command line that xgpio and xi2c share: two arguments to get, a third one to set.
#pragma once

/// Ends the process with status 0 after printing the usage unless `argc` is that of GET (3) or SET
/// (4), the program's name included.
///
/// @param place  what the usage calls the first two arguments
/// @param value  what it calls the third
void RequireGetOrSet(int argc, const char *program, const char *place, const char *value);
