#include "core/keptfile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "core/clock.h"
#include "core/tempfile.h"
#include "core/tempregister.h"
#include "core/trouble.h"
#include "core/writeall.h"

namespace {

constexpr int kMostLooks = 50;
constexpr long long kLookPauseUs = 10 * 1000;

// Makes a call that examines a file.  A shortage says nothing about the file, and what is given up for it may be
// dear: it is waited out for a moment.
template <class TCall>
bool Look(TCall call) {
  for (int attempt = 1; call() != 0; ++attempt) {
    if (!OwnTrouble(errno) || attempt == kMostLooks) return false;
    SleepUs(kLookPauseUs);
  }
  return true;
}

}  // namespace

bool TKeptFile::Make(const String& name) {
  path = name;
  if (!RegisterTempFile(path.CStr())) return false;
  made = true;
  file = CreatePrivateFile(path.CStr(), S_IRUSR | S_IWUSR, O_RDWR);
  return file.IsOpen();
}

void TKeptFile::Remove() {
  if (!made) return;
  file.Reset();
  (void)unlink(path.CStr());  // may have vanished, or never been made
  ForgetTempFile(path.CStr());
  made = false;
}

bool TKeptFile::Write(const char* bytes, int n) {
  return WriteAll(file.Get(), bytes, n);
}

bool TKeptFile::SetMode(mode_t mode) {
  return fchmod(file.Get(), mode) == 0;
}

bool TKeptFile::IsInPlace() {
  struct stat open, named;
  if (!file.IsOpen() || !Look([&] { return fstat(file.Get(), &open); })) return false;
  if (!Look([&] { return lstat(path.CStr(), &named); })) return false;
  return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

bool TKeptFile::CloseForWriting() {
  TFd reading(open(path.CStr(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!reading.IsOpen() || !IsInPlace()) return false;
  file = std::move(reading);
  return IsInPlace();
}
