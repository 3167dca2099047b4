#include "tools/verdict.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "flash/jffs2.h"
#include "tools/kernel_image.h"
#include "tools/text.h"
#include "util/file.h"

namespace
{

/// A text such as " (it looks like a bare kernel image)"; empty for an unknown kind of file.
std::string WhatItLooksLike(const char *path)
{
    struct Kind {
        std::array<uint8_t, 2> magic;
        const char *name;
    };
    constexpr Kind kKinds[] = {{{0x27, 0x05}, "bare kernel image"},
                               {{0x85, 0x19}, "JFFS2 image"},
                               {{0x1F, 0x8B}, "gzip file"}};
    const File file{path, "r"};
    std::array<uint8_t, 2> magic{};
    if (file && std::fread(magic.data(), 1, magic.size(), file.get()) == magic.size()) {
        for (const Kind &kind : kKinds) {
            if (kind.magic == magic) {
                return Format(" (it looks like a %s)", kind.name);
            }
        }
    }
    return "";
}

std::string Describe(const char *path, const HeaderRefusal &refusal,
                     const PackageExpectation &expectation)
{
    const FirmwarePackageHeader &found = refusal.header;
    switch (refusal.fault) {
    case HeaderFault::kUnreadable:
        return "unreadable: it ends within its header";
    case HeaderFault::kWrongMarker:
        return Format("wrong marker: found %s, the board's is %s", MarkerText(found.magic).c_str(),
                      MarkerText(expectation.marker).c_str());
    case HeaderFault::kWrongVersion:
        return Format("wrong layout version: found %d, the board expects %d%s", found.version,
                      expectation.version, WhatItLooksLike(path).c_str());
    case HeaderFault::kUnknownLayout:
        return Format("unknown layout: found %d, there are 1 and 3", found.version);
    }
    return "";
}

/// Finds the block at which the check stopped.
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
        return "bad kernel image: " + WhyKernelRefused(path, package.RegionStart(0));
    case ContentsFault::kBadFileSystem:
        return "bad /etc file system: " + WhyBadFileSystem(path, package.RegionStart(2));
    }
    return "";
}

} // namespace

Verdict Judge(const char *path, const PackageExpectation &expectation)
{
    const auto opened = ReadPackage(path, expectation);
    if (const auto *refusal = std::get_if<HeaderRefusal>(&opened)) {
        return {opened, Describe(path, *refusal, expectation)};
    }
    const auto &package = std::get<Package>(opened);
    return {opened, Describe(path, package, FindContentsFault(path, package))};
}

std::variant<Package, HeaderRefusal> OpenByItself(const char *path)
{
    const auto opened = ReadPackage(path, {false, 0, 1});
    const auto *refusal = std::get_if<HeaderRefusal>(&opened);
    return refusal != nullptr && refusal->fault == HeaderFault::kWrongVersion
               ? ReadPackage(path, {false, 0, refusal->header.version})
               : opened;
}

std::string WhyUnreadable(const char *path)
{
    struct stat status = {};
    // Opening a pipe would wait for a writer.
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "not a plain file";
    }
    const File file{path, "r"};
    if (!file || (std::fgetc(file.get()) == EOF && std::ferror(file.get()) != 0)) {
        return std::strerror(errno);
    }
    return "";
}

bool SayNoPackage(const char *path, const HeaderRefusal &refusal)
{
    const std::string kind = WhatItLooksLike(path);
    return Refuse(path, "not a firmware package" +
                            (kind.empty() ? ": " + Describe(path, refusal, {}) : kind));
}
