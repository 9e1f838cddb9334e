#include "core/filesearch.h"

#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "core/closers.h"
#include "core/paths.h"
#include "core/trouble.h"

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

// Why a call failed is kept when it is the agent's own trouble: then the search is over.
bool Failed(TSearchRec& rec, int error) {
  if (OwnTrouble(error)) rec.Trouble = error;
  return false;
}

bool Examine(TSearchRec& rec, const char* name, struct stat& status) {
  const int folder = dirfd(rec.DirHandle);
  if (Uninterrupted([&] { return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); }) == 0) return true;
  return Failed(rec, errno);
}

bool FetchStat(TSearchRec& rec, const char* name) {
  struct stat status;
  if (!Examine(rec, name, status)) return false;
  rec.Attr = (rec.Attr & ~kTypeBits) | TypeBits(status.st_mode);
  rec.Mode = status.st_mode;
  rec.Size = status.st_size;
  rec.Time = status.st_mtime;
  rec.Known |= kNeedStat;
  return true;
}

bool FetchAccess(TSearchRec& rec, const char* name) {
  const int folder = dirfd(rec.DirHandle);
  if (Uninterrupted([&] { return faccessat(folder, name, W_OK, 0); }) != 0) {
    if (errno == ENOENT || OwnTrouble(errno)) return Failed(rec, errno);
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
bool EntriesExaminable(TSearchRec& rec) {
  struct stat status;
  return (rec.Needs & kNeedStat) || Examine(rec, ".", status);
}

// The next entry, or null.  A folder that is removed or locked up while it is read ends there; any other read error
// means that entries are missing, and nobody knows how many.
const dirent* NextEntry(TSearchRec& rec) {
  do {
    errno = 0;
    // readdir is safe here: each stream belongs to one search.
    if (const dirent* entry = readdir(rec.DirHandle)) return entry;
  } while (errno == EINTR);
  constexpr int kEnds[] = {0, ENOENT, ENOTDIR, ESTALE, EACCES, EPERM};
  if (std::find(std::begin(kEnds), std::end(kEnds), errno) == std::end(kEnds)) rec.Trouble = errno;
  return nullptr;
}

// The stream of the folder `name` in `folder`; null with errno set.
DIR* OpenFolder(int folder, const char* name, int flags) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
  TFd opened(Uninterrupted([&] { return openat(folder, name, kFlags | flags); }));
  DIR* stream = opened.IsOpen() ? fdopendir(opened.Get()) : nullptr;
  if (stream) (void)opened.Release();  // the stream's from here on
  return stream;
}

int StartSearch(DIR* handle, const String& mask, int attr, unsigned needs, TSearchRec& rec) {
  const int error = handle ? 0 : errno;
  rec.DirHandle = handle;
  rec.Trouble = OwnTrouble(error) ? error : 0;
  if (error != 0) return error;
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
  rec.DirPath = dir.Length() > 0 ? dir : GetCurrentDir();  // which may be gone
  if (rec.DirPath.Length() == 0) return StartSearch(nullptr, mask, attr, needs, rec);
  rec.DirPath = IncludeTrailingPathDelimiter(rec.DirPath);
  return StartSearch(OpenFolder(AT_FDCWD, rec.DirPath.CStr(), 0), mask, attr, needs, rec);
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
  return StartSearch(OpenFolder(folder, name, O_NOFOLLOW), mask, attr, needs, rec);
}

int FindMatchingFile(TSearchRec& rec) {
  if (!rec.DirHandle) return -1;
  while (rec.Trouble == 0) {
    const dirent* entry = NextEntry(rec);
    if (!entry) break;
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
