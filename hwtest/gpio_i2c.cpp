#include "hwtest/gpio_i2c.h"

#include <sys/ioctl.h>

#include "hwtest/device_handle.h"

namespace
{

enum Request : unsigned long { kWrite = 0x23, kRead = 0x24 };

/// The driver takes all in one word.
int Access(int handle, Request request, uint32_t device_address, uint32_t register_address,
           uint32_t value)
{
    uint32_t word = (device_address & 0xFF) << 16 | (register_address & 0xFF) << 8 | (value & 0xFF);
    return ioctl(handle, request, &word);
}

} // namespace

int open_gpioi2c()
{
    return OpenDevice("open_gpioi2c", "/dev/misc/misc_gpio");
}

int close_gpioi2c(int handle)
{
    return CloseDevice(handle);
}

int read_gpioi2c(int handle, uint32_t device_address, uint32_t register_address)
{
    if (handle < 0) {
        PrintInvalidHandle("read_gpioi2c", handle);
        return -1;
    }
    // An error reads like a bus without a device.
    return Access(handle, kRead, device_address, register_address, 0) & 0xFF;
}

int write_gpioi2c(int handle, uint32_t device_address, uint32_t register_address, uint32_t value)
{
    if (handle < 0) {
        return PrintInvalidHandle("write_gpioi2c", handle);
    }
    return Access(handle, kWrite, device_address, register_address, value);
}
