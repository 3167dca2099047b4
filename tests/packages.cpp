#include "tests/packages.h"

namespace
{

uint32_t Size(const std::string &bytes)
{
    return static_cast<uint32_t>(bytes.size());
}

std::string LittleEndian(uint32_t word)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(word >> (8 * i));
    }
    return bytes;
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

std::string BuildPackage(std::map<std::string, std::string> parts)
{
    parts.merge(std::map<std::string, std::string>{{"marker", "3510"},
                                                   {"version", "1"},
                                                   {"data", std::string(1000, 'K')},
                                                   {"system", "5"},
                                                   {"architecture", "2"},
                                                   {"type", "2"},
                                                   {"compression", "1"},
                                                   {"second", "second region"},
                                                   {"etc", "\x85\x19 file system"}});
    std::string kernel = BigEndian(0x27051956) + std::string(4, '\0') + "time" +
                         BigEndian(Size(parts["data"])) + "loadentr" +
                         BigEndian(Crc32(parts["data"]));
    for (const char *code : {"system", "architecture", "type", "compression"}) {
        kernel += static_cast<char>(std::stoi(parts[code]));
    }
    kernel += std::string(32, 'n');
    kernel.replace(4, 4, BigEndian(Crc32(kernel))) += parts["data"];

    std::string sizes;
    for (const std::string &region : {kernel, parts["second"], parts["etc"]}) {
        sizes += LittleEndian(Size(region));
    }
    return parts["marker"] + LittleEndian(static_cast<uint32_t>(std::stoul(parts["version"]))) +
           (parts["version"] == "3" ? "any." + sizes + std::string(40, '.') : sizes) + kernel +
           parts["second"] + parts["etc"];
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
