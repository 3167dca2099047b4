#include "util/number.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

int32_t CUTIL_ParseDecimal(const char *text)
{
    if (text == nullptr) {
        return -1;
    }
    int64_t value = 0;
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9') {
            return -1;
        }
        value = value * 10 + (*text - '0');
        if (value > std::numeric_limits<int32_t>::max()) {
            return -1;
        }
    }
    return static_cast<int32_t>(value);
}

int32_t ParseLeadingInteger(const char *text)
{
    constexpr long long kLowest = std::numeric_limits<int32_t>::min();
    constexpr long long kHighest = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::clamp(std::strtoll(text, nullptr, 10), kLowest, kHighest));
}

uint32_t ParseLeadingUnsigned(const char *text)
{
    constexpr long long kHighest = std::numeric_limits<uint32_t>::max();
    const char *digits = text + std::strspn(text, " \t\n\v\f\r+-");
    // With base 0 newer C libraries read "0b11" as a binary number.
    int base = 10;
    if (digits[0] == '0') {
        base = digits[1] == 'x' || digits[1] == 'X' ? 16 : 8;
    }
    const long long value = std::strtoll(text, nullptr, base);
    return static_cast<uint32_t>(value < -kHighest || value > kHighest ? kHighest : value);
}
