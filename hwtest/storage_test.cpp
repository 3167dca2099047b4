// test_sdcard [-v], test_usb [-v]: tell whether the medium in the slot can be mounted and read.
// It holds a file "test.txt" with a line that begins with "test device".

#include <sys/mount.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "hwtest/applets.h"
#include "hwtest/verbose_option.h"
#include "util/error_text.h"
#include "util/file.h"
#include "util/text.h"

namespace
{

struct Slot {
    const char *device;
    const char *mount_point;
    const char *test_file;
    const char *unmount_path;
};

constexpr Slot kSdCard{"/dev/mmcblk0p1", "/mnt/sd/", "/mnt/sd/test.txt", "/mnt/sd"};
constexpr Slot kUsb{"/dev/sda1", "/mnt/usb/", "/mnt/usb/test.txt", "/mnt/usb"};

/// Reads a longer line in pieces of 255 characters, each as a line.
bool FindMarker(const char *path, bool verbose)
{
    File file{path, "r"};
    if (!file) {
        if (verbose) {
            std::printf("can't find file [%s]\n", path);
        }
        return false;
    }
    if (verbose) {
        std::puts("READ : ");
    }
    std::array<char, 256> line{};
    while (file.ReadLine(line) > 0) {
        if (verbose) {
            std::fputs(line.data(), stdout);
        }
        if (BeginsWith(line.data(), "test device")) {
            return true;
        }
    }
    return false;
}

int TestStorage(const Slot &slot, int argc, char **argv)
{
    const bool verbose = HasVerboseOption(argc, argv);

    if (mount(slot.device, slot.mount_point, "vfat", 0, nullptr) < 0 && verbose) {
        std::printf("mount, errno : %d, %s\n", errno, ErrorText(errno));
    }
    // Looks without a medium too: the file may be in the mount point itself.
    const bool found = FindMarker(slot.test_file, verbose);
    umount(slot.unmount_path); // fails when nothing was mounted
    std::puts(found ? "successful" : "failed");
    return 0;
}

} // namespace

int test_sdcard(int argc, char **argv)
{
    return TestStorage(kSdCard, argc, argv);
}

int test_usb(int argc, char **argv)
{
    return TestStorage(kUsb, argc, argv);
}
