// Time that no clock step changes (CLOCK_MONOTONIC), and sleeping by it.  Safe in signal handlers; any thread.
#pragma once

#include <errno.h>
#include <time.h>

inline long long MonotonicUs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}
inline long long MonotonicMs() {
  return MonotonicUs() / 1000;
}
inline long long MonotonicSeconds() {
  return MonotonicMs() / 1000;
}

// The milliseconds of a reply: whole seconds and the rest are subtracted and cut each for itself, which is how the
// servers have always been given the figure.
inline int ReportedMs(long long fromUs, long long toUs) {
  const long long seconds = toUs / 1000000 - fromUs / 1000000;
  const long long microseconds = toUs % 1000000 - fromUs % 1000000;
  return static_cast<int>(seconds * 1000 + microseconds / 1000);
}

// Sleeps for the whole time, whatever signals arrive; nothing when it is not above 0.
inline void SleepUs(long long us) {
  if (us <= 0) return;
  timespec left = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000 * 1000)};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) continue;
}
