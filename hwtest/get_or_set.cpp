#include "hwtest/get_or_set.h"

#include <cstdio>
#include <cstdlib>

void RequireGetOrSet(int argc, const char *program, const char *place, const char *value)
{
    if (argc == 3 || argc == 4) {
        return;
    }
    std::puts("Usage : ");
    std::printf("    GET : %s  %s \n", program, place);
    std::printf("    SET : %s  %s  %s \n", program, place, value);
    std::exit(0); // deliberately no error: no call of these tools is
}
