#include "tests/packages.h"

#include "tests/words.h"

namespace
{

// This machine is little-endian, like the board.
std::string LittleEndian(uint32_t word)
{
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

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

std::string BigEndian(uint32_t word)
{
    const std::string bytes = LittleEndian(word);
    return {bytes.rbegin(), bytes.rend()};
}

uint32_t WordAt(const std::string &bytes, size_t offset)
{
    uint32_t word = 0;
    bytes.copy(reinterpret_cast<char *>(&word), sizeof word, offset);
    return word;
}

std::string BuildPackage(const std::map<std::string, std::string> &parts)
{
    const auto number = [&parts](const char *part) { return NumberIn(parts.at(part)); };
    const std::string &data = parts.at("data");
    std::string kernel = BigEndian(0x27051956) + std::string(4, '\0') + "time" +
                         BigEndian(Size(data)) + "loadentr" + BigEndian(Crc32(data));
    for (const char *code : {"system", "architecture", "type", "compression"}) {
        kernel += static_cast<char>(number(code));
    }
    kernel += std::string(32, 'n');
    kernel.replace(4, 4, BigEndian(Crc32(kernel))) += data;

    const std::string regions[] = {kernel, parts.at("second"), parts.at("etc")};
    std::string sizes;
    for (const std::string &region : regions) {
        sizes += LittleEndian(Size(region));
    }
    const long long version = number("version");
    return parts.at("marker") + LittleEndian(static_cast<uint32_t>(version)) +
           (version == 3 ? "any." + sizes + std::string(40, '.') : sizes) + regions[0] +
           regions[1] + regions[2];
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
