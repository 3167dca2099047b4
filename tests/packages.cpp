#include "tests/packages.h"

namespace
{

uint32_t Size(const std::string &bytes)
{
    return static_cast<uint32_t>(bytes.size());
}

} // namespace

uint32_t Crc32(const std::string &bytes)
{
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

std::string LittleEndian(uint32_t word)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(word >> (8 * i));
    }
    return bytes;
}

std::string BigEndian(uint32_t word)
{
    const std::string bytes = LittleEndian(word);
    return {bytes.rbegin(), bytes.rend()};
}

uint32_t WordAt(const std::string &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
        word |= uint32_t{static_cast<uint8_t>(bytes[offset + i])} << (8 * i);
    }
    return word;
}

std::string ImageBuilder::Build() const
{
    std::string header = BigEndian(0x27051956) + std::string(4, '\0') + "time" +
                         BigEndian(Size(data)) + "loadentr" + BigEndian(Crc32(data)) +
                         std::string{system, architecture, type, compression} +
                         std::string(32, 'n');
    return header.replace(4, 4, BigEndian(Crc32(header))) + data;
}

std::string PackageBuilder::Build() const
{
    const std::string image = kernel.Build();
    const std::string sizes =
        LittleEndian(Size(image)) + LittleEndian(Size(second)) + LittleEndian(Size(etc));
    return marker + LittleEndian(static_cast<uint8_t>(version)) +
           (version == 3 ? "any." + sizes + std::string(40, '.') : sizes) + image + second + etc;
}

std::string RegionOf(const std::string &package, int number)
{
    const bool is_long = WordAt(package, 4) == 3;
    size_t start = is_long ? 64 : 20;
    size_t size_at = is_long ? 12 : 8;
    for (; number > 1; --number, size_at += 4) {
        start += WordAt(package, size_at);
    }
    return package.substr(start, WordAt(package, size_at));
}
