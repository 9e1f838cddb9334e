#include "client/inputfiles.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "client/text.h"
#include "core/closers.h"
#include "core/writeall.h"

namespace {

constexpr long long kMaxCopy = 16 * 1024 * 1024;

bool FailOn(const char* what, const std::string& path, TFailure& failure) {
  return Fail(failure, TKind::kInput, std::string("cannot ") + what + " '" + path + "': " + strerror(errno));
}

// So that the new name survives a crash, too.
void SyncFolder(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  TFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.IsOpen()) (void)fsync(fd.Get());
}

}  // namespace

bool ReadInput(const std::string& path, long long limit, std::string& content, TFailure& failure) {
  const bool standard = path == "-";
  TFd opened(standard ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!standard && !opened.IsOpen()) return FailOn("open", path, failure);
  const int fd = standard ? 0 : opened.Get();
  struct stat info {};
  if (!standard && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)))
    return Fail(failure, TKind::kInput, "'" + path + "' is no regular file");
  content.clear();
  std::string block(256 * 1024, '\0');
  for (;;) {
    const ssize_t n = read(fd, block.data(), block.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return FailOn("read", path, failure);
    if (n == 0) return true;
    content.append(block, 0, static_cast<size_t>(n));
    if (static_cast<long long>(content.size()) > limit)
      return Fail(failure, TKind::kInput, "'" + path + "' is larger than " + SizeText(limit),
                  "is it the right file?");
  }
}

bool InputPath(const std::string& given, std::string& path, TFd& copy, TFailure& failure) {
  path = given;
  if (given != "-") return true;
  std::string content;
  if (!ReadInput(given, kMaxCopy, content, failure)) return false;
  copy = TFd(memfd_create("standard input", MFD_CLOEXEC));
  const bool copied = copy.IsOpen() && fchmod(copy.Get(), 0600) == 0 &&
                      WriteAll(copy.Get(), content.data(), static_cast<long long>(content.size()));
  explicit_bzero(content.data(), content.size());  // it may hold a password
  path = "/proc/self/fd/" + std::to_string(copy.Get());
  return copied || FailOn("keep", "standard input", failure);
}

bool WriteWhole(const std::string& path, const std::string& content, unsigned mode, TFailure& failure) {
  const std::string beside = path + ".new" + std::to_string(getpid());
  TFd fd(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, static_cast<mode_t>(mode)));
  if (!fd.IsOpen()) return FailOn("create", beside, failure);
  const bool written =
      WriteAll(fd.Get(), content.data(), static_cast<long long>(content.size())) && fsync(fd.Get()) == 0;
  if (!written || rename(beside.c_str(), path.c_str()) != 0) {
    FailOn("write", path, failure);
    (void)unlink(beside.c_str());
    return false;
  }
  SyncFolder(path);
  return true;
}
