#include "core/filesearch.h"

#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/closers.h"
#include "core/paths.h"

namespace {

constexpr int kTypeBits = AttrSystem | AttrDirectory | AttrSymLink;

int HiddenBit(const char* name) {
  if (name[0] != '.' || strcmp(name, ".") == 0 || strcmp(name, "..") == 0) return 0;
  return AttrHidden;
}

int TypeBits(unsigned mode) {
  if (S_ISDIR(mode)) return AttrDirectory;
  if (S_ISREG(mode)) return 0;
  return S_ISLNK(mode) ? AttrSystem | AttrSymLink : AttrSystem;
}

// Every search rejects links, so whether one leads to a directory never has to be found out.
bool Rejected(const TSearchRec& rec) {
  return (rec.Attr & rec.ExcludeAttr) != 0;
}

bool FetchStat(TSearchRec& rec, const char* name) {
  struct stat status;
  if (fstatat(dirfd(rec.DirHandle), name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  rec.Attr = (rec.Attr & ~kTypeBits) | TypeBits(status.st_mode);
  rec.Mode = status.st_mode;
  rec.Size = status.st_size;
  rec.Time = status.st_mtime;
  rec.Known |= kNeedStat;
  return true;
}

bool FetchAccess(TSearchRec& rec, const char* name) {
  if (faccessat(dirfd(rec.DirHandle), name, W_OK, 0) != 0) {
    if (errno == ENOENT) return false;
    rec.Attr |= AttrReadOnly;
  }
  rec.Known |= kNeedAccess;
  return true;
}

bool Complete(TSearchRec& rec, const char* name, unsigned needs) {
  const unsigned missing = needs & ~rec.Known;
  if ((missing & kNeedStat) && (!FetchStat(rec, name) || Rejected(rec))) return false;
  return !(missing & kNeedAccess) || FetchAccess(rec, name);
}

// Fills the record for one entry, cheapest knowledge first, and tells whether the search accepts it.
bool Accept(TSearchRec& rec, const dirent* entry) {
  const char* name = entry->d_name;
  rec.Attr = HiddenBit(name);
  rec.Known = 0;
  rec.Time = rec.Size = 0;
  rec.Mode = 0;
  if (Rejected(rec)) return false;

  unsigned needs = rec.Needs;
  if (rec.ExcludeAttr & AttrReadOnly) needs |= kNeedAccess;
  if (entry->d_type == DT_UNKNOWN) {
    needs |= kNeedStat;
  } else {
    rec.Attr |= TypeBits(static_cast<unsigned>(DTTOIF(entry->d_type)));
    if (Rejected(rec)) return false;
  }
  if (!Complete(rec, name, needs) || Rejected(rec)) return false;

  const size_t length = strnlen(name, sizeof rec.Name - 1);
  memcpy(rec.Name, name, length);
  rec.Name[length] = '\0';
  return true;
}

// A folder that may be read but not searched yields nothing: none of its entries can be examined.  A search that
// examines each notices by itself.
bool EntriesExaminable(const TSearchRec& rec) {
  if (rec.Needs & kNeedStat) return true;
  struct stat status;
  return fstatat(dirfd(rec.DirHandle), ".", &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int StartSearch(DIR* handle, const String& mask, int attr, unsigned needs, TSearchRec& rec) {
  rec.DirHandle = handle;
  if (!handle) return errno;
  rec.ExcludeAttr = ~(attr & AttrAnyFile);
  rec.Mask = mask;
  rec.Needs = needs;
  if (EntriesExaminable(rec) && FindMatchingFile(rec) == 0) return 0;
  FindClose(rec);
  return -1;
}

}  // namespace

bool NameMatches(String& mask, const char* name) {
  if (mask.Length() == 1 && mask[1] == '*') return true;
  return fnmatch(mask.CStr(), name, 0) == 0;
}

int FindFirst(const String& dir, const String& mask, int attr, unsigned needs, TSearchRec& rec) {
  rec.DirPath = IncludeTrailingPathDelimiter(dir.Length() > 0 ? dir : GetCurrentDir());
  return StartSearch(opendir(rec.DirPath.CStr()), mask, attr, needs, rec);
}

int FindFirst(const String& dir, const String& mask, int attr, TSearchRec& rec) {
  return FindFirst(dir, mask, attr, kNeedAll, rec);
}

int FindFirst(const char* pathAndMask, int attr, TSearchRec& rec) {
  const String path(pathAndMask);
  return FindFirst(ExtractFilePath(path), ExtractFileName(path), attr, rec);
}

int FindFirstAt(int folder, const char* name, const String& mask, int attr, unsigned needs, TSearchRec& rec) {
  rec.DirPath = IncludeTrailingPathDelimiter(name);
  rec.DirHandle = nullptr;
  TFd opened(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!opened.IsOpen()) return errno;
  DIR* handle = fdopendir(opened.Get());
  if (handle) (void)opened.Release();  // the stream's from here on
  return StartSearch(handle, mask, attr, needs, rec);
}

int FindMatchingFile(TSearchRec& rec) {
  if (!rec.DirHandle) return -1;
  // readdir is safe here: each stream belongs to one search.
  while (const dirent* entry = readdir(rec.DirHandle)) {
    if (NameMatches(rec.Mask, entry->d_name) && Accept(rec, entry)) return 0;
  }
  return -1;
}

int FindNext(TSearchRec& rec) {
  return FindMatchingFile(rec);
}

void FindClose(TSearchRec& rec) {
  if (rec.DirHandle) closedir(rec.DirHandle);
  rec.DirHandle = nullptr;
}

bool CompleteRecord(TSearchRec& rec, unsigned needs) {
  return Complete(rec, rec.Name, needs);
}

bool SearchReturns(TSearchRec& rec, int attr) {
  const int exclude = ~(attr & AttrAnyFile);
  if (rec.Attr & exclude & ~AttrReadOnly) return false;
  if (!(exclude & AttrReadOnly)) return true;
  return CompleteRecord(rec, kNeedAccess) && !(rec.Attr & AttrReadOnly);
}
