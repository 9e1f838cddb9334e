#include "config/replacement.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "core/paths.h"
#include "core/tempfile.h"
#include "core/writeall.h"

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

// Gives the new file the old one's owner, access list and mode.  What cannot be carried over closes the file to the
// group, whose bits would mean somebody else then.
void CopyRights(const TInputFile& old, int file) {
  struct stat status;
  if (fstat(old.Descriptor(), &status) != 0) return;
  mode_t mode = status.st_mode & 0777;
  if (fchown(file, status.st_uid, status.st_gid) != 0) mode &= ~static_cast<mode_t>(S_IRWXG);

  char list[4096];
  const ssize_t n = fgetxattr(old.Descriptor(), kAccessList, list, sizeof list);
  const bool unread = n < 0 && errno == ERANGE;
  if (unread || (n > 0 && fsetxattr(file, kAccessList, list, static_cast<size_t>(n), 0) != 0)) {
    mode &= ~static_cast<mode_t>(S_IRWXG);
  }
  (void)fchmod(file, mode);  // stays 0600 else
}

// The name of what is to become ".Old", until it is whole.  It is cut where a file name has no room for both
// endings.
String AsideName(const String& path) {
  constexpr char ending[] = ".Old.New";
  const String folder = ExtractFilePath(path);
  return folder + path.Copy(folder.Length() + 1, NAME_MAX + 1 - static_cast<int>(sizeof ending)) + ending;
}

// Makes the renames last; a file system that cannot do this has nothing better to offer.
void SyncFolderOf(const String& path) {
  String folder = ExtractFilePath(path);
  if (folder.Length() == 0) folder = ".";
  const TFd descriptor(open(folder.CStr(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.IsOpen()) (void)fsync(descriptor.Get());
}

}  // namespace

TReplacement::TReplacement(const char* name) : path(name), newName(path + ".New") {}

TReplacement::~TReplacement() {
  if (unfinished) (void)unlink(newName.CStr());
  explicit_bzero(buffer, sizeof buffer);
}

bool TReplacement::Create(const TInputFile& old) {
  file = CreatePrivateFile(newName.CStr(), 0600, O_WRONLY);
  unfinished = file.IsOpen();
  if (unfinished) CopyRights(old, file.Get());
  return unfinished;
}

bool TReplacement::Flush() {
  if (!failed) failed = !WriteAll(file.Get(), buffer, used);
  used = 0;
  return !failed;
}

void TReplacement::Write(const char* bytes, int n) {
  while (n > 0) {
    const int room = static_cast<int>(sizeof buffer) - used;
    const int part = n < room ? n : room;
    memcpy(buffer + used, bytes, static_cast<size_t>(part));
    used += part;
    bytes += part;
    n -= part;
    if (used == static_cast<int>(sizeof buffer) && !Flush()) return;
  }
}

bool TReplacement::Finish() {
  const bool whole = Flush() && fsync(file.Get()) == 0;
  return close(file.Release()) == 0 && whole;
}

// A second name for the old file, or a copy where there are none, then that moved over an older ".Old": the path is
// never without a file.
bool TReplacement::KeepOld(TInputFile& old) {
  const String kept = path + ".Old";
  TReplacement copy(kept.CStr());
  copy.newName = AsideName(path);
  const char* aside = copy.NewName().CStr();
  (void)unlink(aside);  // a crash may have left it
  if (link(path.CStr(), aside) != 0 && !copy.CopyFrom(old)) return false;

  const bool moved = rename(aside, kept.CStr()) == 0;
  (void)unlink(aside);  // still there when the move failed, or when ".Old" was this very file
  return moved;
}

bool TReplacement::CopyFrom(TInputFile& old) {
  if (!old.Seek(0) || !Create(old)) return false;
  char block[2048];
  long long n = 0;
  while ((n = old.Read(block, sizeof block)) > 0) Write(block, static_cast<int>(n));
  explicit_bzero(block, sizeof block);
  return n == 0 && Finish();
}

bool TReplacement::Install(TInputFile& old) {
  (void)KeepOld(old);  // the old content is given up rather than the new
  unfinished = false;  // what cannot be moved now is left beside the old file
  if (rename(newName.CStr(), path.CStr()) != 0) return false;
  SyncFolderOf(path);
  return true;
}
