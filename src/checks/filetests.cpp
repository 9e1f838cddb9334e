#include "checks/filetests.h"

#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <memory>

#include "core/clock.h"
#include "core/filemacros.h"
#include "core/filesearch.h"
#include "core/inputfile.h"
#include "core/paths.h"
#include "core/treewalk.h"
#include "core/trouble.h"
#include "protocol/ciplib.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

// The servers know a file's checksum as a sum over blocks of this size, of which the last must be a short one.
constexpr long long kChecksumBlock = 2048;
constexpr size_t kReadSize = 128 * 1024;  // large reads: the file goes by at the speed of the checksum

// A file system may claim more bytes than a number can hold.
long long Bytes(unsigned long long blocks, long long blockSize) {
  return static_cast<long long>(blocks * static_cast<unsigned long long>(blockSize));
}

bool HasWildcards(const String& mask) {
  for (int i = 1; i <= mask.Length(); i++)
    if (IsDelimiter("*?[\\", mask, i)) return true;
  return false;
}

bool NamesSomething(const String& path) {
  struct stat status;
  return lstat(path.CStr(), &status) == 0;
}

// Outcomes that are no size.
constexpr long long kNotListed = -1;
constexpr long long kTrouble = -2;  // the agent's own: nothing is known of the size

void Add(long long& sum, long long size) {
  if (__builtin_add_overflow(sum, size, &sum)) sum = LLONG_MAX;
}

// Sums the sizes of a tree's files that match a mask.
//
// In a subfolder the mask may also be the name of a folder: then that folder counts with everything in it, as if it
// alone had been asked for, and the rest of the subfolder does not.  A link to a folder is no entry of any search,
// so one that is named like the mask is neither summed nor keeps the rest from being so.
class TSizeSum {
 public:
  TSizeSum(const String& fileMask, int isRecursive) : mask(fileMask), recursive(isRecursive) {}

  long long Run(const String& folder) {
    const TTreeVisitor visitor = {[this](TSearchRec& entry, int depth) { return Weigh(entry, depth); },
                                  [this](int) { return AddFolder(); }};
    const TWalkEnd end = WalkTree(folder, visitor);
    if (end == kWalkTrouble) return kTrouble;
    return end == kWalkDone ? total : kNotListed;
  }

 private:
  TWalkStep Weigh(TSearchRec& entry, int depth) {
    if (depth < named) named = kNowhere;
    if (depth < allFrom) allFrom = kNowhere;  // the walk has left the folder that counts whole
    String& wanted = depth < allFrom ? mask : all;
    if (entry.Attr & AttrDirectory) return WeighFolder(entry, wanted, depth);
    if (NameMatches(wanted, entry.Name) && CompleteRecord(entry, kNeedStat)) Add(folderSum, entry.Size);
    return kWalkPast;
  }

  TWalkStep WeighFolder(const TSearchRec& entry, const String& wanted, int depth) {
    if (!recursive) return kWalkPast;
    if (depth == named || wanted != entry.Name) return kWalkInto;
    folderSum = 0;
    named = depth + 1;
    if (allFrom == kNowhere) allFrom = named;
    return kWalkOnlyInto;
  }

  bool AddFolder() {
    Add(total, folderSum);
    folderSum = 0;
    return true;
  }

  static constexpr int kNowhere = INT_MAX;

  String all = "*";
  String mask;
  const int recursive;
  int allFrom = kNowhere;  // from this depth on every file counts
  int named = 0;  // the depth of the folder that was asked for by name: its own entries are taken as they are
  long long folderSum = 0;  // of the folder being read
  long long total = 0;
};

long long SizeOf(const String& path, int recursive);

// A wildcard without a folder part is looked up in the current directory, but from there on the path is made of
// what it has: the subfolders' names are taken from "/".
long long SumFromRoot(const String& mask) {
  long long total = 0;
  TSearchRec rec;
  TSearchGuard guard(rec);
  for (int found = FindFirst("", "*", AttrAnyFile, 0, rec); found == 0; found = FindNext(rec)) {
    if (!(rec.Attr & AttrDirectory) || strcmp(rec.Name, ".") == 0 || strcmp(rec.Name, "..") == 0) continue;
    const long long size = SizeOf(String("/") + rec.Name + "/" + mask, 1);
    if (size == kTrouble) return size;
    if (size > 0) Add(total, size);
  }
  return rec.Trouble ? kTrouble : total;
}

// The size, or why there is none.
long long SizeOf(const String& path, int recursive) {
  if (DirectoryExists(path.CStr())) return TSizeSum("*", recursive).Run(path);
  if (OwnTrouble(errno)) return kTrouble;

  const String mask = ExtractFileName(path);
  const String folder = ExtractFilePath(path);
  if (!recursive && !HasWildcards(mask) && !NamesSomething(path)) return kNotListed;
  if (!recursive || folder.Length() > 0) return TSizeSum(mask, recursive).Run(folder);

  const long long own = TSizeSum(mask, 0).Run(folder);
  if (own < 0) return own;
  long long total = SumFromRoot(mask);
  if (total >= 0) Add(total, own);
  return total;
}

// Feeds the file to the checksum; the bytes read, -1 on a read error.
long long ReadThrough(TInputFile& file, TCRC32& crc) {
  const std::unique_ptr<char[]> buffer(new char[kReadSize]);
  for (long long total = 0;;) {
    const long long n = file.Read(buffer.get(), kReadSize);
    if (n < 0) return -1;
    crc.UpdateCRC(buffer.get(), static_cast<int>(n));
    total += n;
    if (n < static_cast<long long>(kReadSize)) return total;
  }
}

// The file's facts; a name that is no file's is taken for a wildcard and becomes the first match's name.
bool FindFileInfo(String& name, long long& size, long& ctime, long& mtime) {
  if (GetFileInfo(name.CStr(), size, ctime, mtime)) return true;
  if (OwnTrouble(errno)) return false;
  const String match = GetFirstMatchedFile(name);
  if (match.Length() == 0) return false;
  name = match;
  return GetFileInfo(name.CStr(), size, ctime, mtime);
}

int MinutesSince(long long mtime) {
  long long seconds = 0;
  if (__builtin_sub_overflow(static_cast<long long>(time(nullptr)), mtime, &seconds)) return 0;
  return static_cast<int>(seconds / 60);
}

}  // namespace

bool GetUNCDriveInfo(const char* path, long long& total, long long& free, long long& avail) {
  struct statfs info;
  if (Uninterrupted([&] { return statfs(path, &info); }) != 0) return false;
  total = Bytes(info.f_blocks, info.f_bsize);
  free = Bytes(info.f_bfree, info.f_bsize);
  avail = Bytes(info.f_bavail, info.f_bsize);
  return true;
}

long long GetFolderSize(const String& path, int recursive) {
  return std::max(SizeOf(path, recursive), -1LL);
}

bool GetFileInfo(const char* name, long long& size, long& ctime, long& mtime) {
  struct stat status;
  if (Uninterrupted([&] { return lstat(name ? name : "", &status); }) != 0) return false;
  size = status.st_size;
  ctime = status.st_ctime;
  mtime = status.st_mtime;
  return true;
}

bool GetFileCRC(const char* path, unsigned int* crc, String& error) {
  const auto fail = [&error](const char* text) {
    error = text;
    return false;
  };
  if (!path || !*path) return fail("File is not specified");
  TInputFile file;
  if (!file.Open(path)) return fail("Cannot open file");
  TCRC32 sum;
  const long long total = ReadThrough(file, sum);
  // Block by block the last read of such a file brings nothing, and the servers take that for an error.
  if (total < 0 || total % kChecksumBlock == 0) return fail("Read error");
  *crc = sum.GetCRC();
  return true;
}

void ProcessTest_UNC(const BVRequest& request, TAVReply& reply) {
  // The path may come in a form written for a network share.
  String path = ReadText(request, params::path::kPath);
  if (path.Length() > 0 && path[path.Length()] == '\\') path.Delete(path.Length(), 1);
  if (path.Length() == 0) return Answer(reply, kWrongParameter, "Path not specified");

  long long total = 0, free = 0, avail = 0;
  const long long startUs = MonotonicUs();
  if (!GetUNCDriveInfo(path.CStr(), total, free, avail)) {
    reply.SetResult(kNotExamined);  // the servers expect no text here
    return;
  }
  const int elapsedMs = ReportedMs(startUs, MonotonicUs());
  reply.SetResult(kDone);
  reply.AddIntParam(total);
  reply.AddIntParam(free);
  reply.AddIntParam(avail);
  reply.AddIntParam(elapsedMs);
}

void ProcessTest_FolderSize(const BVRequest& request, TAVReply& reply) {
  namespace at = params::folder_size;
  String folder = ReadText(request, at::kFolder);
  const bool resolved = !ReadFlag(request, at::kMacros) || ResolveFileMacros(folder);
  const long long size = resolved ? GetFolderSize(folder, ReadFlag(request, at::kRecursive)) : -1;
  if (size < 0) return Answer(reply, kNotExamined, "Folder/File doesn`t exist or access denied");

  reply.SetResult(kDone);
  reply.AddIntParam(size);
}

void ProcessTest_FileExists(const BVRequest& request, TAVReply& reply) {
  namespace at = params::file_exists;
  String name = ReadText(request, at::kFile);
  const bool resolved = !ReadFlag(request, at::kMacros) || ResolveFileMacros(name);
  long long size = 0;
  long ctime = 0, mtime = 0;
  if (!resolved || !FindFileInfo(name, size, ctime, mtime))
    return Answer(reply, kNotExamined, "no such file or acess denied");

  reply.SetResult(kDone);
  reply.AddIntParam(size);
  reply.AddTimeParam(time_t{ctime});
  reply.AddTimeParam(time_t{mtime});
  reply.AddStringParam(name, 0);
  reply.AddStringParam("min", 0);
  reply.AddIntParam(MinutesSince(mtime));
}

void ProcessTest_FileCRC(const BVRequest& request, TAVReply& reply) {
  const String path = ReadText(request, params::path::kPath);
  String error;
  unsigned int crc = 0;
  if (!GetFileCRC(path.CStr(), &crc, error)) return Answer(reply, kNotExamined, error);

  reply.SetResult(kDone);
  reply.AddIntParam(static_cast<long long>(crc));
}
