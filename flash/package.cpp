#include "flash/package.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>

#include "flash/jffs2.h"
#include "flash/uimage.h"
#include "util/byte_order.h"
#include "util/fd.h"

namespace
{

constexpr std::array<PackageLayout, 2> kLayouts{{
    {1, 20, 8, true},
    {3, 64, 12, false},
}};

/// One read call; a regular file gives all that it has.
bool ReadExactly(int fd, std::span<uint8_t> buffer)
{
    return read(fd, buffer.data(), buffer.size()) == static_cast<ssize_t>(buffer.size());
}

PackageFault CheckIdentity(const FirmwarePackageHeader &header,
                           const PackageExpectation &expectation)
{
    if (expectation.check_marker) {
        syslog(LOG_ALERT, "CHECK MAGIC_NUMBER : %08x vs %08x\n", header.magic, expectation.marker);
        if (header.magic != expectation.marker) {
            syslog(LOG_ALERT, "MAGIC_NUMBER is not match 1 : %08x vs %08x\n", header.magic,
                   expectation.marker);
            return PackageFault::kWrongMarker;
        }
    }
    syslog(LOG_ALERT, "CHECK VERSION : %d vs %d\n", header.version, expectation.version);
    if (header.version != expectation.version) {
        syslog(LOG_ALERT, "VERSION is not match 1 : %d vs %d\n", header.version,
               expectation.version);
        return PackageFault::kWrongVersion;
    }
    return PackageFault::kNone;
}

} // namespace

const PackageLayout *FindPackageLayout(int32_t version)
{
    for (const PackageLayout &layout : kLayouts) {
        if (layout.version == version) {
            return &layout;
        }
    }
    return nullptr;
}

int32_t Package::RegionStart(size_t index) const
{
    // Wraps as the board's words do. Negative sizes can make a start that no seek reaches, and pass
    // the checks all the same: writing such a region fails, after its partition was erased.
    auto start = static_cast<uint32_t>(layout->header_length);
    for (size_t i = 0; i < index; ++i) {
        start += static_cast<uint32_t>(header.size[i]);
    }
    return static_cast<int32_t>(start);
}

int64_t Package::ExpectedFileSize() const
{
    return int64_t{layout->header_length} + header.size[0] + header.size[1] + header.size[2];
}

uint32_t MarkerWord(std::span<const char> marker)
{
    std::array<uint8_t, 4> bytes{};
    for (size_t i = 0; i < bytes.size() && i < marker.size() && marker[i] != '\0'; ++i) {
        bytes[i] = static_cast<uint8_t>(marker[i]);
    }
    return LoadLe32(bytes.data());
}

PackageFault ReadPackage(const char *path, const PackageExpectation &expectation, Package &package)
{
    const Fd fd{open(path, O_RDONLY)};
    // A descriptor of 0 is refused too, deliberately: a daemon without standard input is broken.
    if (fd.get() <= 0) {
        return PackageFault::kUnreadable;
    }
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes{};
    const std::span<uint8_t> all{bytes};
    if (!ReadExactly(fd.get(), all.first(FirmwarePackageHeader::kStartSize))) {
        return PackageFault::kUnreadable;
    }
    FirmwarePackageHeader header{};
    header.magic = LoadLe32(bytes.data());
    header.version = static_cast<int32_t>(LoadLe32(&bytes[4]));
    if (const PackageFault fault = CheckIdentity(header, expectation);
        fault != PackageFault::kNone) {
        return fault;
    }
    const PackageLayout *layout = FindPackageLayout(header.version);
    if (layout == nullptr) {
        return PackageFault::kUnknownLayout;
    }
    const auto rest =
        static_cast<size_t>(layout->header_length) - FirmwarePackageHeader::kStartSize;
    if (!ReadExactly(fd.get(), all.subspan(FirmwarePackageHeader::kStartSize, rest))) {
        return PackageFault::kUnreadable;
    }
    for (size_t i = 0; i < header.size.size(); ++i) {
        header.size[i] = static_cast<int32_t>(LoadLe32(&bytes[layout->sizes_offset + 4 * i]));
    }
    struct stat status {
    };
    if (fstat(fd.get(), &status) != 0) {
        return PackageFault::kUnreadable;
    }
    package = {header, layout, status.st_size};
    return PackageFault::kNone;
}

PackageFault CheckPackageContents(const char *path, const Package &package)
{
    if (package.ExpectedFileSize() != package.file_size) {
        return PackageFault::kWrongFileSize;
    }
    if (CFlash_CheckImage(path, package.RegionStart(0)) != 0) {
        return PackageFault::kBadKernelImage;
    }
    if (package.layout->checks_file_system &&
        CFlash_CheckJffs2(path, package.RegionStart(2)) != 0) {
        return PackageFault::kBadFileSystem;
    }
    return PackageFault::kNone;
}
