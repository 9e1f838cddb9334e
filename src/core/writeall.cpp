#include "core/writeall.h"

#include <errno.h>
#include <unistd.h>

bool WriteAll(int fd, const char* bytes, long long n) {
  while (n > 0) {
    const ssize_t done = write(fd, bytes, static_cast<size_t>(n));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    bytes += done;
    n -= done;
  }
  return true;
}
