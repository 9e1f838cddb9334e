// The temporary directory of this process, and the environment of the children it starts.
//
// The settings name the directory while other threads run, when setenv would pull the environment away under their
// feet; so it is published here, and children get an environment of their own with it.  Any thread may call.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/zostring.h"

// From now on TMPDIR is `dir` for this process's temporary files and the children it starts; null: what the
// environment says again.
void SetTempDirectory(const char* dir);

// The directory set last, else the environment's TMPDIR, else its TMP; without a trailing slash added, and
// null-terminated.  False when none is set.
bool TempDirectory(String& dir);

// The process's environment with TMPDIR replaced.  Never changes once made.
class TChildEnvironment {
 public:
  explicit TChildEnvironment(const char* tmpdir);  // null: as it stands
  TChildEnvironment(const TChildEnvironment&) = delete;
  TChildEnvironment& operator=(const TChildEnvironment&) = delete;

  // For exec: closed by a null pointer, and valid as long as the object.
  char* const* Entries() const { return entries.data(); }

 private:
  std::string assignment;  // "TMPDIR=..."
  std::vector<char*> entries;
};

// What a child started now gets.  Never null; to be held until the child runs.
std::shared_ptr<const TChildEnvironment> ChildEnvironment();
