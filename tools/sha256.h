// The SHA-256 of a part of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Hashes `size` bytes of the file `path`, from `start` on.
///
/// @return 64 hexadecimal digits, or an empty text if fwpack was built without libcrypto; nothing
///         if some bytes cannot be read
std::optional<std::string> Sha256(const char *path, int64_t start, int64_t size);
