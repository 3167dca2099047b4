#include "hwtest/gpio.h"

#include <sys/ioctl.h>

#include <cstdint>
#include <iterator>

#include "hwtest/device_handle.h"

namespace
{

/// The record of the driver's requests.
struct RegisterAccess {
    uint32_t address; ///< physical
    uint32_t value;   ///< the bits
};
static_assert(sizeof(RegisterAccess) == 8);

enum Request : unsigned long { kSetBits = 1, kClearBits = 2, kRead = 3 };

// The controllers, by group.
constexpr uint32_t kBases[] = {0x101E4000, 0x101E5000, 0x101E6000, 0x101E7000,
                               0x101F7000, 0x101F8000, 0x101F9000, 0x101FA000};
constexpr uint32_t kDirection = 0x400; // from the base; a set bit makes the pin an output

constexpr uint32_t kMultiplexer = 0x101E0020;

// Pins that share their ball with another function. One bit may serve several of them.
struct SharedPin {
    int group;
    int pin;
    Request request; ///< selects GPIO
    uint32_t bits;
};
constexpr SharedPin kSharedPins[] = {
    {0, 2, kClearBits, 0x20},   {0, 4, kClearBits, 0x20},   {1, 1, kClearBits, 0x100000},
    {1, 7, kClearBits, 0x2000}, {2, 0, kClearBits, 0x2000}, {2, 3, kSetBits, 0x20000},
    {6, 0, kClearBits, 0x400},  {6, 1, kClearBits, 0x400},  {7, 4, kSetBits, 0x10},
    {7, 5, kClearBits, 0x400},  {7, 6, kClearBits, 0x400},
};

int Access(int handle, Request request, uint32_t address, uint32_t value)
{
    RegisterAccess access{address, value};
    return ioctl(handle, request, &access);
}

/// Ignores a refused request: what matters is what the pin then reads.
void SelectGpio(int handle, int group, int pin)
{
    for (const SharedPin &shared : kSharedPins) {
        if (shared.group == group && shared.pin == pin) {
            Access(handle, shared.request, kMultiplexer, shared.bits);
        }
    }
}

/// The group's controller; 0 when there is none.
uint32_t BaseOf(int group)
{
    return group >= 0 && group < static_cast<int>(std::size(kBases)) ? kBases[group] : 0;
}

/// Numbers from 32 on, and negative ones, have an empty mask.
uint32_t MaskOf(int pin)
{
    return pin >= 0 && pin < 32 ? uint32_t{1} << pin : 0;
}

/// The controller takes the mask as part of the address, so that no other pin is touched.
uint32_t DataRegister(uint32_t base, uint32_t mask)
{
    return base + mask * 4;
}

} // namespace

int open_gpio()
{
    return OpenDevice("open_gpio", "/dev/misc/hi3512_reg");
}

int close_gpio(int handle)
{
    return CloseDevice(handle);
}

int get_gpio(int handle, int group, int pin)
{
    if (handle < 0) {
        PrintInvalidHandle("get_gpio", handle);
        return -1;
    }
    SelectGpio(handle, group, pin);
    const uint32_t base = BaseOf(group);
    if (base == 0) {
        return -1;
    }
    const uint32_t mask = MaskOf(pin);
    Access(handle, kClearBits, base + kDirection, mask);
    return Access(handle, kRead, DataRegister(base, mask), mask);
}

void set_gpio(int handle, int group, int pin, int value)
{
    if (handle < 0) {
        PrintInvalidHandle("set_gpio", handle);
        return;
    }
    SelectGpio(handle, group, pin);
    const uint32_t base = BaseOf(group);
    if (base == 0) {
        return;
    }
    const uint32_t mask = MaskOf(pin);
    Access(handle, kSetBits, base + kDirection, mask);
    Access(handle, value != 0 ? kSetBits : kClearBits, DataRegister(base, mask), mask);
}
