// crc32 program|loop|zlib BYTES [ROUNDS]: the CRC-32 of BYTES bytes by the program's own routine,
// by the plain loop over a table, or by zlib, ROUNDS times over. Prints the CRC.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include <zlib.h>

#include "flash/crc32.h"

namespace
{

std::array<uint32_t, 256> g_table;

void MakeTable()
{
    for (uint32_t i = 0; i < g_table.size(); ++i) {
        uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit) {
            entry = (entry >> 1) ^ ((entry & 1) != 0 ? 0xEDB88320 : 0);
        }
        g_table[i] = entry;
    }
}

// The usual form.
__attribute__((noinline)) uint32_t Loop(uint32_t crc, const uint8_t *bytes, size_t length)
{
    uint32_t state = ~crc;
    for (size_t i = 0; i < length; ++i) {
        state = g_table[(state ^ bytes[i]) & 0xFF] ^ (state >> 8);
    }
    return ~state;
}

uint32_t Compute(std::string_view method, const std::vector<uint8_t> &data)
{
    if (method == "program") {
        return CFlash_Crc32(0, data.data(), data.size());
    }
    if (method == "loop") {
        return Loop(0, data.data(), data.size());
    }
    if (method == "zlib") {
        return static_cast<uint32_t>(crc32_z(0, data.data(), data.size()));
    }
    std::fprintf(stderr, "crc32: no method '%.*s'\n", static_cast<int>(method.size()),
                 method.data());
    std::exit(2);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fputs("usage: crc32 program|loop|zlib BYTES [ROUNDS]\n", stderr);
        return 2;
    }
    MakeTable();
    std::vector<uint8_t> data(std::strtoul(argv[2], nullptr, 10));
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    uint32_t crc = 0;
    for (long rounds = argc > 3 ? std::strtol(argv[3], nullptr, 10) : 1; rounds > 0; --rounds) {
        crc = Compute(argv[1], data);
    }
    std::printf("%08x\n", crc);
}
