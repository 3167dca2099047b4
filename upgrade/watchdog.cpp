#include "upgrade/watchdog.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

static_assert(WDIOC_SETTIMEOUT == 0xC0045706);
static_assert(WDIOC_GETTIMEOUT == 0x80045707);

namespace
{

constexpr int32_t kDefaultTimeout = 30;

int WriteByte(int fd, char byte)
{
    return static_cast<int>(write(fd, &byte, 1));
}

} // namespace

void CWDT_Init(CWDT *handle)
{
    handle->close = CWDT_Close;
    handle->keep_alive = CWDT_KeepAlive;
    handle->disable = CWDT_Disable;
    handle->set_timeout = CWDT_SetTimeout;
    handle->fd = open("/dev/misc/watchdog", O_WRONLY);
    if (handle->fd < 0) {
        std::puts("watchdog open error !");
        return;
    }
    handle->set_timeout(handle, kDefaultTimeout);
}

int CWDT_KeepAlive(CWDT *handle)
{
    if (handle->fd < 0) {
        return handle->fd;
    }
    return WriteByte(handle->fd, '\0');
}

int CWDT_Disable(CWDT *handle)
{
    if (handle->fd < 0) {
        return handle->fd;
    }
    const int written = WriteByte(handle->fd, 'V');
    std::printf("set disable write watchdog : %d\n", written);
    return written;
}

int CWDT_SetTimeout(CWDT *handle, int32_t seconds)
{
    handle->timeout = seconds;
    if (handle->fd < 0) {
        return -1;
    }
    // A driver without these requests keeps its own time-out; the value printed then stays ours.
    int value = seconds;
    ioctl(handle->fd, WDIOC_SETTIMEOUT, &value);
    ioctl(handle->fd, WDIOC_GETTIMEOUT, &value);
    handle->timeout = value;
    std::printf("The timeout was set to %d seconds\n", value);
    return value;
}

void CWDT_Close(CWDT *handle)
{
    if (handle->fd < 0) {
        return;
    }
    handle->disable(handle);
    close(handle->fd);
    handle->fd = -1;
    std::puts("close watchdog");
}
