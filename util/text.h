// Comparing texts.
#pragma once

#include <string_view>

/// Tells whether `text` begins with `beginning`, as every text begins with the empty one.
inline bool BeginsWith(std::string_view text, std::string_view beginning)
{
    return text.starts_with(beginning);
}
