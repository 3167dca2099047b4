// The board's serial ports: raw lines of 9600 baud, 8 data bits, no parity and 1 stop bit. Both
// sides send frames of ten bytes.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "util/elapsed_time.h"
#include "util/fd.h"

constexpr size_t kSerialFrameSize = 10;

/// Opens `device`. On failure, writes to the system log and standard error and ends the process
/// with status 255.
int OpenSerialPortOrExit(const char *device);

/// An open port. Restores the line settings that it found and closes itself.
class SerialPort
{
public:
    /// Takes over `fd`, discards what came in and applies the line settings. Does not check the
    /// terminal calls.
    explicit SerialPort(int fd);
    ~SerialPort();
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }

private:
    Fd fd_;
    termios found_{};
};

/// Waits for something to read, at most the time given, then reads up to `length` bytes. All ports
/// use it, not only the camera's.
///
/// @return the result of read; -1 when nothing came or waiting failed, and for a null `buffer` or a
///         descriptor that is negative or not below FD_SETSIZE
ssize_t CCAM_ReadTimeout(int fd, uint8_t *buffer, size_t length, int32_t seconds,
                         int32_t microseconds);

/// Reads until a frame is there or 3000 ms have passed since `start`. Errors count as no data.
///
/// @param buffer        receives the bytes; needs room for a frame less one byte plus the longest
///                      read
/// @param longest_read  bytes that a single read may return
/// @return the bytes received: fewer than a frame when the time ran out
size_t ReceiveFrame(int fd, const TimeStamp &start, std::span<uint8_t> buffer, size_t longest_read);

/// Prints the number of bytes and each of them, without a line end.
void PrintReceived(std::span<const uint8_t> bytes);
