// The sizes of the flash partitions, which a board compares with nothing.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Bytes of the partitions mtd1 to mtd3, one per region.
using PartitionSizes = std::array<int64_t, 3>;

/// Takes "SIZE1,SIZE2,SIZE3" apart: decimal or with 0x, and with K or M for KiB and MiB.
std::optional<PartitionSizes> ParsePartitions(std::string_view text);

/// Finds mtd1 to mtd3 in a saved /proc/mtd. Prints a message when they are not all there.
std::optional<PartitionSizes> ReadMtdTable(const char *path);

/// Says that region `index` is larger than its partition; empty when it is not, or when the sizes
/// are not known.
std::string WhyTooLarge(size_t index, int64_t region_size,
                        const std::optional<PartitionSizes> &sizes);

/// Says on standard error that nobody compared the regions with their partitions, when the sizes
/// are not known.
void SayWhetherCompared(const std::optional<PartitionSizes> &sizes);
