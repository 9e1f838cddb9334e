#include "agent/replace.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/childstart.h"
#include "core/clock.h"
#include "core/closers.h"

namespace {

constexpr int kBusyAttempts = 50;
constexpr long long kBusyPauseUs = 10 * 1000;

// With the limit that this process began with.  Returns only when it failed.
void Execute(const char* path, char** argv, char** envp) {
  rlimit raised;
  const bool known = getrlimit(RLIMIT_NOFILE, &raised) == 0;
  (void)setrlimit(RLIMIT_NOFILE, &DescriptorLimitAtStart());
  execve(path, argv, envp);
  const int reason = errno;
  if (known) (void)setrlimit(RLIMIT_NOFILE, &raised);
  errno = reason;
}

}  // namespace

bool CanStart(const char* path) {
  struct stat info;
  if (stat(path, &info) != 0 || !S_ISREG(info.st_mode)) return false;
  if (faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) != 0) return false;
  const TFd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file.IsOpen()) return errno == EACCES;  // a program need not be readable
  char head[4] = "";
  if (read(file.Get(), head, sizeof head) != static_cast<ssize_t>(sizeof head)) return false;
  return memcmp(head, "\177ELF", 4) == 0 || memcmp(head, "#!", 2) == 0;
}

void ReplaceProcess(const char* path, char** argv, char** envp) {
  // The actions need nothing: this process catches signals and ignores none (agent/signals.h), and what is caught
  // is at its default in the new program.
  sigset_t none, before;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, &before);

  // A child that another session is just starting holds this program's descriptors for an instant; a script that
  // was open for writing a moment ago counts as busy so long.
  for (int attempt = 0; attempt < kBusyAttempts; ++attempt) {
    Execute(path, argv, envp);
    if (errno != ETXTBSY) break;
    SleepUs(kBusyPauseUs);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
