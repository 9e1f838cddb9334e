// Help that fits on a terminal.  No I/O.
#pragma once

#include <string>

// Breaks lines longer than `width` at blanks; what is broken off stands below the description that it belongs to.
std::string Wrapped(const std::string& text, size_t width);
