// A child process at the other end of two pipes, and the commands that go through them.
//
// No applet uses it. Its functions are for the board's other programs, so they are an interface.
#pragma once

#include <sys/types.h>

#include <cstdint>

/// Forks with two pipes in between: what one side writes to its `write_end` the other reads from
/// its `read_end`. On failure nothing stays open.
///
/// @return the child's process id in the parent, 0 in the child, -1 on failure
pid_t CUTIL_ForkPipe(int &read_end, int &write_end);

/// Writes a command: two 32-bit words in the machine's byte order (`code`, `length`), then `length`
/// bytes of `data` in one call. Prints what went wrong.
///
/// @return 0, or -1 when `fd` is -1 or a write was not complete
int CUTIL_SendCommand(int fd, int32_t code, int32_t length, const void *data);
