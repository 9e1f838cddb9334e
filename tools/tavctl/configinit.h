// A sample of the agent's configuration file.
#pragma once

#include <string>

#include "client/failures.h"
#include "core/zostring.h"

// The text, with every key of the agent's table in it.  It holds the password: wipe it.
std::string SampleConfig(const String& password, const std::string& tavpath);

// 24 letters and digits from the system's random source: more than 140 bits.
bool RandomPassword(String& password, TFailure& failure);
