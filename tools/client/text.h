// Values as people read them.  No I/O; any thread.
#pragma once

#include <string>
#include <vector>

#include "core/zostring.h"

// From and to the agent's own strings.
std::string Bytes(const String& s);
String ToString(const std::string& s);

// Bytes that a terminal would act on come out as "\xNN", "\n", "\t"; well-formed UTF-8 stays, broken UTF-8 does
// not.
std::string Visible(const std::string& text);

std::string SizeText(long long bytes);        // "93.7 GiB", below 1 KiB "512 bytes"
std::string DurationText(long long seconds);  // "3 d 4 h", "12 min", "0 s"
std::string NumberText(long long number);     // "1,234,567"
std::string MillisecondsText(double ms);      // "1.3 ms", "4.20 s"

// Width on a terminal, counted in code points.
size_t Width(const std::string& text);
bool IsUtf8(const std::string& text);
std::string Base64(const std::string& bytes);
std::string Padded(const std::string& text, size_t width, bool right = false);

// Reads digits with an optional '-' in front; blanks around them are allowed.  False for anything else.
bool ParseNumber(const std::string& text, long long& number);
bool ParseSeconds(const std::string& text, double& seconds);  // "2", "0.5", "5m", "2h"; at most a day
// Digits, and one of the units or none; `units` is "k1024 M1048576", say.
bool ParseScaled(const std::string& text, const std::string& units, long long& number);
bool ParsePort(const std::string& text, int& port);  // 1 to 65535
// ddmmyyyyhhmmss as "yyyy-mm-dd hh:mm:ss"; false for anything else.
bool ParseWhen(const std::string& digits, std::string& iso);

std::string Trimmed(const std::string& text);  // without blanks, tabs and line ends at the ends
std::string Lower(std::string text);
// The candidate that `text` is probably a misspelling of; empty when none is near.
std::string Nearest(const std::string& text, const std::vector<std::string>& candidates);
