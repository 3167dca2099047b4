// fwpack: makes, shows and checks firmware packages.
#include "tools/fwpack.h"

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "flash/package.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

constexpr const char *kHelp = R"(usage: fwpack COMMAND [option...]

fwpack create --layout 1|3 --marker TEXT --kernel FILE --second FILE --etc FILE --output FILE
    makes a package. -l, -m, -k, -s, -e and -o are short for these.
      --layout   1: a board checks the /etc image too; 3: it does not
      --marker   up to four characters; the OEM marker of the boards it is for
      --kernel   region 1: a kernel image as mkimage makes it
      --second   region 2: anything
      --etc      region 3: a JFFS2 image with 64 KiB erase blocks

fwpack info FILE
    shows what is inside.

fwpack check [--marker TEXT] [--version N] FILE
    tells whether a board would accept the package, by the board's own checks in their order.
    -m and -V are short for these. Without --marker the marker is not compared, as when the
    board runs 'upgrade'; N is the layout that the board expects, 1 if it is not told otherwise.

fwpack --help | --version

Exit status: 0 done or accepted, 1 refused or failed, 2 wrong usage.
)";

struct Subcommand {
    std::string_view name;
    int (*run)(int argc, char **argv);
};

constexpr std::array<Subcommand, 3> kSubcommands{{
    {"create", RunCreate},
    {"info", RunInfo},
    {"check", RunCheck},
}};

} // namespace

void PrintError(const char *format, ...)
{
    std::fputs("fwpack: ", stderr);
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer misses va_start here
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
}

int UsageError()
{
    std::fputs("Try 'fwpack --help'.\n", stderr);
    return kExitUsage;
}

std::optional<int32_t> ParseNumber(const char *text)
{
    int32_t value{};
    const char *end = text + std::strlen(text);
    const auto [stopped, error] = std::from_chars(text, end, value);
    if (error != std::errc{} || stopped != end) {
        return std::nullopt;
    }
    return value;
}

std::optional<PackageStart> ReadPackageStart(const char *path)
{
    const File file{path, "r"};
    std::array<uint8_t, FirmwarePackageHeader::kStartSize> bytes{};
    if (!file || std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
        return std::nullopt;
    }
    return PackageStart{LoadLe32(bytes.data()), static_cast<int32_t>(LoadLe32(&bytes[4]))};
}

std::string MarkerText(uint32_t magic)
{
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const char c = static_cast<char>((magic >> shift) & 0xFF);
        text += c >= ' ' && c <= '~' ? c : '.';
    }
    return text;
}

int main(int argc, char **argv)
{
    const std::string_view name = argc > 1 ? argv[1] : "";
    for (const Subcommand &subcommand : kSubcommands) {
        if (subcommand.name == name) {
            return subcommand.run(argc - 1, argv + 1);
        }
    }
    if (name == "--help") {
        std::fputs(kHelp, stdout);
        return kExitDone;
    }
    if (name == "--version") {
        std::puts("fwpack 1.0.0");
        return kExitDone;
    }
    PrintError("%s is no command", argc > 1 ? argv[1] : "nothing");
    return UsageError();
}
