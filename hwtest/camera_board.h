// The camera board on its serial line: command frames of ten bytes. The last byte is the sum of the
// others.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

/// Sends one command with its parameters and waits until it is out.
///
/// @return the result of write; -1 for a negative descriptor
ssize_t CCAM_SendCommand(int fd, uint8_t command, const std::array<uint8_t, 7> &parameters);
