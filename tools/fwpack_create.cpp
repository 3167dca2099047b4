#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <span>

#include "flash/jffs2.h"
#include "flash/package.h"
#include "flash/uimage.h"
#include "tools/board_log.h"
#include "tools/fwpack.h"
#include "tools/output_file.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

struct Request {
    const PackageLayout *layout = nullptr;
    const char *marker = nullptr;
    std::array<const char *, 3> regions{}; ///< the files of regions 1 to 3
    const char *output = nullptr;
};

using Sizes = std::array<int64_t, 3>;

/// Measures the inputs. The header's words and the board's offsets have 31 bits.
bool Measure(const Request &request, Sizes &sizes)
{
    int64_t total = request.layout->header_length;
    for (size_t i = 0; i < sizes.size(); ++i) {
        struct stat status {
        };
        const char *path = request.regions[i];
        if (stat(path, &status) != 0) {
            PrintError("%s: %s", path, std::strerror(errno));
            return false;
        }
        if (!S_ISREG(status.st_mode) || status.st_size == 0) {
            PrintError("%s: empty, or not a plain file", path);
            return false;
        }
        sizes[i] = status.st_size;
        total += status.st_size;
    }
    if (total > std::numeric_limits<int32_t>::max()) {
        PrintError("the package would have %lld bytes; a board takes less than 2 GiB",
                   static_cast<long long>(total));
        return false;
    }
    return true;
}

/// Refuses what a board would refuse, with the reason.
bool CheckInputs(const Request &request)
{
    if (CFlash_CheckImage(request.regions[0], 0) != 0) {
        const std::string reason = LastLogLine();
        PrintError("%s: not a kernel image that a board accepts: %s", request.regions[0],
                   reason.empty() ? "shorter than its header" : reason.c_str());
        return false;
    }
    if (CFlash_CheckJffs2(request.regions[2], 0) != 0) {
        PrintError("%s: not every erase block of 64 KiB begins with a JFFS2 node%s",
                   request.regions[2],
                   request.layout->checks_file_system ? "" : "; boards do not check layout 3");
        return !request.layout->checks_file_system;
    }
    return true;
}

void WriteHeader(const Request &request, const Sizes &sizes, std::FILE *output)
{
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes{};
    StoreLe32(bytes.data(), MarkerWord({request.marker, std::strlen(request.marker)}));
    StoreLe32(&bytes[4], static_cast<uint32_t>(request.layout->version));
    for (size_t i = 0; i < sizes.size(); ++i) {
        StoreLe32(&bytes[request.layout->sizes_offset + 4 * i], static_cast<uint32_t>(sizes[i]));
    }
    std::fwrite(bytes.data(), 1, static_cast<size_t>(request.layout->header_length), output);
}

/// Copies a whole file. Write errors stay with the output stream.
bool Append(const char *path, int64_t size, std::FILE *output)
{
    const File input{path, "r"};
    std::array<char, 65536> piece;
    int64_t copied = 0;
    while (input) {
        const size_t count = std::fread(piece.data(), 1, piece.size(), input.get());
        if (count == 0) {
            break;
        }
        std::fwrite(piece.data(), 1, count, output);
        copied += static_cast<int64_t>(count);
    }
    if (!input || std::ferror(input.get()) != 0 || copied != size) {
        PrintError("%s: could not be read as measured", path);
        return false;
    }
    return true;
}

int Create(const Request &request)
{
    struct stat status {
    };
    if (stat(request.output, &status) == 0 && !S_ISREG(status.st_mode)) {
        PrintError("%s: exists and is not a plain file", request.output);
        return kExitRefused;
    }
    Sizes sizes{};
    if (!Measure(request, sizes) || !CheckInputs(request)) {
        return kExitRefused;
    }
    OutputFile output{request.output};
    if (!output) {
        PrintError("%s: %s", request.output, std::strerror(errno));
        return kExitRefused;
    }
    WriteHeader(request, sizes, output.get());
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (!Append(request.regions[i], sizes[i], output.get())) {
            return kExitRefused;
        }
    }
    if (!output.Finish() || !output.MoveToPlace()) {
        PrintError("%s: %s", request.output, std::strerror(errno));
        return kExitRefused;
    }
    return kExitDone;
}

/// Stores one option. Returns false, with a message, when its value is of no use.
bool TakeOption(int letter, const char *value, Request &request)
{
    switch (letter) {
    case 'l':
        request.layout = FindPackageLayout(ParseNumber(value).value_or(0));
        if (request.layout == nullptr) {
            PrintError("the layout is 1 or 3, not '%s'", value);
        }
        return request.layout != nullptr;
    case 'm':
        request.marker = value;
        if (std::strlen(value) > 4) {
            PrintError("a marker has at most four characters, '%s' has more", value);
        }
        return std::strlen(value) <= 4;
    case 'k':
        request.regions[0] = value;
        return true;
    case 's':
        request.regions[1] = value;
        return true;
    case 'e':
        request.regions[2] = value;
        return true;
    case 'o':
        request.output = value;
        return true;
    default:
        return false;
    }
}

} // namespace

int RunCreate(int argc, char **argv)
{
    constexpr option kOptions[] = {{"layout", required_argument, nullptr, 'l'},
                                   {"marker", required_argument, nullptr, 'm'},
                                   {"kernel", required_argument, nullptr, 'k'},
                                   {"second", required_argument, nullptr, 's'},
                                   {"etc", required_argument, nullptr, 'e'},
                                   {"output", required_argument, nullptr, 'o'},
                                   {}};
    Request request;
    for (int c; (c = getopt_long(argc, argv, "l:m:k:s:e:o:", kOptions, nullptr)) != -1;) {
        if (!TakeOption(c, optarg, request)) {
            return UsageError();
        }
    }
    const bool complete = request.layout != nullptr && request.marker != nullptr &&
                          request.output != nullptr &&
                          std::ranges::find(request.regions, nullptr) == request.regions.end();
    if (!complete || optind != argc) {
        PrintError("create takes all of its options and nothing else");
        return UsageError();
    }
    return Create(request);
}
