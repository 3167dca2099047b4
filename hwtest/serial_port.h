// The board's serial ports: raw lines of 9600 baud, 8 data bits, no parity and 1 stop bit, on which
// frames of ten bytes go to and fro.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "util/elapsed_time.h"
#include "util/fd.h"

constexpr size_t kSerialFrameSize = 10;

/// A port that is open, one at a time. It goes back to the line settings found and closes itself.
class SerialPort
{
public:
    /// Opens `device`, discards what came in and applies the line settings.
    ///
    /// When it does not open, the system log and standard error are told and the process ends with
    /// status 255. The terminal calls are not checked.
    explicit SerialPort(const char *device);
    ~SerialPort();
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }

private:
    Fd fd_;
};

/// Waits for something to read, at most the time given, then reads up to `length` bytes. It carries
/// the camera's name, and is how every port is read.
///
/// @return the result of read; -1 when nothing came or waiting failed, for a null `buffer`, and for
///         a descriptor that is negative or beyond what select can wait for
ssize_t CCAM_ReadTimeout(int fd, uint8_t *buffer, size_t length, int32_t seconds,
                         int32_t microseconds);

/// Reads until a frame is there or 3000 ms have passed since `start`. Errors are waited out.
///
/// @param buffer  receives the bytes, from its beginning on; its size is that of a frame less one
///                byte and of the longest single read, which is what can come at most
/// @return the bytes received: fewer than a frame when the time ran out
size_t ReceiveFrame(int fd, const TimeStamp &start, std::span<uint8_t> buffer);

/// Prints the number of bytes and each of them, without a line end.
void PrintReceived(std::span<const uint8_t> bytes);
