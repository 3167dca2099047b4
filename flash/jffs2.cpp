#include "flash/jffs2.h"

#include <sys/types.h>

#include <array>
#include <cstdio>

#include "util/file.h"

namespace
{

constexpr off_t kEraseBlock = 0x10000;
constexpr size_t kNodeHeader = 12;
constexpr std::array<uint8_t, 2> kNodeMagic{0x85, 0x19}; // 0x1985, little-endian

} // namespace

int CFlash_CheckJffs2(const char *path, int32_t offset)
{
    const File file{path, "r"};
    if (!file) {
        return -1;
    }
    for (off_t start = offset;; start += kEraseBlock) {
        std::array<uint8_t, kNodeHeader> node;
        if (fseeko(file.get(), start, SEEK_SET) != 0 ||
            std::fread(node.data(), 1, node.size(), file.get()) != node.size()) {
            return 0; // the end of the file, deliberately also what cannot be read
        }
        if (node[0] != kNodeMagic[0] || node[1] != kNodeMagic[1]) {
            return -1;
        }
    }
}
