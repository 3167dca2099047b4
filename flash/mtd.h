// Raw flash partitions behind the MTD character devices.
//
// Every operation reports to the system log; CFlash_NWrite and CFlash_Confirm print their errors on
// standard output too, CFlash_Erase on standard error.
#pragma once

#include <sys/types.h>

#include <cstdint>

/// Erases the whole partition behind `device`, block by block.
///
/// A block that does not erase is reported and skipped.
///
/// @return 0; -1 when the device cannot be opened or does not tell its size
int CFlash_Erase(const char *device);

/// Copies `size` bytes of the file `source`, from `offset` on, to the beginning of `device`, in
/// pieces of 512 bytes, after a pause of one second. A source that ends early is no error.
///
/// @return 0, or -1 with a message that names the step, the path and the reason; -1 without a
///         message for a null path
int CFlash_NWrite(const char *source, const char *device, int32_t offset, int32_t size);

/// Compares `size` bytes of the file `source`, from `offset` on, with the beginning of `device`, in
/// pieces of 512 bytes, after a pause of one second. A source that ends early is no error.
///
/// @return 0 when equal; -1 when not, with a line only on standard output; -1 when a step fails,
///         with a message like CFlash_NWrite's
int CFlash_Confirm(const char *source, const char *device, int32_t offset, int32_t size);

/// Writes `count` bytes, with as many calls as it takes.
///
/// @return the bytes written; 0 for a count below 1; -1 as soon as a call fails
ssize_t full_write(int fd, const void *buffer, ssize_t count);

/// Reads `count` bytes, with as many calls as it takes. Never gives up at the end of a file: a
/// partition is always longer than what is compared with it.
///
/// @return the bytes read; 0 for a count below 1; -1 as soon as a call fails
ssize_t full_read(int fd, void *buffer, ssize_t count);
