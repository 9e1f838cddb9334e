#include "agent/replace.h"

#include <errno.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "core/childstart.h"

void ReplaceProcess(const char* path, char** argv, char** envp) {
  // What is ignored stays ignored across the replacement, and the mask stays as well.
  for (const int ignored : {SIGPIPE, SIGXFSZ, SIGSEGV}) signal(ignored, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  (void)setrlimit(RLIMIT_NOFILE, &DescriptorLimitAtStart());

  // A child that another session is just starting holds this program's descriptors for an instant; a script that
  // was open for writing a moment ago counts as busy so long.
  for (int tries = 0; tries < 50; ++tries) {
    execve(path, argv, envp);
    if (errno != ETXTBSY) break;
    const timespec pause = {0, 10 * 1000 * 1000};
    nanosleep(&pause, nullptr);
  }
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}
