#include "util/error_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

// This library's words are the ones that the board's logs have always had.
TEST(ErrorText, IsThatOfTheLibraryOfTheTests)
{
    for (int error = -1; error < 140; ++error) {
        const std::string text = ErrorText(error); // a copy: strerror reuses its buffer
        EXPECT_EQ(text, strerror(error));
    }
}
