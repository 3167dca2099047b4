// A kernel image in readable form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "flash/uimage.h"

/// The header, and the correct data CRC.
struct KernelImage {
    ImageHeader header;
    uint32_t data_crc; ///< over the data that the file has
};

/// Reads the image that begins `offset` bytes into the file, also a damaged one. Returns nothing if
/// the file ends within its header.
std::optional<KernelImage> ReadKernelImage(const char *path, int64_t offset);

/// The header's codes in words.
std::string OperatingSystemName(const ImageHeader &header);
std::string ArchitectureName(const ImageHeader &header);
std::string TypeName(const ImageHeader &header);
std::string CompressionName(const ImageHeader &header);

/// Why a board refuses the image; empty if it accepts it.
std::string WhyKernelRefused(const char *path, int64_t offset);
