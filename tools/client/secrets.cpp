#include "client/secrets.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>

#include "config/settings.h"
#include "core/closers.h"

namespace {

constexpr size_t kMaxSecret = 1024;  // a line of the agent's configuration file holds no more

// Refuses what someone else could have read: a password that leaked is no proof of anything.
bool Guarded(int fd, const std::string& path, TFailure& failure) {
  struct stat info {};
  if (fstat(fd, &info) != 0)
    return Fail(failure, TKind::kConfig, "cannot look at '" + path + "': " + strerror(errno));
  if (!S_ISREG(info.st_mode)) return Fail(failure, TKind::kConfig, "'" + path + "' is no regular file");
  if ((info.st_mode & 077) == 0) return true;
  return Fail(failure, TKind::kConfig, "'" + path + "' can be read by others than its owner",
              "chmod 600 '" + path + "', and change the password if somebody may have seen it");
}

bool OpenGuarded(const std::string& path, TFd& fd, TFailure& failure) {
  fd = TFd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd.IsOpen())
    return Fail(failure, TKind::kConfig, "cannot open '" + path + "': " + strerror(errno),
                "check the file's name and that it is yours to read");
  return Guarded(fd.Get(), path, failure);
}

// The first line that `fd` gives.
bool ReadLine(int fd, const std::string& from, String& secret, TFailure& failure) {
  char buffer[kMaxSecret];
  size_t used = 0;
  bool ended = false;
  while (!ended && used < sizeof buffer) {
    const ssize_t n = read(fd, buffer + used, sizeof buffer - used);
    if (n < 0 && errno == EINTR) continue;
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

bool Prompt(String& password, TFailure& failure) {
  TFd terminal(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
  termios before{};
  if (!terminal.IsOpen() || !isatty(STDERR_FILENO) || tcgetattr(terminal.Get(), &before) != 0)
    return Fail(failure, TKind::kConfig, "no password",
                "give --password-file FILE (or -), --agent-config FILE, TAV_PASSWORD_FILE or TAV_PASSWORD");
  const char question[] = "Agent's password: ";
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  (void)!write(terminal.Get(), question, sizeof question - 1);
  tcsetattr(terminal.Get(), TCSAFLUSH, &silent);
  const bool read = ReadLine(terminal.Get(), "the terminal", password, failure);
  tcsetattr(terminal.Get(), TCSAFLUSH, &before);
  (void)!write(terminal.Get(), "\n", 1);
  return read;
}

}  // namespace

bool ReadSecretFile(const std::string& path, String& secret, TFailure& failure) {
  TFd fd;
  return OpenGuarded(path, fd, failure) && ReadLine(fd.Get(), "'" + path + "'", secret, failure);
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

bool FindPassword(const TSecretSources& sources, String& password, TFailure& failure) {
  if (sources.passwordFile == "-") return ReadLine(STDIN_FILENO, "standard input", password, failure);
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
  return Prompt(password, failure);
}
