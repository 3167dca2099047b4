#include "flash/jffs2.h"

#include "util/file.h"

namespace
{

constexpr int64_t kEraseBlock = 0x10000;
constexpr size_t kNodeHeader = 12;
constexpr std::array<uint8_t, 2> kNodeMagic{0x85, 0x19}; // 0x1985, little-endian

} // namespace

std::optional<ForeignBlock> FindForeignBlock(std::FILE *stream, int64_t offset)
{
    for (int64_t start = offset;; start += kEraseBlock) {
        std::array<uint8_t, kNodeHeader> node;
        if (fseeko(stream, start, SEEK_SET) != 0 ||
            std::fread(node.data(), 1, node.size(), stream) != node.size()) {
            return std::nullopt;
        }
        if (const std::array<uint8_t, 2> magic{node[0], node[1]}; magic != kNodeMagic) {
            return ForeignBlock{start, magic};
        }
    }
}

int CFlash_CheckJffs2(const char *path, int64_t offset)
{
    const File file{path, "r"};
    return file && !FindForeignBlock(file.get(), offset) ? 0 : -1;
}
