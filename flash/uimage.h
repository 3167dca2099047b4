// The kernel image: a 64-byte boot loader header, then the data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr uint32_t kImageMagic = 0x27051956;

/// The header that the boot loader expects in front of a kernel, words big-endian.
struct ImageHeader {
    static constexpr size_t kSize = 64;

    uint32_t magic;
    uint32_t header_crc; ///< over the header with this field zero
    uint32_t time;       ///< seconds since 1970
    uint32_t data_size;  ///< bytes behind the header
    uint32_t load_address;
    uint32_t entry_point;
    uint32_t data_crc;
    uint8_t operating_system;
    uint8_t architecture;
    uint8_t type;
    uint8_t compression;
    std::array<char, 32> name; ///< not necessarily terminated
};

/// Takes a header apart.
ImageHeader DecodeImageHeader(const std::array<uint8_t, ImageHeader::kSize> &bytes);

/// Checks the kernel image that begins `offset` bytes into the file `path`: magic, header CRC, data
/// CRC, then architecture, type and compression. The reason of a refusal goes to the system log,
/// but for a file that cannot be opened or ends within the header.
///
/// @return 0 when the image is acceptable, -1 otherwise
int CFlash_CheckImage(const char *path, int32_t offset);
