#include "tools/partitions.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "flash/crc32.h"
#include "tools/text.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

/// The largest flash that MTD can describe in 32 bits.
constexpr int64_t kLargest = int64_t{1} << 32;

constexpr int64_t kEraseBlock = 0x10000;

/// Whether the erase block holds JFFS2 nodes. One with only the marker for 'erased' is free. The
/// CRC of a node's header has no complements.
bool IsUsed(const InputFile &file, int64_t start)
{
    std::array<uint8_t, 24> bytes{}; // the header of a node, and what follows a marker
    file.Read(bytes.data(), bytes.size(), start);
    const bool is_node = bytes[0] == 0x85 && bytes[1] == 0x19 &&
                         LoadLe32(&bytes[8]) == ~CFlash_Crc32(~uint32_t{0}, bytes.data(), 8);
    const bool is_marker = bytes[2] == 0x03 && bytes[3] == 0x20;
    return is_node && (!is_marker || std::ranges::count(bytes, 0xFF) < 12);
}

/// A number of bytes, or -1.
int64_t ParseBytes(const char *text)
{
    char *end = nullptr;
    const int64_t number = std::strtoll(text, &end, strncasecmp(text, "0x", 2) == 0 ? 16 : 10);
    const char suffix = static_cast<char>(*end & ~0x20); // in upper case
    const int64_t unit = suffix == 'K' ? 1 << 10 : suffix == 'M' ? 1 << 20 : 1;
    end += unit != 1 ? 1 : 0;
    const bool is_valid = *text >= '0' && *text <= '9' && *end == '\0' && number <= kLargest / unit;
    return is_valid ? number * unit : -1;
}

} // namespace

PartitionSizes ParseSizes(const std::string &text)
{
    PartitionSizes sizes{};
    std::string copy = text;
    char *rest = copy.data();
    for (int64_t &size : sizes) {
        const char *word = strsep(&rest, ",");
        size = word != nullptr ? ParseBytes(word) : 0;
    }
    if (rest != nullptr || std::ranges::min(sizes) <= 0) {
        FailUsage(text + ": the partitions are three sizes, as in 0x580000,8M,2048K");
    }
    return sizes;
}

std::vector<Partition> ReadPartitions(const char *path)
{
    File file{path, "r"};
    if (!file) {
        FailErrno(path);
    }
    std::vector<Partition> table;
    std::array<char, 256> line{};
    for (int number = 1; file.ReadLine(line) != 0; ++number) {
        std::array<std::array<char, 256>, 3> words{};
        unsigned index = 0;
        uint32_t mtd_size = 0;
        char more{};
        // "mtd1: 00580000 00010000 "kernel"": the size and the erase block, in hexadecimal
        // NOLINTNEXTLINE(cert-err34-c): both numbers have a width that cannot overflow
        if (std::sscanf(line.data(), "mtd%1u: %8" SCNx32 " ", &index, &mtd_size) == 2) {
            table.resize(std::max<size_t>(table.size(), index + 1));
            table[index] = {"mtd", -1, mtd_size};
            continue;
        }
        const int count = std::sscanf(line.data(), "%255s %255s %255s %c", words[0].data(),
                                      words[1].data(), words[2].data(), &more);
        if (count < 1 || words[0][0] == '#' || std::strcmp(words[0].data(), "dev:") == 0) {
            continue;
        }
        table.push_back(
            {words[0].data(), ParseBytes(words[1].data()), ParseBytes(words[2].data())});
        if (count != 3 || table.back().start < 0 || table.back().size <= 0) {
            Fail(path, Format("line %d is not 'NAME START SIZE'", number));
        }
    }
    for (size_t i = 1; i <= 3; ++i) {
        if (table.size() <= i || table[i].size == 0) {
            Fail(path, Format("not a saved /proc/mtd or a table: it has no size of mtd%zu", i));
        }
    }
    return table;
}

PartitionSizes SizesOf(const std::vector<Partition> &table)
{
    return {table[1].size, table[2].size, table[3].size};
}

void SayWhetherCompared(const Board &board)
{
    if (!board) {
        PrintError("the sizes were not compared with the partitions: give --partitions or --mtd");
    }
}

std::string WhyTooLarge(size_t index, int64_t size, const Board &board)
{
    return !board || size <= (*board)[index]
               ? ""
               : Format("too large for its partition: %" PRId64 " bytes, mtd%zu has %" PRId64, size,
                        index + 1, (*board)[index]);
}

EtcBlocks CountEtcBlocks(const InputFile &file, int64_t start, int64_t size, int64_t partition_size)
{
    EtcBlocks blocks{partition_size / kEraseBlock, 0, 0};
    for (int64_t at = 0; at < size; at += kEraseBlock) {
        blocks.used += IsUsed(file, start + at) ? 1 : 0;
    }
    const int64_t overhead = partition_size / 50 + 100 * blocks.all + kEraseBlock - 1;
    blocks.kept = 2 + overhead / kEraseBlock;
    return blocks;
}
