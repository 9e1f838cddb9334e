#include "core/tempdir.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/tempregister.h"

namespace {

constexpr char kName[] = "TMPDIR=";
constexpr size_t kNameLength = sizeof(kName) - 1;

// Read and replaced whole, with the atomic operations for shared pointers.
std::shared_ptr<const String> published;

constexpr char kNowhere[] = "/dev/null";  // taken for a folder: nothing can be made in it
constexpr int kLongestFolder = 1000;      // leaves room for the names in it wherever a path is cut
constexpr int kMaxLooks = 3;

struct TOwnFolder {
  String dir, path;
};

// The one used last; read and replaced as above.
std::shared_ptr<const TOwnFolder> ownFolder;

enum TLook { kOurs, kAbsent, kForeign, kUnknown };

TLook LookAt(const char* path) {
  struct stat status;
  if (lstat(path, &status) != 0) return errno == ENOENT ? kAbsent : kUnknown;
  const bool closed = (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && closed ? kOurs : kForeign;
}

// Empty when it cannot be made.
String MakeWithRandomEnding(const String& name) {
  String path = name + "-XXXXXX";
  if (mkdtemp(path.Data()) == nullptr) return String();
  if (RegisterTempFolder(path.Data())) return path;
  (void)rmdir(path.Data());
  return String();
}

// Empty when there can be none.
String MakeOwnFolder(const String& dir) {
  char name[24];
  snprintf(name, sizeof(name), "/tav-%u", geteuid());
  String path = dir + name;
  if (path.Length() > kLongestFolder || !RegisterTempFolder(path.CStr())) return String();

  for (int looks = 0; looks < kMaxLooks; looks++) {
    const TLook look = LookAt(path.CStr());
    if (look == kOurs) return path;
    if (look == kUnknown) return String();
    if (look == kForeign) break;
    if (mkdir(path.CStr(), S_IRWXU) != 0 && errno != EEXIST) return String();
  }
  ForgetTempFile(path.CStr());
  return MakeWithRandomEnding(path);
}

}  // namespace

bool OthersMayWrite(const struct stat& folder) {
  const bool byBits = (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return byBits || (folder.st_uid != 0 && folder.st_uid != geteuid());
}

String SafeTempFolder(const String& dir) {
  struct stat status;
  if (stat(dir.CStr(), &status) != 0) {
    // One that is not there or can't be entered needs no folder of ours; what can't be judged is not used.
    const bool unusable = errno == ENOENT || errno == ENOTDIR || errno == EACCES || errno == ELOOP;
    return unusable || errno == ENAMETOOLONG ? dir : String(kNowhere);
  }
  if (!OthersMayWrite(status)) return dir;

  const std::shared_ptr<const TOwnFolder> last = std::atomic_load(&ownFolder);
  if (last != nullptr && last->dir == dir) {
    const TLook look = LookAt(last->path.CStr());
    if (look == kOurs) return last->path;
    if (look == kUnknown) return kNowhere;
    ForgetTempFile(last->path.CStr());
  }
  String made = MakeOwnFolder(dir);
  if (made.Length() == 0) return kNowhere;
  std::atomic_store(&ownFolder, std::shared_ptr<const TOwnFolder>(new TOwnFolder{dir, made}));
  return made;
}

void SetTempDirectory(const char* dir) {
  std::atomic_store(&published, dir == nullptr ? nullptr : std::make_shared<const String>(dir));
}

bool TempDirectory(String& dir) {
  const std::shared_ptr<const String> value = std::atomic_load(&published);
  const char* fromEnvironment = getenv("TMPDIR");
  if (fromEnvironment == nullptr) fromEnvironment = getenv("TMP");
  if (value == nullptr && fromEnvironment == nullptr) return false;

  dir = value != nullptr ? *value : String(fromEnvironment);
  return true;
}

TChildEnvironment::TChildEnvironment(const char* tmpdir) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; entry++) {
    if (tmpdir == nullptr || strncmp(*entry, kName, kNameLength) != 0) entries.push_back(*entry);
  }
  if (tmpdir != nullptr) {
    assignment = std::string(kName) + tmpdir;
    entries.push_back(assignment.data());
  }
  entries.push_back(nullptr);
}

std::shared_ptr<const TChildEnvironment> ChildEnvironment() {
  const std::shared_ptr<const String> value = std::atomic_load(&published);
  return std::make_shared<const TChildEnvironment>(value == nullptr ? nullptr : value->CStr());
}
