#include <getopt.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <ctime>

#include "flash/jffs2.h"
#include "tools/fwpack.h"
#include "tools/kernel_image.h"
#include "tools/verdict.h"

namespace
{

constexpr const char *kHelp = R"(usage: fwpack info FILE

Shows what is inside a package, also in a damaged one, and what a board would say to it.

  -h, --help   this help

Exit status: 0 shown, 1 not a package that can be read, 2 wrong usage.
)";

/// Where a region lies by the header.
struct Region {
    int64_t start;
    int64_t size;
    int64_t file_size;

    /// What is wrong with its place; empty when the file holds all of it.
    [[nodiscard]] std::string Fault() const
    {
        if (size < 0) {
            return "negative size";
        }
        if (start < 0 || (start >= file_size && size > 0)) {
            return "outside the file";
        }
        if (start + size > file_size) {
            return Format("cut short, %" PRId64 " bytes are there", file_size - start);
        }
        return "";
    }

    /// Its bytes, or some of them, can be looked at.
    [[nodiscard]] bool Begins() const { return size > 0 && start >= 0 && start < file_size; }
};

Region RegionOf(const Package &package, size_t index)
{
    return {package.RegionStart(index), package.header.size[index], package.file_size};
}

std::string Contents(const char *path, const Package &package, size_t index)
{
    const Region region = RegionOf(package, index);
    if (!region.Begins()) {
        return "";
    }
    switch (index) {
    case 0: {
        const auto image = ReadKernelImage(path, region.start);
        return image && image->header.magic == kImageMagic ? "kernel image" : "no kernel image";
    }
    case 1:
        return "not examined";
    default:
        return CFlash_CheckJffs2(path, region.start) == 0 ? "JFFS2 at every 64 KiB"
                                                          : "not JFFS2 at every 64 KiB";
    }
}

void PrintRegions(const char *path, const Package &package)
{
    std::puts("\nregion      offset        size  contents");
    for (size_t i = 0; i < package.header.size.size(); ++i) {
        const Region region = RegionOf(package, i);
        const std::string contents = Contents(path, package, i);
        const std::string fault = region.Fault();
        std::printf("%6zu  %10" PRId64 "  %10" PRId64 "  %s%s%s\n", i + 1, region.start,
                    region.size, contents.c_str(), contents.empty() || fault.empty() ? "" : "; ",
                    fault.c_str());
    }
}

void PrintCrc(const char *name, uint32_t stated, uint32_t computed)
{
    if (stated == computed) {
        std::printf("  %s      %08x, holds\n", name, stated);
    } else {
        std::printf("  %s      %08x, does not hold: computed %08x\n", name, stated, computed);
    }
}

void PrintKernel(const char *path, const Package &package)
{
    const Region region = RegionOf(package, 0);
    const auto image = ReadKernelImage(path, region.start);
    if (!region.Begins() || !image || image->header.magic != kImageMagic) {
        return;
    }
    const ImageHeader &header = image->header;
    const std::time_t created = header.time;
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S UTC", std::gmtime(&created));

    std::puts("\nkernel image");
    std::printf("  name            %s\n",
                Printable({header.name.data(), header.name.size()}).c_str());
    std::printf("  created         %s\n", date.data());
    const int64_t beyond = int64_t{ImageHeader::kSize} + header.data_size - region.size;
    std::printf("  data size       %" PRIu32 " bytes%s\n", header.data_size,
                beyond > 0 ? Format(", %" PRId64 " of them behind region 1", beyond).c_str() : "");
    std::printf("  load, entry     0x%08x, 0x%08x\n", header.load_address, header.entry_point);
    std::printf("  architecture    %s\n", ArchitectureName(header).c_str());
    std::printf("  type            %s\n", TypeName(header).c_str());
    std::printf("  compression     %s\n", CompressionName(header).c_str());
    PrintCrc("header CRC", header.header_crc, header.computed_crc);
    PrintCrc("data CRC  ", header.data_crc, image->data_crc);
}

int Print(const char *path)
{
    // To a board that expects this very layout: what remains are real faults.
    PackageExpectation any{false, 0, 1};
    auto opened = ReadPackage(path, any);
    if (const auto *refusal = std::get_if<HeaderRefusal>(&opened);
        refusal != nullptr && refusal->fault == HeaderFault::kWrongVersion) {
        any.version = refusal->header.version;
        opened = ReadPackage(path, any);
    }
    const std::string refusal = WhyRefused(path, any);
    if (!std::holds_alternative<Package>(opened)) {
        PrintError("%s: %s", path, refusal.c_str());
        return kExitRefused;
    }
    const auto &package = std::get<Package>(opened);
    const int64_t expected = package.ExpectedFileSize();
    std::printf("layout      %d, header of %d bytes\n", package.header.version,
                package.layout.header_length);
    std::printf("marker      %s\n", MarkerText(package.header.magic).c_str());
    std::printf("file size   %" PRId64 " bytes, %s\n", package.file_size,
                expected == package.file_size
                    ? "header and regions"
                    : Format("but header and regions are %" PRId64, expected).c_str());
    if (refusal.empty()) {
        std::puts("verdict     a board with this marker and layout would accept it");
    } else {
        std::printf("verdict     a board would refuse it: %s\n", refusal.c_str());
    }
    PrintRegions(path, package);
    PrintKernel(path, package);
    return kExitDone;
}

} // namespace

int RunInfo(int argc, char **argv)
{
    constexpr option kOptions[] = {{"help", no_argument, nullptr, 'h'}, {}};
    switch (getopt_long(argc, argv, "h", kOptions, nullptr)) {
    case 'h':
        std::fputs(kHelp, stdout);
        return kExitDone;
    case -1:
        break;
    default:
        return UsageError(argv[0]);
    }
    if (optind + 1 != argc) {
        PrintError("info takes one package");
        return UsageError(argv[0]);
    }
    return Print(argv[optind]);
}
