// Preloaded into an agent: once the file that TAV_LATER names is there, its steady clock is a quarter of an hour
// ahead.
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const long failed = syscall(SYS_clock_gettime, clock, now);
  const char* sign = getenv("TAV_LATER");
  if (failed == 0 && clock == CLOCK_MONOTONIC && sign != nullptr && access(sign, F_OK) == 0) now->tv_sec += 900;
  return static_cast<int>(failed);
}
