// The search of one directory by wildcard mask and attribute bits.
//
//   TSearchRec rec;
//   TSearchGuard guard(rec);
//   for (int found = FindFirst(dir, "*", AttrAnyFile, rec); found == 0; found = FindNext(rec)) ...
//   if (rec.Trouble) ...  // what was found may not be all
//
// The attributes subtract: an entry is returned when every bit it has was asked for, so a plain writable file is
// returned by every search and a symbolic link by none.  Entries come in the directory's own order.  Each search
// belongs to one thread; any number may run at once.
#pragma once

#include <dirent.h>

#include "core/zostring.h"

inline constexpr int AttrReadOnly = 1;  // this process may not write to it
inline constexpr int AttrHidden = 2;    // the name begins with a dot and is neither "." nor ".."
inline constexpr int AttrSystem = 4;    // neither a directory nor a regular file
inline constexpr int AttrDirectory = 16;
inline constexpr int AttrAnyFile = 63;  // the widest request: everything but symbolic links
inline constexpr int AttrSymLink = 64;  // outside every request

// What a caller wants to know of each entry; what it does not need costs no system call.
inline constexpr unsigned kNeedStat = 1;    // Time, Size and Mode
inline constexpr unsigned kNeedAccess = 2;  // the bit AttrReadOnly
inline constexpr unsigned kNeedAll = kNeedStat | kNeedAccess;

// A running search and the entry it stands on.  A copy shares the stream; destruction does not close it.
struct TSearchRec {
  long long Time = 0;  // last modification, seconds since 1970
  long long Size = 0;  // bytes
  int Attr = 0;
  char Name[256] = "";  // without the directory
  unsigned Mode = 0;    // st_mode
  DIR* DirHandle = nullptr;
  int ExcludeAttr = 0;  // bits that reject an entry
  String DirPath;       // ends in "/"
  String Mask;
  unsigned Needs = kNeedAll;  // what FindNext fetches
  unsigned Known = 0;         // what is fetched for the current entry
  // Why the search is over before its end, an errno: the agent is short of descriptors or memory, or reading broke
  // off.  A folder or an entry that has gone, or may not be examined, is no trouble.
  int Trouble = 0;
};

// Starts a search in `dir` (empty: the current directory) and stands on the first match.  Returns 0; errno when the
// directory can't be opened; -1 when nothing matches.  The search is open only after 0.  After anything else
// Trouble tells whether the answer can be relied on.
int FindFirst(const String& dir, const String& mask, int attr, TSearchRec& rec);
int FindFirst(const char* pathAndMask, int attr, TSearchRec& rec);
// 0, or -1 at the end of the directory or in trouble.
int FindNext(TSearchRec& rec);
// Harmless on a closed search.
void FindClose(TSearchRec& rec);
// The step that both take: reads on until an entry is accepted.
int FindMatchingFile(TSearchRec& rec);

// The same search with records filled only as far as `needs` says; the type bits are always there.
int FindFirst(const String& dir, const String& mask, int attr, unsigned needs, TSearchRec& rec);
// The same for the subfolder `name` of an open directory, which is not entered through a link.
int FindFirstAt(int folder, const char* name, const String& mask, int attr, unsigned needs, TSearchRec& rec);
// Fetches for the current entry what is still unknown of `needs`.  False when the entry has gone or has changed
// into what the search does not return, or in trouble, which ends the search.
bool CompleteRecord(TSearchRec& rec, unsigned needs);
// Tells whether a search with these attributes would return the current entry too.
bool SearchReturns(TSearchRec& rec, int attr);
// The match of every search: case-sensitive, wildcards match a leading dot as well.
bool NameMatches(String& mask, const char* name);

class TSearchGuard {
 public:
  explicit TSearchGuard(TSearchRec& search) : rec(search) {}
  ~TSearchGuard() { FindClose(rec); }
  TSearchGuard(const TSearchGuard&) = delete;
  TSearchGuard& operator=(const TSearchGuard&) = delete;

 private:
  TSearchRec& rec;
};
