#include "flash/installer.h"

#include <sys/mount.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "flash/mtd.h"
#include "flash/package.h"
#include "flash/settings.h"
#include "util/conf_reader.h"
#include "util/error_text.h"
#include "util/number.h"
#include "util/shell.h"

namespace
{

constexpr const char *kName = "CFlash_TEVWrite";
constexpr const char *kUpgradeFile = "/usr/upgrade";

using ConfValue = std::array<char, 256>;

/// The value of `key`, or `default_value` when the file cannot be opened.
ConfValue ReadConf(const char *path, const char *key, const char *default_value)
{
    ConfValue value{};
    if (CUTIL_GetConfValue(path, key, value) < 0) {
        std::snprintf(value.data(), value.size(), "%s", default_value);
    }
    return value;
}

/// What this board accepts.
PackageExpectation ReadPackageExpectation(uint32_t flags)
{
    const ConfValue board_marker = ReadConf(kUpgradeFile, "MARKER", "3510");
    const ConfValue marker = ReadConf("/etc/oem_marker.conf", "MARKER", board_marker.data());
    const ConfValue version = ReadConf(kUpgradeFile, "VERSION", "1");
    // Read, but the model does not restrict the package.
    [[maybe_unused]] const ConfValue model = ReadConf(kUpgradeFile, "MODEL", "0000");

    return {(flags & UPGRADE_FLAG_CHECK_MARKER) != 0, MarkerWord(marker),
            ParseLeadingInteger(version.data())};
}

/// Kills what still holds /etc open, in ten rounds, because some programs come back.
void ReleaseEtc()
{
    for (int round = 0; round < 10; ++round) {
        RunShell("fuser -m /etc/ | awk '{print $1}' | xargs kill -9");
        usleep(100'000);
    }
}

int UnmountEtc()
{
    if (umount("/etc") == 0) {
        return 0;
    }
    // The path comes before the name here, unlike in the other error lines.
    std::printf("[ERROR] %s : umount [%s], errno : %d, %s\n", "/etc", kName, errno,
                ErrorText(errno));
    return -1;
}

int CheckContents(const char *path, const Package &package)
{
    switch (FindContentsFault(path, package)) {
    case ContentsFault::kNone:
        return 0;
    case ContentsFault::kWrongFileSize:
        std::printf("[ERROR] %s : Firmware image size : %d vs %d\n", kName,
                    static_cast<int>(package.ExpectedFileSize()),
                    static_cast<int>(package.file_size));
        break;
    case ContentsFault::kBadKernelImage:
        std::printf("[ERROR] %s : chech Image\n", kName);
        break;
    case ContentsFault::kBadFileSystem:
        std::printf("[ERROR] %s : check JFFS2\n", kName);
        break;
    }
    return -1;
}

/// One attempt at one partition. Returns null, or what failed.
const char *TryRegion(const char *path, const char *device, int32_t start, int32_t size)
{
    if (CFlash_Erase(device) != 0) {
        return "erase";
    }
    if (CFlash_NWrite(path, device, start, size) != 0) {
        return "write";
    }
    if (CFlash_Confirm(path, device, start, size) != 0) {
        return "cmp";
    }
    return nullptr;
}

void InstallRegion(const char *path, const char *device, int32_t start, int32_t size)
{
    syslog(LOG_ALERT, "[%s] write [%s]\n", kName, device);
    for (int attempt = 0; attempt < 3; ++attempt) {
        const char *failed = TryRegion(path, device, start, size);
        if (failed == nullptr) {
            return;
        }
        syslog(LOG_ALERT, "[%s] %s %s fail[%d]\n", kName, device, failed, attempt);
    }
    // The installation goes on: a half-written board should still get its other partitions and its
    // /etc back.
}

} // namespace

int CFlash_TEVWrite(const char *package_path, const char *device1, const char *device2,
                    const char *device3, uint32_t flags)
{
    const auto opened = ReadPackage(package_path, ReadPackageExpectation(flags));
    const Package *package = std::get_if<Package>(&opened);
    if (package == nullptr) {
        return -1;
    }
    const bool carries_settings = (flags & UPGRADE_FLAG_FACTORY_DEFAULT) == 0;
    CarriedSettings settings;
    if (carries_settings) {
        settings.Save();
    }
    ReleaseEtc();
    // /etc stays unmounted when the contents are refused: the caller decides what comes then.
    if (UnmountEtc() != 0 || CheckContents(package_path, *package) != 0) {
        return -1;
    }
    const std::array<const char *, 3> devices{device1, device2, device3};
    for (size_t i = 0; i < devices.size(); ++i) {
        // A package with negative sizes can pass the checks. If the start is then out of range, the
        // write fails after the erase.
        InstallRegion(package_path, devices[i], static_cast<int32_t>(package->RegionStart(i)),
                      package->header.size[i]);
        if ((flags & UPGRADE_FLAG_VERBOSE) != 0) {
            std::printf("%s : flash%zu complete\n", kName, i + 1);
        }
    }
    RunShell("/bin/mount -t jffs2 /dev/mtdblock/3 /etc");
    if (carries_settings) {
        settings.Restore();
    }
    return 0;
}
