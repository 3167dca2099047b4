// The partitions of a board's flash. A board does not compare them with the regions of a package.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Partition {
    std::string name;
    int64_t start = -1; ///< in the flash; -1 if it is unknown
    int64_t size = 0;   ///< bytes
    int64_t erase_block = 0x10000;
};

/// The partitions mtd0, mtd1 and so on of a board; mtd1 to mtd3 are for regions 1 to 3. If it is
/// empty, nothing is known and nothing is compared.
using Board = std::vector<Partition>;

/// Parses the sizes of mtd1 to mtd3, "SIZE1,SIZE2,SIZE3": decimal or with 0x, and with K or M for
/// KiB and MiB.
Board ParseSizes(const std::string &text);

/// Reads a saved /proc/mtd, or a line 'NAME START SIZE' for each partition. Fails if mtd1 to mtd3
/// are not all there.
Board ReadPartitions(const char *path);

/// Prints that the sizes were not compared, if they are unknown.
void SayWhetherCompared(const Board &board);

/// Why a region is too large for its partition; empty if it fits.
std::string WhyTooLarge(size_t index, int64_t size, const Board &board);
