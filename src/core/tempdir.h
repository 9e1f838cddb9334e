// The temporary directory of this process, and the environment of the children it starts.
//
// The settings name the directory while other threads run, when setenv would pull the environment away under their
// feet; so it is published here, and children get an environment of their own with it.  Any thread may call.
//
// Files that are made there have names that others can guess, and fixed names among them.  Where others can write
// too they would only have to put folders at those names; so there the files lie in a folder of our own.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "core/zostring.h"

// From now on TMPDIR is `dir` for this process's temporary files and the children it starts; null: what the
// environment says again.
void SetTempDirectory(const char* dir);

// The directory set last, else the environment's TMPDIR, else its TMP; without a trailing slash added.  False
// when none is set.
bool TempDirectory(String& dir);

// True when somebody but this user and root can make, remove or exchange files in the folder.  An access list shows
// in the group's bits.  Safe in signal handlers.
bool OthersMayWrite(const struct stat& folder);

// The folder for the temporary files of directory `dir`, without a trailing slash: `dir` itself, or, where others
// may write, a folder of this user's in it that is entered by nobody else: "tav-" and the user's number, made when
// it is absent, or while something else bears that name one with a random ending, which is kept for this process.
// RemoveTempFiles() removes it.  Where none can be had it is a place in which nothing can be made, so that whoever
// creates a file fails in his usual way.  Any thread may call; each time the folder is looked at anew.
String SafeTempFolder(const String& dir);

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
