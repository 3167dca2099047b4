#include "util/number.h"

#include <gtest/gtest.h>

TEST(Number, IsDigitsOnlyOrTheBeginningOfAText)
{
    EXPECT_EQ(CUTIL_ParseDecimal(nullptr), -1);
    const std::tuple<const char *, int32_t, int32_t> cases[] = {
        {"", 0, 0},      {"0", 0, 0},     {"007", 7, 7},   {"2147483647", 2147483647, 2147483647},
        {"-5", -1, -5},  {"+1", -1, 1},   {" 80", -1, 80}, {"99999999999", -1, 2147483647},
        {"80;", -1, 80}, {"12a", -1, 12}, {"1/", -1, 1},   {"x1", -1, 0},
    };
    for (const auto &[text, decimal, leading] : cases) {
        EXPECT_EQ(CUTIL_ParseDecimal(text), decimal) << text;
        EXPECT_EQ(ParseLeadingInteger(text), leading) << text;
    }
}
