// A walk over a folder and its subfolders, of any depth and with any length of path.
//
// A folder is read to its end before any of its subfolders is entered.  The walk keeps its own stack, at most
// kWalkDescriptors directories open, and the names of the subfolders still to be entered in memory.  Links are
// neither shown nor followed, only `root` itself may be one.  Walks on different threads share nothing.
#pragma once

#include <functional>

#include "core/filesearch.h"
#include "core/zostring.h"

inline constexpr int kWalkDescriptors = 32;

// What becomes of an entry.  Only folders other than "." and ".." are entered; for others both answers mean the
// same.
enum TWalkStep {
  kWalkPast,
  kWalkInto,
  kWalkOnlyInto,  // enter this one and nothing else of its folder, the rest of which is not shown
};

struct TTreeVisitor {
  // Sees what a search for "*" with AttrAnyFile returns, "." and ".." included; `depth` is 0 in the root.  The
  // record knows its name and type only: CompleteRecord and SearchReturns fetch more.  It lasts for the call.
  std::function<TWalkStep(TSearchRec& entry, int depth)> entry;
  // Follows the last entry of a folder, before its subfolders; false leaves them all out.  Not called for a folder
  // that can't be listed.
  std::function<bool(int depth)> folderEnd;
};

enum TWalkEnd {
  kWalkDone,
  kWalkNotListed,  // `root` can't be listed; a subfolder that can't be adds nothing
  kWalkTrouble,    // broken off, as a search is by its Trouble: what was shown is not all
};

// Walks from `root` (empty: the current directory).
TWalkEnd WalkTree(const String& root, const TTreeVisitor& visitor);
