#include "flash/crc32.h"

#include <algorithm>
#include <array>

namespace
{

constexpr uint32_t kReflectedPolynomial = 0xEDB88320;

constexpr std::array<uint32_t, 256> MakeTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit) {
            entry = (entry >> 1) ^ ((entry & 1) != 0 ? kReflectedPolynomial : 0);
        }
        table[i] = entry;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = MakeTable();
static_assert(kTable[1] == 0x77073096);

// Inlined even when compiled for size: as a call it makes the board's loop slower than one that is
// not unrolled.
[[gnu::always_inline]] inline uint32_t AddByte(uint32_t state, uint8_t byte)
{
    return kTable[(state ^ byte) & 0xFF] ^ (state >> 8);
}

} // namespace

uint32_t CFlash_Crc32(uint32_t crc, const uint8_t *bytes, size_t length)
{
    if (bytes == nullptr) {
        return 0;
    }
    uint32_t state = ~crc;
    for (; length >= 8; length -= 8, bytes += 8) {
        state = AddByte(state, bytes[0]);
        state = AddByte(state, bytes[1]);
        state = AddByte(state, bytes[2]);
        state = AddByte(state, bytes[3]);
        state = AddByte(state, bytes[4]);
        state = AddByte(state, bytes[5]);
        state = AddByte(state, bytes[6]);
        state = AddByte(state, bytes[7]);
    }
    for (; length > 0; --length, ++bytes) {
        state = AddByte(state, *bytes);
    }
    return ~state;
}

uint32_t CFlash_Crc32Stream(uint32_t crc, std::FILE *stream, int64_t length)
{
    std::array<uint8_t, 512> piece;
    while (length > 0) {
        const auto wanted = static_cast<size_t>(std::min<int64_t>(length, piece.size()));
        const size_t count = std::fread(piece.data(), 1, wanted, stream);
        if (count == 0) {
            break;
        }
        crc = CFlash_Crc32(crc, piece.data(), count);
        length -= static_cast<int64_t>(count);
    }
    return crc;
}
