#include <sys/types.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <string>

#include "flash/crc32.h"
#include "flash/jffs2.h"
#include "flash/package.h"
#include "flash/uimage.h"
#include "tools/fwpack.h"
#include "util/file.h"

namespace
{

std::string Word(const char *const *names, size_t count, uint8_t code)
{
    return code < count ? names[code] : "code " + std::to_string(code);
}

constexpr const char *kTypes[] = {"code 0", "standalone program", "kernel", "RAM disk",
                                  "multi-file"};
constexpr const char *kCompressions[] = {"uncompressed", "gzip", "bzip2"};

const char *Holds(bool holds)
{
    return holds ? "holds" : "does not hold";
}

void PrintKernel(const char *path, int32_t offset)
{
    const File file{path, "r"};
    std::array<uint8_t, ImageHeader::kSize> bytes{};
    if (!file || std::fseek(file.get(), offset, SEEK_SET) != 0 ||
        std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
        std::puts("  no kernel image: the file ends before it");
        return;
    }
    const ImageHeader header = DecodeImageHeader(bytes);
    if (header.magic != kImageMagic) {
        std::printf("  no kernel image: magic 0x%08x\n", header.magic);
        return;
    }
    const bool data_holds = CFlash_Crc32Stream(0, file.get(), header.data_size) == header.data_crc;
    std::array<uint8_t, ImageHeader::kSize> zeroed = bytes;
    for (size_t i = 4; i < 8; ++i) {
        zeroed[i] = 0;
    }
    const bool header_holds = CFlash_Crc32(0, zeroed.data(), zeroed.size()) == header.header_crc;

    const std::time_t created = header.time;
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S UTC", std::gmtime(&created));
    std::printf("  kernel image   %.*s\n", static_cast<int>(header.name.size()),
                header.name.data());
    std::printf("  created        %s\n", date.data());
    std::printf("  data           %u bytes, load 0x%08x, entry 0x%08x\n", header.data_size,
                header.load_address, header.entry_point);
    std::printf("  kind           %s, %s, %s\n", header.architecture == 2 ? "ARM" : "not for ARM",
                Word(kTypes, std::size(kTypes), header.type).c_str(),
                Word(kCompressions, std::size(kCompressions), header.compression).c_str());
    std::printf("  header CRC     %s\n", Holds(header_holds));
    std::printf("  data CRC       %s\n", Holds(data_holds));
}

void PrintRegions(const char *path, const Package &package)
{
    for (size_t i = 0; i < package.header.size.size(); ++i) {
        std::printf("region %zu         %d bytes from %d\n", i + 1, package.header.size[i],
                    package.RegionStart(i));
        if (i == 0) {
            PrintKernel(path, package.RegionStart(0));
        }
    }
    const bool jffs2 = CFlash_CheckJffs2(path, package.RegionStart(2)) == 0;
    std::printf("  JFFS2 image    %s\n", jffs2 ? "yes" : "no, or not in every 64 KiB block");
}

int Print(const char *path)
{
    const auto start = ReadPackageStart(path);
    if (!start) {
        PrintError("%s: cannot be read, or is too short for a package", path);
        return kExitRefused;
    }
    std::printf("marker           %s (0x%08x)\n", MarkerText(start->magic).c_str(), start->magic);
    Package package{};
    const PackageFault fault = ReadPackage(path, {false, 0, start->version}, package);
    if (fault != PackageFault::kNone) {
        std::printf("layout           %d\n", start->version);
        PrintError("%s: %s", path,
                   fault == PackageFault::kUnknownLayout ? "there is no such layout"
                                                         : "ends within its header");
        return kExitRefused;
    }
    std::printf("layout           %d, header of %d bytes\n", package.header.version,
                package.header.length);
    std::printf("file size        %lld bytes", static_cast<long long>(package.file_size));
    if (package.ExpectedFileSize() == package.file_size) {
        std::puts(", as the header says");
    } else {
        std::printf(", but %lld by the header\n",
                    static_cast<long long>(package.ExpectedFileSize()));
    }
    PrintRegions(path, package);
    return kExitDone;
}

} // namespace

int RunInfo(int argc, char **argv)
{
    if (argc != 2 || argv[1][0] == '-') {
        PrintError("info takes one package");
        return UsageError();
    }
    return Print(argv[1]);
}
