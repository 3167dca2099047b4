// The partitions of a board's flash. A board does not compare them with the regions of a package.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Partition {
    std::string name;
    int64_t start; ///< in the flash; -1 if it is unknown
    int64_t size;  ///< bytes
};

/// What is known of a board: the bytes of mtd1 to mtd3, one for each region. Without them nothing
/// is compared.
using Board = std::optional<std::array<int64_t, 3>>;

/// Parses "SIZE1,SIZE2,SIZE3": decimal or with 0x, and with K or M for KiB and MiB.
Board ParseSizes(const std::string &text);

/// Reads mtd0, mtd1 and so on: a saved /proc/mtd, or a line 'NAME START SIZE' for each. Fails if
/// mtd1 to mtd3 are not all there.
std::vector<Partition> ReadPartitions(const char *path);

Board SizesOf(const std::vector<Partition> &table);

/// Prints that the sizes were not compared, if they are unknown.
void SayWhetherCompared(const Board &board);

/// Why a region is too large for its partition; empty if it fits.
std::string WhyTooLarge(size_t index, int64_t size, const Board &board);
