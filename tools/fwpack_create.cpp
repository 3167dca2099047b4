#include <cstring>
#include <limits>

#include "tools/examine.h"
#include "tools/options.h"
#include "util/byte_order.h"
#include "util/number.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack create -l N -m TEXT -k FILE -s FILE -e FILE -o FILE [OPTION...]\n\n"
    "Makes a firmware package. Fails if a board would refuse it or if it does not fit the\n"
    "partitions. The output is complete or does not appear at all.\n\n"
    "  -l, --layout N         %s; in layout 1 the board checks the /etc image too\n"
    "  -m, --marker TEXT      up to four characters: the OEM marker of the target boards\n"
    "  -k, --kernel FILE      region 1, for /dev/mtd/1: a kernel image made by mkimage\n"
    "  -s, --second FILE      region 2, for /dev/mtd/2: anything\n"
    "  -e, --etc FILE         region 3, for /dev/mtd/3: a JFFS2 image, erase blocks of 64 KiB\n"
    "  -o, --output FILE      the package\n"
    "  -f, --force            replace an existing file\n"
    "  -p, --partitions SIZES the bytes of mtd1 to mtd3, such as 0x580000,8M,2048K\n"
    "  -t, --mtd FILE         the same, from a saved /proc/mtd or a table for flash-image\n";

using Inputs = std::array<InputFile, 3>;

void CheckSizes(const Inputs &inputs, const PackageLayout &layout, const Board &board)
{
    int64_t total = layout.header_length;
    for (size_t i = 0; i < inputs.size(); ++i) {
        const int64_t size = inputs[i].size();
        const std::string fault = size == 0 ? "empty" : WhyTooLarge(i, size, board);
        FailIf(!fault.empty(), inputs[i].name(), ": ", fault);
        // The header's words and the board's file offsets have 31 bits. Compare before adding: a
        // file may be as large as its file system allows.
        FailIf(size > std::numeric_limits<int32_t>::max() - total, inputs[i].name(),
               ": too large: a package must stay below 2 GiB");
        total += size;
    }
}

void Write(const Inputs &inputs, const PackageLayout &layout, uint32_t magic, OutputFile &output)
{
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes{};
    StoreLe32(bytes.data(), magic);
    StoreLe32(&bytes[4], static_cast<uint32_t>(layout.version));
    for (size_t i = 0; i < inputs.size(); ++i) {
        StoreLe32(&bytes[layout.sizes_offset + 4 * i], static_cast<uint32_t>(inputs[i].size()));
    }
    output.Write(std::span{bytes}.first(static_cast<size_t>(layout.header_length)));
    for (const InputFile &input : inputs) {
        output.Copy(input, 0, input.size());
    }
}

int Create(const Options &options)
{
    const PackageLayout *layout = FindPackageLayout(CUTIL_ParseDecimal(options.Value('l')));
    FailIf<kExitUsage>(layout == nullptr, options.Value('l'), ": the layout is ",
                       LayoutNames(" or "));
    const uint32_t marker = options.Marker();
    FailIf<kExitUsage>(std::strlen(options.Value('m')) > sizeof(marker), options.Value('m'),
                       ": a marker has at most four characters");
    const Board board = options.GivenBoard();
    const std::array names{options.Value('k'), options.Value('s'), options.Value('e'),
                           options.Value('t')};
    const Inputs inputs{InputFile{names[0]}, InputFile{names[1]}, InputFile{names[2]}};
    CheckSizes(inputs, *layout, board);
    OutputFile output{options.Value('o'), options.Has('f'), names};
    Write(inputs, *layout, marker, output);
    // The board's own checks on the finished package: a kernel whose data runs on into region 2 is
    // valid only alone.
    const InputFile package{output.path()};
    const PackageExpectation target{true, marker, layout->version};
    const Examination found = Examine(package, target, board);
    FailIf(!found.reason.empty(), "not made",
           found.refusal.empty() ? ": " : ", because a board would refuse it: ", found.reason);
    found.PrintWarnings(options.Value('o'));
    OutputFile::Publish(std::array{&output});
    SayWhetherCompared(board);
    return kExitDone;
}

} // namespace

const Command kCreate{"create", kHelp, "lmkseo", 0, Create};
