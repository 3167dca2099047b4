// The checks of a package's contents, slow and obvious, over bytes in memory.
#pragma once

#include <string>

#include "tests/unit/package_builder.h"

/// The word at `offset`, the byte at `offset` being the highest.
inline uint32_t BigWord(const std::string &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
        word = word << 8 | static_cast<uint8_t>(bytes[offset + i]);
    }
    return word;
}

/// Makes the CRCs of the image at `offset` right, where `which` has a bit set: 1 for the data, 2
/// for the header.
inline void RepairImage(std::string &bytes, size_t offset, int which)
{
    if (bytes.size() < offset + 64) {
        return;
    }
    std::string image = bytes.substr(offset);
    if ((which & 1) != 0) {
        image.replace(24, 4, BigEndian(Crc32(image.substr(64, BigWord(image, 12)))));
    }
    bytes.replace(offset, std::string::npos, (which & 2) != 0 ? Sealed(image) : image);
}

/// What the check logs about the image at `offset`; "" when it passes, "silent" without a line.
inline std::string LoggedFault(const std::string &bytes, int64_t offset)
{
    if (offset < 0 || bytes.size() < static_cast<size_t>(offset) + 64) {
        return "silent";
    }
    const std::string image = bytes.substr(static_cast<size_t>(offset));
    const auto code = [&](size_t at) { return static_cast<uint8_t>(image[at]); };
    if (BigWord(image, 0) != 0x27051956) {
        return "Bad Magic Number : " + std::to_string(static_cast<int32_t>(BigWord(image, 0)));
    }
    if (Sealed(image) != image) {
        return "crc32 error";
    }
    if (Crc32(image.substr(64, BigWord(image, 12))) != BigWord(image, 24)) {
        return "filencrc32 error";
    }
    if (code(29) != 2) {
        return "Unsupported Architecture";
    }
    if (code(30) != 1 && code(30) != 2 && code(30) != 4) {
        return "Wrong Image Type";
    }
    return code(31) <= 1 ? "" : "Unimplemented compression type " + std::to_string(code(31));
}

/// Whether a node begins at `offset` and at every further 64 KiB, as far as there are bytes.
inline bool IsFileSystem(const std::string &bytes, int64_t offset)
{
    const auto size = static_cast<int64_t>(bytes.size());
    for (; offset >= 0 && offset + 12 <= size; offset += 65536) {
        if (bytes.substr(static_cast<size_t>(offset), 2) != "\x85\x19") {
            return false;
        }
    }
    return true;
}
