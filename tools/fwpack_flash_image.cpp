#include <algorithm>
#include <cinttypes>
#include <deque>

#include "tools/examine.h"
#include "tools/options.h"

namespace
{

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
        Piece &piece = pieces.emplace_back();
        if (options.Has(letter)) {
            const InputFile &input = inputs.emplace_back(options.Value(letter));
            piece = {&input, 0, input.size()};
        }
    }
    if (options.Has('P')) {
        const InputFile &package = inputs.emplace_back(options.Value('P'));
        const Examination found = Examine(package, std::nullopt, board);
        if (!found.WhyNot().empty()) {
            Fail(package.name(), found.WhyNot());
        }
        found.PrintWarnings(package.name());
        for (size_t i = 0; i < found.regions.size(); ++i) {
            pieces[i + 1] = {&package, found.regions[i].start, found.regions[i].size};
        }
    }
    return pieces;
}

/// Fails if the partitions overlap or a piece does not fit.
void CheckPlaces(const char *name, const std::vector<Partition> &table,
                 const std::vector<Piece> &pieces)
{
    int64_t end = 0;
    for (size_t i = 0; i < table.size(); ++i) {
        const auto &[label, start, size] = table[i];
        if (start < end) {
            Fail(name, start < 0 ? "does not say where the partitions start"
                                 : label + " begins before the end of the one above");
        }
        if (pieces[i].size > size) {
            Fail(pieces[i].input->name(), Format("too large for %s: %" PRId64 " bytes of %" PRId64,
                                                 label.c_str(), pieces[i].size, size));
        }
        end = start + size;
    }
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

int FlashImage(const Options &options, const Board & /*board*/)
{
    if (options.Has('P') == (options.Has('k') || options.Has('s') || options.Has('e'))) {
        FailUsage("flash-image needs either --package or images");
    }
    const std::vector<Partition> table = ReadPartitions(options.Value('T'));
    std::deque<InputFile> inputs;
    std::vector<Piece> pieces = FindPieces(options, SizesOf(table), inputs);
    pieces.resize(table.size());
    CheckPlaces(options.Value('T'), table, pieces);
    const std::array names{options.Value('T'), options.Value('b'), options.Value('k'),
                           options.Value('s'), options.Value('e'), options.Value('P')};
    OutputFile output{options.Value('o'), options.Has('f'), names};
    int64_t end = 0;
    for (size_t i = 0; i < table.size(); ++i) {
        Fill(output, table[i].start - end);
        if (pieces[i].size > 0) {
            output.Copy(*pieces[i].input, pieces[i].start, pieces[i].size);
        }
        end = table[i].start + pieces[i].size;
    }
    Fill(output, table.back().start + table.back().size - end);
    OutputFile::Publish(std::array{&output});
    return kExitDone;
}

} // namespace

const Command kFlashImage{
    "flash-image",
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
    "  -f, --force            replace an existing file\n",
    "To",
    0,
    0,
    FlashImage};
