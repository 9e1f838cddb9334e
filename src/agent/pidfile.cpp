#include "agent/pidfile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "agent/showmessage.h"
#include "core/writeall.h"

namespace {

constexpr mode_t kPidFileMode = 0644;
constexpr size_t kLongestPath = 4096;

// The pid file that this process has made; a fault reads them.
char heldPath[kLongestPath];
std::atomic<int> heldFile{-1};

// A lock of the open file, which stays whatever other descriptors of the file a session closes.  It and a lock of
// the plain kind, which other programs may use, exclude each other.
bool SetLock(int fd, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

bool IsAt(const char* path, int fd) {
  struct stat named, open;
  if (lstat(path, &named) != 0 || fstat(fd, &open) != 0) return false;
  return named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

bool WriteProcessId(int fd) {
  char text[24];
  const int length = snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  return ftruncate(fd, 0) == 0 && WriteAll(fd, text, length);
}

}  // namespace

void TPidFile::createpidfile(const String& path) {
  // Not truncated before the lock is held, and never through a link that somebody planted.
  const int how = O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
  file = TFd(open(path.CStr(), how, kPidFileMode));
  struct stat info;
  if (!file.IsOpen() || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink > 1) {
    file.Reset();
    showmessage("Failed to create pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
    return;
  }
  if (!SetLock(file.Get(), F_WRLCK)) {
    showmessage("Failed to lock pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
    file.Reset();
    return;
  }
  path.StrCpy(heldPath, sizeof heldPath);
  heldFile = file.Get();
  if (WriteProcessId(file.Get())) return;
  closepidfile();  // one without a process id would only mislead
  showmessage("Failed to create pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
}

void TPidFile::closepidfile() {
  RemovePidFile();
  heldFile = -1;
  file.Reset();
}

void RemovePidFile() {
  const int fd = heldFile;
  if (fd < 0) return;
  if (SetLock(fd, F_WRLCK) && IsAt(heldPath, fd)) (void)unlink(heldPath);
  (void)SetLock(fd, F_UNLCK);  // a child that is just being started still has the open file
}
