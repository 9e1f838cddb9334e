#include "client/secrets.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "config/settings.h"
#include "core/closers.h"

namespace {

constexpr size_t kMaxSecret = 1024;  // a line of the agent's configuration file holds no more

constexpr int kPipePatienceMs = 10000;

bool IsOwnGroup(gid_t group) {
  if (getegid() == group) return true;
  gid_t groups[1024];
  const int count = getgroups(1024, groups);
  return count > 0 && std::count(groups, groups + count, group) > 0;
}

// A service manager lends its files by an access list, which shows in the group's bits.
bool IsLent(const std::string& path) {
  const char* folder = getenv("CREDENTIALS_DIRECTORY");
  return folder != nullptr && *folder != '\0' &&
         path.compare(0, strlen(folder) + 1, std::string(folder) + "/") == 0;
}

// Refuses what someone else could have read: a password that leaked is no proof of anything.
bool Guarded(int fd, const std::string& path, TFailure& failure) {
  struct stat info {};
  if (fstat(fd, &info) != 0)
    return Fail(failure, TKind::kConfig, "cannot look at '" + path + "': " + strerror(errno));
  if (!S_ISREG(info.st_mode) && !S_ISFIFO(info.st_mode))
    return Fail(failure, TKind::kConfig, "'" + path + "' is neither a regular file nor a pipe");
  const std::string fault = RightsFault(info, path);
  return fault.empty() || Fail(failure, TKind::kConfig, "'" + path + "' " + fault,
                               "chmod 600 '" + path + "', and change the password if somebody may have seen it");
}

bool OpenGuarded(const std::string& path, TFd& fd, TFailure& failure) {
  fd = TFd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd.IsOpen())
    return Fail(failure, TKind::kConfig, "cannot open '" + path + "': " + strerror(errno),
                "check the file's name and that it is yours to read");
  return Guarded(fd.Get(), path, failure);
}

// Waits until a pipe has something, or nobody to write to it.
bool WaitForPipe(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, kPipePatienceMs) > 0;
}

}  // namespace

std::string RightsFault(const struct stat& info, const std::string& path) {
  if ((info.st_mode & S_IRWXO) != 0) return "can be read or changed by everybody";
  if ((info.st_mode & (S_IWGRP | S_IXGRP)) != 0) return "can be changed by its group";
  if ((info.st_mode & S_IRGRP) != 0 && !IsOwnGroup(info.st_gid) && !IsLent(path))
    return "can be read by a group that you are not in";
  return "";
}

bool ReadSecretLine(int fd, const std::string& from, String& secret, TFailure& failure) {
  char buffer[kMaxSecret];
  size_t used = 0;
  bool ended = false;
  while (!ended && used < sizeof buffer) {
    const ssize_t n = read(fd, buffer + used, sizeof buffer - used);
    if (n < 0 && (errno == EINTR || (errno == EAGAIN && WaitForPipe(fd)))) continue;
    if (n < 0) return Fail(failure, TKind::kConfig, "cannot read " + from + ": " + strerror(errno));
    ended = n == 0 || memchr(buffer + used, '\n', static_cast<size_t>(n)) != nullptr;
    used += static_cast<size_t>(n);
  }
  size_t length = 0;
  while (length < used && buffer[length] != '\n' && buffer[length] != '\r') ++length;
  if (ended) secret.CopyData(buffer, static_cast<int>(length));
  explicit_bzero(buffer, sizeof buffer);
  if (!ended) return Fail(failure, TKind::kConfig, from + " holds a line longer than a password can be");
  return length != 0 || Fail(failure, TKind::kConfig, from + " holds no password");
}

bool ReadSecretFile(const std::string& path, String& secret, TFailure& failure) {
  TFd fd;
  return OpenGuarded(path, fd, failure) && ReadSecretLine(fd.Get(), "'" + path + "'", secret, failure);
}

bool ReadAgentConfig(const std::string& path, TAgentConfig& config, String* password, TFailure& failure) {
  TFd fd;
  if (!OpenGuarded(path, fd, failure)) return false;
  TTAVSettings settings;
  if (path.size() >= sizeof settings.cfgfile)
    return Fail(failure, TKind::kConfig, "the name '" + path + "' is too long for the agent");
  memcpy(settings.cfgfile, path.c_str(), path.size() + 1);
  String message;
  // Its complaints (a program that is not installed here, say) are no business of a client.
  (void)settings.LoadOptions_(message);
  config.host = settings.host.CStr();
  config.port = settings.port;
  const bool empty = settings.password.Length() == 0;
  if (password != nullptr) *password = settings.password;
  return password == nullptr || !empty || Fail(failure, TKind::kConfig, "'" + path + "' holds no password");
}

bool FindPassword(const TSecretSources& sources, TAskForPassword ask, String& password, TFailure& failure) {
  if (sources.passwordFile == "-") return ReadSecretLine(STDIN_FILENO, "standard input", password, failure);
  if (!sources.passwordFile.empty()) return ReadSecretFile(sources.passwordFile, password, failure);
  if (!sources.agentConfig.empty()) {
    TAgentConfig config;
    return ReadAgentConfig(sources.agentConfig, config, &password, failure);
  }
  if (const char* path = getenv("TAV_PASSWORD_FILE")) return ReadSecretFile(path, password, failure);
  if (const char* folder = getenv("CREDENTIALS_DIRECTORY")) {
    const std::string path = std::string(folder) + "/tav-password";
    if (access(path.c_str(), F_OK) == 0) return ReadSecretFile(path, password, failure);
  }
  if (char* value = getenv("TAV_PASSWORD")) {
    password = value;
    explicit_bzero(value, strlen(value));
    return password.Length() != 0 || Fail(failure, TKind::kConfig, "TAV_PASSWORD is empty");
  }
  return ask(password, failure);
}
