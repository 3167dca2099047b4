// watchdog_timeout PID SECONDS: sets the time-out of the watchdog that another process has open.
//
// The device opens only once, so this takes the other's descriptor.
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    struct stat watchdog {
    };
    if (argc != 3 || stat("/dev/watchdog", &watchdog) != 0) {
        return 2;
    }
    const auto process = static_cast<int>(syscall(SYS_pidfd_open, std::atoi(argv[1]), 0));
    int seconds = std::atoi(argv[2]);
    for (int number = 3; number < 20; ++number) {
        const auto fd = static_cast<int>(syscall(SYS_pidfd_getfd, process, number, 0));
        struct stat file {
        };
        if (fd >= 0 && fstat(fd, &file) == 0 && file.st_rdev == watchdog.st_rdev) {
            const int result = ioctl(fd, WDIOC_SETTIMEOUT, &seconds);
            std::printf("time-out set to %d: %d\n", seconds, result);
            return result == 0 ? 0 : 1;
        }
    }
    return 1;
}
