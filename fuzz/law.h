// What the fuzz targets share: the parts of an input, and the end of a run when a law does not hold.
#pragma once

#include <string.h>

#include <algorithm>
#include <map>
#include <vector>

#include "tests/scratch.h"

// The laws of a target over one input: by the target's name, for the fuzzer and for those who replay its seeds.
using TLaws = std::map<std::string, void (*)(std::string)>;

inline TLaws& AllLaws() {
  static TLaws laws;
  return laws;
}

#define TAV_LAWS(name)                                              \
  static void Check(std::string);                                   \
  static const bool added = AllLaws().emplace(#name, Check).second; \
  static void Check

inline std::string checked;  // what is told when a law does not hold

inline void Require(bool lawHolds) {
  if (lawHolds) return;
  fprintf(stderr, "A law does not hold for %s\n", checked.c_str());
  abort();
}

// Takes what stands before the first `end` off the front, and the end with it; everything when there is none.
inline std::string Cut(std::string& text, char end) {
  const std::string part = text.substr(0, text.find(end));
  text.erase(0, part.size() + 1);
  return part;
}

// A folder in memory where the system has such.
inline const std::string kFast = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
