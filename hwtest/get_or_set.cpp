#include "hwtest/get_or_set.h"

#include <cstdio>

bool CheckGetOrSet(int argc, const char *program, const char *place, const char *value)
{
    if (argc == 3 || argc == 4) {
        return true;
    }
    std::puts("Usage : ");
    std::printf("    GET : %s  %s \n", program, place);
    std::printf("    SET : %s  %s  %s \n", program, place, value);
    return false;
}
