// Fills in the marks of a command line's template.
#pragma once

#include "core/zostring.h"

// What a template may have marks for, in any letter case.
inline constexpr char kScriptMark[] = "%script%";
inline constexpr char kParamsMark[] = "%params%";

// The template with every script mark replaced by `script` and then every params mark by `params`, as two
// ReplaceAll() do it; a params mark in `script` counts.  `script` is a path of this agent's.
// No longer than SplitCommandLine() has use for, which makes the same arguments of it as of the whole: a template
// of forty thousand marks with parameters of 100 KB would be 4 GB.  Memory: the template and 2 MB.
String ExpandCommandLine(const String& line, const char* script, const char* params);
