// The kernel image: a 64-byte boot loader header, then the data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

constexpr uint32_t kImageMagic = 0x27051956;

/// The header that the boot loader expects in front of a kernel, words big-endian.
struct ImageHeader {
    static constexpr size_t kSize = 64;

    uint32_t magic;
    uint32_t header_crc; ///< over the header with this field zero
    uint32_t time;       ///< seconds since 1970
    uint32_t data_size;  ///< bytes after the header
    uint32_t load_address;
    uint32_t entry_point;
    uint32_t data_crc;
    uint8_t operating_system;
    uint8_t architecture;
    uint8_t type;
    uint8_t compression;
    std::array<char, 32> name; ///< not necessarily terminated

    uint32_t computed_crc; ///< what header_crc must be
};

/// Reads the header that begins `offset` bytes into the stream, and stops after it.
///
/// @return false when the stream ends before the header does
bool ReadImageHeader(std::FILE *stream, int64_t offset, ImageHeader &header);

/// Why a kernel image is refused.
enum class ImageFault {
    kNone,
    kUnreadable, ///< the file cannot be opened or ends within the header
    kBadMagic,
    kBadHeaderCrc,
    kBadDataCrc, ///< also when the file ends within the data
    kWrongArchitecture,
    kWrongType,
    kWrongCompression,
};

/// Checks the kernel image that begins `offset` bytes into the file `path`, in the order of
/// ImageFault. An image for another CPU is refused only after its data was read.
///
/// @param header  receives the header, except with kUnreadable
ImageFault FindImageFault(const char *path, int64_t offset, ImageHeader &header);

/// The same check. The fault goes to the system log, except kUnreadable.
///
/// @return 0 when the image is acceptable, -1 otherwise
int CFlash_CheckImage(const char *path, int64_t offset);
