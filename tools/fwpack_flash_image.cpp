#include <algorithm>
#include <deque>

#include "tools/examine.h"
#include "tools/options.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack flash-image -T FILE -P PACKAGE -o FILE [OPTION...]\n"
    "       fwpack flash-image -T FILE [-k FILE] [-s FILE] [-e FILE] -o FILE [OPTION...]\n\n"
    "Writes the flash of a new board, up to the end of its last partition. What no image fills\n"
    "is blank: all bits are set.\n\n"
    "  -T, --table FILE       a line 'NAME START SIZE' for each partition: mtd0, mtd1 and so on\n"
    "  -b, --boot FILE        the image for mtd0\n"
    "  -P, --package PACKAGE  the regions for mtd1 to mtd3, or as single images:\n"
    "  -k, --kernel FILE      for mtd1\n"
    "  -s, --second FILE      for mtd2\n"
    "  -e, --etc FILE         for mtd3\n"
    "  -o, --output FILE      the flash\n"
    "  -f, --force            replace an existing file\n";

/// What a partition gets: a part of an input, or nothing.
struct Piece {
    const InputFile *input = nullptr;
    int64_t start = 0;
    int64_t size = 0;
};

/// Opens the inputs and finds the pieces for mtd0 to mtd3.
std::vector<Piece> FindPieces(const Options &options, const Board &board,
                              std::deque<InputFile> &inputs)
{
    std::vector<Piece> pieces;
    for (const char letter : {'b', 'k', 's', 'e'}) {
        const InputFile *input =
            options.Has(letter) ? &inputs.emplace_back(options.Value(letter)) : nullptr;
        pieces.push_back({input, 0, input != nullptr ? input->size() : 0});
    }
    if (options.Has('P')) {
        const InputFile &package = inputs.emplace_back(options.Value('P'));
        const Examination found = Examine(package, std::nullopt, board);
        FailIf(!found.reason.empty(), package.name(), ": ", found.reason);
        found.PrintWarnings(package.name());
        for (size_t i = 0; i < found.regions.size(); ++i) {
            pieces[i + 1] = {&package, found.regions[i].start, found.regions[i].size};
        }
    }
    return pieces;
}

/// Appends blank bytes, as an erased flash has them.
void Fill(OutputFile &output, int64_t size)
{
    std::array<uint8_t, 65536> blank;
    blank.fill(0xFF);
    for (int64_t count = 0; size > 0; size -= count) {
        count = std::min<int64_t>(size, blank.size());
        output.Write(std::span{blank}.first(static_cast<size_t>(count)));
    }
}

int FlashImage(const Options &options)
{
    FailIf<kExitUsage>(options.Has('P') ==
                           (options.Has('k') || options.Has('s') || options.Has('e')),
                       "flash-image needs either --package or images");
    const Board table = ReadPartitions(options.Value('T'));
    std::deque<InputFile> inputs;
    std::vector<Piece> pieces = FindPieces(options, table, inputs);
    pieces.resize(table.size());
    const std::array names{options.Value('T'), options.Value('b'), options.Value('k'),
                           options.Value('s'), options.Value('e'), options.Value('P')};
    OutputFile output{options.Value('o'), options.Has('f'), names};
    int64_t end = 0;
    for (size_t i = 0; i < table.size(); ++i) {
        const auto &[label, start, size, _] = table[i];
        const auto &[input, offset, length] = pieces[i];
        FailIf(start < end, options.Value('T'), ": ",
               start < 0 ? "does not say where the partitions start"
                         : label + " begins before the end of the one above");
        Fill(output, start - end);
        if (input != nullptr) {
            FailIf(length > size, input->name(), ": too large for ", label, ": ", length,
                   " bytes of ", size);
            output.Copy(*input, offset, length);
        }
        Fill(output, size - length);
        end = start + size;
    }
    OutputFile::Publish(std::array{&output});
    return kExitDone;
}

} // namespace

const Command kFlashImage{"flash-image", kHelp, "To", 0, FlashImage};
