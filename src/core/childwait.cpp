#include "core/childwait.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "core/clock.h"
#include "core/mutex.h"

namespace {

constexpr int kLongestStepMs = 50;
constexpr long long kLongestPollMs = 60 * 1000;

TMutex leftmutex;  // held for the list and calls that do not block
std::vector<pid_t> left GUARDED_BY(leftmutex);

int OpenPidfd(pid_t pid) {
#ifdef SYS_pidfd_open
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));  // close-on-exec by itself
#else
  (void)pid;
  return -1;
#endif
}

bool HasChildren() {
  siginfo_t info;
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// 0 when there is no such process any more.
pid_t ParentOf(const char* pid) {
  char path[32], stat[512];
  snprintf(path, sizeof path, "/proc/%.12s/stat", pid);
  const TFd file(open(path, O_RDONLY | O_CLOEXEC));
  const ssize_t size = file.IsOpen() ? read(file.Get(), stat, sizeof stat - 1) : 0;
  if (size <= 0) return 0;
  stat[size] = '\0';
  const char* behindName = strrchr(stat, ')');  // the name may hold anything
  int parent = 0;
  return behindName != nullptr && sscanf(behindName, ") %*c %d", &parent) == 1 ? parent : 0;
}

// True when the child has ended, or is nobody's any more.
bool TakeEnd(pid_t pid, int& status) {
  pid_t taken;
  do {
    taken = waitpid(pid, &status, WNOHANG);
  } while (taken < 0 && errno == EINTR);
  if (taken < 0) status = SIGKILL;  // the kernel was told to drop our children's ends; how it ended stays unknown
  return taken != 0;
}

}  // namespace

TChildWatch::TChildWatch(pid_t child) : pid(child), pidfd(OpenPidfd(child)) {}

bool TChildWatch::Reap() {
  if (!ended) ended = TakeEnd(pid, status);
  return ended;
}

bool TChildWatch::WaitEnd(long long ms) {
  const long long start = MonotonicMs();
  while (!Reap()) {
    long long remaining = kLongestPollMs;
    if (ms >= 0) remaining = std::min(remaining, start + ms - MonotonicMs());
    if (remaining <= 0) return false;
    Pause(remaining);
  }
  return true;
}

void TChildWatch::Pause(long long ms) {
  if (pidfd.IsOpen()) {
    pollfd end = {pidfd.Get(), POLLIN, 0};
    if (poll(&end, 1, static_cast<int>(ms)) >= 0 || errno == EINTR) return;
  }
  const long long step = std::min<long long>(ms, stepMs);
  stepMs = std::min(2 * stepMs, kLongestStepMs);
  const timespec pause = {0, static_cast<long>(step * 1000 * 1000)};
  nanosleep(&pause, nullptr);  // a signal makes the look come sooner
}

void LeaveChild(pid_t pid) {
  TLock lock(leftmutex);
  int status = 0;
  if (!TakeEnd(pid, status)) left.push_back(pid);  // its end, from here on, is told by SIGCHLD
}

void AdoptChildren() {
  if (!HasChildren()) return;
  const TDir processes(opendir("/proc"));
  if (processes == nullptr) return;  // they stay unknown, which costs their places in the table of processes
  while (const dirent* entry = readdir(processes.get())) {
    const pid_t pid = atoi(entry->d_name);
    if (pid > 0 && ParentOf(entry->d_name) == getpid()) LeaveChild(pid);
  }
}

void ReapLeftChildren() {
  TLock lock(leftmutex);
  int status = 0;
  left.erase(std::remove_if(left.begin(), left.end(), [&status](pid_t pid) { return TakeEnd(pid, status); }),
             left.end());
}
