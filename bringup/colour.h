// Colours of the console.
#pragma once

constexpr const char *kRed = "\033[1;31m";
constexpr const char *kGreen = "\033[1;32m";
/// Ends the line and goes back to the console's own colour.
constexpr const char *kEndColour = "\n\033[0;39m";
