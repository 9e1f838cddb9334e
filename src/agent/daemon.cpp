#include "agent/daemon.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "agent/showmessage.h"
#include "agent/signals.h"

namespace {

constexpr mode_t kPidFileMode = 0644;

void CloseInherited() {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 3U, ~0U, 0U) == 0) return;
#endif
  const long most = sysconf(_SC_OPEN_MAX);
  for (int fd = 3; fd < most; ++fd) close(fd);
}

}  // namespace

int daemon_init() {
  fflush(stdout);  // or both would print it
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child > 0) {
    printf("Daemon started\n");
    fflush(stdout);
    _exit(0);
  }
  setsid();
  if (freopen("/dev/null", "r", stdin) == nullptr || freopen("/dev/null", "w", stdout) == nullptr ||
      freopen("/dev/null", "w", stderr) == nullptr) {
    // Without /dev/null the streams are closed, which silences them as well.
  }
  CloseInherited();
  InstallReloadHandler();
  return 0;
}

void TPidFile::createpidfile(const String& wanted) {
  path = wanted;
  // Not truncated before the lock is held, and never through a link that somebody planted.
  const int how = O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
  file = TFd(open(path.CStr(), how, kPidFileMode));
  struct stat info;
  if (!file.IsOpen() || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink > 1) {
    file.Reset();
    showmessage("Failed to create pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
    return;
  }
  if (!KeepLocked()) {
    showmessage("Failed to lock pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
    file.Reset();
    return;
  }
  char text[24];
  const int length = snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  if (ftruncate(file.Get(), 0) != 0 || write(file.Get(), text, static_cast<size_t>(length)) != length) {
    showmessage("Failed to create pid file %s\n", kNoPeer, mtFailure, 1, path.CStr());
    file.Reset();
  }
}

bool TPidFile::KeepLocked() {
  if (!file.IsOpen()) return true;
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file.Get(), F_SETLK, &lock) == 0;
}

void TPidFile::closepidfile() {
  if (!file.IsOpen()) return;
  if (KeepLocked()) (void)unlink(path.CStr());  // else it is another instance's by now
  file.Reset();
}
