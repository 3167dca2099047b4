// The command line that xgpio and xi2c share: two arguments to get, a third one to set.
#pragma once

/// Tells whether `argc`, which counts the program's name, fits GET (3) or SET (4). Prints the usage
/// when it does not.
///
/// @param place  what the usage calls the first two arguments
/// @param value  what it calls the third
bool CheckGetOrSet(int argc, const char *program, const char *place, const char *value);
