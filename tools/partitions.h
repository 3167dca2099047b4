// The sizes of the flash partitions. A board does not compare them with the regions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Bytes of the partitions mtd1 to mtd3, one per region.
using PartitionSizes = std::array<int64_t, 3>;

/// Parses "SIZE1,SIZE2,SIZE3": decimal or with 0x, and with K or M for KiB and MiB.
std::optional<PartitionSizes> ParsePartitions(std::string_view text);

/// Finds mtd1 to mtd3 in a saved /proc/mtd. Prints a message if one is missing.
std::optional<PartitionSizes> ReadMtdTable(const char *path);

/// A text that region `index` is larger than its partition; empty if it fits, or if the sizes are
/// unknown.
std::string WhyTooLarge(size_t index, int64_t region_size,
                        const std::optional<PartitionSizes> &sizes);

/// If the sizes are unknown, prints on standard error that they were not compared with the regions.
void SayWhetherCompared(const std::optional<PartitionSizes> &sizes);
