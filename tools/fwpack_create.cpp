#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "flash/jffs2.h"
#include "tools/fwpack.h"
#include "tools/output_file.h"
#include "tools/verdict.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

constexpr const char *kHelp = R"(usage: fwpack create --layout 1|3 --marker TEXT
                     --kernel FILE --second FILE --etc FILE --output FILE

Makes a firmware package. All options are needed. A package that a board would refuse is not made,
and the output appears whole or not at all.

  -l, --layout 1|3    1: the board checks the /etc image too; 3: it does not
  -m, --marker TEXT   up to four characters: the OEM marker of the boards that it is for
  -k, --kernel FILE   region 1, for /dev/mtd/1: a kernel image as mkimage makes it
  -s, --second FILE   region 2, for /dev/mtd/2: anything
  -e, --etc FILE      region 3, for /dev/mtd/3: a JFFS2 image with erase blocks of 64 KiB
  -o, --output FILE   the package
  -h, --help          this help

Exit status: 0 made, 1 refused or failed, 2 wrong usage.
)";

constexpr size_t kMarkerLength = 4;

struct Input {
    const char *path = nullptr;
    std::optional<File> file;
    int64_t size = 0; ///< bytes
};

struct Request {
    const PackageLayout *layout = nullptr;
    const char *marker = nullptr;
    std::array<Input, 3> regions;
    const char *output = nullptr;

    [[nodiscard]] uint32_t MagicWord() const { return MarkerWord({marker, std::strlen(marker)}); }
};

/// Prints why the file is of no use. Returns false.
bool Refuse(const char *path, const char *reason)
{
    PrintError("%s: %s", path, reason);
    return false;
}

bool Open(Input &input)
{
    struct stat status {
    };
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

bool OpenInputs(Request &request)
{
    int64_t total = request.layout->header_length;
    for (Input &input : request.regions) {
        if (!Open(input)) {
            return false;
        }
        // The header's words and the board's file offsets have 31 bits. Compared before adding up:
        // a file may be as large as its file system allows.
        if (input.size > std::numeric_limits<int32_t>::max() - total) {
            return Refuse(input.path, "too large: a package must stay below 2 GiB");
        }
        total += input.size;
    }
    return true;
}

bool WriteHeader(const Request &request, OutputFile &output)
{
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes{};
    StoreLe32(bytes.data(), request.MagicWord());
    StoreLe32(&bytes[4], static_cast<uint32_t>(request.layout->version));
    for (size_t i = 0; i < request.regions.size(); ++i) {
        StoreLe32(&bytes[request.layout->sizes_offset + 4 * i],
                  static_cast<uint32_t>(request.regions[i].size));
    }
    std::array<char, bytes.size()> text{};
    std::memcpy(text.data(), bytes.data(), bytes.size());
    const std::span<const char> all{text};
    return output.Write(all.first(static_cast<size_t>(request.layout->header_length))) ||
           Refuse(request.output, std::strerror(errno));
}

bool Append(const Input &input, const char *output_path, OutputFile &output)
{
    std::FILE *stream = input.file->get();
    std::array<char, 65536> piece;
    int64_t copied = 0;
    while (const size_t count = std::fread(piece.data(), 1, piece.size(), stream)) {
        copied += static_cast<int64_t>(count);
        if (!output.Write(std::span<const char>{piece}.first(count))) {
            return Refuse(output_path, std::strerror(errno));
        }
    }
    if (std::ferror(stream) != 0) {
        return Refuse(input.path, std::strerror(errno));
    }
    return copied == input.size || Refuse(input.path, "changed while it was read");
}

/// The board's own checks on the very bytes: a kernel whose data runs on into region 2 is sound
/// only by itself.
bool CheckPackage(const Request &request, const char *path)
{
    const std::string reason =
        WhyRefused(path, {true, request.MagicWord(), request.layout->version});
    if (!reason.empty()) {
        PrintError("not made, since a board would refuse it: %s", reason.c_str());
        return false;
    }
    if (!request.layout->checks_file_system && CFlash_CheckJffs2(request.regions[2].path, 0) != 0) {
        PrintError("warning: %s is not a JFFS2 image with a node at every 64 KiB; "
                   "a board does not check that in layout %d",
                   request.regions[2].path, request.layout->version);
    }
    return true;
}

bool Create(Request &request)
{
    struct stat status {
    };
    // A rename would put a file in the place of a device.
    if (stat(request.output, &status) == 0 && !S_ISREG(status.st_mode)) {
        return Refuse(request.output, "exists and is not a plain file");
    }
    if (!OpenInputs(request)) {
        return false;
    }
    OutputFile output{request.output};
    if (!output) {
        return Refuse(request.output, std::strerror(errno));
    }
    if (!WriteHeader(request, output)) {
        return false;
    }
    for (const Input &input : request.regions) {
        if (!Append(input, request.output, output)) {
            return false;
        }
    }
    if (!output.Finish()) {
        return Refuse(request.output, std::strerror(errno));
    }
    return CheckPackage(request, output.scratch_path()) &&
           (output.MoveToPlace() || Refuse(request.output, std::strerror(errno)));
}

/// Stores one option. Returns false, with a message, when its value is of no use.
bool TakeOption(int letter, const char *value, Request &request)
{
    constexpr std::string_view kRegionLetters = "kse";
    switch (letter) {
    case 'l':
        request.layout = value == std::string_view{"1"}   ? FindPackageLayout(1)
                         : value == std::string_view{"3"} ? FindPackageLayout(3)
                                                          : nullptr;
        return request.layout != nullptr || Refuse(value, "the layout is 1 or 3");
    case 'm':
        request.marker = value;
        return std::strlen(value) <= kMarkerLength ||
               Refuse(value, "a marker has at most four characters");
    case 'o':
        request.output = value;
        return true;
    default:
        const size_t region = kRegionLetters.find(static_cast<char>(letter));
        if (region < request.regions.size()) {
            request.regions[region].path = value;
        }
        return region < request.regions.size();
    }
}

bool IsComplete(const Request &request)
{
    return request.layout != nullptr && request.marker != nullptr && request.output != nullptr &&
           std::ranges::all_of(request.regions,
                               [](const Input &input) { return input.path != nullptr; });
}

} // namespace

int RunCreate(int argc, char **argv)
{
    constexpr option kOptions[] = {
        {"layout", required_argument, nullptr, 'l'}, {"marker", required_argument, nullptr, 'm'},
        {"kernel", required_argument, nullptr, 'k'}, {"second", required_argument, nullptr, 's'},
        {"etc", required_argument, nullptr, 'e'},    {"output", required_argument, nullptr, 'o'},
        {"help", no_argument, nullptr, 'h'},         {}};
    Request request;
    for (int c; (c = getopt_long(argc, argv, "l:m:k:s:e:o:h", kOptions, nullptr)) != -1;) {
        if (c == 'h') {
            std::fputs(kHelp, stdout);
            return kExitDone;
        }
        if (!TakeOption(c, optarg, request)) {
            return UsageError(argv[0]);
        }
    }
    if (!IsComplete(request) || optind != argc) {
        PrintError("create takes all of its options and nothing else");
        return UsageError(argv[0]);
    }
    return Create(request) ? kExitDone : kExitRefused;
}
