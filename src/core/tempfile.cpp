#include "core/tempfile.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "core/paths.h"
#include "core/tempdir.h"
#include "core/zostring.h"

TMutex fidmutex;
int filenumber = 1;

namespace {

constexpr int kLastNumber = 999999;  // counted on from, once more
constexpr int kMaxAttempts = 2000;
constexpr int kRoomForName = 16;
constexpr int kScratchSize = 1024;
constexpr int kMaxCreations = 16;  // someone who keeps planting files gets no endless loop

int NextFileNumber() {
  TLock lock(fidmutex);
  if (filenumber > kLastNumber) filenumber = 0;
  return ++filenumber;
}

int Refuse(char* buf) {
  *buf = '\0';
  return 0;
}

int UniqueName(char* buf, int len) {
  const size_t used = strlen(buf);
  const long id = GetUniqueThreadID();
  snprintf(buf + used, static_cast<size_t>(len) - used, "tmp-%ld-", id);

  char candidate[kScratchSize];
  for (int attempt = 1; attempt <= kMaxAttempts; attempt++) {
    snprintf(candidate, sizeof(candidate), "%s%d", buf, NextFileNumber());
    if (strlen(candidate) <= strlen(buf)) return Refuse(buf);  // no room for the number
    if (FileExists(candidate)) continue;

    snprintf(buf, static_cast<size_t>(len), "%s", candidate);
    return 1;
  }
  return Refuse(buf);
}

}  // namespace

int GetUniqueThreadID() {
  const unsigned int process = static_cast<unsigned int>(getpid()) << 8;
  return static_cast<int>(process + static_cast<unsigned int>(pthread_self()));
}

int gettempfilename(char* buf, int len, const char* name) {
  if (buf == nullptr || len < kRoomForName) return 0;
  String dir;
  if (!TempDirectory(dir)) dir = ".";
  dir = SafeTempFolder(dir) + '/';
  if (strlen(dir.CStr()) > static_cast<size_t>(len - kRoomForName)) return Refuse(buf);

  snprintf(buf, static_cast<size_t>(len), "%s%s", dir.CStr(), name == nullptr ? "" : name);
  return name != nullptr ? 1 : UniqueName(buf, len);
}

TFd CreatePrivateFile(const char* path, mode_t mode, int extraFlags) {
  const int access = (extraFlags & O_ACCMODE) == O_RDONLY ? O_RDWR : 0;
  const int flags = O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | access | extraFlags;
  for (int attempt = 0; attempt < kMaxCreations; attempt++) {
    (void)unlink(path);  // mostly there is nothing; what stays makes the open fail
    TFd file(open(path, flags, mode & (S_IRUSR | S_IWUSR)));
    if (!file.IsOpen() && (errno == EEXIST || errno == EINTR)) continue;  // planted again in between
    if (!file.IsOpen() || fchmod(file.Get(), mode) == 0) return file;

    const int reason = errno;
    (void)unlink(path);  // ours, and of no use to anyone
    errno = reason;
    return TFd();
  }
  return TFd();
}

TFd OpenPrivateFile(const char* path) {
  TFd file(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.IsOpen()) return file;

  struct stat status;
  if (fstat(file.Get(), &status) != 0) return TFd();
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    errno = EPERM;
    return TFd();
  }
  return file;
}
