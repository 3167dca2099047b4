#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <span>

#include "flash/jffs2.h"
#include "tools/command_line.h"
#include "tools/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"
#include "tools/verdict.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

struct Input {
    const char *path;
    std::optional<File> file;
    int64_t size; ///< bytes
};

using Inputs = std::array<Input, 3>;

bool Open(Input &input)
{
    struct stat status = {};
    input.file.emplace(input.path, "r");
    if (!*input.file || fstat(fileno(input.file->get()), &status) != 0) {
        return Refuse(input.path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        return Refuse(input.path, S_ISREG(status.st_mode) ? "empty" : "not a plain file");
    }
    input.size = status.st_size;
    return true;
}

bool OpenInputs(Inputs &inputs, const PackageLayout &layout,
                const std::optional<PartitionSizes> &partitions)
{
    int64_t total = layout.header_length;
    for (size_t i = 0; i < inputs.size(); ++i) {
        Input &input = inputs[i];
        if (!Open(input)) {
            return false;
        }
        const std::string fault = WhyTooLarge(i, input.size, partitions);
        if (!fault.empty()) {
            return Refuse(input.path, fault);
        }
        // The header's words and the board's file offsets have 31 bits. Compare before adding: a
        // file may be as large as its file system allows.
        if (input.size > std::numeric_limits<int32_t>::max() - total) {
            return Refuse(input.path, "too large: a package must stay below 2 GiB");
        }
        total += input.size;
    }
    return true;
}

bool WriteHeader(const Inputs &inputs, const PackageLayout &layout, uint32_t magic,
                 OutputFile &output)
{
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes{};
    StoreLe32(bytes.data(), magic);
    StoreLe32(&bytes[4], static_cast<uint32_t>(layout.version));
    for (size_t i = 0; i < inputs.size(); ++i) {
        StoreLe32(&bytes[layout.sizes_offset + 4 * i], static_cast<uint32_t>(inputs[i].size));
    }
    std::array<char, bytes.size()> text{};
    std::memcpy(text.data(), bytes.data(), bytes.size());
    const std::span<const char> all{text};
    return output.Write(all.first(static_cast<size_t>(layout.header_length)));
}

bool Append(const Input &input, OutputFile &output)
{
    std::FILE *stream = input.file->get();
    std::array<char, 65536> piece;
    int64_t copied = 0;
    while (const size_t count = std::fread(piece.data(), 1, piece.size(), stream)) {
        copied += static_cast<int64_t>(count);
        if (!output.Write(std::span<const char>{piece}.first(count))) {
            return false;
        }
    }
    if (std::ferror(stream) != 0) {
        return Refuse(input.path, std::strerror(errno));
    }
    return copied == input.size || Refuse(input.path, "changed while it was read");
}

/// Makes the board's own checks on the finished package. A kernel whose data runs on into region 2
/// is valid only alone.
bool CheckPackage(const char *path, const Inputs &inputs, const PackageLayout &layout,
                  uint32_t magic)
{
    const Verdict verdict = Judge(path, {true, magic, layout.version});
    if (!verdict.reason.empty()) {
        PrintError("not made, because a board would refuse it: %s", verdict.reason.c_str());
        return false;
    }
    if (!layout.checks_file_system && CFlash_CheckJffs2(inputs[2].path, 0) != 0) {
        PrintError("warning: %s is not a JFFS2 image with a node at every 64 KiB; "
                   "a board does not check that in layout %d",
                   inputs[2].path, layout.version);
    }
    return true;
}

bool Create(const Arguments &arguments)
{
    const Progress progress{Format("making %s", arguments.output)};
    const PackageLayout &layout = *FindPackageLayout(arguments.layout);
    const uint32_t magic = *arguments.marker;
    Inputs inputs{{{arguments.regions[0], {}, 0},
                   {arguments.regions[1], {}, 0},
                   {arguments.regions[2], {}, 0}}};
    if (!OpenInputs(inputs, layout, arguments.partitions)) {
        return false;
    }
    OutputFile output{arguments.output};
    return output && WriteHeader(inputs, layout, magic, output) &&
           std::ranges::all_of(inputs, [&](const Input &input) { return Append(input, output); }) &&
           output.Finish() && CheckPackage(output.scratch_path(), inputs, layout, magic) &&
           output.MoveToPlace();
}

} // namespace

int RunCreate(const Arguments &arguments)
{
    if (!Create(arguments)) {
        return kExitRefused;
    }
    SayWhetherCompared(arguments.partitions);
    return kExitDone;
}
