// The partitions of a board's flash. A board does not compare them with the regions of a package.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "tools/files.h"

struct Partition {
    std::string name;
    int64_t start; ///< in the flash; -1 if it is unknown
    int64_t size;  ///< bytes
};

/// What is known of a board: the bytes of mtd1 to mtd3, one for each region. Without them nothing
/// is compared.
using PartitionSizes = std::array<int64_t, 3>;
using Board = std::optional<PartitionSizes>;

/// Parses "SIZE1,SIZE2,SIZE3": decimal or with 0x, and with K or M for KiB and MiB.
PartitionSizes ParseSizes(const std::string &text);

/// Reads mtd0, mtd1 and so on: a saved /proc/mtd, or a line 'NAME START SIZE' for each. Fails if
/// mtd1 to mtd3 are not all there.
std::vector<Partition> ReadPartitions(const char *path);

PartitionSizes SizesOf(const std::vector<Partition> &table);

/// Prints that the sizes were not compared, if they are unknown.
void SayWhetherCompared(const Board &board);

/// Why a region is too large for its partition; empty if it fits.
std::string WhyTooLarge(size_t index, int64_t size, const Board &board);

/// The erase blocks of an /etc partition with an image in it.
struct EtcBlocks {
    int64_t all;
    int64_t used; ///< by nodes
    int64_t kept; ///< JFFS2 writes only while as many are free: for deletions 2, and for overhead
                  ///< 2 % of the partition and 100 bytes for each block, rounded up
};

EtcBlocks CountEtcBlocks(const InputFile &file, int64_t start, int64_t size,
                         int64_t partition_size);
