#include "util/error_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

// This library's words are the ones that the board's logs have always had.
TEST(ErrorText, IsThatOfTheLibraryOfTheTests)
{
    for (int error = -1; error < 140; ++error) {
        const std::string text =
            ErrorText(error); // the next call may end that of an unknown number
        EXPECT_EQ(text, strerror(error));
    }
}
