// Comparing texts.
#pragma once

#include <algorithm>
#include <string_view>

/// Tells whether `text` begins with `beginning`; every text begins with an empty one. Unlike
/// string_view's starts_with, it needs no C++ library when compiled without optimization.
inline bool BeginsWith(std::string_view text, std::string_view beginning)
{
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin());
}
