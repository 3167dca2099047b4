#include "tests/unit/package_builder.h"

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

std::string ImageBuilder::Build() const
{
    const std::string codes{'?', architecture, type, compression};
    return Sealed(BigEndian(0x27051956) + "CRC.time" + BigEndian(Size(data)) + "loadentr" +
                  BigEndian(Crc32(data)) + codes + std::string(32, 'n') + data);
}

std::string Sealed(std::string image)
{
    image.replace(4, 4, 4, '\0');
    return image.replace(4, 4, BigEndian(Crc32(image.substr(0, 64))));
}

std::string PackageBuilder::Build() const
{
    const std::string sizes =
        LittleEndian(Size(kernel)) + LittleEndian(Size(second)) + LittleEndian(Size(etc));
    return marker + LittleEndian(version) +
           (version == 3 ? "any." + sizes + std::string(40, '.') : sizes) + kernel + second + etc;
}
