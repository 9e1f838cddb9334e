#include "agent/flags.h"

#include <errno.h>
#include <stdint.h>
#include <unistd.h>

TTAVFlags TAVFlags;
TMutex upgrade_mutex;
int upgradeInProgress = 0;
String upgradeScript;

namespace {

std::atomic<int> wakeFd{-1};

}  // namespace

TTAVFlags::TTAVFlags() : startTime(MonotonicSeconds()) {}

void TTAVFlags::Raise(const TTAVFlags& raised) {
  if (raised.terminate) terminate = 1;
  if (raised.reload) reload = 1;
  if (raised.upgrade) upgrade = 1;
  if (raised.terminate || raised.reload || raised.upgrade) WakeMainLoop();
}

void WakeMainLoop() {
  const int saved = errno;  // a handler must not change what the interrupted code sees
  const uint64_t one = 1;
  // A full counter means that the main thread is woken already.
  if (wakeFd >= 0 && write(wakeFd, &one, sizeof one) < 0) errno = saved;
  errno = saved;
}

void SetWakeFd(int fd) {
  wakeFd = fd;
}
