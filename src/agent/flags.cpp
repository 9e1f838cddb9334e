#include "agent/flags.h"

#include <errno.h>
#include <stdint.h>
#include <unistd.h>

#include "core/tempregister.h"

TTAVFlags TAVFlags;

namespace {

std::atomic<int> wakeFd{-1};
std::atomic<int> timesGivenUp{0};

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
  ssize_t written = 0;
  do {
    written = wakeFd >= 0 ? write(wakeFd, &one, sizeof one) : 0;
  } while (written < 0 && errno == EINTR);  // a full counter means that the main thread is woken already
  errno = saved;
}

void SetWakeFd(int fd) {
  wakeFd = fd;
}

void GiveUpRequests(const char* spare1, const char* spare2) {
  ++timesGivenUp;
  RemoveTempFiles(spare1, spare2);
}

int TimesGivenUp() {
  return timesGivenUp;
}
