// Where a sample configuration finds the program, its scripts, and room for its files.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tavctl/configinit.h"

namespace {

std::string FullPath(const std::string& path) {
  char full[PATH_MAX];
  return realpath(path.c_str(), full) != nullptr ? full : path;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// The first that is there, looked for from our own program's folder; installed, in a package's tree, or just built.
std::string FirstBeside(std::initializer_list<const char*> names) {
  const std::string own = FolderOf(FullPath("/proc/self/exe"));
  for (const char* name : names) {
    const std::string path = name[0] == '/' ? name : own + "/" + name;
    if (access(path.c_str(), X_OK) == 0) return FullPath(path);
  }
  return "";
}

bool IsPrivateFolder(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return false;
  return info.st_uid == geteuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool MakePrivateFolder(const std::string& path, TFailure& failure) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    return Fail(failure, TKind::kInput, "cannot create '" + path + "': " + strerror(errno));
  return IsPrivateFolder(path) ||
         Fail(failure, TKind::kInput, "others can write to '" + path + "'", "move it away, or choose another FILE");
}

// What a package has made, else a folder of our own.
bool PlaceFolder(const char* packaged, const std::string& own, std::string& place, TFailure& failure) {
  place = IsPrivateFolder(packaged) ? packaged : own;
  return place != own || (MakePrivateFolder(FolderOf(own), failure) && MakePrivateFolder(own, failure));
}

}  // namespace

bool FindPlaces(const std::string& file, const std::string& tavpath, TPlaces& places, TFailure& failure) {
  const std::string name = file == "-" ? "./tav.cfg" : file;
  const std::string folder = FullPath(FolderOf(name));
  const std::string own = (folder == "/" ? "" : folder) + "/" + name.substr(name.rfind('/') + 1) + ".d";
  places.program = tavpath.empty() ? FirstBeside({"tav", "../sbin/tav", "../../tav"}) : FullPath(tavpath);
  if (places.program.empty()) places.program = "/usr/sbin/tav";
  const std::string count = FirstBeside({"proccnt.sh", "../libexec/tav/proccnt.sh",
                                         "../../../../examples/scripts/proccnt.sh", "/usr/libexec/tav/proccnt.sh"});
  places.scripts = count.empty() ? "" : FolderOf(count);
  places.pidfile = access("/run", W_OK) == 0 ? "/run/tav.pid" : own + "/tav.pid";
  if (!PlaceFolder("/var/lib/tav/tmp", own + "/tmp", places.tmpdir, failure)) return false;
  return PlaceFolder("/var/log/tav", own + "/log", places.logs, failure);
}
