// Installs a firmware package on the board's flash.
#pragma once

#include <cstdint>

/// Options of an installation, as bits.
constexpr uint32_t UPGRADE_FLAG_CHECK_MARKER = 1;    ///< refuse a package for another marker
constexpr uint32_t UPGRADE_FLAG_VERBOSE = 2;         ///< print a line after each region
constexpr uint32_t UPGRADE_FLAG_FACTORY_DEFAULT = 4; ///< do not carry the settings over

/// Installs the package `package_path` on the three partitions and carries the settings across.
///
/// Checks the header, saves the settings, kills what uses /etc and unmounts it, checks the
/// contents, then erases, writes and compares each partition (three attempts), mounts the new /etc
/// and restores the settings. A region that fails all attempts is logged and skipped. A check
/// that fails after the unmount leaves /etc unmounted.
///
/// The package must be complete and outside /etc.
///
/// @return 0 when the installation ran to its end, -1 when a check stopped it
int CFlash_TEVWrite(const char *package_path, const char *device1, const char *device2,
                    const char *device3, uint32_t flags);
