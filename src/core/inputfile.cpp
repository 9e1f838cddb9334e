#include "core/inputfile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/paths.h"
#include "core/trouble.h"

namespace {

bool Unreadable(mode_t mode) {
  return S_ISFIFO(mode) || S_ISSOCK(mode);
}

bool Refuse(int error) {
  errno = error;
  return false;
}

}  // namespace

bool TInputFile::Open(const char* path) {
  fd.Reset();
  if (!path) return Refuse(ENOENT);

  // Asked before opening: opening a FIFO wakes its writer, and opening a device may wind a tape or arm a watchdog.
  struct stat status;
  if (!ExamineFile(path, status)) return false;
  if (Unreadable(status.st_mode)) return Refuse(ENXIO);
  if (S_ISCHR(status.st_mode)) return access(path, R_OK) == 0;

  TFd opened(Uninterrupted([path] { return open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  if (!opened.IsOpen()) return false;
  // Asked again of what was opened: the name may mean something else by now.
  if (fstat(opened.Get(), &status) != 0) return false;
  if (Unreadable(status.st_mode)) return Refuse(ENXIO);
  if (!S_ISCHR(status.st_mode)) fd = std::move(opened);
  return true;
}

long long TInputFile::Read(void* buffer, size_t size) {
  size_t filled = 0;
  while (filled < size) {
    const ssize_t n = read(fd.Get(), static_cast<char*>(buffer) + filled, size - filled);
    if (n == 0) break;
    if (n > 0) filled += static_cast<size_t>(n);
    if (n < 0 && errno != EINTR) return -1;
  }
  return static_cast<long long>(filled);
}

bool TInputFile::Seek(long long offset) {
  return lseek(fd.Get(), offset, SEEK_SET) >= 0;
}
