// Valid kernel images and firmware packages for the tests, which a test can then damage.
#pragma once

#include <cstdint>
#include <string>

/// A kernel image: a 64-byte header and its data.
struct ImageBuilder {
    std::string data = std::string(1000, 'K');
    char architecture = 2;
    char type = 2;
    char compression = 1;
    char system = 5;
    [[nodiscard]] std::string Build() const;
};

/// A firmware package of three regions.
struct PackageBuilder {
    std::string marker = "3510";
    char version = 1; ///< 3 has the longer header
    ImageBuilder kernel = {};
    std::string second = "second region";
    std::string etc = "\x85\x19 file system";
    [[nodiscard]] std::string Build() const;
};

/// Region 1 to 3 of a package, from the sizes in its header.
std::string RegionOf(const std::string &package, int number);

/// A CRC-32 bit by bit, so that it shares no fault with the program's.
uint32_t Crc32(const std::string &bytes);
/// The little-endian word at `offset`.
uint32_t WordAt(const std::string &bytes, size_t offset);
std::string BigEndian(uint32_t word);
std::string LittleEndian(uint32_t word);
