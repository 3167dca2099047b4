// A kernel image as people want to see it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "flash/uimage.h"

/// The header, and what its data CRC should be.
struct KernelImage {
    ImageHeader header;
    uint32_t data_crc; ///< over as much of the data as the file has
};

/// Reads the image that begins `offset` bytes into the file, whatever its state; nothing when the
/// file ends within its header.
std::optional<KernelImage> ReadKernelImage(const char *path, int64_t offset);

/// The header's codes in words.
std::string OperatingSystemName(const ImageHeader &header);
std::string ArchitectureName(const ImageHeader &header);
std::string TypeName(const ImageHeader &header);
std::string CompressionName(const ImageHeader &header);

/// Says in words why a board refuses the image; empty when it accepts it.
std::string WhyKernelRefused(const char *path, int64_t offset);
