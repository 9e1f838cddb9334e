// A sample of the agent's configuration file.
#pragma once

#include <string>

#include "client/failures.h"
#include "core/zostring.h"

// Where things are on this host, as the sample names them.
struct TPlaces {
  std::string program, scripts;  // the agent, and the folder of its helper scripts; empty: there are none
  std::string tmpdir, logs;      // folders that exist and that nobody else can write to
  std::string pidfile;
};

// Looks for program and scripts beside this program, unless `tavpath` names the one; makes the folders, in
// /var/lib/tav and /var/log/tav where those are the caller's own, else in FILE.d beside the new file.
bool FindPlaces(const std::string& file, const std::string& tavpath, TPlaces& places, TFailure& failure);

// The text, with every key of the agent's table in it.  It holds the password: wipe it.
std::string SampleConfig(const String& password, const TPlaces& places);

// 24 letters and digits from the system's random source: more than 140 bits.
bool RandomPassword(String& password, TFailure& failure);
