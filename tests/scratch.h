// A folder for a test's files, and texts from and to the agent's own.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "core/zostring.h"

inline std::string Std(const String& s) {
  return s.Length() == 0 ? "" : std::string(s.Data(), static_cast<size_t>(s.Length()));
}

inline String Bytes(const std::string& s) {
  return String(s.data(), static_cast<int>(s.size()));
}

inline std::string ReadFile(const std::string& path) {
  return (std::stringstream() << std::ifstream(path, std::ios::binary).rdbuf()).str();
}

// At most so many bytes of the alphabet.
inline std::string RandomText(std::mt19937& random, unsigned most, const std::string& alphabet) {
  std::string s;
  for (auto n = random() % (most + 1); n > 0; n--) s += alphabet[random() % alphabet.size()];
  return s;
}

// Gone with the object, however deep it has become.
class TTree {
 public:
  explicit TTree(const std::string& in = "/tmp") : path(in + "/tav_tree_XXXXXX") {
    path = std::string(mkdtemp(path.data())) + "/";
  }
  ~TTree() { (void)!system(("rm -rf " + path).c_str()); }

  // Makes a file, or a folder when the name ends in "/"; an mtime of 0 leaves the time as it is.
  std::string Add(const std::string& file, const std::string& bytes = "", time_t mtime = 0) const {
    const std::string full = path + file;
    if (full.back() == '/') mkdir(full.c_str(), 0755);
    std::ofstream(full, std::ios::binary) << bytes;  // fails on a folder
    const timespec times[2] = {{mtime, 0}, {mtime, 0}};
    if (mtime != 0) utimensat(AT_FDCWD, full.c_str(), times, 0);
    return full;
  }

  std::string path;  // ends in "/"
};
