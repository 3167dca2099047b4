#include "tools/verdict.h"

#include <sys/types.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "tools/fwpack.h"
#include "tools/kernel_image.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

/// What the details are told from.
struct Refusal {
    const char *path;
    const PackageExpectation &expectation;
    PackageStart start;
    Package package;
};

std::string UnreadableDetail(const Refusal &refusal)
{
    const File file{refusal.path, "r"};
    if (!file || (std::fgetc(file.get()) == EOF && std::ferror(file.get()) != 0)) {
        return std::strerror(errno);
    }
    return "it ends within its header";
}

std::string MarkerDetail(const Refusal &refusal)
{
    return Format("found %s, the board's is %s", MarkerText(refusal.start.magic).c_str(),
                  MarkerText(refusal.expectation.marker).c_str());
}

std::string VersionDetail(const Refusal &refusal)
{
    return Format("found %d, the board expects %d", refusal.start.version,
                  refusal.expectation.version);
}

std::string LayoutDetail(const Refusal &refusal)
{
    return Format("found %d, there are 1 and 3", refusal.start.version);
}

std::string FileSizeDetail(const Refusal &refusal)
{
    const auto found = static_cast<long long>(refusal.package.file_size);
    const auto expected = static_cast<long long>(refusal.package.ExpectedFileSize());
    return Format("found %lld bytes, header and regions are %lld", found, expected);
}

std::string KernelDetail(const Refusal &refusal)
{
    return DescribeKernelFault(refusal.path, refusal.package.RegionStart(0));
}

/// Finds the block on which the check stopped.
std::string FileSystemDetail(const Refusal &refusal)
{
    const off_t start = refusal.package.RegionStart(2);
    const File file{refusal.path, "r"};
    std::array<uint8_t, 2> magic{};
    off_t block = start;
    while (file && fseeko(file.get(), block, SEEK_SET) == 0 &&
           std::fread(magic.data(), 1, magic.size(), file.get()) == magic.size()) {
        if (magic[0] != 0x85 || magic[1] != 0x19) {
            return Format("the 64 KiB block at %lld of region 3 begins with %02x %02x, not 85 19",
                          static_cast<long long>(block - start), magic[0], magic[1]);
        }
        block += 0x10000;
    }
    return "a 64 KiB block of region 3 does not begin with 85 19";
}

struct FaultRow {
    PackageFault fault;
    const char *name;
    std::string (*detail)(const Refusal &);
};

// In the order of the board's checks.
constexpr std::array<FaultRow, 7> kFaults{{
    {PackageFault::kUnreadable, "unreadable", UnreadableDetail},
    {PackageFault::kWrongMarker, "wrong marker", MarkerDetail},
    {PackageFault::kWrongVersion, "wrong layout version", VersionDetail},
    {PackageFault::kUnknownLayout, "unknown layout", LayoutDetail},
    {PackageFault::kWrongFileSize, "wrong file size", FileSizeDetail},
    {PackageFault::kBadKernelImage, "bad kernel image", KernelDetail},
    {PackageFault::kBadFileSystem, "bad /etc file system", FileSystemDetail},
}};

} // namespace

std::optional<PackageStart> ReadPackageStart(const char *path)
{
    const File file{path, "r"};
    std::array<uint8_t, FirmwarePackageHeader::kStartSize> bytes{};
    if (!file || std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
        return std::nullopt;
    }
    return PackageStart{LoadLe32(bytes.data()), static_cast<int32_t>(LoadLe32(&bytes[4]))};
}

std::string WhyRefused(const char *path, const PackageExpectation &expectation)
{
    Package package{};
    PackageFault fault = ReadPackage(path, expectation, package);
    if (fault == PackageFault::kNone) {
        fault = CheckPackageContents(path, package);
    }
    for (const FaultRow &row : kFaults) {
        if (row.fault == fault) {
            const PackageStart start = ReadPackageStart(path).value_or(PackageStart{});
            const Refusal refusal{path, expectation, start, package};
            return Format("%s: %s", row.name, row.detail(refusal).c_str());
        }
    }
    return "";
}
