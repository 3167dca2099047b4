// CRC-32 of IEEE 802.3, as zlib and the boot loader compute it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

/// Continues the CRC `crc` over `length` bytes; start with 0. A null buffer gives 0.
uint32_t CFlash_Crc32(uint32_t crc, const uint8_t *bytes, size_t length);

/// Continues the CRC `crc` over the next `length` bytes of `stream`, read in pieces of 512 bytes.
///
/// A length below 1 gives `crc` itself. If the stream ends early, the CRC covers what was read.
uint32_t CFlash_Crc32Stream(uint32_t crc, std::FILE *stream, int64_t length);
