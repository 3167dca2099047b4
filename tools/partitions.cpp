#include "tools/partitions.h"

#include <array>
#include <cstdlib>
#include <fstream>

#include "tools/text.h"

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
    Board board(4);
    std::istringstream sizes{text};
    for (size_t i = 1; i <= 3; ++i) {
        std::string size;
        std::getline(sizes, size, ',');
        board[i].size = ParseBytes(size);
        FailIf<kExitUsage>(board[i].size <= 0 || sizes.eof() != (i == 3), text,
                           ": the partitions are three sizes, as in 0x580000,8M,2048K");
    }
    return board;
}

Board ReadPartitions(const char *path)
{
    std::ifstream file{path};
    FailErrnoIf(!file, path);
    Board board;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        auto [name, start, size, more] = std::array<std::string, 4>{};
        std::istringstream{line} >> name >> start >> size >> more;
        if (name.empty() || name[0] == '#' || name == "dev:") {
            continue;
        }
        // "mtd1: 00580000 00010000 "kernel"": the size and the erase block, in hexadecimal
        const bool is_saved = name.starts_with("mtd") && name.ends_with(':');
        Partition partition{name, ParseBytes(start), ParseBytes(size)};
        if (is_saved) {
            partition = {name, -1, ParseBytes("0x" + start), ParseBytes("0x" + size)};
        }
        if (is_saved && (name != Text("mtd", board.size(), ':') || partition.size <= 0 ||
                         partition.erase_block <= 0)) {
            break;
        }
        FailIf(!is_saved && (partition.start < 0 || partition.size <= 0 || !more.empty()), path,
               ": line ", number, " is not 'NAME START SIZE'");
        board.push_back(partition);
    }
    FailIf(board.size() < 4, path, ": not a saved /proc/mtd or a table: it has no size of mtd",
           board.size());
    return board;
}

void SayWhetherCompared(const Board &board)
{
    if (board.empty()) {
        PrintError("the sizes were not compared with the partitions: give --partitions or --mtd");
    }
}

std::string WhyTooLarge(size_t index, int64_t size, const Board &board)
{
    const size_t mtd = index + 1;
    return board.empty() || size <= board[mtd].size
               ? ""
               : Text("too large for its partition: ", size, " bytes, mtd", mtd, " has ",
                      board[mtd].size);
}
