#include "agent/daemon.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "agent/signals.h"
#include "core/exitstatus.h"

namespace {

// Without /dev/null something that can neither be read nor written.
int OpenNull(int how) {
  const int fd = open("/dev/null", how);
  return fd >= 0 ? fd : open("/", O_RDONLY | O_DIRECTORY);
}

// REQUIRES: the descriptors below it are open.
void ReopenOnNull(int stream, int how) {
  close(stream);
  (void)OpenNull(how);  // the lowest that is free, and without need of another
}

void CloseInherited() {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 3U, ~0U, 0U) == 0) return;
#endif
  const long most = sysconf(_SC_OPEN_MAX);
  for (int fd = 3; fd < most; ++fd) close(fd);
}

}  // namespace

void OpenMissingStreams() {
  int fd;
  do {
    fd = OpenNull(O_RDWR);  // the lowest that is free
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

int daemon_init() {
  fflush(stdout);  // or both would print it
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child > 0) {
    printf("Daemon started\n");
    fflush(stdout);
    _exit(kExitDone);
  }
  setsid();
  ReopenOnNull(STDIN_FILENO, O_RDONLY);
  ReopenOnNull(STDOUT_FILENO, O_WRONLY);
  ReopenOnNull(STDERR_FILENO, O_WRONLY);
  CloseInherited();
  InstallReloadHandler();
  return 0;
}
