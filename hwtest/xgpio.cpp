// xgpio GROUP PIN [VALUE]: reads a GPIO pin, or drives it high (VALUE not 0) or low.

#include <cstdio>

#include "hwtest/applets.h"
#include "hwtest/get_or_set.h"
#include "hwtest/gpio.h"
#include "util/number.h"

namespace
{

void PrintPin(int handle, int group, int pin)
{
    const int level = get_gpio(handle, group, pin);
    if (level < 0) {
        std::printf("Error : get '%d'\n", level);
    } else {
        std::printf("%d \n", level > 0 ? 1 : 0);
    }
}

} // namespace

int xgpio(int argc, char **argv)
{
    if (!CheckGetOrSet(argc, argv[0], "group_no  bit_no", "0/1")) {
        return 0;
    }

    const int group = ParseLeadingInteger(argv[1]);
    const int pin = ParseLeadingInteger(argv[2]);
    const int handle = open_gpio(); // the operations report one that is not open
    if (argc == 3) {
        PrintPin(handle, group, pin);
    } else {
        set_gpio(handle, group, pin, ParseLeadingInteger(argv[3]));
    }
    return close_gpio(handle);
}
