#include "hwtest/device_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

int OpenDevice(const char *operation, const char *device)
{
    const int handle = open(device, O_RDWR);
    if (handle < 0) {
        std::printf("Error : %s can not open '%s'\n", operation, device);
    }
    return handle;
}

int CloseDevice(int handle)
{
    if (handle >= 0) {
        close(handle);
    }
    return 0;
}

int PrintInvalidHandle(const char *operation, int handle)
{
    return std::printf("Error : %s Invalid handle '%d'\n", operation, handle);
}
