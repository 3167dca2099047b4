// Kernel images and firmware packages for the tests, right in every byte until a test says
// otherwise.
#pragma once

#include <cstdint>
#include <string>

/// A kernel image: a 64-byte header and its data.
struct ImageBuilder {
    std::string data = std::string(1000, 'K');
    char architecture = 2;
    char type = 2;
    char compression = 1;

    [[nodiscard]] std::string Build() const;
};

/// Puts the CRC of an image's header into it.
std::string Sealed(std::string image);

/// A firmware package of three regions.
struct PackageBuilder {
    std::string marker = "3510";
    uint32_t version = 1; ///< 3 has the longer header
    std::string kernel = ImageBuilder{}.Build();
    std::string second = "second region";
    std::string etc = "\x85\x19 file system";

    [[nodiscard]] std::string Build() const;
};

/// Bit by bit, and so nothing like the program's.
uint32_t Crc32(const std::string &bytes);

std::string BigEndian(uint32_t word);
std::string LittleEndian(uint32_t word);
