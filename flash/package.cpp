#include "flash/package.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <numeric>
#include <optional>

#include "flash/jffs2.h"
#include "flash/uimage.h"
#include "util/byte_order.h"
#include "util/fd.h"

namespace
{

/// One read call; a regular file gives all that it has.
bool ReadExactly(int fd, std::span<uint8_t> buffer)
{
    return read(fd, buffer.data(), buffer.size()) == static_cast<ssize_t>(buffer.size());
}

std::optional<HeaderFault> CheckIdentity(const FirmwarePackageHeader &header,
                                         const PackageExpectation &expectation)
{
    if (expectation.check_marker) {
        syslog(LOG_ALERT, "CHECK MAGIC_NUMBER : %08x vs %08x\n", header.magic, expectation.marker);
        if (header.magic != expectation.marker) {
            syslog(LOG_ALERT, "MAGIC_NUMBER is not match 1 : %08x vs %08x\n", header.magic,
                   expectation.marker);
            return HeaderFault::kWrongMarker;
        }
    }
    syslog(LOG_ALERT, "CHECK VERSION : %d vs %d\n", header.version, expectation.version);
    if (header.version != expectation.version) {
        syslog(LOG_ALERT, "VERSION is not match 1 : %d vs %d\n", header.version,
               expectation.version);
        return HeaderFault::kWrongVersion;
    }
    return std::nullopt;
}

} // namespace

const PackageLayout *FindPackageLayout(int32_t version)
{
    for (const PackageLayout &layout : kPackageLayouts) {
        if (layout.version == version) {
            return &layout;
        }
    }
    return nullptr;
}

int64_t Package::RegionStart(size_t index) const
{
    return std::accumulate(header.size.begin(), header.size.begin() + index,
                           int64_t{layout.header_length});
}

uint32_t MarkerWord(std::span<const char> marker)
{
    std::array<uint8_t, 4> bytes{};
    for (size_t i = 0; i < bytes.size() && i < marker.size() && marker[i] != '\0'; ++i) {
        bytes[i] = static_cast<uint8_t>(marker[i]);
    }
    return LoadLe32(bytes.data());
}

std::variant<Package, HeaderRefusal> ReadPackage(const char *path,
                                                 const PackageExpectation &expectation)
{
    FirmwarePackageHeader header{};
    const Fd fd{open(path, O_RDONLY)};
    std::array<uint8_t, FirmwarePackageHeader::kMaxSize> bytes;
    const std::span<uint8_t> all{bytes};
    // Descriptor 0 is refused too: a daemon without standard input is broken.
    if (fd.get() <= 0 || !ReadExactly(fd.get(), all.first(FirmwarePackageHeader::kStartSize))) {
        return HeaderRefusal{HeaderFault::kUnreadable, header};
    }
    header.magic = LoadLe32(bytes.data());
    header.version = static_cast<int32_t>(LoadLe32(&bytes[4]));
    if (const auto fault = CheckIdentity(header, expectation)) {
        return HeaderRefusal{*fault, header};
    }
    const PackageLayout *layout = FindPackageLayout(header.version);
    if (layout == nullptr) {
        return HeaderRefusal{HeaderFault::kUnknownLayout, header};
    }
    const auto rest =
        static_cast<size_t>(layout->header_length) - FirmwarePackageHeader::kStartSize;
    struct stat status = {};
    if (!ReadExactly(fd.get(), all.subspan(FirmwarePackageHeader::kStartSize, rest)) ||
        fstat(fd.get(), &status) != 0) {
        return HeaderRefusal{HeaderFault::kUnreadable, header};
    }
    for (size_t i = 0; i < header.size.size(); ++i) {
        header.size[i] = static_cast<int32_t>(LoadLe32(&bytes[layout->sizes_offset + 4 * i]));
    }
    return Package{header, *layout, status.st_size};
}

ContentsFault FindContentsFault(const char *path, const Package &package)
{
    if (package.ExpectedFileSize() != package.file_size) {
        // Cuts a sum beyond 32 bits.
        syslog(LOG_ALERT, "Firmware image size : %d vs %d\n",
               static_cast<int>(package.ExpectedFileSize()), static_cast<int>(package.file_size));
        return ContentsFault::kWrongFileSize;
    }
    if (CFlash_CheckImage(path, package.RegionStart(0)) != 0) {
        syslog(LOG_ALERT, "flash1 is not correct\n");
        return ContentsFault::kBadKernelImage;
    }
    if (package.layout.checks_file_system && CFlash_CheckJffs2(path, package.RegionStart(2)) != 0) {
        // The label says 2, although the file system is region 3.
        syslog(LOG_ALERT, "flash2 is not correct\n");
        return ContentsFault::kBadFileSystem;
    }
    return ContentsFault::kNone;
}
