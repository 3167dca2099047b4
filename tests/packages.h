// Kernel images and firmware packages for the tests.
#pragma once

#include <cstdint>
#include <map>
#include <string>

/// A package of three regions. Its parts are the texts marker, second, etc and data (the kernel's),
/// and the numbers version (3 has the longer header), system, architecture, type and compression.
std::string BuildPackage(const std::map<std::string, std::string> &parts);

/// Region 1 to 3 of a package, from the sizes in its header.
std::string RegionOf(const std::string &package, int number);

/// A CRC-32 bit by bit, so that it shares no fault with the program's.
uint32_t Crc32(const std::string &bytes);
/// The little-endian word at `offset`.
uint32_t WordAt(const std::string &bytes, size_t offset);
std::string BigEndian(uint32_t word);
