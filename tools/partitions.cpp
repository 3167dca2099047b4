#include "tools/partitions.h"

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/text.h"
#include "util/file.h"

namespace
{

/// The largest flash that MTD can describe in 32 bits.
constexpr int64_t kLargest = int64_t{1} << 32;

std::optional<int64_t> ParseSize(std::string_view text)
{
    int64_t unit = 1;
    if (text.ends_with('K') || text.ends_with('k')) {
        unit = 1024;
    } else if (text.ends_with('M') || text.ends_with('m')) {
        unit = int64_t{1024} * 1024;
    }
    if (unit != 1) {
        text.remove_suffix(1);
    }
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    int64_t size = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, size, base);
    if (error != std::errc{} || stopped != end || size <= 0 || size > kLargest / unit) {
        return std::nullopt;
    }
    return size * unit;
}

} // namespace

std::optional<PartitionSizes> ParsePartitions(std::string_view text)
{
    PartitionSizes sizes{};
    for (size_t i = 0; i < sizes.size(); ++i) {
        const bool is_last = i + 1 == sizes.size();
        const size_t length = is_last ? text.size() : text.find(',');
        if (length == std::string_view::npos) {
            return std::nullopt;
        }
        const auto size = ParseSize(text.substr(0, length));
        if (!size) {
            return std::nullopt;
        }
        sizes[i] = *size;
        text.remove_prefix(is_last ? length : length + 1);
    }
    return sizes;
}

std::optional<PartitionSizes> ReadMtdTable(const char *path)
{
    File file{path, "r"};
    if (!file) {
        Refuse(path, std::strerror(errno));
        return std::nullopt;
    }
    PartitionSizes sizes{};
    std::array<char, 256> line{};
    while (file.ReadLine(line) != 0) {
        // "mtd1: 00580000 00010000 "kernel"": the size and the erase block, in hexadecimal
        unsigned index = 0;
        uint32_t size = 0;
        // NOLINTNEXTLINE(cert-err34-c): both numbers have a width that cannot overflow
        if (std::sscanf(line.data(), "mtd%1u: %8" SCNx32 " ", &index, &size) == 2 && index >= 1 &&
            index <= sizes.size()) {
            sizes[index - 1] = size;
        }
    }
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (sizes[i] == 0) {
            Refuse(path, Format("not a saved /proc/mtd: it has no size of mtd%zu", i + 1));
            return std::nullopt;
        }
    }
    return sizes;
}

std::string WhyTooLarge(size_t index, int64_t region_size,
                        const std::optional<PartitionSizes> &sizes)
{
    if (!sizes || region_size <= (*sizes)[index]) {
        return "";
    }
    return Format("too large for its partition: %" PRId64 " bytes, mtd%zu has %" PRId64,
                  region_size, index + 1, (*sizes)[index]);
}

void SayWhetherCompared(const std::optional<PartitionSizes> &sizes)
{
    if (!sizes) {
        PrintError("the sizes were not compared with the partitions: give --partitions or --mtd");
    }
}
