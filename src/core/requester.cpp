#include "core/requester.h"

#include <errno.h>
#include <poll.h>
#include <time.h>

#include <algorithm>

#include "core/clock.h"

namespace {

thread_local int requesterFd = -1;

}  // namespace

TRequester::TRequester(int fd) {
  requesterFd = fd;
}

TRequester::~TRequester() {
  requesterFd = -1;
}

int RequesterFd() {
  return requesterFd;
}

bool RequesterGone() {
  return !SleepUnlessGone(0);
}

bool SleepUnlessGone(long long us) {
  const long long endUs = MonotonicUs() + std::max(us, 0LL);
  for (;;) {
    const long long leftUs = std::max(endUs - MonotonicUs(), 0LL);
    const timespec left = {static_cast<time_t>(leftUs / 1000000), static_cast<long>(leftUs % 1000000 * 1000)};
    pollfd entry = {requesterFd, 0, 0};
    const int n = ppoll(&entry, 1, &left, nullptr);
    if (n > 0) return false;
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) SleepUs(leftUs);  // there is no looking: the sleep counts all the same
    if (n < 0 || leftUs == 0) return true;
  }
}
