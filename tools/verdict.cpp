#include "tools/verdict.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "flash/jffs2.h"
#include "tools/fwpack.h"
#include "tools/kernel_image.h"
#include "util/file.h"

namespace
{

std::string WhyUnreadable(const char *path)
{
    const File file{path, "r"};
    if (!file || (std::fgetc(file.get()) == EOF && std::ferror(file.get()) != 0)) {
        return std::strerror(errno);
    }
    return "it ends within its header";
}

std::string Describe(const char *path, const HeaderRefusal &refusal,
                     const PackageExpectation &expectation)
{
    const FirmwarePackageHeader &found = refusal.header;
    switch (refusal.fault) {
    case HeaderFault::kUnreadable:
        return "unreadable: " + WhyUnreadable(path);
    case HeaderFault::kWrongMarker:
        return Format("wrong marker: found %s, the board's is %s", MarkerText(found.magic).c_str(),
                      MarkerText(expectation.marker).c_str());
    case HeaderFault::kWrongVersion:
        return Format("wrong layout version: found %d, the board expects %d", found.version,
                      expectation.version);
    case HeaderFault::kUnknownLayout:
        return Format("unknown layout: found %d, there are 1 and 3", found.version);
    }
    return "";
}

/// Finds the block on which the check stopped.
std::string WhyBadFileSystem(const char *path, int64_t region_start)
{
    const File file{path, "r"};
    const auto block = file ? FindForeignBlock(file.get(), region_start) : std::nullopt;
    if (!block) {
        return "it changed while it was read";
    }
    return Format("the 64 KiB block at %" PRId64 " of region 3 begins with %02x %02x, not 85 19",
                  block->start - region_start, block->magic[0], block->magic[1]);
}

std::string Describe(const char *path, const Package &package, ContentsFault fault)
{
    switch (fault) {
    case ContentsFault::kNone:
        return "";
    case ContentsFault::kWrongFileSize:
        return Format("wrong file size: found %" PRId64 " bytes, header and regions are %" PRId64,
                      package.file_size, package.ExpectedFileSize());
    case ContentsFault::kBadKernelImage:
        return "bad kernel image: " + DescribeKernelFault(path, package.RegionStart(0));
    case ContentsFault::kBadFileSystem:
        return "bad /etc file system: " + WhyBadFileSystem(path, package.RegionStart(2));
    }
    return "";
}

} // namespace

std::string WhyRefused(const char *path, const PackageExpectation &expectation)
{
    const auto opened = ReadPackage(path, expectation);
    if (const auto *refusal = std::get_if<HeaderRefusal>(&opened)) {
        return Describe(path, *refusal, expectation);
    }
    const auto &package = std::get<Package>(opened);
    return Describe(path, package, FindContentsFault(path, package));
}
