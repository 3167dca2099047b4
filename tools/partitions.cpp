#include "tools/partitions.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "tools/text.h"
#include "util/file.h"

namespace
{

/// The largest flash that MTD can describe in 32 bits.
constexpr int64_t kLargest = int64_t{1} << 32;

/// A number of bytes, or -1.
int64_t ParseBytes(const std::string &text)
{
    char *end = nullptr;
    const int64_t number = std::strtoll(text.c_str(), &end, text.starts_with("0x") ? 16 : 10);
    const char suffix = static_cast<char>(*end & ~0x20); // in upper case
    const int64_t unit = suffix == 'K' ? 1 << 10 : suffix == 'M' ? 1 << 20 : 1;
    end += unit != 1 ? 1 : 0;
    const bool is_valid = text[0] >= '0' && text[0] <= '9' && *end == '\0';
    return is_valid && number <= kLargest / unit ? number * unit : -1;
}

} // namespace

Board ParseSizes(const std::string &text)
{
    std::array<int64_t, 3> sizes{};
    std::istringstream words{text};
    std::string word;
    for (int64_t &size : sizes) {
        size = std::getline(words, word, ',') ? ParseBytes(word) : 0;
    }
    FailUsageIf(!words.eof() || std::ranges::min(sizes) <= 0, text,
                ": the partitions are three sizes, as in 0x580000,8M,2048K");
    return sizes;
}

std::vector<Partition> ReadPartitions(const char *path)
{
    File file{path, "r"};
    FailErrnoIf(!file, path);
    std::vector<Partition> table;
    std::array<char, 256> line{};
    for (int number = 1; file.ReadLine(line) != 0; ++number) {
        unsigned index = 0;
        uint32_t mtd_size = 0;
        // "mtd1: 00580000 00010000 "kernel"": the size and the erase block, in hexadecimal
        // NOLINTNEXTLINE(cert-err34-c): both numbers have a width that cannot overflow
        if (std::sscanf(line.data(), "mtd%1u: %8" SCNx32 " ", &index, &mtd_size) == 2) {
            table.resize(std::max<size_t>(table.size(), index + 1));
            table[index] = {"mtd", -1, mtd_size};
            continue;
        }
        std::array<std::string, 4> words;
        std::istringstream{line.data()} >> words[0] >> words[1] >> words[2] >> words[3];
        if (words[0].empty() || words[0][0] == '#' || words[0] == "dev:") {
            continue;
        }
        table.push_back({words[0], ParseBytes(words[1]), ParseBytes(words[2])});
        FailIf(table.back().start < 0 || table.back().size <= 0 || !words[3].empty(), path,
               ": line ", number, " is not 'NAME START SIZE'");
    }
    for (size_t i = 1; i <= 3; ++i) {
        FailIf(table.size() <= i || table[i].size == 0, path,
               ": not a saved /proc/mtd or a table: it has no size of mtd", i);
    }
    return table;
}

Board SizesOf(const std::vector<Partition> &table)
{
    return {{table[1].size, table[2].size, table[3].size}};
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
               : Text("too large for its partition: ", size, " bytes, mtd", index + 1, " has ",
                      (*board)[index]);
}
