// Numbers in text.
#pragma once

#include <cstdint>

/// The value of a text that consists of the digits '0' to '9' only; an empty text is 0.
///
/// @return the value; -1 for a null text, for any other character (a sign included) and for a
///         value beyond 31 bits
int32_t CUTIL_ParseDecimal(const char *text);

/// The value of the number at the beginning of `text`, as atoi reads it: blanks and a sign may
/// stand before it, anything may follow, and a text without a number is 0. A value beyond 32 bits
/// becomes the nearest that fits.
int32_t ParseLeadingInteger(const char *text);

/// The unsigned number at the beginning of `text`: hexadecimal after "0x", octal after "0",
/// otherwise decimal. Blanks and a sign may stand before it ("-1" is the highest number), anything
/// may follow, and a text without a number is 0. A value beyond 32 bits becomes the highest number.
uint32_t ParseLeadingUnsigned(const char *text);
