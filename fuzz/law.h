// What the fuzz targets share: the parts of an input, and the end of a run when a law does not hold.
#pragma once

#include <string.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "tests/scratch.h"

void Check(std::string input);  // a target's laws over one input

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Check(std::string(data, data + size));
  return 0;
}

inline void Require(bool lawHolds) {
  if (!lawHolds) abort();
}

// Takes what stands before the first `end` off the front, and the end with it; everything when there is none.
inline std::string Cut(std::string& text, char end) {
  const std::string part = text.substr(0, text.find(end));
  text.erase(0, part.size() + 1);
  return part;
}

// A private folder, in memory where the system has such; gone with the object.
struct TScratch {
  TScratch() { path = mkdtemp((path + "/tav_fuzz_XXXXXX").data()); }
  ~TScratch() { std::filesystem::remove_all(path); }
  std::string path = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
};
