// The count test: files of a folder that match a mask and a condition, or its subfolders.
//
// Everything here works on its arguments alone; any number of threads may be in here at once.
#pragma once

#include "core/zostring.h"
#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

enum TCountFilesMode : int {
  AllFiles,
  OlderThan,  // the limit is an age in whole minutes
  NewerThan,
  BiggerThan,  // the limit is a size in bytes
  SmallerThan,
  SubFolders,  // counts subfolders instead of files
};

inline constexpr const char* CountFilesModeName[] = {"AllFiles",   "OlderThan",   "NewerThan",
                                                     "BiggerThan", "SmallerThan", "SubFolders"};

// Whole minutes since 1970, truncated toward zero.
long sec2min(long seconds);
long now_min();

// Counts in `folder` and, with `subfolders`, in the folders below it, whatever their names; those that are hidden
// or not writable are not entered.  Returns -1 when the folder cannot be listed.  So it does when a search for
// folders returns none of its entries, not even "." (a read-only file system), and either `subfolders` is set or
// nothing matches the mask; a subfolder with that outcome adds nothing.  -1 too when trouble of the agent's own or
// a read error leaves the count unknown.  Blocks on the file system; any depth.
int CountFiles(const String& folder, const String& mask, int subfolders, TCountFilesMode mode, int limit);

void ProcessTest_CountFiles(const BVRequest& request, TAVReply& reply);
