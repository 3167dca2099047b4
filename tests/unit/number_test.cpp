#include "util/number.h"

#include <gtest/gtest.h>

TEST(Number, IsDigitsOnlyOrTheBeginningOfAText)
{
    EXPECT_EQ(CUTIL_ParseDecimal(nullptr), -1);
    const std::tuple<const char *, int32_t, int32_t, uint32_t> cases[] = {
        {"", 0, 0, 0},
        {"0", 0, 0, 0},
        {"007", 7, 7, 7},
        {"010", 10, 10, 8},
        {"2147483647", 2147483647, 2147483647, 2147483647},
        {"4294967294", -1, 2147483647, 4294967294},
        {"99999999999", -1, 2147483647, 4294967295},
        {"-5", -1, -5, 4294967291},
        {"-4294967296", -1, -2147483647 - 1, 4294967295},
        {"+1", -1, 1, 1},
        {" 80", -1, 80, 80},
        {"80;", -1, 80, 80},
        {"12a", -1, 12, 12},
        {"1/", -1, 1, 1},
        {"x1", -1, 0, 0},
        {"0x1aB", -1, 0, 427},
        {"-0b11", -1, 0, 0},
        {"\n0b11", -1, 0, 0},
        {"\r 0x1f", -1, 0, 31},
        {"0x100000012", -1, 0, 4294967295},
    };
    for (const auto &[text, decimal, leading, in_any_base] : cases) {
        EXPECT_EQ(CUTIL_ParseDecimal(text), decimal) << text;
        EXPECT_EQ(ParseLeadingInteger(text), leading) << text;
        EXPECT_EQ(ParseLeadingUnsigned(text), in_any_base) << text;
    }
}
