// xi2c DEVICE REGISTER [VALUE], also called xgpioi2c: reads or writes a register of an I2C device.
// Numbers are hexadecimal after "0x", octal after "0", otherwise decimal.

#include <cstdio>

#include "hwtest/applets.h"
#include "hwtest/get_or_set.h"
#include "hwtest/gpio_i2c.h"
#include "util/number.h"

int xi2c(int argc, char **argv)
{
    if (!CheckGetOrSet(argc, argv[0], "device_addr  reg_addr", "reg_value")) {
        return 0;
    }

    const uint32_t device_address = ParseLeadingUnsigned(argv[1]);
    const uint32_t register_address = ParseLeadingUnsigned(argv[2]);
    const int handle = open_gpioi2c(); // the operations report one that is not open
    if (argc == 3) {
        const int value = read_gpioi2c(handle, device_address, register_address);
        std::printf("0x%02X\n", static_cast<unsigned>(value));
    } else {
        write_gpioi2c(handle, device_address, register_address, ParseLeadingUnsigned(argv[3]));
    }
    return close_gpioi2c(handle);
}
